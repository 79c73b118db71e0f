#include <new>

#include "crc32.h"
#include "debug.h"
#include "flashtable.h"
#include "zalph/smbios.h"

namespace
{

TABLE_EXEC_REQUEST Request(FlashTable table)
{
    TABLE_EXEC_REQUEST request = {};
    request.TableNumber = table;
    return request;
}

// A zeroed copy buffer of size bytes, never smaller than a header's fixed part.
BYTE* AllocateCopy(int size)
{
    const std::size_t length = static_cast<std::size_t>(size);
    return size < 0 ? nullptr
                    : new (std::nothrow) BYTE[length < sizeof(ZALFLSH_HEADER) ? sizeof(ZALFLSH_HEADER) : length]();
}

}  // namespace

CFlashTable::CFlashTable()
    : m_bFlashDriverInstalled(FALSE),
      m_FeatureBits1(0),
      m_FeatureBits2(0),
      m_HeaderSize(0),
      m_pHeader(nullptr),
      m_TableSize(0),
      m_pTable(nullptr),
      m_TableCRC(0)
{
}

CFlashTable::~CFlashTable()
{
    _DebugPrintf("CFlashTable::~CFlashTable()\n");
    ResetTableInformation();
    RemoveDrivers();
}

void CFlashTable::SetErrorMessage(CStr text)
{
    m_sErrorMessage = text;
    _DebugPrintf("CFlashTable Error: %s\n", m_sErrorMessage.GetAnsiString());
}

CStr CFlashTable::GetErrorMessage() const
{
    return m_sErrorMessage;
}

BOOL CFlashTable::Fail(const char* message)
{
    SetErrorMessage(message);
    return FALSE;
}

BOOL CFlashTable::Initialize()
{
    _DebugPrintf("CFlashTable::Initialize()\n");
    return InstallDrivers();
}

BOOL CFlashTable::InstallDrivers()
{
    m_sFlashDriver = "zalftbl";
    InitFlashTableDriver();
    return TRUE;
}

void CFlashTable::RemoveDrivers() {}

void CFlashTable::ResetTableInformation()
{
    delete[] reinterpret_cast<BYTE*>(m_pHeader);
    delete[] static_cast<BYTE*>(m_pTable);
    m_pHeader = nullptr;
    m_pTable = nullptr;
    m_HeaderSize = 0;
    m_TableSize = 0;
    m_TableCRC = 0;
    m_FeatureBits1 = 0;
    m_FeatureBits2 = 0;
}

void CFlashTable::SetFeatureBits1(ULONG bits)
{
    m_FeatureBits1 = bits;
}

void CFlashTable::SetFeatureBits2(ULONG bits)
{
    m_FeatureBits2 = bits;
}

ULONG CFlashTable::GetFeatureBits1() const
{
    return m_FeatureBits1;
}

ULONG CFlashTable::GetFeatureBits2() const
{
    return m_FeatureBits2;
}

BOOL CFlashTable::GetTableFromBootBlock(const char* name)
{
    _DebugPrintf("CFlashTable::GetTableFromBootBlock()\n");
    ResetTableInformation();
    SelectTable(name ? name : "$ZALFLSH");
    TABLE_QUERY_RESULT info = {};
    if (!QueryTableInfo(&info)) return Fail("Can't query table information");
    m_HeaderSize = static_cast<int>(info.HeaderSize);
    m_TableSize = static_cast<int>(info.TableSize);
    if (m_HeaderSize == 0) {
        _DebugPrintf("CFlashTable::GetTableFromBootBlock: Header not found\n");
        return TRUE;  // kept: missing-table-told-late (by DoFlash)
    }

    m_pHeader = reinterpret_cast<ZALFLSH_HEADER*>(AllocateCopy(m_HeaderSize));
    if (!m_pHeader) return Fail("Out of memory");
    if (!ReadHeader(m_pHeader, m_HeaderSize)) return Fail("Can't read flash header");
    m_FeatureBits1 = m_pHeader->FeatureBits1;
    m_FeatureBits2 = m_pHeader->FeatureBits2;

    m_pTable = AllocateCopy(m_TableSize);
    if (!m_pTable) return Fail("Out of memory");
    if (!ReadTable(m_pTable, m_TableSize)) return Fail("Can't read flash table");
    m_TableCRC =
        static_cast<ULONG>(rom_crc32(static_cast<unsigned char*>(m_pTable), static_cast<unsigned int>(m_TableSize), 0));

    const unsigned long headerAddress = info.HeaderAddr;
    const unsigned long tableAddress = info.TableAddr;
    _DebugPrintf("CFlashTable::GetTableFromBootBlock: HeaderAddr = 0x%08lX\n", headerAddress);
    _DebugPrintf("CFlashTable::GetTableFromBootBlock: HeaderSize = %d\n", m_HeaderSize);
    _DebugPrintf("CFlashTable::GetTableFromBootBlock: TableAddr  = 0x%08lX\n", tableAddress);
    _DebugPrintf("CFlashTable::GetTableFromBootBlock: TableSize  = %d\n", m_TableSize);
    _DebugPrintf("CFlashTable::GetTableFromBootBlock: TableCRC   = 0x%08lX\n", static_cast<unsigned long>(m_TableCRC));
    return TRUE;
}

