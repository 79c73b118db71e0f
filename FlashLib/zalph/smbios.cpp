#include "zalph/smbios.h"

#include <fcntl.h>

#include <cstring>
#include <new>

#include "../bounded.h"
#include "../handles.h"
#include "debug.h"
#include "zalph/system.h"

namespace
{

const char* const DeviceNode = "/vmfs/devices/char/mem/smbios";
const unsigned int RegionSize = 65536;

const int Type_Bios = 0;
const int Type_System = 1;
const int Type_OtherRom = 193;
const int Type_SystemId = 195;
const int Type_VersionIndicator = 216;
const int Type_Tpm = 224;
const int Type_ReservedMemory = 229;

const DWORD FlashBufferSignature = 0x42525324;  // "$SRB"
const DWORD FlashBufferSignatureReversed = 0x24535242;

const int MaxPalIndex = 6;  // kept: pal-index-six (the record declares six, 0 to 5)

// Zeros behind the copy of a table, so that a walk over a table shorter than its structure count says, and a string
// number beyond the string set, stay inside: two bytes a structure, and room for the last record and its strings.
std::size_t TableSlack(DWORD structures)
{
    return 2 * std::size_t{structures} + 1024;
}

unsigned char* getMemoryFromDeviceREAD(const char* path, unsigned int& size, int nbytes)
{
    size = 0;
    const CDescriptor node(open(path, O_RDONLY));
    if (!node.IsOpen()) return nullptr;

    std::unique_ptr<unsigned char[]> buffer(new unsigned char[RegionSize + sizeof(SMBIOSEntryPoint)]());
    const ssize_t result = read(node.Get(), buffer.get(), nbytes ? static_cast<std::size_t>(nbytes) : RegionSize);
    if (result == 0) return nullptr;
    size = static_cast<unsigned int>(result);  // kept: smbios-node-error (a failed read counts as data)
    return buffer.release();
}

// Grows a list by one pointer.
void Append(BYTE**& list, int& count, void* record)
{
    const std::size_t size = (static_cast<std::size_t>(count) + 1) * sizeof(BYTE*);
    list = static_cast<BYTE**>(std::realloc(list, size));
    list[count++] = static_cast<BYTE*>(record);
}

template <typename Record>
Record* As(BYTE* record)
{
    return reinterpret_cast<Record*>(record);
}

// The version in "v1.40 (01/01/2016)": 1.40. Empty where the text is not of this form.
CStr VersionFromTag(const CStr& text)
{
    const bool tagged = text.GetAt(0) == 'v' && text.GetAt(2) == '.' && text.GetAt(5) == ' ';
    return tagged ? text.Mid(1, 4) : CStr();
}

}  // namespace

CSMBIOS::CSMBIOS() : m_pRecordBase(nullptr), m_dwPhysicalAddress(0), m_dwNumStructures(0), m_dwTableLength(0) {}

CSMBIOS::~CSMBIOS()
{
    delete[] m_pRecordBase;
}

unsigned char* CSMBIOS::GetSMBiosMemoryHeader(unsigned int& size)
{
    return getMemoryFromDeviceREAD(DeviceNode, size, 0);
}

unsigned char* CSMBIOS::GetSMBiosMemoryTables(unsigned long, unsigned int)
{
    unsigned int size = 0;
    return getMemoryFromDeviceREAD(DeviceNode, size, sizeof(SMBIOSEntryPoint));
}

void CSMBIOS::FindTable()
{
    m_dwPhysicalAddress = 0;
    m_dwNumStructures = 0;
    m_dwTableLength = 0;

    unsigned int size = 0;
    const std::unique_ptr<unsigned char[]> region(GetSMBiosMemoryHeader(size));
    if (!region) {
        _DebugPrintf("Failed GetSMBiosMemoryHeader\n");
        return;
    }
    if (size > RegionSize) size = RegionSize;  // the size of a failed read

    for (unsigned int offset = 0; offset < size; offset += 4) {
        const SMBIOSEntryPoint* pEntry = As<SMBIOSEntryPoint>(region.get() + offset);
        if (std::memcmp(pEntry->sAnchorString, "_SM_", 4) != 0) continue;

        _DebugPrintf("Found SMBIOS_ANCHOR\n");
        // kept: false-anchor (it ends the search, and nobody verifies the checksums)
        if (std::memcmp(pEntry->sIntermediateAS, "_DMI_", 5) == 0) {
            m_dwPhysicalAddress = pEntry->dwSTAddr;
            m_dwNumStructures = pEntry->wNumStructures;
            m_dwTableLength = pEntry->wSTLength;
            _DebugPrintf("m_dwNumStructures: %d\n", m_dwNumStructures);
            _DebugPrintf("m_dwPhysicalAddress: %X\n", m_dwPhysicalAddress);
            _DebugPrintf("m_dwTableLength: %d\n", m_dwTableLength);
        }
        break;
    }
}

