// The flash-table driver library on a machine that has none: the driver can't be opened, and there is neither a flash
// header nor a flash table.
#include "zalftbl.h"

int cruFd = -1;

int OpenCruDriver()
{
    return cruFd;
}

int InitFlashTableDriver()
{
    return 0;
}

int SelectFlashTable(const char*)
{
    return 0;
}

int QueryFlashTable(TABLE_QUERY_RESULT* pResult)
{
    *pResult = {};
    return 0;
}

int ReadFlashHeader(ZALFLSH_HEADER*)
{
    return -1;
}

int ReadFlashTable(void*)
{
    return -1;
}

int WriteFlashTable(const void*, int)
{
    return -1;
}

int ExecuteFlashTable(TABLE_EXEC_REQUEST* pRequest)
{
    pRequest->Status = 1;
    return -1;
}

int CorruptNVRAM()
{
    return -1;
}
