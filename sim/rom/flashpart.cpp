#include "sim/rom/flashpart.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "flashtable.h"

namespace sim
{

namespace
{

const std::size_t BlockSize = 65536;
const std::size_t TableSize = 2048;

const char* const szTableNames[] = {"setup", "backup", "erase", "program", "cleanup", "os-cleanup"};

}  // namespace

CFlashPart::CFlashPart(const ServerDescription& server, const std::filesystem::path& folder, CJournal& journal)
    : m_Server(server),
      m_File(folder / "rom.bin"),
      m_Journal(journal),
      m_Running(server.Rom),
      m_BufferAddress(0),
      m_BufferSize(0),
      m_bBootBlock(false),
      m_bSetUp(false),
      m_bErased(false)
{
    if (std::ifstream file{m_File, std::ios::binary}) {
        m_Bytes.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
        if (m_Bytes.size() < BiosAreaSize || m_Bytes.size() % BlockSize != 0)
            throw std::runtime_error(m_File.string() + " is not a flash part's contents");
    } else {
        m_Bytes = server.Rom.Family.empty() ? std::vector<std::uint8_t>(server.RomSize, 0xFF)
                                            : BuildRomImage(server.Rom, server.RomSize);
    }

    m_BiosArea.assign(m_Bytes.end() - BiosAreaSize, m_Bytes.end());
    m_Header = FindRomHeader(m_BiosArea);
    if (!server.Rom.Family.empty() && !(m_Header && IsWholeRomImage(m_Bytes))) {
        m_bBootBlock = true;
        m_BiosArea = BuildRomImage({server.Rom.Family, "", "", "BOOT BLOCK"}, BiosAreaSize);
        m_Header = FindRomHeader(m_BiosArea);
    }
    if (m_Header) m_Running = m_Header->Rom;
    m_Table.assign(m_BiosArea.begin(), m_BiosArea.begin() + TableSize);
}

void CFlashPart::SetBuffer(DWORD address, DWORD size)
{
    m_BufferAddress = address;
    m_BufferSize = size;
}

bool CFlashPart::IsSelected() const
{
    const auto& names = m_Server.FlashTables;
    return m_Header && std::find(names.begin(), names.end(), m_Selected) != names.end();
}

TABLE_QUERY_RESULT CFlashPart::Query() const
{
    if (!IsSelected()) return {};
    TABLE_QUERY_RESULT result = {};
    result.TableAddr = 0xFFFF0000;
    result.TableSize = static_cast<DWORD>(m_Table.size());
    if (m_Server.Flash.NoHeader) return result;
    result.HeaderAddr = static_cast<DWORD>(BiosAreaAddress + m_Header->Offset);
    result.HeaderSize = static_cast<DWORD>(m_Header->Size);
    return result;
}

void CFlashPart::ReadHeader(void* buffer) const
{
    if (IsSelected()) std::memcpy(buffer, m_BiosArea.data() + m_Header->Offset, Query().HeaderSize);
}

void CFlashPart::ReadTable(void* buffer) const
{
    if (IsSelected()) std::memcpy(buffer, m_Table.data(), m_Table.size());
}

void CFlashPart::WriteTable(const void* table, std::size_t size)
{
    m_Journal.Write("flash write-table size=%zu", size);
    const auto* pBytes = static_cast<const std::uint8_t*>(table);
    m_Table.assign(pBytes, pBytes + size);
}

void CFlashPart::CorruptNvram()
{
    m_Journal.Write("flash corrupt-nvram");
}

void CFlashPart::Execute(TABLE_EXEC_REQUEST& request)
{
    const char* pszName = request.TableNumber <= FlashTable_OsCleanup ? szTableNames[request.TableNumber] : "unknown";
    m_Journal.Write("flash start table=%u name=%s size=%u sps=%d", request.TableNumber, pszName, request.BufferSize,
                    request.IsSpsFlash);
    request.Status = Run(request);
    m_Journal.Write("flash end table=%u name=%s status=%u", request.TableNumber, pszName, request.Status);
}

// A table with a fault does half of its work.
DWORD CFlashPart::Run(TABLE_EXEC_REQUEST& request)
{
    const DWORD table = request.TableNumber;
    const bool fails = m_Server.Flash.FailsAtTable == static_cast<int>(table);
    if (table > FlashTable_OsCleanup) return FlashStatus_UnknownTable;
    LosePower(table, 0);
    if (table != FlashTable_Setup && !m_bSetUp) return FlashStatus_NotSetUp;

    DWORD status = FlashStatus_OK;
    if (table == FlashTable_Setup) m_bSetUp = !fails;
    if (table == FlashTable_Backup) status = Backup(request);
    if (table == FlashTable_Erase) status = Erase(fails ? m_Bytes.size() / 2 : m_Bytes.size());
    if (table == FlashTable_Program) status = Program(request, fails ? request.BufferSize / 2 : request.BufferSize);
    if (table == FlashTable_OsCleanup) m_bSetUp = false;
    return fails ? DWORD{FlashStatus_DeviceError} : status;
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
    const std::vector<std::uint8_t> erased(BlockSize, 0xFF);
    for (std::size_t offset = 0; offset + BlockSize <= bytes; offset += BlockSize) {
        WriteBlock(offset, erased.data());
        LosePower(FlashTable_Erase, offset / BlockSize + 1);
    }
    m_bErased = bytes == m_Bytes.size();
    return FlashStatus_OK;
}

DWORD CFlashPart::Program(const TABLE_EXEC_REQUEST& request, std::size_t bytes)
{
    if (!m_bErased) return FlashStatus_NotErased;
    if (request.PhysicalBuffer != m_BufferAddress || request.PhysicalBufferSize != m_BufferSize || m_BufferAddress == 0)
        return FlashStatus_BadBuffer;
    if (request.BufferSize != m_Bytes.size() || request.BufferSize > request.PhysicalBufferSize)
        return FlashStatus_BadSize;

    m_bErased = false;
    const auto* pImage = static_cast<const std::uint8_t*>(request.pBuffer);
    for (std::size_t offset = 0; offset + BlockSize <= bytes; offset += BlockSize) {
        if (m_Server.Flash.StuckBlock != static_cast<int>(offset / BlockSize)) WriteBlock(offset, pImage + offset);
        LosePower(FlashTable_Program, offset / BlockSize + 1);
    }
    return FlashStatus_OK;
}

void CFlashPart::WriteBlock(std::size_t offset, const std::uint8_t* bytes)
{
    std::copy_n(bytes, BlockSize, m_Bytes.begin() + static_cast<std::ptrdiff_t>(offset));
    const bool isNew = !std::filesystem::exists(m_File);
    std::fstream file(m_File, std::ios::binary | (isNew ? std::ios::out : std::ios::in | std::ios::out));
    const std::size_t start = isNew ? 0 : offset;
    file.seekp(static_cast<std::streamoff>(start));
    const char* pStart = reinterpret_cast<const char*>(m_Bytes.data() + start);
    if (!file.write(pStart, static_cast<std::streamsize>(isNew ? m_Bytes.size() : BlockSize)).flush())
        throw std::runtime_error("Can't write " + m_File.string());
}

// Ends the process where the description says that power goes: after so many blocks of that table.
void CFlashPart::LosePower(DWORD table, std::size_t block) const
{
    const FlashFaults& faults = m_Server.Flash;
    if (faults.PowerLostAtTable != static_cast<int>(table) || faults.PowerLostAfterBlocks != static_cast<int>(block))
        return;
    m_Journal.Write("flash power-lost table=%u blocks=%zu", table, block);
    kill(getpid(), SIGKILL);
}

}  // namespace sim
