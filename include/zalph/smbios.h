// SMBIOS tables: the standard records and the platform's own (OEM) ones.
#pragma once

#include "types.h"
#include "zalph/str.h"

// Version-indicator types: wType of a type 216 record.
const WORD SMBIOS_VERSION_TYPE_SYSTEMROM = 1;
const WORD SMBIOS_VERSION_TYPE_REDUNDANTROM = 2;
const WORD SMBIOS_VERSION_TYPE_BOOTBLOCK = 3;
const WORD SMBIOS_VERSION_TYPE_POWERPIC = 4;
const WORD SMBIOS_VERSION_TYPE_POWERPICBOOT = 5;
const WORD SMBIOS_VERSION_TYPE_SLCHASSIS = 6;
const WORD SMBIOS_VERSION_TYPE_SLCHASSISBOOT = 7;
const WORD SMBIOS_VERSION_TYPE_CPLD = 8;
const WORD SMBIOS_VERSION_TYPE_SPS = 9;
const WORD SMBIOS_VERSION_TYPE_SLCHASSISCPLD = 10;
const WORD SMBIOS_VERSION_TYPE_CSM = 11;
const WORD SMBIOS_VERSION_TYPE_APML = 12;

// Version data formats: byVersionDataFormat of a type 216 record.
const BYTE SMBIOS_VERSION_FORMAT_NONE = 0;
const BYTE SMBIOS_VERSION_FORMAT_CPLD = 1;
const BYTE SMBIOS_VERSION_FORMAT_XDOTY = 2;
const BYTE SMBIOS_VERSION_FORMAT_SPS = 3;
const BYTE SMBIOS_VERSION_FORMAT_G9POWERPIC = 4;
const BYTE SMBIOS_VERSION_FORMAT_G9SLCHASSIS = 5;
const BYTE SMBIOS_VERSION_FORMAT_APML = 6;

// TPM status: byStatus of a type 224 record.
const BYTE TPM_STATUS_NOT_PRESENT = 0;
const BYTE TPM_STATUS_ENABLED = 1;
const BYTE TPM_STATUS_DISABLED = 2;
const BYTE TPM_STATUS_MASK = 3;
const BYTE TPM_MEASURE_OPTION_ROMS = 4;

#pragma pack(push, 1)

// SMBIOS 2.x entry point (DMTF DSP0134). All records are little-endian.
struct SMBIOSEntryPoint
{
    char sAnchorString[4];  // "_SM_"
    BYTE byChecksum;
    BYTE byEPSLength;
    BYTE byMajorVer;
    BYTE byMinorVer;
    WORD wMaxStructSize;
    BYTE byRevision;
    BYTE byReserved[5];
    char sIntermediateAS[5];  // "_DMI_"
    BYTE byIntermediateCS;
    WORD wSTLength;  // bytes of the structure table
    DWORD dwSTAddr;  // its physical address
    WORD wNumStructures;
    BYTE byBCDRevision;
};
FLASHLIB_LAYOUT(SMBIOSEntryPoint, 31);

// Start of every record. A string field of a record holds a 1-based string number; 0 means no string.
struct SMBIOS_HEADER
{
    BYTE byType;
    BYTE byLength;  // bytes of the formatted area, header included; the strings follow it
    WORD wHandle;
};
FLASHLIB_LAYOUT(SMBIOS_HEADER, 4);

struct SMBIOS_BIOS_INFORMATION : SMBIOS_HEADER  // type 0
{
    BYTE byVendor;
    BYTE byBIOSVersion;  // string
    WORD wStartSegment;
    BYTE byReleaseDate;  // string
    BYTE byROMSize;
    BYTE baCharacteristics[8];
    BYTE baCharacteristicsExt[2];
    BYTE byBIOSMajorVersion;
    BYTE byBIOSMinorVersion;
    BYTE byECMajorVersion;
    BYTE byECMinorVersion;
};
FLASHLIB_LAYOUT(SMBIOS_BIOS_INFORMATION, 24);

struct SMBIOS_SYSTEM_INFORMATION : SMBIOS_HEADER  // type 1
{
    BYTE byManufacturer;
    BYTE byProductName;  // string
    BYTE byVersion;
    BYTE bySerialNumber;
    BYTE baUUID[16];
    BYTE byWakeUpType;
    BYTE bySKUNumber;
    BYTE byFamily;
};
FLASHLIB_LAYOUT(SMBIOS_SYSTEM_INFORMATION, 27);

struct SMBIOS_OTHER_ROMINFO : SMBIOS_HEADER  // type 193
{
    BYTE bfRedundantROMInstalled;
    BYTE byRedundantROMDate;   // string
    BYTE byBootBlockROMDate;   // string
    BYTE byOEMROMName;         // string
    BYTE byOEMROMDate;         // string
    BYTE byPowerMicroVersion;  // string
    WORD wPALVersion[6];
    BYTE byPALType[6];  // strings
};
FLASHLIB_LAYOUT(SMBIOS_OTHER_ROMINFO, 28);

