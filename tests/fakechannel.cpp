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
    const Step step = script.empty() ? Step() : script.front();
    if (!script.empty()) script.pop_front();
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
    if (pKey || sendEntries != 2 || sendSize != 4096 || recvEntries != 2 || recvSize != 4096 || priority || pTimeout)
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
    g_FakeChannel.size = size;
    g_FakeChannel.timeout = pTimeout ? *pTimeout : int{CFakeChannel::NoTimeout};
    const CFakeChannel::CReceive step = Next(g_FakeChannel.receives);
    *pStatus = g_FakeChannel.silent ? ZalCiErrFifoEmpty : step.status;
    if (*pStatus == ZalCiErrFifoEmpty && pTimeout) usleep(static_cast<useconds_t>(*pTimeout) * 1000);
    if (*pStatus != ZalCiSuccess) return 0;

    std::string reply = g_FakeChannel.sent.back().substr(0, sizeof(SMIFHDR));
    SMIFHDR* pHeader = reinterpret_cast<SMIFHDR*>(reply.data());
    const auto answer = g_FakeChannel.answer.find(pHeader->Command);
    if (answer != g_FakeChannel.answer.end())
        g_FakeChannel.body[pHeader->Command] = answer->second(g_FakeChannel.sent.back());
    const auto body = g_FakeChannel.body.find(pHeader->Command);
    pHeader->Sequence = static_cast<WORD>(pHeader->Sequence + step.sequence);
    const std::size_t length =
        body == g_FakeChannel.body.end() ? static_cast<std::size_t>(size) - reply.size() : body->second.size();
    pHeader->Length = static_cast<WORD>(reply.size() + length);
    reply += body == g_FakeChannel.body.end() ? std::string(length, '\0') : body->second;
    std::memcpy(pBuffer, reply.data(), std::min(reply.size(), static_cast<std::size_t>(size)));
    return static_cast<int>(reply.size()) - step.missing;
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
