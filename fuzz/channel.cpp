#include "fuzz/channel.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "smif.h"
#include "zalci.h"

namespace
{

using Bytes = std::vector<std::uint8_t>;

CInput* g_pReplies;
Bytes g_Request;

ZALCISTATUS Status()
{
    return static_cast<ZALCISTATUS>(g_pReplies->Byte() % (ZalCiErrMax + 1));
}

ZALCISTATUS StatusOfRequest()
{
    if (g_pReplies->IsEmpty() || *g_pReplies->Data() != 0xFF) return ZalCiSuccess;
    g_pReplies->Byte();
    return Status();
}

// The body of the reply to an I2C request: what the device sent, with a checksum that is right, as the read of a
// register has in its third byte and the write of one in its only byte.
Bytes I2CBody(Bytes sent, const SMIFREQ_I2C_TRANSACTION& request)
{
    SMIFRSP_I2C_TRANSACTION reply = {};
    reply.ReadLength = request.ReadLength;
    std::copy_n(sent.begin(), std::min(sent.size(), sizeof reply.Data), reply.Data);
    if (request.ReadLength == 3) reply.Data[2] = static_cast<BYTE>(-reply.Data[0] - reply.Data[1]);
    if (request.ReadLength == 1) reply.Data[0] = request.Data[3];
    const std::uint8_t* pReply = reinterpret_cast<const std::uint8_t*>(&reply);
    return {pReply + sizeof(SMIFHDR), pReply + sizeof reply};
}

}  // namespace

void UseReplies(CInput& input)
{
    g_pReplies = &input;
}

ZALCISTATUS ZalCiInitialize(void*)
{
    return ZalCiSuccess;
}

ZALCISTATUS ZalCiCreate(void*, ZALCIHANDLE* phChannel, ULONG, ULONG, ULONG, ULONG, ZALCIPRIORITY, int*)
{
    static int channel;
    const ZALCISTATUS status = StatusOfRequest();
    // Without a driver the library asks the host's shell, which is no part of this.
    if (status == ZalCiErrNoDriver) return ZalCiErrNoDevice;
    if (status == ZalCiSuccess) *phChannel = reinterpret_cast<ZALCIHANDLE>(&channel);
    return status;
}

int ZalCiSend(ZALCIHANDLE, const void* pBuffer, int length, ZALCISTATUS* pStatus, int*)
{
    const std::uint8_t* pRequest = static_cast<const std::uint8_t*>(pBuffer);
    g_Request.assign(pRequest, pRequest + length);
    *pStatus = StatusOfRequest();
    return length;
}

int ZalCiRecv(ZALCIHANDLE, void* pBuffer, int size, ZALCISTATUS* pStatus, int* pTimeout)
{
    const bool silent = g_pReplies->IsEmpty();
    const int kind = g_pReplies->Byte();
    *pStatus = silent ? ZalCiErrFifoEmpty : kind >= 0xE0 ? Status() : ZalCiSuccess;
    if (*pStatus == ZalCiErrFifoEmpty && pTimeout && *pTimeout > 0) usleep(static_cast<useconds_t>(*pTimeout) * 1000);
    if (silent || kind >= 0xE0) return 0;

    SMIFHDR header;
    std::memcpy(&header, g_Request.data(), sizeof header);
    const bool other = kind >= 0xC0;
    const DWORD stated = !other && (kind & 0x40) ? g_pReplies->Word(2) : 0;
    Bytes body = g_pReplies->Bytes(g_pReplies->Byte());
    if (!other && (kind & 0x80) && header.Command == SMIFCMD_I2C_TRANSACTION)
        body = I2CBody(body, *reinterpret_cast<const SMIFREQ_I2C_TRANSACTION*>(g_Request.data()));

    const std::size_t length = sizeof header + body.size();
    header.Length = static_cast<WORD>(!other && (kind & 0x40) ? stated : length);
    if (other) header.Sequence = static_cast<WORD>(header.Sequence + (kind & 0x1F));
    const std::uint8_t* pHeader = reinterpret_cast<const std::uint8_t*>(&header);
    body.insert(body.begin(), pHeader, pHeader + sizeof header);
    std::memcpy(pBuffer, body.data(), std::min(length, static_cast<std::size_t>(size)));
    return static_cast<int>(length);
}

ZALCISTATUS ZalCiClose(ZALCIHANDLE)
{
    return ZalCiSuccess;
}
