#include "sim/rom/flashpart.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "flashtable.h"
#include "support/files.h"

namespace sim
{

namespace
{

using Bytes = std::vector<std::uint8_t>;

const std::size_t BlockSize = 65536;
const std::size_t TableSize = 2048;

const char* const szTableNames[] = {"setup", "backup", "erase", "program", "cleanup", "os-cleanup"};

// The contents of a part that a file holds.
Bytes ToPart(const CStateFile& file, const std::string& bytes)
{
    if (!IsRomSize(bytes.size())) file.RefuseContents("a flash part has a multiple of 65536 bytes");
    return {bytes.begin(), bytes.end()};
}

// A table has its own fields, and zeros in the others.
bool IsWellFormed(const TABLE_EXEC_REQUEST& request)
{
    const bool hasBuffer = request.TableNumber == FlashTable_Backup || request.TableNumber == FlashTable_Program;
    if (request.BytesReturned != 0 || request.Status != 0) return false;
    if (hasBuffer ? !request.pBuffer : request.pBuffer || request.BufferSize != 0) return false;
    if (request.TableNumber != FlashTable_Program && (request.PhysicalBuffer != 0 || request.PhysicalBufferSize != 0))
        return false;
    return request.IsSpsFlash == 0 || (request.IsSpsFlash == 1 && request.TableNumber == FlashTable_Setup);
}

}  // namespace

CFlashPart::CFlashPart(const FlashPartDescription& description, CServerFolder& folder, CJournal& journal)
    : m_Description(description),
      m_Folder(folder),
      m_Journal(journal),
      m_File(folder, "rom.bin", MaxRomSize),
      m_RunningFile(folder, "rom.running", MaxRomSize),
      m_bChanged(false),
      m_BufferAddress(0),
      m_BufferSize(0),
      m_bSetUp(false)
{
    // To build a whole part takes longer than most programs run, and few look at it.
    const bool built = !m_File.Exists() && m_Description.Area.empty();
    m_RunningRom = built ? Start(Shipped(BiosAreaSize)).Rom : GetRunning().Rom;
}

const StartedRom& CFlashPart::GetRunning()
{
    const CServerFolder::Lock lock(m_Folder);
    if (m_Running) return *m_Running;
    Load();
    std::optional<std::string> running;
    if (m_File.Exists()) m_RunningFile.Refresh(running);
    m_Running = Start(running ? ToPart(m_RunningFile, *running) : m_Bytes);
    if (!m_Description.Faults.NoTable)
        m_Table.assign(m_Running->BiosArea.begin(), m_Running->BiosArea.begin() + TableSize);
    return *m_Running;
}

// What a server does with a part when it is started.
StartedRom CFlashPart::Start(const Bytes& part) const
{
    const std::string& family = m_Description.Rom.Family;
    StartedRom started = {Bytes(part.end() - BiosAreaSize, part.end()), std::nullopt, m_Description.Rom, false};
    started.Header = FindRomHeader(started.BiosArea);
    const bool whole = IsWholeRomImage(part) || (!m_Description.Area.empty() && part == Shipped(part.size()));
    if (!family.empty() && !(started.Header && whole)) {
        started.BootBlock = true;
        started.BiosArea = BuildRomImage({family, "", "", "BOOT BLOCK"}, BiosAreaSize);
        started.Header = FindRomHeader(started.BiosArea);
    }
    if (started.Header) started.Rom = started.Header->Rom;
    return started;
}

StartedRom CFlashPart::GetNext()
{
    const CServerFolder::Lock lock(m_Folder);
    Load();
    return Start(m_Bytes);
}

// Reads what another process wrote meanwhile.
void CFlashPart::Load()
{
    std::optional<std::string> bytes;
    if (!m_File.Refresh(bytes)) return;
    m_Bytes = bytes ? ToPart(m_File, *bytes) : Shipped(m_Description.Size);
}

// Of a part that was recorded, nothing but the last bytes is known.
Bytes CFlashPart::Shipped(std::size_t size) const
{
    const RomDescription& shipped = m_Description.Rom;
    if (!shipped.Family.empty() && m_Description.Area.empty()) return BuildRomImage(shipped, size);
    Bytes part(size, 0xFF);
    if (m_Description.Area.empty()) return part;
    const std::string area = ReadWholeFile(m_Description.Area, BiosAreaSize);
    if (area.size() != BiosAreaSize)
        throw std::runtime_error("The BIOS area in " + m_Description.Area.string() + " does not have 65536 bytes");
    std::copy(area.begin(), area.end(), part.end() - BiosAreaSize);
    return part;
}

void CFlashPart::Save()
{
    if (m_bChanged) m_File.Write(AsText(m_Bytes));
    m_bChanged = false;
}

void CFlashPart::SetBuffer(DWORD address, DWORD size)
{
    m_BufferAddress = address;
    m_BufferSize = size;
}

bool CFlashPart::IsSelected()
{
    const auto& names = m_Description.Tables;
    return GetRunning().Header && std::find(names.begin(), names.end(), m_Selected) != names.end();
}

void CFlashPart::Record(FlashOperation operation, Direction direction, DWORD status, const void* bytes,
                        std::size_t size) const
{
    m_Journal.GetCapture().Add(Wire_FlashTable, {direction, status, 0, static_cast<DWORD>(operation)}, bytes, size);
}

void CFlashPart::Select(const std::string& name)
{
    m_Selected = name;
    Record(FlashOperation_Select, Direction_Request, 0, name.data(), name.size());
}

TABLE_QUERY_RESULT CFlashPart::Query()
{
    const TABLE_QUERY_RESULT result = Find();
    Record(FlashOperation_Query, Direction_Reply, 0, &result, sizeof result);
    return result;
}

TABLE_QUERY_RESULT CFlashPart::Find()
{
    if (!IsSelected()) return {};
    if (m_Description.Faults.NoTable) m_Journal.GetCapture().NoteFault("flash.no_table");
    TABLE_QUERY_RESULT result = {};
    result.TableAddr = 0xFFFF0000;
    result.TableSize = static_cast<DWORD>(m_Table.size());
    if (m_Description.Faults.NoHeader) {
        m_Journal.GetCapture().NoteFault("flash.no_header");
        return result;
    }
    result.HeaderAddr = static_cast<DWORD>(BiosAreaAddress + m_Running->Header->Offset);
    result.HeaderSize = static_cast<DWORD>(m_Running->Header->Size);
    return result;
}

bool CFlashPart::ReadHeader(void* buffer)
{
    if (!buffer || !IsSelected()) return false;
    const DWORD size = Find().HeaderSize;
    std::memcpy(buffer, m_Running->BiosArea.data() + m_Running->Header->Offset, size);
    Record(FlashOperation_ReadHeader, Direction_Reply, 0, buffer, size);
    return true;
}

bool CFlashPart::ReadTable(void* buffer)
{
    if (!buffer || !IsSelected()) return false;
    std::copy(m_Table.begin(), m_Table.end(), static_cast<std::uint8_t*>(buffer));
    Record(FlashOperation_ReadTable, Direction_Reply, 0, buffer, m_Table.size());
    return true;
}

bool CFlashPart::WriteTable(const void* table, std::size_t size)
{
    const bool takes = table && IsSelected() && size == m_Table.size();
    Record(FlashOperation_WriteTable, Direction_Request, takes ? 0 : 1, table, table ? size : 0);
    m_Journal.Write("flash write-table size=%zu%s", size, takes ? "" : " refused");
    if (!takes) return false;
    const auto* pBytes = static_cast<const std::uint8_t*>(table);
    m_Table.assign(pBytes, pBytes + size);
    return true;
}

void CFlashPart::Initialize()
{
    m_Journal.Write("flash init");
}

void CFlashPart::CorruptNvram()
{
    Record(FlashOperation_CorruptNvram, Direction_Request, 0, nullptr, 0);
    m_Journal.Write("flash corrupt-nvram");
}

// A process that is killed while a table runs leaves the part as it was before: the driver's work is not seen in parts,
// unless power is lost.
void CFlashPart::Execute(TABLE_EXEC_REQUEST& request)
{
    const CServerFolder::Lock lock(m_Folder);
    GetRunning();  // before it is changed
    Load();
    const char* pszName = request.TableNumber <= FlashTable_OsCleanup ? szTableNames[request.TableNumber] : "unknown";
    m_Journal.Write("flash start table=%u name=%s size=%u sps=%d", request.TableNumber, pszName, request.BufferSize,
                    request.IsSpsFlash);
    Record(FlashOperation_Execute, Direction_Request, 0, &request, sizeof request);
    CStep step(m_Folder.GetSteps(), "table", pszName, 0, [this] { Save(); });
    request.Status = Run(request);
    Save();
    step.End();
    Record(FlashOperation_Execute, Direction_Reply, request.Status, &request, sizeof request);
    m_Journal.Write("flash end table=%u name=%s status=%u", request.TableNumber, pszName, request.Status);
}

// A table with a fault does half of its work.
DWORD CFlashPart::Run(TABLE_EXEC_REQUEST& request)
{
    const DWORD table = request.TableNumber;
    const bool fails = Fails(table);
    if (table > FlashTable_OsCleanup) return FlashStatus_UnknownTable;
    if (!IsWellFormed(request)) return FlashStatus_BadRequest;
    LosePower(table, 0);
    if (fails) m_Journal.GetCapture().NoteFault("flash.fails_at_table");
    if (table != FlashTable_Setup && !m_bSetUp) return FlashStatus_NotSetUp;

    DWORD status = FlashStatus_OK;
    if (table == FlashTable_Setup) m_bSetUp = !fails;
    if (table == FlashTable_Backup) status = Backup(request);
    if (table == FlashTable_Erase) status = Erase(fails ? m_Bytes.size() / 2 : m_Bytes.size());
    if (table == FlashTable_Program) status = Program(request, fails ? request.BufferSize / 2 : request.BufferSize);
    if (table == FlashTable_OsCleanup) m_bSetUp = false;
    return fails ? DWORD{FlashStatus_DeviceError} : status;
}

bool CFlashPart::Fails(DWORD table)
{
    const FlashFaults& faults = m_Description.Faults;
    const int run = ++m_TableRuns[table];
    return faults.FailsAtTable == static_cast<int>(table) && (faults.FailsAtRun == 0 || faults.FailsAtRun == run);
}

DWORD CFlashPart::Backup(TABLE_EXEC_REQUEST& request)
{
    if (request.BufferSize < m_Bytes.size()) return FlashStatus_BadSize;
    std::copy(m_Bytes.begin(), m_Bytes.end(), static_cast<std::uint8_t*>(request.pBuffer));
    request.BytesReturned = static_cast<DWORD>(m_Bytes.size());
    return FlashStatus_OK;
}

DWORD CFlashPart::Erase(std::size_t bytes)
{
    const Bytes erased(BlockSize, 0xFF);
    for (std::size_t offset = 0; offset + BlockSize <= bytes; offset += BlockSize) {
        WriteBlock(offset, erased.data());
        LosePower(FlashTable_Erase, offset / BlockSize + 1);
    }
    return FlashStatus_OK;
}

DWORD CFlashPart::Program(const TABLE_EXEC_REQUEST& request, std::size_t bytes)
{
    const bool erased = std::all_of(m_Bytes.begin(), m_Bytes.end(), [](std::uint8_t byte) { return byte == 0xFF; });
    if (!erased) return FlashStatus_NotErased;
    if (request.PhysicalBuffer != m_BufferAddress || request.PhysicalBufferSize != m_BufferSize || m_BufferAddress == 0)
        return FlashStatus_BadBuffer;
    if (request.BufferSize != m_Bytes.size() || request.BufferSize > request.PhysicalBufferSize)
        return FlashStatus_BadSize;

    const auto* pImage = static_cast<const std::uint8_t*>(request.pBuffer);
    for (std::size_t offset = 0; offset + BlockSize <= bytes; offset += BlockSize) {
        if (m_Description.Faults.StuckBlock != static_cast<int>(offset / BlockSize))
            WriteBlock(offset, pImage + offset);
        else
            m_Journal.GetCapture().NoteFault("flash.stuck_block");
        LosePower(FlashTable_Program, offset / BlockSize + 1);
    }
    return FlashStatus_OK;
}

void CFlashPart::WriteBlock(std::size_t offset, const std::uint8_t* bytes)
{
    // Whoever finds the part changed finds, too, what runs: it is written first, and counts while there is a rom.bin.
    if (!m_bChanged && !(m_File.Exists() && m_RunningFile.Exists())) m_RunningFile.Write(AsText(m_Bytes));
    CStep step(m_Folder.GetSteps(), "block", std::to_string(offset / BlockSize), BlockSize, [this] { Save(); });
    m_bChanged = true;
    std::copy_n(bytes, step.GetDone(), m_Bytes.begin() + static_cast<std::ptrdiff_t>(offset));
    step.End();
}

// Takes the server's power where the description says that it goes: after so many blocks of that table.
void CFlashPart::LosePower(DWORD table, std::size_t block)
{
    const FlashFaults& faults = m_Description.Faults;
    if (faults.PowerLostAtTable != static_cast<int>(table) || faults.PowerLostAfterBlocks != static_cast<int>(block))
        return;
    Save();
    m_Journal.GetCapture().NoteFault("flash.power_lost_at_table");
    m_Journal.Write("flash power-lost table=%u blocks=%zu", table, block);
    m_Folder.LosePower();
}

}  // namespace sim
