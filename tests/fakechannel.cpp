#include "fakechannel.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "smif.h"

CFakeChannel g_FakeChannel;

namespace
{

template <typename Step>
Step Next(std::deque<Step>& script)
{
    if (script.empty()) return Step();
    const Step step = script.front();
    script.pop_front();
    return step;
}

}  // namespace

ZALCISTATUS ZalCiInitialize(void*)
{
    return ZalCiErrGeneralFailure;
}

ZALCISTATUS ZalCiCreate(void* pKey, ZALCIHANDLE* phChannel, ULONG sendEntries, ULONG sendSize, ULONG recvEntries,
                        ULONG recvSize, ZALCIPRIORITY priority, int* pTimeout)
{
    if (pKey || sendEntries != 2 || sendSize != 4096 || recvEntries != 2 || recvSize != 4096 || priority != 0 ||
        pTimeout)
        return ZalCiErrBadParameter;
    const ZALCISTATUS status = Next(g_FakeChannel.creates);
    if (status != ZalCiSuccess || g_FakeChannel.noHandle) return status;
    g_FakeChannel.open++;
    *phChannel = reinterpret_cast<ZALCIHANDLE>(&g_FakeChannel);
    return status;
}

int ZalCiSend(ZALCIHANDLE, const void* pBuffer, int length, ZALCISTATUS* pStatus, int* pTimeout)
{
    g_FakeChannel.sent.emplace_back(static_cast<const char*>(pBuffer), static_cast<std::size_t>(length));
    *pStatus = pTimeout ? ZalCiErrBadParameter : Next(g_FakeChannel.sends);
    return length;
}

int ZalCiRecv(ZALCIHANDLE, void* pBuffer, int size, ZALCISTATUS* pStatus, int* pTimeout)
{
    g_FakeChannel.sizes.push_back(size);
    g_FakeChannel.timeouts.push_back(pTimeout ? *pTimeout : 0);
    CFakeChannel::CReceive step = Next(g_FakeChannel.receives);
    if (g_FakeChannel.silent) step.status = ZalCiErrFifoEmpty;
    *pStatus = step.status;
    if (step.status != ZalCiSuccess) {
        const bool waits = step.status == ZalCiErrFifoEmpty || step.status == ZalCiErrTimeout;
        if (waits && pTimeout) usleep(static_cast<useconds_t>(*pTimeout) * 1000);
        return 0;
    }
    SMIFHDR header;
    std::memcpy(&header, g_FakeChannel.sent.back().data(), sizeof header);
    const auto body = g_FakeChannel.body.find(header.Command);
    std::string reply(static_cast<std::size_t>(size), '\0');
    if (body != g_FakeChannel.body.end()) reply = std::string(sizeof header, '\0') + body->second;
    header.Length = static_cast<WORD>(reply.size());
    header.Sequence = static_cast<WORD>(header.Sequence + step.sequence);
    std::memcpy(reply.data(), &header, sizeof header);
    const std::size_t received = std::min(reply.size(), static_cast<std::size_t>(size));
    std::memcpy(pBuffer, reply.data(), received);
    return static_cast<int>(received) - step.missing;
}

ZALCISTATUS ZalCiClose(ZALCIHANDLE)
{
    g_FakeChannel.open--;
    return ZalCiSuccess;
}

const char* ZalCiStatusMessage(ZALCISTATUS status)
{
    static std::string text;
    text = "status " + std::to_string(status);
    return text.c_str();
}
