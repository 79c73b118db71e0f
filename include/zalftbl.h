// Interface of the flash-table driver library.
#pragma once

#include "types.h"

#pragma pack(push, 1)

// The flash image header of a system ROM: 31 fixed bytes, then three consecutive NUL-terminated strings: image name,
// ROM family, ROM revision. Little-endian.
struct ZALFLSH_HEADER
{
    char Signature[8];   // "$ZALFLSH", no terminator
    BYTE Version;        // header version
    DWORD FeatureBits1;  // 4: run the cleanup table, 8: run the OS cleanup table after programming
    DWORD FeatureBits2;
    char Date[10];        // image date text
    DWORD TablePhysAddr;  // physical address of the flash table
    char ImageName[1];    // first of the strings
};
FLASHLIB_LAYOUT(ZALFLSH_HEADER, 32);

// Where the selected flash table lies; filled by QueryFlashTable.
struct TABLE_QUERY_RESULT
{
    DWORD HeaderAddr;  // physical
    DWORD HeaderSize;  // bytes; 0: no header
    DWORD TableAddr;   // physical
    DWORD TableSize;   // bytes
};
FLASHLIB_LAYOUT(TABLE_QUERY_RESULT, 16);

// One run of a table. Zero-filled, then set by the caller; BytesReturned and Status are set by the library.
struct TABLE_EXEC_REQUEST
{
    DWORD TableNumber;
    void* pBuffer;     // backup target or image
    DWORD BufferSize;  // bytes
    DWORD BytesReturned;
    DWORD Status;              // 0: the table ran successfully
    DWORD PhysicalBuffer;      // physical address of the firmware's flash buffer
    DWORD PhysicalBufferSize;  // bytes
    BYTE IsSpsFlash;           // the image is an SPS firmware image
};
FLASHLIB_LAYOUT(TABLE_EXEC_REQUEST, 25 + sizeof(void*));

#pragma pack(pop)

extern "C"
{
    // The descriptor of the ROM utility driver, for the whole process; negative while it is not open.
    FLASHLIB_API extern int cruFd;

    // Opens the ROM utility driver and sets cruFd.
    FLASHLIB_API int OpenCruDriver();

    // Initialises the library.
    FLASHLIB_API int InitFlashTableDriver();

    // Chooses the table set by name.
    FLASHLIB_API int SelectFlashTable(const char* pszName);

    // Fills the query result for the selected table.
    FLASHLIB_API int QueryFlashTable(TABLE_QUERY_RESULT* pResult);

    // Copies HeaderSize bytes of header, TableSize bytes of table.
    FLASHLIB_API int ReadFlashHeader(ZALFLSH_HEADER* pHeader);
    FLASHLIB_API int ReadFlashTable(void* pTable);

    // Writes a table of Size bytes back.
    FLASHLIB_API int WriteFlashTable(const void* pTable, int Size);

    // Runs the numbered table and sets Status.
    FLASHLIB_API int ExecuteFlashTable(TABLE_EXEC_REQUEST* pRequest);

    // Invalidates the ROM's non-volatile settings, so that defaults are restored at the next boot.
    FLASHLIB_API int CorruptNVRAM();
}
