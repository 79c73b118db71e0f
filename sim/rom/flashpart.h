// The system ROM's flash part, and the flash tables that the ROM utility driver runs on it.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "sim/base/journal.h"
#include "sim/base/state.h"
#include "sim/images/romimage.h"
#include "sim/rom/romdescription.h"
#include "zalftbl.h"

namespace sim
{

// Status of a table that was run.
enum FlashStatus : DWORD
{
    FlashStatus_OK = 0,
    FlashStatus_NotSetUp = 1,       // no setup table was run before
    FlashStatus_NotErased = 2,      // no erase table was run before
    FlashStatus_BadBuffer = 3,      // the physical buffer is not the one that the firmware reserves
    FlashStatus_BadSize = 4,        // the data does not fit the part or the physical buffer
    FlashStatus_UnknownTable = 5,   // there is no such table
    FlashStatus_BadRequest = 6,     // a field that the table needs is not set, or another one is
    FlashStatus_DeviceError = 255,  // what a fault reports
};

// A ROM that a server has started, or will.
struct StartedRom
{
    std::vector<std::uint8_t> BiosArea;  // the BiosAreaSize bytes that the server maps there
    std::optional<RomHeader> Header;     // in that area
    RomDescription Rom;                  // of the boot block the family alone
    bool BootBlock;                      // runs in place of a ROM that is not whole
};

class CFlashPart
{
  public:
    // The part's contents stand in rom.bin in the folder once something was flashed; until then they are the
    // description's. What they were when the server was started stands in rom.running from the first change on.
    CFlashPart(const FlashPartDescription& description, CServerFolder& folder, CJournal& journal);

    // What runs since the server was started, and what will run when it is started again.
    const RomDescription& GetRunningRom() const { return m_RunningRom; }
    const StartedRom& GetRunning();
    StartedRom GetNext();

    // Tells where the firmware reserves memory for flashing.
    void SetBuffer(DWORD address, DWORD size);

    // The driver library's operations; tables are those of the ROM that runs. False: there is none selected, the buffer
    // is null, or a table that is written does not have the size of the one there is.
    void Initialize();
    void Select(const std::string& name);
    TABLE_QUERY_RESULT Query();
    bool ReadHeader(void* buffer);
    bool ReadTable(void* buffer);
    bool WriteTable(const void* table, std::size_t size);
    void Execute(TABLE_EXEC_REQUEST& request);
    void CorruptNvram();

  private:
    using Bytes = std::vector<std::uint8_t>;

    StartedRom Start(const Bytes& part) const;
    Bytes Shipped(std::size_t size) const;
    void Load();
    void Save();
    DWORD Run(TABLE_EXEC_REQUEST& request);
    DWORD Backup(TABLE_EXEC_REQUEST& request);
    DWORD Erase(std::size_t bytes);
    DWORD Program(const TABLE_EXEC_REQUEST& request, std::size_t bytes);
    void WriteBlock(std::size_t offset, const std::uint8_t* bytes);
    bool Fails(DWORD table);
    void LosePower(DWORD table, std::size_t block);
    bool IsSelected();
    TABLE_QUERY_RESULT Find();
    void Record(FlashOperation operation, Direction direction, DWORD status, const void* bytes, std::size_t size) const;

    const FlashPartDescription& m_Description;
    CServerFolder& m_Folder;
    CJournal& m_Journal;
    CStateFile m_File;
    CStateFile m_RunningFile;
    Bytes m_Bytes;
    bool m_bChanged;  // since they were read or written
    RomDescription m_RunningRom;
    std::optional<StartedRom> m_Running;  // none: nobody has asked
    Bytes m_Table;
    DWORD m_BufferAddress;
    DWORD m_BufferSize;
    std::string m_Selected;
    bool m_bSetUp;
    std::map<DWORD, int> m_TableRuns;  // of each table so far
};

}  // namespace sim
