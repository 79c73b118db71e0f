// Flashing of the system ROM: the running ROM's flash image header, and the engine that runs its flash tables.
#pragma once

#include "fwversion.h"
#include "types.h"
#include "zalftbl.h"
#include "zalph/str.h"

// The header as it stands in the BIOS area; the flash engine knows the identical layout as ZALFLSH_HEADER.
using FLASH_TABLE_HEADER = ZALFLSH_HEADER;

// Finds the flash image header in the legacy BIOS area, physical addresses 0xF0000 to 0xFFFFF, and splits out its
// strings. Call FindHeader, then GetStrings, then the accessors.
class FLASHLIB_API CFlashTableHeader
{
  public:
    CFlashTableHeader();
    ~CFlashTableHeader();
    CFlashTableHeader(const CFlashTableHeader&) = delete;
    CFlashTableHeader& operator=(const CFlashTableHeader&) = delete;

    // Copies the BIOS area and looks for the header. Failure shows in GetStrings, which then finds nothing.
    void FindHeader();

    // Takes the strings from the header; leaves them as they are when there is none.
    void GetStrings();

    // The strings that GetStrings took; empty where there are none.
    CStr GetImageName() const;
    CStr GetROMFamily() const;
    CStr GetROMRevision() const;

  private:
    unsigned char* m_pBIOS;         // owned copy of the BIOS area
    FLASH_TABLE_HEADER* m_pHeader;  // inside m_pBIOS; null when not found
    CStr m_sImageName;
    CStr m_sROMFamily;
    CStr m_sROMRevision;
};

// Numbers of the flash tables: TABLE_EXEC_REQUEST::TableNumber.
enum FlashTable
{
    FlashTable_Setup = 0,
    FlashTable_Backup = 1,
    FlashTable_Erase = 2,
    FlashTable_Program = 3,
    FlashTable_Cleanup = 4,
    FlashTable_OsCleanup = 5,
};

// ZALFLSH_HEADER::FeatureBits1: which tables are run after programming.
const ULONG FlashFeature_Cleanup = 4;
const ULONG FlashFeature_OsCleanup = 8;

// Flashes the system ROM: loads the flash table that the running ROM carries and runs the tables in their fixed order.
// Call Initialize, then GetTableFromBootBlock, then DoFlash. A failure returns FALSE and leaves its text in
// GetErrorMessage; nothing is undone, so an erase that no program follows leaves the ROM erased.
class FLASHLIB_API CFlashTable
{
  public:
    CFlashTable();
    virtual ~CFlashTable();
    CFlashTable(const CFlashTable&) = delete;
    CFlashTable& operator=(const CFlashTable&) = delete;

    // Calls InstallDrivers.
    virtual BOOL Initialize();

    // Runs Setup, Erase and Program, then Cleanup and OS cleanup where the header's feature bits ask for them. The
    // image is loaded; isSps tells that it is an SPS firmware image.
    virtual BOOL DoFlash(CFwImage* image, BOOL isSps);

    // Initialises the driver library and always returns TRUE; the way back does nothing.
    BOOL InstallDrivers();
    void RemoveDrivers();

    // Text of the last failure; empty when there was none.
    CStr GetErrorMessage() const;

  protected:
    // Keeps the text, and logs it.
    void SetErrorMessage(CStr text);

    // Releases the header and the table.
    void ResetTableInformation();

    // Loads header and table of the named table set (null: "$ZALFLSH"). TRUE without a table, too, when there is no
    // header: DoFlash tells then.
    BOOL GetTableFromBootBlock(const char* name);

    // The driver library reports nothing back to these: they always return TRUE.
    BOOL SelectTable(const char* name);
    BOOL QueryTableInfo(TABLE_QUERY_RESULT* result);
    BOOL ReadHeader(ZALFLSH_HEADER* header, int size);
    BOOL ReadTable(void* table, int size);
    BOOL WriteTable(const void* table, int size);
    BOOL ExecuteTable(TABLE_EXEC_REQUEST* request);

    // Run one table each; TRUE when it reports status 0, the Setup table whatever it reports.
    BOOL ExecuteSetupTable(BOOL isSps);
    BOOL ExecuteBackupTable(const void* buffer, int size);
    BOOL ExecuteEraseTable();
    BOOL ExecuteProgramTable(CFwImage* image);
    BOOL ExecuteCleanupTable();
    BOOL ExecuteCleanupTable2();

    // Invalidates the ROM's settings: defaults are restored at the next boot.
    BOOL ResetNVRAM();

    // The feature bits of the header.
    void SetFeatureBits1(ULONG bits);
    void SetFeatureBits2(ULONG bits);
    ULONG GetFeatureBits1() const;
    ULONG GetFeatureBits2() const;

    // What was loaded from where; derived classes may look.
    CStr m_sErrorMessage;
    CStr m_sFlashDriver;
    BOOL m_bFlashDriverInstalled;
    ULONG m_FeatureBits1;
    ULONG m_FeatureBits2;
    int m_HeaderSize;           // bytes
    ZALFLSH_HEADER* m_pHeader;  // owned copy
    int m_TableSize;            // bytes; 0: no table
    void* m_pTable;             // owned copy
    ULONG m_TableCRC;           // of that copy

  private:
    BOOL Fail(const char* message);
    BOOL RunTable(TABLE_EXEC_REQUEST& request);
};
