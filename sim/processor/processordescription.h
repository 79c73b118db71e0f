// What a server's management processor and the devices behind it are: "management_processor" and "faults.processor" of
// its server.json.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "sim/images/firmwareversion.h"
#include "sim/processor/i2c.h"
#include "smif.h"

namespace sim
{

// How a device's firmware is flashed through the processor.
struct FlashDescription
{
    std::string Handler;  // empty: it is not
    std::uint32_t Size;   // bytes that the device holds
    int BusySeconds;      // after the last byte
    int QuerySeconds;     // that a sub-query takes
};

struct PowerPicDescription
{
    FirmwareVersion Version;
    std::uint16_t Type;
    bool BootLoader;  // runs in place of the firmware
    std::vector<std::uint16_t> Registers;
};

struct TamberlineDescription
{
    FirmwareVersion Version;
    FirmwareVersion LoaderVersion;
    std::uint8_t Family;
    FlashDescription Flash;
};

struct BackplaneDescription
{
    FirmwareVersion Version;
    std::uint8_t LoaderVersion;
    std::uint8_t Segment;
    std::uint8_t Address;
    std::uint8_t Type;
    std::string Id;
    FlashDescription Flash;
};

// What is wrong with the packets of some exchanges.
struct PacketFault
{
    bool Set;
    int Exchange;           // the one with that number, from 1, of the command or of all; 0: every one
    std::uint16_t Command;  // 0: of any command
    int Value;
};

struct ProcessorFaults
{
    PacketFault FullFifo;  // so many attempts to send find the FIFO full
    PacketFault Lost;      // no reply comes
    PacketFault Late;      // it comes so many milliseconds late
    PacketFault Stale;     // so many replies to earlier requests come before it
    PacketFault Runt;      // so many bytes of it come
    PacketFault Error;     // it carries that error code, and nothing was done

    bool NoDriver;   // the PCI device is there alone
    bool Dead;       // the driver is there, the processor never answers
    bool StaysAway;  // it does not come back from a reset

    // Offsets in an upload; -1: never.
    std::int64_t DiesAtByte;
    std::int64_t DeviceErrorAtByte;
    std::int64_t PowerLostAtByte;
};

struct ProcessorDescription
{
    int Generation;
    FirmwareVersion Version;
    std::string Serial;
    FlashDescription Flash;  // of its own firmware, which runs from its next reset on
    int PciFunctions;
    bool DeviceControlEx;  // knows the long form of device control
    int ResetSeconds;
    int LatencyMicroseconds;  // of an exchange

    std::map<std::string, std::vector<std::uint8_t>> Registers;
    I2CBusesDescription I2C;
    std::optional<PowerPicDescription> PowerPic;
    std::optional<TamberlineDescription> Tamberline;
    std::vector<BackplaneDescription> Backplanes;
    std::vector<PS_GUID> PowerSupplies;

    ProcessorFaults Faults;
};

class CFields;

// Reads the two. Throws std::runtime_error with a sentence for the user.
ProcessorDescription DescribeProcessor(CFields& fields, CFields& faults);

}  // namespace sim
