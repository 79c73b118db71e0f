// Records of the server event log (VRL) and the management controller's NVRAM access that carries them. Little-endian.
#pragma once

#include "types.h"

#pragma pack(push, 1)

// Local time, one part a byte.
struct _evtTimeStamp
{
    BYTE bCentury;
    BYTE bYear;
    BYTE bMonth;
    BYTE bDay;
    BYTE bHour;
    BYTE bMinute;
};
FLASHLIB_LAYOUT(_evtTimeStamp, 6);

// What every entry begins with.
struct _evtLogHdr
{
    WORD wEvtLength;    // bytes of the whole entry: header and data
    DWORD dwEvtNumber;  // assigned by the controller; 0 when sent
    BYTE bHdrRev;
    BYTE bSeverity;
    WORD wClass;
    WORD wCode;
    _evtTimeStamp InitTime;
    _evtTimeStamp UpdateTime;
    DWORD dwCount;
};
using EVT_HEADER = _evtLogHdr;  // the platform's name of it
FLASHLIB_LAYOUT(_evtLogHdr, 28);

// Text of a flash event.
struct _evtRomFlashed
{
    char cText[1];
};
using EVT_ROM_FLASH_OCCURRED = _evtRomFlashed;  // the platform's name of it

// Text of a maintenance note.
struct _evtMaintenanceInfo
{
    char cText[1];
};
using EVT_MAINTENANCE_INFO = _evtMaintenanceInfo;  // the platform's name of it

// The class-specific part of an entry; the texts are NUL-terminated and run on behind it.
union _evtFreeForm
{
    _evtRomFlashed RomFlashed;
    _evtMaintenanceInfo MaintenanceInfo;
    BYTE Bytes[35];
};

// An entry of the log.
struct _evtLogEntry : _evtLogHdr
{
    _evtFreeForm Data;
};
FLASHLIB_LAYOUT(_evtLogEntry, 63);

// What every NVRAM access begins with.
struct NVRAM_ACCESS_REQUEST_HEADER
{
    BYTE SubType;
    WORD Size;
};
FLASHLIB_LAYOUT(NVRAM_ACCESS_REQUEST_HEADER, 3);

// Writes an entry into the log.
struct LOG_VRL_REQUEST
{
    NVRAM_ACCESS_REQUEST_HEADER Header;
    WORD MatchCode;
    BYTE VRLEntry[256];
};
FLASHLIB_LAYOUT(LOG_VRL_REQUEST, 261);

// What every response to one begins with.
struct NVRAM_ACCESS_RESPONSE_HEADER
{
    BYTE SubType;
    BYTE Status;  // 0: success
    WORD Size;
};
FLASHLIB_LAYOUT(NVRAM_ACCESS_RESPONSE_HEADER, 4);

// Tells the number that the entry got.
struct LOG_VRL_RESPONSE
{
    NVRAM_ACCESS_RESPONSE_HEADER Header;
    DWORD AssignedEventNumber;
};
FLASHLIB_LAYOUT(LOG_VRL_RESPONSE, 8);

#pragma pack(pop)
