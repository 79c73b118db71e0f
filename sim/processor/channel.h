// The channel driver: carries packets between its channels and the management processor.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "sim/base/journal.h"
#include "sim/processor/processor.h"
#include "zalci.h"

namespace sim
{

// What a channel has in one direction.
struct FifoSize
{
    ULONG Entries;
    ULONG EntrySize;  // bytes
};

class CChannelDriver
{
  public:
    using Bytes = std::vector<std::uint8_t>;

    CChannelDriver(CProcessor& processor, const ProcessorDescription& description, CServerFolder& folder,
                   CJournal& journal);

    // The channel library's operations. A handle is never used twice; any other value is answered with a status.
    ZALCISTATUS Create(ZALCIHANDLE& handle, const FifoSize& send, const FifoSize& receive);
    ZALCISTATUS Send(ZALCIHANDLE handle, const void* buffer, std::size_t size);

    // Waits at most so many milliseconds; negative: until something comes, but not for what never will.
    ZALCISTATUS Receive(ZALCIHANDLE handle, void* buffer, std::size_t size, int milliseconds, std::size_t& received);
    ZALCISTATUS Close(ZALCIHANDLE handle);

  private:
    struct Request
    {
        Bytes Packet;
        int Exchange;         // number of it, from 1
        int CommandExchange;  // among those of its command
        std::string Faults;   // that hit the exchange
    };

    struct Reply
    {
        std::int64_t Ready;  // time at which it comes
        Bytes Packet;
        std::size_t Size;  // bytes of it that come
        std::string Faults;
    };

    struct Channel
    {
        DWORD Number;
        FifoSize SendSize;
        FifoSize ReceiveSize;
        int BootNumber;
        std::deque<Request> Requests;
        std::deque<Reply> Replies;  // in the order in which they come; those under way too
    };

    ZALCISTATUS Open(ZALCIHANDLE& handle, const FifoSize& send, const FifoSize& receive);
    ZALCISTATUS Find(ZALCIHANDLE handle, Channel*& pChannel);
    ZALCISTATUS Enqueue(Channel& channel, const Bytes& packet);
    bool FindsFifoFull(WORD command);
    void Process(Channel& channel);
    void Answer(Channel& channel, const Request& request);
    std::string FindFaults(WORD command, int exchange, int commandExchange) const;
    void AddReply(Channel& channel, Bytes packet, std::int64_t ready, const std::string& faults);
    ZALCISTATUS Wait(Channel& channel, int milliseconds);
    void Record(Direction direction, const Channel* pChannel, ZALCISTATUS status, const void* packet, std::size_t size);

    CProcessor& m_Processor;
    const ProcessorDescription& m_Description;
    CServerFolder& m_Folder;
    CJournal& m_Journal;
    std::map<ZALCIHANDLE, Channel> m_Channels;
    DWORD m_Opened;  // channels so far
    int m_Exchanges;
    std::map<WORD, int> m_CommandExchanges;
    int m_FullFifo;  // attempts to send the next packet that found the FIFO full by fault
};

}  // namespace sim