BOOL CSMBIOS::Initialize()
{
    if (m_pRecordBase) return TRUE;  // kept: smbios-one-try (also after a failed read of the table)

    FindTable();
    if (m_dwPhysicalAddress == 0 || m_dwTableLength == 0) {
        _DebugPrintf("m_dwPhysicalAddress == 0 || m_dwTableLength == 0\n");
        return FALSE;
    }
    m_pRecordBase = new (std::nothrow) BYTE[m_dwTableLength + TableSlack(m_dwNumStructures)]();
    if (!m_pRecordBase) {
        _DebugPrintf("m_pRecordBase == NULL\n");
        return FALSE;
    }
    CSystem system;
    return system.ReadPhysicalMemory(m_dwPhysicalAddress, m_pRecordBase, static_cast<int>(m_dwTableLength));
}

BOOL CSMBIOS::Exists()
{
    return Initialize();
}

// The record behind this one: past the formatted area and the two zeros that end its strings. kept: trusted-counts
BYTE* CSMBIOS::GetNextRecord(BYTE* record)
{
    BYTE* pEnd = record + As<SMBIOS_HEADER>(record)->byLength;
    while (pEnd[0] != 0 || pEnd[1] != 0) pEnd++;
    return pEnd + 2;
}

BYTE* CSMBIOS::GetRecordByType(int type)
{
    _DebugPrintf("CSMBIOS::GetRecordByType::Enter::%d\n", type);
    if (!Initialize()) return nullptr;

    BYTE* pRecord = m_pRecordBase;
    for (DWORD i = 0; i < m_dwNumStructures; i++, pRecord = GetNextRecord(pRecord))
        if (As<SMBIOS_HEADER>(pRecord)->byType == type) return pRecord;

    _DebugPrintf("CSMBIOS::GetRecordByType::RecordNotFound::%d\n", type);
    _DebugPrintf("CSMBIOS::GetRecordByType::Exit::%d\n", type);
    return nullptr;
}

BYTE** CSMBIOS::GetRecordListByType(int type, int& count)
{
    BYTE** pList = nullptr;
    count = 0;
    if (!Initialize()) return nullptr;

    BYTE* pRecord = m_pRecordBase;
    for (DWORD i = 0; i < m_dwNumStructures; i++, pRecord = GetNextRecord(pRecord))
        if (As<SMBIOS_HEADER>(pRecord)->byType == type) Append(pList, count, pRecord);
    return pList;
}

BYTE** CSMBIOS::GetVersionRecordListByType(WORD versionType, int& count)
{
    BYTE** pList = nullptr;
    count = 0;
    int total = 0;
    const CRecordList records(GetRecordListByType(Type_VersionIndicator, total));
    for (int i = 0; i < total; i++)
        if (As<SMBIOS_VERSION_INDICATOR>(records.get()[i])->wType == versionType)
            Append(pList, count, records.get()[i]);
    return pList;
}

BYTE** CSMBIOS::GetReservedMemoryList(int& count)
{
    BYTE** pList = nullptr;
    count = 0;
    int total = 0;
    const CRecordList records(GetRecordListByType(Type_ReservedMemory, total));
    for (int i = 0; i < total; i++) {
        BYTE* pEntry = records.get()[i] + sizeof(SMBIOS_HEADER);
        int entries = (As<SMBIOS_HEADER>(records.get()[i])->byLength - 4) >> 4;
        for (; entries > 0; entries--, pEntry += sizeof(SMBIOS_RESERVED_BUFFER)) Append(pList, count, pEntry);
    }
    return pList;
}

BYTE* CSMBIOS::GetVersionRecord(WORD versionType)
{
    int count = 0;
    const CRecordList list(GetVersionRecordListByType(versionType, count));
    return count > 0 ? list[0] : nullptr;
}

CStr CSMBIOS::GetString(BYTE* record, int number)
{
    if (number == 0) return "";
    const char* pszString = reinterpret_cast<const char*>(record) + As<SMBIOS_HEADER>(record)->byLength;
    for (; number > 1; number--) pszString += std::strlen(pszString) + 1;
    return pszString;
}

