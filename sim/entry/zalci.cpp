// The channel library of the simulated server. Without a server, and on one without a processor, there is no driver.
#include "zalci.h"

#include <cstdint>

#include "sim/base/conduct.h"
#include "sim/processor/channel.h"
#include "sim/server.h"

namespace
{

sim::CChannelDriver* Driver()
{
    sim::CServer* pServer = sim::CurrentServer();
    return pServer ? pServer->GetChannelDriver() : nullptr;
}

// Does an operation on a packet buffer and stores its status; the bytes that it carried.
template <typename Operation>
int Carry(const void* pBuffer, int size, ZALCISTATUS* pStatus, Operation operation)
{
    int carried = 0;
    sim::CChannelDriver* pDriver = Driver();
    ZALCISTATUS status = pDriver ? ZalCiErrBadParameter : ZalCiErrNoDriver;
    if (pDriver && pBuffer && size > 0) status = sim::OrEndProcess([&] { return operation(*pDriver, carried); });
    if (pStatus) *pStatus = status;
    return carried;
}

bool g_bInitialized = false;

bool IsPriority(int priority)
{
    return priority == ZalCiNormalPriority || priority == ZalCiHighPriority ||
           (priority >= ZalCiCriticalPriority_0 && priority <= ZalCiCriticalPriority_7);
}

}  // namespace

ZALCISTATUS ZalCiInitialize(void*)
{
    g_bInitialized = true;
    return Driver() ? ZalCiSuccess : ZalCiErrNoDriver;
}

ZALCISTATUS ZalCiCreate(void*, ZALCIHANDLE* phChannel, ULONG SendEntries, ULONG SendEntrySize, ULONG RecvEntries,
                        ULONG RecvEntrySize, ZALCIPRIORITY Priority, int*)
{
    if (!phChannel) return ZalCiErrBadParameter;
    *phChannel = nullptr;
    if (!g_bInitialized) return ZalCiErrInterface;
    if (!Driver()) return ZalCiErrNoDriver;
    if (!IsPriority(Priority)) return ZalCiErrBadPriority;
    const ZALCISTATUS status = sim::OrEndProcess([=] {
        return Driver()->Create(*phChannel, {SendEntries, SendEntrySize}, {RecvEntries, RecvEntrySize});
    });
    if (status == ZalCiSuccess)
        sim::CConduct::Instance().Take(sim::Held_Channel, reinterpret_cast<std::intptr_t>(*phChannel),
                                       __builtin_return_address(0), "created a channel and did not close it");
    return status;
}

// A packet is queued at once or not at all: there is nothing to wait for.
int ZalCiSend(ZALCIHANDLE hChannel, const void* pBuffer, int Length, ZALCISTATUS* pStatus, int*)
{
    return Carry(pBuffer, Length, pStatus, [=](sim::CChannelDriver& driver, int& carried) {
        const ZALCISTATUS status = driver.Send(hChannel, pBuffer, static_cast<std::size_t>(Length));
        if (status == ZalCiSuccess) carried = Length;
        return status;
    });
}

int ZalCiRecv(ZALCIHANDLE hChannel, void* pBuffer, int BufferSize, ZALCISTATUS* pStatus, int* pTimeout)
{
    return Carry(pBuffer, BufferSize, pStatus, [=](sim::CChannelDriver& driver, int& carried) {
        std::size_t received = 0;
        const ZALCISTATUS status = driver.Receive(hChannel, pBuffer, static_cast<std::size_t>(BufferSize),
                                                  pTimeout ? *pTimeout : -1, received);
        carried = static_cast<int>(received);
        return status;
    });
}

ZALCISTATUS ZalCiClose(ZALCIHANDLE hChannel)
{
    sim::CConduct::Instance().GiveBack(sim::Held_Channel, reinterpret_cast<std::intptr_t>(hChannel));
    sim::CChannelDriver* pDriver = Driver();
    return pDriver ? pDriver->Close(hChannel) : ZalCiErrNoDriver;
}