BOOL CFlashTable::SelectTable(const char* name)
{
    _DebugPrintf("CFlashTable::SelectTable(%s)\n", name);
    SelectFlashTable(name);
    return TRUE;
}

BOOL CFlashTable::QueryTableInfo(TABLE_QUERY_RESULT* result)
{
    _DebugPrintf("CFlashTable::QueryTableInfo()\n");
    QueryFlashTable(result);
    return TRUE;
}

BOOL CFlashTable::ReadHeader(ZALFLSH_HEADER* header, int)
{
    _DebugPrintf("CFlashTable::ReadHeader()\n");
    ReadFlashHeader(header);
    return TRUE;
}

BOOL CFlashTable::ReadTable(void* table, int)
{
    _DebugPrintf("CFlashTable::ReadTable()\n");
    ReadFlashTable(table);
    return TRUE;
}

BOOL CFlashTable::WriteTable(const void* table, int size)
{
    _DebugPrintf("CFlashTable::WriteTable()\n");
    WriteFlashTable(table, size);
    return TRUE;
}

BOOL CFlashTable::ExecuteTable(TABLE_EXEC_REQUEST* request)
{
    ExecuteFlashTable(request);
    return TRUE;
}

BOOL CFlashTable::RunTable(TABLE_EXEC_REQUEST& request)
{
    return ExecuteTable(&request) && request.Status == 0;
}

BOOL CFlashTable::ExecuteSetupTable(BOOL isSps)
{
    _DebugPrintf("CFlashTable::ExecuteSetupTable()\n");
    TABLE_EXEC_REQUEST request = Request(FlashTable_Setup);
    request.IsSpsFlash = static_cast<BYTE>(isSps);
    return ExecuteTable(&request);  // kept: setup-status
}

BOOL CFlashTable::ExecuteBackupTable(const void* buffer, int size)
{
    _DebugPrintf("CFlashTable::ExecuteBackupTable()\n");
    TABLE_EXEC_REQUEST request = Request(FlashTable_Backup);
    request.pBuffer = const_cast<void*>(buffer);
    request.BufferSize = static_cast<DWORD>(size);
    return RunTable(request);
}

BOOL CFlashTable::ExecuteEraseTable()
{
    _DebugPrintf("CFlashTable::ExecuteEraseTable()\n");
    TABLE_EXEC_REQUEST request = Request(FlashTable_Erase);
    return RunTable(request);
}

BOOL CFlashTable::ExecuteProgramTable(CFwImage* image)
{
    _DebugPrintf("CFlashTable::ExecuteProgramTable()\n");
    TABLE_EXEC_REQUEST request = Request(FlashTable_Program);
    request.pBuffer = const_cast<void*>(image->GetImageBuffer());
    request.BufferSize = static_cast<DWORD>(image->GetImageSize());
    CSMBIOS smbios;
    DWORD bufferSize = 0;
    request.PhysicalBuffer = smbios.GetFlashBuffer(bufferSize);
    request.PhysicalBufferSize = bufferSize;
    return RunTable(request);
}

BOOL CFlashTable::ExecuteCleanupTable()
{
    _DebugPrintf("CFlashTable::ExecuteCleanupTable()\n");
    TABLE_EXEC_REQUEST request = Request(FlashTable_Cleanup);
    return RunTable(request);
}

BOOL CFlashTable::ExecuteCleanupTable2()
{
    _DebugPrintf("CFlashTable::ExecuteCleanupTable2()\n");
    TABLE_EXEC_REQUEST request = Request(FlashTable_OsCleanup);
    return RunTable(request);
}

BOOL CFlashTable::DoFlash(CFwImage* image, BOOL isSps)
{
    _DebugPrintf("CFlashTable::DoFlash()\n");
    // kept: table-without-header
    if (m_TableSize == 0) return Fail("Unable to locate a suitable flash table");
    if (!ExecuteSetupTable(isSps)) return Fail("Can't execute the Setup table");
    if (!ExecuteEraseTable()) return Fail("Can't execute the Erase table");
    if (!ExecuteProgramTable(image)) return Fail("Can't execute the Program table");  // kept: erased-stays-erased
    if ((m_FeatureBits1 & FlashFeature_Cleanup) && !ExecuteCleanupTable())
        return Fail("Can't execute the Cleanup table");
    if ((m_FeatureBits1 & FlashFeature_OsCleanup) && !ExecuteCleanupTable2())
        return Fail("Can't execute the OS Cleanup table");
    return TRUE;
}

BOOL CFlashTable::ResetNVRAM()
{
    _DebugPrintf("CFlashTable::ResetNVRAM()\n");
    CorruptNVRAM();
    return TRUE;
}