ULONG CSMBIOS::GetFlashBuffer(DWORD& size)
{
    size = 0;
    int count = 0;
    const CRecordList list(GetReservedMemoryList(count));
    for (int i = 0; i < count; i++) {
        const SMBIOS_RESERVED_BUFFER* pEntry = As<SMBIOS_RESERVED_BUFFER>(list.get()[i]);
        if (pEntry->Signature == FlashBufferSignature || pEntry->Signature == FlashBufferSignatureReversed) {
            size = pEntry->Size;
            return static_cast<ULONG>(pEntry->Address);
        }
    }
    return 0;
}

CStr CSMBIOS::GetProductName()
{
    _DebugPrintf("CSMBIOS::GetProductName()::Enter\n");
    BYTE* pRecord = GetRecordByType(Type_System);
    if (!pRecord) {
        _DebugPrintf("CSMBIOS::GetProductName()::Exit with BLANK\n");
        return "";
    }
    const CStr name = GetString(pRecord, As<SMBIOS_SYSTEM_INFORMATION>(pRecord)->byProductName);
    _DebugPrintf("CSMBIOS::GetProductName()::EXIT with Value::\n");
    return name;
}

CStr CSMBIOS::GetROMFamily()
{
    _DebugPrintf("Enter CSMBIOS::GetROMName()\n");
    BYTE* pRecord = GetRecordByType(Type_Bios);
    if (!pRecord) {
        _DebugPrintf("GetRecordByType(0) FAILED\n");
        return "";
    }
    const CStr version = GetString(pRecord, As<SMBIOS_BIOS_INFORMATION>(pRecord)->byBIOSVersion);
    const char* pszFirst = version.GetAnsiString() + std::strspn(version.GetAnsiString(), " ");
    return CStr(pszFirst).Left(static_cast<int>(std::strcspn(pszFirst, " ")));
}

CStr CSMBIOS::GetROMDate()
{
    BYTE* pRecord = GetRecordByType(Type_Bios);
    return pRecord ? GetString(pRecord, As<SMBIOS_BIOS_INFORMATION>(pRecord)->byReleaseDate) : CStr();
}

CStr CSMBIOS::GetROMVersion()
{
    if (BYTE* pRecord = GetVersionRecord(SMBIOS_VERSION_TYPE_SYSTEMROM)) {
        const CStr version = VersionFromTag(GetFirmwareVersion(pRecord));
        if (!version.IsEmpty()) return version;
    }

    BYTE* pRecord = GetRecordByType(Type_Bios);
    if (!pRecord) return "";
    const SMBIOS_BIOS_INFORMATION* pBios = As<SMBIOS_BIOS_INFORMATION>(pRecord);
    if (pBios->byLength > 21 && pBios->byBIOSMajorVersion >= 1 && pBios->byBIOSMajorVersion <= 254) {
        CStr version;
        version.Format("%d.%02d", pBios->byBIOSMajorVersion, pBios->byBIOSMinorVersion);
        return version;
    }
    return VersionFromTag(GetString(pRecord, pBios->byBIOSVersion).Mid(4));
}

CStr CSMBIOS::GetFirmwareVersion(BYTE* record)
{
    return GetString(record, As<SMBIOS_VERSION_INDICATOR>(record)->byFirmwareVersion);
}

CStr CSMBIOS::GetOtherRomString(BYTE SMBIOS_OTHER_ROMINFO::*field, int minimumLength)
{
    BYTE* pRecord = GetRecordByType(Type_OtherRom);
    if (!pRecord || As<SMBIOS_HEADER>(pRecord)->byLength < minimumLength) return "";
    return GetString(pRecord, As<SMBIOS_OTHER_ROMINFO>(pRecord)->*field);
}

CStr CSMBIOS::GetRDDate()
{
    BYTE* pRecord = GetVersionRecord(SMBIOS_VERSION_TYPE_REDUNDANTROM);
    return pRecord ? GetFirmwareVersion(pRecord) : GetOtherRomString(&SMBIOS_OTHER_ROMINFO::byRedundantROMDate, 0);
}

CStr CSMBIOS::GetBBDate()
{
    BYTE* pRecord = GetVersionRecord(SMBIOS_VERSION_TYPE_BOOTBLOCK);
    return pRecord ? GetFirmwareVersion(pRecord) : GetOtherRomString(&SMBIOS_OTHER_ROMINFO::byBootBlockROMDate, 0);
}

