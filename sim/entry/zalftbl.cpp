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

// Has the flash part do something; -1 without a server, or where the action is false.
template <typename Action>
int WithFlashPart(Action action)
{
    sim::CFlashPart* pPart = FlashPart();
    return pPart && sim::OrEndProcess([&] { return action(*pPart); }) ? 0 : -1;
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
    return WithFlashPart([](sim::CFlashPart& part) {
        part.Initialize();
        return true;
    });
}

int SelectFlashTable(const char* pszName)
{
    if (!pszName) return -1;
    return WithFlashPart([=](sim::CFlashPart& part) {
        part.Select(pszName);
        return true;
    });
}

int QueryFlashTable(TABLE_QUERY_RESULT* pResult)
{
    if (!pResult) return -1;
    *pResult = {};
    return WithFlashPart([=](sim::CFlashPart& part) {
        *pResult = part.Query();
        return true;
    });
}

int ReadFlashHeader(ZALFLSH_HEADER* pHeader)
{
    return WithFlashPart([=](sim::CFlashPart& part) { return part.ReadHeader(pHeader); });
}

int ReadFlashTable(void* pTable)
{
    return WithFlashPart([=](sim::CFlashPart& part) { return part.ReadTable(pTable); });
}

int WriteFlashTable(const void* pTable, int Size)
{
    if (Size < 0) return -1;
    return WithFlashPart(
        [=](sim::CFlashPart& part) { return part.WriteTable(pTable, static_cast<std::size_t>(Size)); });
}

int ExecuteFlashTable(TABLE_EXEC_REQUEST* pRequest)
{
    if (!pRequest) return -1;
    const int result = WithFlashPart([=](sim::CFlashPart& part) {
        part.Execute(*pRequest);
        return true;
    });
    if (result != 0) pRequest->Status = sim::FlashStatus_DeviceError;
    return result;
}

int CorruptNVRAM()
{
    return WithFlashPart([](sim::CFlashPart& part) {
        part.CorruptNvram();
        return true;
    });
}
