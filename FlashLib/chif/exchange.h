// The typed exchange that carries every command of the channel, and what its operations have in common.
#pragma once

#include "chif.h"
#include "debug.h"

// A command's packets, and its name in the log.
template <int Command>
struct CPackets;

#define CHIF_COMMAND(name)                                                 \
    template <>                                                            \
    struct CPackets<SMIFCMD_##name>                                        \
    {                                                                      \
        using Request = SMIFREQ_##name;                                    \
        using Response = SMIFRSP_##name;                                   \
        static constexpr const char* Failure = "SMIFCMD_" #name " failed"; \
    }

CHIF_COMMAND(GET_STATUS);
CHIF_COMMAND(MOXFLASH_COMMAND);
CHIF_COMMAND(I2C_TRANSACTION);
CHIF_COMMAND(IO_ACCESS);
CHIF_COMMAND(DEVICE_FLASH);
CHIF_COMMAND(DEVICE_CONTROL);
CHIF_COMMAND(DEVICE_CONTROL_EX);
CHIF_COMMAND(HOST_RESET);
CHIF_COMMAND(GET_TMBLN_INFO);
CHIF_COMMAND(PS_INFO);
CHIF_COMMAND(GET_POWERPIC_INFO);
CHIF_COMMAND(GET_NVME_BACKPLANE_INFO);

#undef CHIF_COMMAND

// Logs why an operation failed; returns FALSE.
inline BOOL LogFailure(const char* pszMethod, const char* pszReason)
{
    _DebugPrintf("CChannelInterface::%s: %s\n", pszMethod, pszReason);
    return FALSE;
}

// Every operation asks this first. Logs it when there is no channel.
inline BOOL ChannelAvailable(const CChannelInterface& channel, const char* pszMethod)
{
    return channel.IsOpen() || LogFailure(pszMethod, "Channel not available");
}

// Stores an output of an operation where the caller wants it.
template <typename Output, typename Value>
void HandOut(Output* pOutput, Value value)
{
    if (pOutput) *pOutput = static_cast<Output>(value);
}

// One command of one operation. The request is zero but for its length and code; the caller fills in the rest. The
// response is zero but for its error code, so that a reply too short for one is an error.
template <int Command>
class CExchange
{
  public:
    CExchange(CChannelInterface& channel, const char* pszMethod)
        : request(), response(), m_pszMethod(pszMethod), m_Channel(channel)
    {
        request.Length = sizeof request;
        request.Command = Command;
        response.ErrorCode = ~0U;
    }

    // Exchanges the request for the response; 0 or a status. Logs no line of its own.
    int Try(int timeout = CChannelInterface::DefaultRecvTimeout)
    {
        return m_Channel.SmifCommand(&request, &response, sizeof response, timeout);
    }

    // The same as the exchange that an operation lives by: a failure is logged, and FALSE.
    BOOL Run(int timeout = CChannelInterface::DefaultRecvTimeout) { return Succeeded(Try(timeout)); }

    // The same without a look at the response's ErrorCode.
    BOOL RunNoErr(int timeout = CChannelInterface::DefaultRecvTimeout)
    {
        return Succeeded(m_Channel.SmifCommandNoErr(&request, &response, sizeof response, timeout));
    }
    BOOL RunNoErrWithOverallTimeout(int seconds)
    {
        return Succeeded(m_Channel.SmifCommandNoErrWithOverallTimeout(&request, &response, sizeof response, seconds));
    }

    // Run with the reply in the request's place, so that any reply counts as the right one.
    BOOL RunInPlace(int timeout = CChannelInterface::DefaultRecvTimeout)
    {
        return Succeeded(m_Channel.SmifCommand(&request, &request, sizeof request, timeout));
    }

    typename CPackets<Command>::Request request;
    typename CPackets<Command>::Response response;

  protected:
    BOOL Succeeded(int status) const { return status == 0 || LogFailure(m_pszMethod, CPackets<Command>::Failure); }

    const char* m_pszMethod;

  private:
    CChannelInterface& m_Channel;
};
