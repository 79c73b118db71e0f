// What a simulated server is: the contents of its server.json.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "sim/bmc/ipmifaults.h"
#include "sim/images/romimage.h"
#include "sim/processor/processordescription.h"

namespace sim
{

// A firmware that the tables tell of in a version record.
struct FirmwareDescription
{
    std::uint16_t Type;
    std::string Name;
    std::string Version;
    std::uint8_t Format;
    std::vector<std::uint8_t> Data;  // at most 12 bytes
};

enum class SmbiosFault
{
    None,
    Missing,      // no device node
    Empty,        // the node has nothing to read
    ReadError,    // reading it fails
    NoAnchor,     // it holds something else
    FalseAnchor,  // an anchor without the rest of an entry point, then a true one
    Misaligned,   // the entry point is not at a multiple of 4
    ZeroAddress,  // the entry point tells no address
    Truncated,    // the table is shorter than its structure count says
    Unreadable,   // the entry point tells an address at which there is no memory
};

enum class DriverFault
{
    None,
    Missing,  // no device node
    Refuses,  // does not know the version query
    Fails,    // answers every request with an error
};

struct FlashFaults
{
    int FailsAtTable;      // this table reports an error after half of its work; -1: none does
    int PowerLostAtTable;  // power goes while this table runs, after so many blocks of 64 KiB; -1: never
    int PowerLostAfterBlocks;
    int StuckBlock;  // this block keeps what it holds when it is programmed; -1: none
    bool NoHeader;   // the driver library tells a table but no header
};

struct ServerDescription
{
    std::filesystem::path Folder;
    std::string Product;
    std::string Manufacturer;
    std::string Serial;
    int Generation;  // from 8 on, version records tell of the firmware

    RomDescription Rom;
    std::size_t RomSize;                   // bytes of the flash part
    std::vector<std::string> FlashTables;  // names of the table sets
    std::string RedundantRomDate;
    std::string BootBlockDate;
    std::string OemRomName;
    std::string OemRomDate;
    std::string PowerMicroVersion;
    std::vector<FirmwareDescription> Firmware;

    std::string SystemId;
    std::uint16_t PlatformId;
    std::uint8_t TpmStatus;
    std::uint64_t FlashBufferAddress;  // 0: the firmware reserves none
    std::uint32_t FlashBufferSize;     // bytes

    std::filesystem::path SmbiosDump;  // empty: the tables are built from the above
    std::string DriverVersion;         // "5.6.0.2"; empty: the host has no ROM utility driver

    SmbiosFault Smbios;
    DriverFault Driver;
    FlashFaults Flash;
    IpmiFaults Ipmi;

    std::optional<ProcessorDescription> Processor;
};

// Reads server.json in the server's folder, and over its faults those of a run: a JSON object, or nothing. Throws
// std::runtime_error with a sentence for the user.
ServerDescription ReadDescription(const std::filesystem::path& folder, const std::string& faults);

}  // namespace sim
