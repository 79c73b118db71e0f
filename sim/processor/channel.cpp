#include "sim/processor/channel.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "sim/base/clock.h"
#include "sim/processor/smifcommands.h"

// What a handle points to.
struct _ZALCICHANNEL
{
};

namespace sim
{

namespace
{

const std::size_t MaxChannels = 8;  // a host that leaks them finds out
const ULONG MaxEntries = 64;
const ULONG MaxEntrySize = 65536;

// Places that no two channels share, not even channels of two servers.
ZALCIHANDLE NewHandle()
{
    static auto& places = *new std::deque<_ZALCICHANNEL>;
    return &places.emplace_back();
}

SMIFHDR HeaderOf(const void* packet, std::size_t size)
{
    SMIFHDR header = {};
    std::memcpy(&header, packet, std::min(size, sizeof header));
    return header;
}

std::string Hex(const void* bytes, std::size_t size)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string text;
    for (std::size_t i = 0; i < size; i++) {
        const std::uint8_t byte = static_cast<const std::uint8_t*>(bytes)[i];
        text += {digits[byte >> 4], digits[byte & 15]};
    }
    return text;
}

bool Concerns(const PacketFault& fault, WORD command, int exchange, int commandExchange)
{
    if (!fault.Set || (fault.Command != 0 && fault.Command != command)) return false;
    return fault.Exchange == 0 || fault.Exchange == (fault.Command != 0 ? commandExchange : exchange);
}

}  // namespace

CChannelDriver::CChannelDriver(CProcessor& processor, const ProcessorDescription& description, CServerFolder& folder,
                               CJournal& journal)
    : m_Processor(processor),
      m_Description(description),
      m_Folder(folder),
      m_Journal(journal),
      m_Opened(0),
      m_Exchanges(0),
      m_FullFifo(0)
{
}

ZALCISTATUS CChannelDriver::Create(ZALCIHANDLE& handle, const FifoSize& send, const FifoSize& receive)
{
    handle = nullptr;
    const ZALCISTATUS status = Open(handle, send, receive);
    const ProcessorFaults& faults = m_Description.Faults;
    m_Journal.GetCapture().AddNote(
        "channel open number=" + std::to_string(handle ? m_Opened : 0) + " status=" + std::to_string(status),
        JoinFaults({{faults.NoDriver, "processor.no_driver"}, {faults.Dead, "processor.dead"}}));
    return status;
}

ZALCISTATUS CChannelDriver::Open(ZALCIHANDLE& handle, const FifoSize& send, const FifoSize& receive)
{
    if (m_Description.Faults.NoDriver) return ZalCiErrNoDriver;
    for (const FifoSize& size : {send, receive}) {
        if (size.Entries == 0 || size.Entries > MaxEntries) return ZalCiErrBadDescriptorCount;
        if (size.EntrySize < sizeof(SMIFHDR) || size.EntrySize > MaxEntrySize) return ZalCiErrBadDescriptorSize;
    }
    if (m_Channels.size() == MaxChannels) return ZalCiErrNoMoreChannels;
    if (m_Processor.IsAway()) return ZalCiErrChannelNotResponding;
    handle = NewHandle();
    m_Channels[handle] = {++m_Opened, send, receive, m_Processor.GetBootNumber(), {}, {}};
    return ZalCiSuccess;
}

ZALCISTATUS CChannelDriver::Find(ZALCIHANDLE handle, Channel*& pChannel)
{
    const auto entry = m_Channels.find(handle);
    if (entry == m_Channels.end()) return handle ? ZalCiErrChannelDeleted : ZalCiErrBadParameter;
    pChannel = &entry->second;
    return pChannel->BootNumber == m_Processor.GetBootNumber() ? ZalCiSuccess : ZalCiErrChannelDisconnected;
}