struct SMBIOS_SYSTEM_ID : SMBIOS_HEADER  // type 195
{
    BYTE bySystemId;  // string
    WORD wPlatformId;
};
FLASHLIB_LAYOUT(SMBIOS_SYSTEM_ID, 7);

struct SMBIOS_VERSION_INDICATOR : SMBIOS_HEADER  // type 216
{
    WORD wType;
    BYTE byFirmwareName;     // string
    BYTE byFirmwareVersion;  // string
    BYTE byVersionDataFormat;
    BYTE baVersionData[12];
    WORD wUniqueId;
};
FLASHLIB_LAYOUT(SMBIOS_VERSION_INDICATOR, 23);

struct SMBIOS_TPM_INFORMATION : SMBIOS_HEADER  // type 224
{
    BYTE byStatus;
};
FLASHLIB_LAYOUT(SMBIOS_TPM_INFORMATION, 5);

// An entry of the reserved-memory record, type 229: (byLength - 4) / 16 of them follow its header.
struct SMBIOS_RESERVED_BUFFER
{
    DWORD Signature;
    std::uint64_t Address;
    DWORD Size;
};
FLASHLIB_LAYOUT(SMBIOS_RESERVED_BUFFER, 16);

#pragma pack(pop)

// A copy of the server's SMBIOS structure table, read on the first question and kept for the life of the object. The
// entry point comes from the hypervisor's device node, the table from physical memory. Absent data gives an empty text
// or 0; every accessor may be called on a fresh object.
class FLASHLIB_API CSMBIOS
{
  public:
    CSMBIOS();
    ~CSMBIOS();
    CSMBIOS(const CSMBIOS&) = delete;
    CSMBIOS& operator=(const CSMBIOS&) = delete;

    // Reads the table; FALSE when there is none or it can't be read. Tries once: after a failed read of physical memory
    // later calls return TRUE, and the accessors walk what that read left.
    BOOL Initialize();
    BOOL Exists();  // the same

    // What the records tell.
    CStr GetProductName();
    CStr GetROMFamily();   // first word of the BIOS version
    CStr GetROMDate();     // BIOS release date
    CStr GetROMVersion();  // "2.04", major and minor
    CStr GetRDDate();      // redundant ROM
    CStr GetBBDate();      // boot block
    CStr GetOEMROMName();
    CStr GetOEMROMDate();
    CStr GetPowerMicroVersion();
    CStr GetSPSVersion();  // "0003.0001.0024.0002.0"; a last byte above 15 ends the process

    // Type and version of the programmable logic device with that index, counted from 0.
    CStr GetPALType(int index);
    WORD GetPALVersion(int index);

    // The security module's status; the server's identifiers.
    BYTE GetTPMStatus();  // raw: mask with TPM_STATUS_MASK
    CStr GetSystemID();
    CStr GetPlatformID();  // "!00A5"
    WORD GetPlatformIDValue();

    // Physical address (low 32 bits) of the buffer that the firmware reserves for flashing, and its size in bytes;
    // both 0 when there is none.
    ULONG GetFlashBuffer(DWORD& size);

    // What the device node returns: size bytes, at most 65536, in a buffer that the caller releases with delete[]; null
    // when there is nothing. size is the result of the read call, so a failed read shows as a size of 0xFFFFFFFF.
    unsigned char* GetSMBiosMemoryHeader(unsigned int& size);

    // The first 31 bytes of it, the entry point; both arguments are ignored.
    unsigned char* GetSMBiosMemoryTables(unsigned long address, unsigned int size);

  private:
    void FindTable();
    BYTE* GetNextRecord(BYTE* record);
    BYTE* GetRecordByType(int type);

    // The lists are arrays of pointers into the table, null when empty; the caller releases them with free.
    BYTE** GetRecordListByType(int type, int& count);
    BYTE** GetVersionRecordListByType(WORD versionType, int& count);
    BYTE** GetReservedMemoryList(int& count);

    // Single records, null where there is none.
    BYTE* GetVersionRecord(WORD versionType);
    BYTE* GetPalVersionRecord(int index, int& count);
    BYTE* GetPalFallback(int index, int minimumLength);

    CStr GetString(BYTE* record, int number);
    CStr GetFirmwareVersion(BYTE* record);
    CStr GetOtherRomString(BYTE SMBIOS_OTHER_ROMINFO::*field, int minimumLength);

    BYTE* m_pRecordBase;  // owned
    DWORD m_dwPhysicalAddress;
    DWORD m_dwNumStructures;
    DWORD m_dwTableLength;
};
