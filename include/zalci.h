// Interface of the channel library.
#pragma once

#include "types.h"

// An open channel; null is none.
typedef struct _ZALCICHANNEL* ZALCIHANDLE;

// What a call reports.
typedef enum _ZALCISTATUS : int
{
    ZalCiSuccess = 0,
    ZalCiErrNoDriver = 1,
    ZalCiErrNoDevice = 2,
    ZalCiErrNoMemory = 3,
    ZalCiErrBadConnection = 4,
    ZalCiErrBadDescriptorCount = 5,
    ZalCiErrBadDescriptorSize = 6,
    ZalCiErrMapRegisters = 7,
    ZalCiErrMapDoorbells = 8,
    ZalCiErrMapDeviceram = 9,
    ZalCiErrNoDeviceMemory = 10,
    ZalCiErrBadPriority = 11,
    ZalCiErrNoMoreChannels = 12,
    ZalCiErrNoMoreConnections = 13,
    ZalCiErrNoMoreChannelMemory = 14,
    ZalCiErrUnableToMapHostRam = 15,
    ZalCiErrUnableToMapSendRam = 16,
    ZalCiErrUnableToMapRecvRam = 17,
    ZalCiErrUnableToMapDoorbell = 18,
    ZalCiErrBadObjectType = 19,
    ZalCiErrFifoFull = 20,
    ZalCiErrFifoEmpty = 21,
    ZalCiErrPartialTransfer = 22,
    ZalCiErrChannelStillInuse = 23,
    ZalCiErrAccessDenied = 24,
    ZalCiErrChannelDeleted = 25,
    ZalCiErrNoKeySpecified = 26,
    ZalCiErrInvalidAdapter = 27,
    ZalCiErrNoPendingChannels = 28,
    ZalCiErrUnableToCreateSignal = 29,
    ZalCiErrUnableToObtainSignal = 30,
    ZalCiErrNotImplemented = 31,
    ZalCiErrNoMoreWaiters = 32,
    ZalCiErrUnableToWait = 33,
    ZalCiErrTimeout = 34,
    ZalCiErrInterface = 35,
    ZalCiErrChannelNotResponding = 36,
    ZalCiErrBadCallingContext = 37,
    ZalCiErrChannelDisconnected = 38,
    ZalCiErrBadParameter = 39,
    ZalCiErrConnectionStillInuse = 40,
    ZalCiErrGeneralFailure = 41,
    ZalCiErrMax = 42,
} ZALCISTATUS;

// The priority of a channel.
typedef enum _ZALCIPRIORITY : int
{
    ZalCiNormalPriority = 0,
    ZalCiHighPriority = 1,
    ZalCiCriticalPriority_0 = 24,
    ZalCiCriticalPriority_1 = 25,
    ZalCiCriticalPriority_2 = 26,
    ZalCiCriticalPriority_3 = 27,
    ZalCiCriticalPriority_4 = 28,
    ZalCiCriticalPriority_5 = 29,
    ZalCiCriticalPriority_6 = 30,
    ZalCiCriticalPriority_7 = 31,
} ZALCIPRIORITY;

extern "C"
{
    // One-time initialisation of the library.
    FLASHLIB_API ZALCISTATUS ZalCiInitialize(void* pContext);

    // Opens a channel with that many entries, of that many bytes, in each direction. Status 1: no driver is loaded.
    FLASHLIB_API ZALCISTATUS ZalCiCreate(void* pKey, ZALCIHANDLE* phChannel, ULONG SendEntries, ULONG SendEntrySize,
                                         ULONG RecvEntries, ULONG RecvEntrySize, ZALCIPRIORITY Priority, int* pTimeout);

    // Queues one packet of Length bytes and returns the length sent. Status 20: the FIFO is full.
    FLASHLIB_API int ZalCiSend(ZALCIHANDLE hChannel, const void* pBuffer, int Length, ZALCISTATUS* pStatus,
                               int* pTimeout);

    // Waits for one packet and returns the length received. A null pTimeout: no time limit. Status 21: nothing arrived.
    FLASHLIB_API int ZalCiRecv(ZALCIHANDLE hChannel, void* pBuffer, int BufferSize, ZALCISTATUS* pStatus,
                               int* pTimeout);

    // Closes a channel.
    FLASHLIB_API ZALCISTATUS ZalCiClose(ZALCIHANDLE hChannel);

    // Printable text of a status; owned by the library.
    FLASHLIB_API const char* ZalCiStatusMessage(ZALCISTATUS Status);
}