ZALCISTATUS CChannelDriver::Close(ZALCIHANDLE handle)
{
    const auto entry = m_Channels.find(handle);
    if (entry != m_Channels.end()) {
        m_Journal.GetCapture().AddNote("channel close number=" + std::to_string(entry->second.Number));
        m_Channels.erase(entry);
        return ZalCiSuccess;
    }
    return handle ? ZalCiErrChannelDeleted : ZalCiErrBadParameter;
}

ZALCISTATUS CChannelDriver::Send(ZALCIHANDLE handle, const void* buffer, std::size_t size)
{
    Channel* pChannel = nullptr;
    ZALCISTATUS status = Find(handle, pChannel);
    if (status == ZalCiSuccess && size > pChannel->SendSize.EntrySize) status = ZalCiErrBadDescriptorSize;
    const auto* pBytes = static_cast<const std::uint8_t*>(buffer);
    if (status == ZalCiSuccess) status = Enqueue(*pChannel, {pBytes, pBytes + size});
    if (status == ZalCiSuccess) m_Journal.GetCapture().NoteFault(pChannel->Requests.back().Faults);
    Record(Direction_Request, pChannel, status, buffer, size);
    if (status == ZalCiSuccess) Process(*pChannel);
    return status;
}

ZALCISTATUS CChannelDriver::Enqueue(Channel& channel, const Bytes& packet)
{
    const WORD command = HeaderOf(packet.data(), packet.size()).Command;
    if (channel.Requests.size() >= channel.SendSize.Entries || FindsFifoFull(command)) return ZalCiErrFifoFull;
    m_FullFifo = 0;
    const int exchange = ++m_Exchanges;
    const int commandExchange = ++m_CommandExchanges[command];
    channel.Requests.push_back({packet, exchange, commandExchange, FindFaults(command, exchange, commandExchange)});
    return ZalCiSuccess;
}

// The names of those that hit an exchange.
std::string CChannelDriver::FindFaults(WORD command, int exchange, int commandExchange) const
{
    const ProcessorFaults& faults = m_Description.Faults;
    if (faults.Dead) return "processor.dead";
    const auto concerns = [&](const PacketFault& fault) { return Concerns(fault, command, exchange, commandExchange); };
    return JoinFaults({{concerns(faults.Lost), "processor.lost"},
                       {concerns(faults.Late), "processor.late"},
                       {concerns(faults.Stale), "processor.stale"},
                       {concerns(faults.Runt), "processor.runt"},
                       {concerns(faults.Error), "processor.error"}});
}

bool CChannelDriver::FindsFifoFull(WORD command)
{
    const PacketFault& fault = m_Description.Faults.FullFifo;
    if (!Concerns(fault, command, m_Exchanges + 1, m_CommandExchanges[command] + 1)) return false;
    if (m_FullFifo++ >= fault.Value) return false;
    m_Journal.GetCapture().NoteFault("processor.full_fifo");
    return true;
}

// The processor takes a request when there is room for its reply.
void CChannelDriver::Process(Channel& channel)
{
    while (!channel.Requests.empty() && channel.Replies.size() < channel.ReceiveSize.Entries && m_Processor.IsAlive()) {
        const Request request = std::move(channel.Requests.front());
        channel.Requests.pop_front();
        Answer(channel, request);
    }
}

