#include "tests/library/fakechannel.h"

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
    const Step step = script.empty() ? Step() : script.front();
    if (!script.empty()) script.pop_front();
    return step;
}

const ZALCIHANDLE Handle = reinterpret_cast<ZALCIHANDLE>(&g_FakeChannel);

bool IsOpen(ZALCIHANDLE handle)
{
    return handle == Handle && g_FakeChannel.open > 0;
}

}  // namespace

ZALCISTATUS ZalCiInitialize(void* pContext)
{
    g_FakeChannel.initialized = !pContext;
    return ZalCiErrGeneralFailure;
}

ZALCISTATUS ZalCiCreate(void* pKey, ZALCIHANDLE* phChannel, ULONG sendEntries, ULONG sendSize, ULONG recvEntries,
                        ULONG recvSize, ZALCIPRIORITY priority, int* pTimeout)
{
    if (!g_FakeChannel.initialized || pKey || sendEntries != 2 || sendSize != 4096 || recvEntries != 2 ||
        recvSize != 4096 || priority || pTimeout)
        return ZalCiErrBadParameter;
    const ZALCISTATUS status = Next(g_FakeChannel.creates);
    if (status != ZalCiSuccess || g_FakeChannel.noHandle) return status;
    g_FakeChannel.open++;
    *phChannel = Handle;
    return status;
}

int ZalCiSend(ZALCIHANDLE hChannel, const void* pBuffer, int length, ZALCISTATUS* pStatus, int* pTimeout)
{
    g_FakeChannel.sent.emplace_back(static_cast<const char*>(pBuffer), static_cast<std::size_t>(length));
    *pStatus = !IsOpen(hChannel) || pTimeout ? ZalCiErrBadParameter : Next(g_FakeChannel.sends);
    return length;
}

int ZalCiRecv(ZALCIHANDLE hChannel, void* pBuffer, int size, ZALCISTATUS* pStatus, int* pTimeout)
{
    SMIFHDR header = {};
    std::memcpy(&header, g_FakeChannel.sent.back().data(), sizeof header);
    g_FakeChannel.sizes[header.Command] = size;
    g_FakeChannel.timeout = pTimeout ? *pTimeout : int{CFakeChannel::NoTimeout};
    const CFakeChannel::CReceive step = Next(g_FakeChannel.receives);
    *pStatus = g_FakeChannel.silent ? ZalCiErrFifoEmpty : step.status;
    if (!IsOpen(hChannel)) *pStatus = ZalCiErrBadParameter;
    if (*pStatus == ZalCiErrFifoEmpty && pTimeout) usleep(static_cast<useconds_t>(*pTimeout) * 1000);
    if (*pStatus != ZalCiSuccess) return 0;

    const auto answer = g_FakeChannel.answer.find(header.Command);
    if (answer != g_FakeChannel.answer.end())
        g_FakeChannel.body[header.Command] = answer->second(g_FakeChannel.sent.back());
    const auto body = g_FakeChannel.body.find(header.Command);
    std::string reply(sizeof header, '\0');
    if (body != g_FakeChannel.body.end())
        reply += body->second;
    else
        reply.resize(static_cast<std::size_t>(size));
    if (step.length >= 0) reply.resize(static_cast<std::size_t>(step.length));
    header.Length = static_cast<WORD>(reply.size());
    header.Sequence = static_cast<WORD>(header.Sequence + step.sequence);
    std::memcpy(reply.data(), &header, std::min(reply.size(), sizeof header));
    std::memcpy(pBuffer, reply.data(), std::min(reply.size(), static_cast<std::size_t>(size)));
    return static_cast<int>(reply.size()) - step.missing;
}

ZALCISTATUS ZalCiClose(ZALCIHANDLE hChannel)
{
    if (!IsOpen(hChannel)) return ZalCiErrBadParameter;
    g_FakeChannel.open--;
    return ZalCiSuccess;
}

const char* ZalCiStatusMessage(ZALCISTATUS status)
{
    static std::string text;
    text = "status " + std::to_string(status);
    return text.c_str();
}