CStr CSMBIOS::GetOEMROMName()
{
    return GetOtherRomString(&SMBIOS_OTHER_ROMINFO::byOEMROMName, 8);
}

CStr CSMBIOS::GetOEMROMDate()
{
    return GetOtherRomString(&SMBIOS_OTHER_ROMINFO::byOEMROMDate, 9);
}

CStr CSMBIOS::GetPowerMicroVersion()
{
    BYTE* pRecord = GetVersionRecord(SMBIOS_VERSION_TYPE_POWERPIC);
    return pRecord ? GetFirmwareVersion(pRecord) : GetOtherRomString(&SMBIOS_OTHER_ROMINFO::byPowerMicroVersion, 10);
}

CStr CSMBIOS::GetSPSVersion()
{
    BYTE* pRecord = GetVersionRecord(SMBIOS_VERSION_TYPE_SPS);
    if (!pRecord) return "";
    const BYTE* pData = As<SMBIOS_VERSION_INDICATOR>(pRecord)->baVersionData;
    int word[4];
    for (int i = 0; i < 4; i++) word[i] = pData[2 * i] | pData[2 * i + 1] << 8;
    char szVersion[22];
    BoundedFormat("the SPS version", szVersion, sizeof szVersion, "%04x.%04x.%04x.%04x.%x", word[0], word[1], word[2],
                  word[3], pData[8]);
    return szVersion;
}

// The version record of programmable logic device index, and how many such records there are.
BYTE* CSMBIOS::GetPalVersionRecord(int index, int& count)
{
    const CRecordList list(GetVersionRecordListByType(SMBIOS_VERSION_TYPE_CPLD, count));
    return index >= 0 && index < count ? list.get()[index] : nullptr;
}

// The other-ROM record that answers for the device where there is no version record of any.
BYTE* CSMBIOS::GetPalFallback(int index, int minimumLength)
{
    if (index < 0 || index > MaxPalIndex) return nullptr;
    BYTE* pRecord = GetRecordByType(Type_OtherRom);
    return pRecord && As<SMBIOS_HEADER>(pRecord)->byLength >= minimumLength ? pRecord : nullptr;
}

CStr CSMBIOS::GetPALType(int index)
{
    int count = 0;
    if (BYTE* pRecord = GetPalVersionRecord(index, count))
        return GetString(pRecord, As<SMBIOS_VERSION_INDICATOR>(pRecord)->byFirmwareName);
    BYTE* pRecord = count == 0 ? GetPalFallback(index, 23) : nullptr;
    if (!pRecord) return "";
    const BYTE* pTypes = As<SMBIOS_OTHER_ROMINFO>(pRecord)->byPALType;
    return GetString(pRecord, pTypes[index]);
}

WORD CSMBIOS::GetPALVersion(int index)
{
    int count = 0;
    if (BYTE* pRecord = GetPalVersionRecord(index, count)) {
        const BYTE* pData = As<SMBIOS_VERSION_INDICATOR>(pRecord)->baVersionData;
        return static_cast<WORD>(pData[1] << 8 | pData[2]);
    }
    BYTE* pRecord = count == 0 ? GetPalFallback(index, 11) : nullptr;
    if (!pRecord) return 0;
    const auto* pVersions = reinterpret_cast<const BYTE*>(&As<SMBIOS_OTHER_ROMINFO>(pRecord)->wPALVersion);
    return static_cast<WORD>(pVersions[2 * index] | pVersions[2 * index + 1] << 8);
}

BYTE CSMBIOS::GetTPMStatus()
{
    BYTE* pRecord = GetRecordByType(Type_Tpm);
    return pRecord ? As<SMBIOS_TPM_INFORMATION>(pRecord)->byStatus : TPM_STATUS_NOT_PRESENT;
}

CStr CSMBIOS::GetSystemID()
{
    BYTE* pRecord = GetRecordByType(Type_SystemId);
    return pRecord ? GetString(pRecord, As<SMBIOS_SYSTEM_ID>(pRecord)->bySystemId) : CStr();
}

WORD CSMBIOS::GetPlatformIDValue()
{
    BYTE* pRecord = GetRecordByType(Type_SystemId);
    return pRecord && As<SMBIOS_HEADER>(pRecord)->byLength > 6 ? As<SMBIOS_SYSTEM_ID>(pRecord)->wPlatformId : WORD{0};
}

CStr CSMBIOS::GetPlatformID()
{
    CStr id;
    if (const WORD value = GetPlatformIDValue()) id.Format("!%04X", value);
    return id;
}
