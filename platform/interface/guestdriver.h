// The ROM utility driver's node on a Linux guest: what is asked of it there beside, or otherwise than, what romdriver.h
// says. The node is made by sim/kernel, and asked by platform/guest.
#pragma once

#include "types.h"
#include "zalftbl.h"

// Linux itself answers request 2 on every file, with the file system's block size (FIGETBSZ): no driver ever sees it.
// There the request to read memory goes to the node under this number.
const unsigned int RenumberedReadMemory = 0x5102;

// An operation of the flash-table driver library, on a GUEST_TABLE_REQUEST. Bytes that go with it (a name, a table, an
// image) are written to the node before, one piece after the other, and those that it gives are read from there
// afterwards.
const unsigned int GuestRequest_FlashTable = 0x5103;

enum GuestOperation : unsigned int
{
    GuestOperation_Initialize,
    GuestOperation_Select,      // takes a name
    GuestOperation_Query,       // fills in Result
    GuestOperation_ReadHeader,  // gives it
    GuestOperation_ReadTable,   // gives it
    GuestOperation_WriteTable,  // takes it
    GuestOperation_Execute,     // takes or gives Size bytes, as the table wants
    GuestOperation_CorruptNvram,
};

#pragma pack(push, 1)

struct GUEST_TABLE_REQUEST
{
    DWORD Operation;             // GuestOperation
    DWORD Size;                  // bytes that go with it
    DWORD Done;                  // 0: it could not be done
    TABLE_QUERY_RESULT Result;   // of the query
    TABLE_EXEC_REQUEST Execute;  // of pBuffer counts only whether there is one
};
FLASHLIB_LAYOUT(GUEST_TABLE_REQUEST, 53 + sizeof(void*));

#pragma pack(pop)
