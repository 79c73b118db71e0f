// The system ROM's flash part, and the flash tables that the ROM utility driver runs on it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "sim/base/journal.h"
#include "sim/description.h"
#include "sim/images/romimage.h"
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
    FlashStatus_DeviceError = 255,  // what a fault reports
};

class CFlashPart
{
  public:
    // The part's contents stand in rom.bin in the folder once something was flashed; until then they are the
    // description's.
    CFlashPart(const ServerDescription& server, const std::filesystem::path& folder, CJournal& journal);

    // What runs since the server was started: the ROM of the part, or, where that is not whole, the boot block, which
    // knows the ROM family alone.
    const RomDescription& GetRunningRom() const { return m_Running; }
    bool RunsOnBootBlock() const { return m_bBootBlock; }

    // The BiosAreaSize bytes that the server maps into the legacy BIOS area.
    const std::vector<std::uint8_t>& GetBiosArea() const { return m_BiosArea; }

    // Tells where the firmware reserves memory for flashing.
    void SetBuffer(DWORD address, DWORD size);

    // The driver library's operations; tables are those of the ROM that runs.
    void Select(const std::string& name) { m_Selected = name; }
    TABLE_QUERY_RESULT Query() const;
    void ReadHeader(void* buffer) const;
    void ReadTable(void* buffer) const;
    void WriteTable(const void* table, std::size_t size);
    void Execute(TABLE_EXEC_REQUEST& request);
    void CorruptNvram();

  private:
    DWORD Run(TABLE_EXEC_REQUEST& request);
    DWORD Backup(TABLE_EXEC_REQUEST& request);
    DWORD Erase(std::size_t bytes);
    DWORD Program(const TABLE_EXEC_REQUEST& request, std::size_t bytes);
    void WriteBlock(std::size_t offset, const std::uint8_t* bytes);
    void LosePower(DWORD table, std::size_t block) const;
    bool IsSelected() const;

    const ServerDescription& m_Server;
    std::filesystem::path m_File;
    CJournal& m_Journal;
    std::vector<std::uint8_t> m_Bytes;
    std::vector<std::uint8_t> m_BiosArea;
    std::vector<std::uint8_t> m_Table;
    std::optional<RomHeader> m_Header;  // of what runs
    RomDescription m_Running;
    DWORD m_BufferAddress;
    DWORD m_BufferSize;
    bool m_bBootBlock;
    std::string m_Selected;
    bool m_bSetUp;
    bool m_bErased;
};

}  // namespace sim
