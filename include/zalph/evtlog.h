// Records of the server event log (VRL) and the management controller's NVRAM access that carries them. Little-endian.
#pragma once

#include "types.h"

#pragma pack(push, 1)

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
using EVT_HEADER = _evtLogHdr;
FLASHLIB_LAYOUT(_evtLogHdr, 28);
FLASHLIB_OFFSET(_evtLogHdr, dwEvtNumber, 2);
FLASHLIB_OFFSET(_evtLogHdr, wClass, 8);
FLASHLIB_OFFSET(_evtLogHdr, InitTime, 12);
FLASHLIB_OFFSET(_evtLogHdr, dwCount, 24);

struct _evtRomFlashed
{
    char cText[1];
};
using EVT_ROM_FLASH_OCCURRED = _evtRomFlashed;

struct _evtMaintenanceInfo
{
    char cText[1];
};
using EVT_MAINTENANCE_INFO = _evtMaintenanceInfo;

// The class-specific part of an entry; the texts are NUL-terminated and run on behind it.
union _evtFreeForm
{
    _evtRomFlashed RomFlashed;
    _evtMaintenanceInfo MaintenanceInfo;
    BYTE Bytes[35];
};

struct _evtLogEntry : _evtLogHdr
{
    _evtFreeForm Data;
};
FLASHLIB_LAYOUT(_evtLogEntry, 63);

struct NVRAM_ACCESS_REQUEST_HEADER
{
    BYTE SubType;
    WORD Size;
};
FLASHLIB_LAYOUT(NVRAM_ACCESS_REQUEST_HEADER, 3);

struct LOG_VRL_REQUEST
{
    NVRAM_ACCESS_REQUEST_HEADER Header;
    WORD MatchCode;
    BYTE VRLEntry[256];
};
FLASHLIB_LAYOUT(LOG_VRL_REQUEST, 261);
FLASHLIB_OFFSET(LOG_VRL_REQUEST, VRLEntry, 5);

struct NVRAM_ACCESS_RESPONSE_HEADER
{
    BYTE SubType;
    BYTE Status;  // 0: success
    WORD Size;
};
FLASHLIB_LAYOUT(NVRAM_ACCESS_RESPONSE_HEADER, 4);

struct LOG_VRL_RESPONSE
{
    NVRAM_ACCESS_RESPONSE_HEADER Header;
    DWORD AssignedEventNumber;
};
FLASHLIB_LAYOUT(LOG_VRL_RESPONSE, 8);

#pragma pack(pop)
