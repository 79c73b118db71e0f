// The power controller's boot loader: programs the controller's microcode from HEX records in binary.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "sim/base/journal.h"
#include "sim/base/state.h"
#include "sim/images/firmwareversion.h"
#include "sim/processor/i2c.h"

namespace sim
{

// Bits 0 to 2 of the controller's status register: what became of the last record.
enum ProgrammingStatus
{
    ProgrammingStatus_Done = 0,
    ProgrammingStatus_BadChecksum = 1,
    ProgrammingStatus_BadCount = 2,    // it does not say how many bytes follow
    ProgrammingStatus_BadType = 3,     // neither data nor an extended linear address
    ProgrammingStatus_BadOrder = 4,    // not at the start, nor behind the record before it
    ProgrammingStatus_BadAddress = 5,  // outside of the memory for microcode
    ProgrammingStatus_DeviceError = 6,
    ProgrammingStatus_Busy = 7,
};

struct BootLoaderFaults
{
    RepeatedFault Error;    // records are answered with an error status
    int BusyAtRecord;       // from this record on it is busy for ever; 0: never
    int PowerLostAtRecord;  // power goes when half of this record is programmed; 0: never
};

// Microcode is a device image (deviceimage.h) whose handler is the controller's family. It begins at MicrocodeAddress
// of the program memory, below which the boot loader itself is, and is whole when the image's checksum is right: until
// then the controller has no firmware but its boot loader.
class CBootLoader
{
  public:
    using Bytes = std::vector<std::uint8_t>;

    static const std::uint32_t MicrocodeAddress = 0x1000;
    static const std::uint32_t MemorySize = 0x18000;

    // The program memory stands in powercontroller.bin in the folder once something was programmed; until then it holds
    // whole microcode of the shipped version.
    CBootLoader(const std::string& family, const FirmwareVersion& shipped, const BootLoaderFaults& faults,
                CServerFolder& folder, CJournal& journal);

    // Takes a record, count to checksum, and is busy with it for a while. False while it is still busy. The record at
    // the start of the microcode erases all of it; the others follow in the order of their addresses.
    bool Take(const Bytes& record);
    ProgrammingStatus GetStatus() const;

    // Of the microcode; nothing when it is not whole.
    const std::optional<FirmwareVersion>& GetVersion() const { return m_Version; }

  private:
    ProgrammingStatus Execute(const Bytes& record);
    ProgrammingStatus Program(std::uint32_t address, const std::uint8_t* data, std::size_t size);
    void Erase();
    void Store(std::uint32_t address, const std::uint8_t* data, std::size_t size);
    void Load();
    std::optional<FirmwareVersion> ReadVersion(std::uint32_t end) const;

    const std::string m_Family;
    const BootLoaderFaults m_Faults;
    const FirmwareVersion m_Shipped;
    CServerFolder& m_Folder;
    CStateFile m_State;
    CJournal& m_Journal;
    Bytes m_Memory;
    std::optional<FirmwareVersion> m_Version;

    int m_Records;                  // that came
    Bytes m_Last;                   // the last one that was done
    std::uint32_t m_LinearAddress;  // added to the records' own
    std::uint32_t m_End;            // of what was programmed; 0: nothing was
    ProgrammingStatus m_Status;
    std::int64_t m_BusyUntil;
};

}  // namespace sim