void CChannelDriver::Answer(Channel& channel, const Request& request)
{
    const ProcessorFaults& faults = m_Description.Faults;
    const WORD command = HeaderOf(request.Packet.data(), request.Packet.size()).Command;
    const auto concerns = [&](const PacketFault& fault) {
        return Concerns(fault, command, request.Exchange, request.CommandExchange);
    };
    const DWORD errorCode = concerns(faults.Error) ? static_cast<DWORD>(faults.Error.Value) : 0;
    CStep step(m_Folder.GetSteps(), "exchange", FindCommandName(command));
    CProcessor::Answer answer = m_Processor.Execute(request.Packet, errorCode);
    step.End();
    if (answer.Packet.empty() || concerns(faults.Lost)) return;

    std::int64_t ready = CClock::Instance().Now();
    if (!channel.Replies.empty()) ready = std::max(ready, channel.Replies.back().Ready);
    ready += m_Description.LatencyMicroseconds * Microsecond + answer.Milliseconds * Millisecond;
    if (concerns(faults.Late)) ready += faults.Late.Value * Millisecond;
    for (int i = concerns(faults.Stale) ? faults.Stale.Value : 0; i > 0; i--) {
        Bytes stale = answer.Packet;
        SMIFHDR header = HeaderOf(stale.data(), stale.size());
        header.Sequence = static_cast<WORD>(header.Sequence - i);
        std::memcpy(stale.data(), &header, sizeof header);
        AddReply(channel, std::move(stale), ready, request.Faults);
    }
    AddReply(channel, std::move(answer.Packet), ready, request.Faults);
    if (concerns(faults.Runt)) {
        std::size_t& size = channel.Replies.back().Size;
        size = std::min(size, static_cast<std::size_t>(faults.Runt.Value));
    }
}

void CChannelDriver::AddReply(Channel& channel, Bytes packet, std::int64_t ready, const std::string& faults)
{
    const std::size_t size = std::min<std::size_t>(packet.size(), channel.ReceiveSize.EntrySize);
    channel.Replies.push_back({ready, std::move(packet), size, faults});
}

ZALCISTATUS CChannelDriver::Wait(Channel& channel, int milliseconds)
{
    CClock& clock = CClock::Instance();
    const std::int64_t now = clock.Now();
    const std::int64_t limit = now + milliseconds * Millisecond;
    if (channel.Replies.empty()) {
        if (milliseconds < 0) return ZalCiErrChannelNotResponding;
        clock.Wait(limit - now);
        return ZalCiErrFifoEmpty;
    }
    const std::int64_t ready = channel.Replies.front().Ready;
    const bool comes = milliseconds < 0 || ready <= limit;
    clock.Wait(std::max<std::int64_t>(0, (comes ? ready : limit) - now));
    return comes ? ZalCiSuccess : ZalCiErrFifoEmpty;
}

ZALCISTATUS CChannelDriver::Receive(ZALCIHANDLE handle, void* buffer, std::size_t size, int milliseconds,
                                    std::size_t& received)
{
    received = 0;
    Channel* pChannel = nullptr;
    ZALCISTATUS status = Find(handle, pChannel);
    if (status == ZalCiSuccess) status = Wait(*pChannel, milliseconds);
    // The processor may have gone while it was waited for.
    if (status == ZalCiSuccess) status = Find(handle, pChannel);
    const bool comes = status == ZalCiSuccess;
    if (comes) {
        const Reply reply = std::move(pChannel->Replies.front());
        pChannel->Replies.pop_front();
        received = std::min(size, reply.Size);
        std::memcpy(buffer, reply.Packet.data(), received);
        if (received < reply.Size) status = ZalCiErrPartialTransfer;
        m_Journal.GetCapture().NoteFault(reply.Faults);
    }
    Record(Direction_Reply, pChannel, status, buffer, received);
    if (comes) Process(*pChannel);
    return status;
}

void CChannelDriver::Record(Direction direction, const Channel* pChannel, ZALCISTATUS status, const void* packet,
                            std::size_t size)
{
    m_Journal.GetCapture().Add(Wire_Channel, {direction, static_cast<DWORD>(status), pChannel ? pChannel->Number : 0},
                               packet, size);
    if (!m_Journal.RecordsPackets()) return;
    const SMIFHDR header = HeaderOf(packet, size);
    const char* pszDirection = direction == Direction_Request ? "send" : "recv";
    if (size == 0)
        m_Journal.WritePacket("packet %s command=- status=%d sequence=- length=0 bytes=-", pszDirection, status);
    else
        m_Journal.WritePacket("packet %s command=%s status=%d sequence=%04X length=%zu bytes=%s", pszDirection,
                              FindCommandName(header.Command), status, header.Sequence, size,
                              Hex(packet, size).c_str());
}

}  // namespace sim
