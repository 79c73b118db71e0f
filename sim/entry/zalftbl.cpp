// The flash-table driver library of the simulated server. Without a server there is neither a header nor a table.
#include "zalftbl.h"

#include <fcntl.h>

#include "sim/server.h"

namespace
{

sim::CFlashPart* FlashPart()
{
    sim::CServer* pServer = sim::CurrentServer();
    return pServer ? &pServer->GetFlashPart() : nullptr;
}

// Has the flash part do something; 0, or -1 without a server.
template <typename Action>
int WithFlashPart(Action action)
{
    sim::CFlashPart* pPart = FlashPart();
    if (!pPart) return -1;
    sim::OrEndProcess([&] { action(*pPart); });
    return 0;
}

}  // namespace

int cruFd = -1;

int OpenCruDriver()
{
    if (cruFd < 0) cruFd = open("/dev/qvrcru", O_RDWR);
    return cruFd;
}

int InitFlashTableDriver()
{
    return 0;
}

int SelectFlashTable(const char* pszName)
{
    return WithFlashPart([=](sim::CFlashPart& part) { part.Select(pszName); });
}

int QueryFlashTable(TABLE_QUERY_RESULT* pResult)
{
    *pResult = {};
    return WithFlashPart([=](sim::CFlashPart& part) { *pResult = part.Query(); });
}

int ReadFlashHeader(ZALFLSH_HEADER* pHeader)
{
    return WithFlashPart([=](sim::CFlashPart& part) { part.ReadHeader(pHeader); });
}

int ReadFlashTable(void* pTable)
{
    return WithFlashPart([=](sim::CFlashPart& part) { part.ReadTable(pTable); });
}

int WriteFlashTable(const void* pTable, int Size)
{
    return WithFlashPart([=](sim::CFlashPart& part) { part.WriteTable(pTable, static_cast<std::size_t>(Size)); });
}

int ExecuteFlashTable(TABLE_EXEC_REQUEST* pRequest)
{
    pRequest->Status = sim::FlashStatus_DeviceError;
    return WithFlashPart([=](sim::CFlashPart& part) { part.Execute(*pRequest); });
}

int CorruptNVRAM()
{
    return WithFlashPart([](sim::CFlashPart& part) { part.CorruptNvram(); });
}
