// A scripted channel library for the process that this is linked into.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "zalci.h"

struct CFakeChannel
{
    struct CReceive
    {
        ZALCISTATUS status = ZalCiSuccess;
        int sequence = 0;  // what the reply's number is off by
        int missing = 0;   // bytes of the reply
    };

    // What is to happen; success, and the answer to the last packet, when nothing is left.
    std::deque<ZALCISTATUS> creates;
    std::deque<ZALCISTATUS> sends;
    std::deque<CReceive> receives;
    bool noHandle = false;                      // creates succeed without a channel
    bool silent = false;                        // the processor does not answer
    std::map<std::uint16_t, std::string> body;  // of a command's reply, behind the header; zeros by default

    // What has happened.
    int open = 0;                   // channels
    std::vector<std::string> sent;  // every attempt
    std::vector<int> sizes;         // of receive buffers
    std::vector<int> timeouts;      // of receives; 0: null
};

extern CFakeChannel g_FakeChannel;
