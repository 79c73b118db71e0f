#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ctime>

#include "chif.h"
#include "debug.h"

namespace
{

const int FifoEntries = 2;
const int FifoEntrySize = 4096;

const int SendAttempts = 10;
const int FifoFullDelay = 50000;  // microseconds

const int ReceiveAttempts = 4;

const int CommandFailed = ZalCiErrMax;

// A caller's receive buffer, and what it held before the first receive: a discarded reply must leave no trace in it, as
// the next one may be shorter.
class CReplyBuffer
{
  public:
    CReplyBuffer(SMIFPACKET* pReply, int size)
        : m_pReply(pReply), m_Size(pReply && size > 0 ? static_cast<std::size_t>(std::min(size, FifoEntrySize)) : 0)
    {
        if (m_Size > 0) std::memcpy(m_Before, pReply, m_Size);
    }

    void Discard(const char* pszMethod, const SMIFPACKET* pRequest) const
    {
        _DebugPrintf("CChannelInterface::%s: Out of sequence response (%04X/%04X)\n", pszMethod, pRequest->Sequence,
                     m_pReply->Sequence);
        std::memcpy(m_pReply, m_Before, m_Size);
    }

  private:
    SMIFPACKET* m_pReply;
    std::size_t m_Size;
    BYTE m_Before[FifoEntrySize];
};

}  // namespace

const int CChannelInterface::DefaultRecvTimeout;
const int CChannelInterface::I2CRecvTimeout;
const int CChannelInterface::DeviceFlashDispatchRecvTimeout;
const int CChannelInterface::OverallTimeoutInSeconds;

int CChannelInterface::Open()
{
    Close();
    const ZALCISTATUS status = ZalCiCreate(nullptr, &m_hChannel, FifoEntries, FifoEntrySize, FifoEntries, FifoEntrySize,
                                           ZalCiNormalPriority, nullptr);
    // kept: open-without-channel (it is logged, and a success)
    if (status != ZalCiSuccess || !m_hChannel)
        _DebugPrintf("CChannelInterface::Open: %s\n", ZalCiStatusMessage(status));
    return status;
}

void CChannelInterface::Close()
{
    if (m_hChannel) ZalCiClose(m_hChannel);
    m_hChannel = nullptr;
}

int CChannelInterface::Send(SMIFPACKET* pPacket)
{
    if (!m_hChannel) return ZalCiErrNoDevice;
    if (!pPacket || pPacket->Length < sizeof(SMIFHDR)) return ZalCiErrBadParameter;

    pPacket->Sequence = m_NextSequenceNumber++;  // used up even when the packet can't be sent
    pPacket->ServiceType = 0;

    ZALCISTATUS status = ZalCiErrFifoFull;
    for (int i = 0; i < SendAttempts && status == ZalCiErrFifoFull; i++) {
        ZalCiSend(m_hChannel, pPacket, pPacket->Length, &status, nullptr);
        if (status == ZalCiErrFifoFull) usleep(FifoFullDelay);
    }
    if (status != ZalCiSuccess) _DebugPrintf("CChannelInterface::Send: %s\n", ZalCiStatusMessage(status));
    return status;
}

int CChannelInterface::Recv(SMIFPACKET* pPacket, int PacketBufferSize, int Timeout)
{
    if (!m_hChannel) return ZalCiErrNoDevice;
    if (!pPacket || PacketBufferSize < static_cast<int>(sizeof(SMIFRESPONSE))) return ZalCiErrBadParameter;

    ZALCISTATUS status = ZalCiSuccess;
    const int received = ZalCiRecv(m_hChannel, pPacket, PacketBufferSize, &status, Timeout ? &Timeout : nullptr);
    if (status == ZalCiSuccess && received < pPacket->Length) {
        _DebugPrintf("CChannelInterface::Recv: Runt packet (Header length = %d)\n", pPacket->Length);
        status = ZalCiErrPartialTransfer;
    }
    if (status != ZalCiSuccess) _DebugPrintf("CChannelInterface::Recv: %s\n", ZalCiStatusMessage(status));
    return status;
}

int CChannelInterface::SmifCommandNoErr(SMIFPACKET* pRequest, SMIFPACKET* pResponse, int ResponseBufferSize,
                                        int Timeout)
{
    int status = Send(pRequest);
    if (status != 0) return status;

    const CReplyBuffer reply(pResponse, ResponseBufferSize);
    for (int i = 0; i < ReceiveAttempts; i++) {
        status = Recv(pResponse, ResponseBufferSize, Timeout);
        // The request is read again each time: it may be the buffer that the reply came in.
        if (status != 0 || pResponse->Sequence == pRequest->Sequence) return status;
        reply.Discard(__func__, pRequest);
    }
    return CommandFailed;
}

int CChannelInterface::SmifCommand(SMIFPACKET* pRequest, SMIFPACKET* pResponse, int ResponseBufferSize, int Timeout)
{
    const int status = SmifCommandNoErr(pRequest, pResponse, ResponseBufferSize, Timeout);
    if (status != 0) return status;

    const DWORD errorCode = static_cast<SMIFRESPONSE*>(pResponse)->ErrorCode;
    if (errorCode == 0) return 0;
    _DebugPrintf("CChannelInterface::SmifCommand: ErrorCode = %08X\n", errorCode);
    return CommandFailed;
}

int CChannelInterface::SmifCommandNoErrWithOverallTimeout(SMIFPACKET* pRequest, SMIFPACKET* pResponse,
                                                          int ResponseBufferSize, int Seconds)
{
    int status = Send(pRequest);
    if (status != 0) return status;

    const CReplyBuffer reply(pResponse, ResponseBufferSize);
    const std::time_t start = std::time(nullptr);
    do {
        status = Recv(pResponse, ResponseBufferSize, DefaultRecvTimeout);
        if (status == ZalCiErrFifoEmpty) {
            _DebugPrintf("CChannelInterface::SmifCommandNoErrWithOverallTimeout: FIFO is empty\n");
            continue;
        }
        if (status != 0 || pResponse->Sequence == pRequest->Sequence) return status;

        status = CommandFailed;
        reply.Discard(__func__, pRequest);
    } while (std::time(nullptr) - start < Seconds);
    return status;
}
