// The channel library on a machine that has no driver for it.
#include "zalci.h"

ZALCISTATUS ZalCiInitialize(void*)
{
    return ZalCiErrNoDriver;
}

ZALCISTATUS ZalCiCreate(void*, ZALCIHANDLE* phChannel, ULONG, ULONG, ULONG, ULONG, ZALCIPRIORITY, int*)
{
    *phChannel = nullptr;
    return ZalCiErrNoDriver;
}

int ZalCiSend(ZALCIHANDLE, const void*, int, ZALCISTATUS* pStatus, int*)
{
    *pStatus = ZalCiErrNoDriver;
    return 0;
}

int ZalCiRecv(ZALCIHANDLE, void*, int, ZALCISTATUS* pStatus, int*)
{
    *pStatus = ZalCiErrNoDriver;
    return 0;
}

ZALCISTATUS ZalCiClose(ZALCIHANDLE)
{
    return ZalCiErrNoDriver;
}
