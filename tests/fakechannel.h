// A scripted channel library for the process that this is linked into.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
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

    static const int NoTimeout = -2;

    // What is to happen; success, and the answer to the last packet, when nothing is left.
    std::deque<ZALCISTATUS> creates;
    std::deque<ZALCISTATUS> sends;
    std::deque<CReceive> receives;
    bool noHandle = false;                      // creates succeed without a channel
    bool silent = false;                        // the processor does not answer
    std::map<std::uint16_t, std::string> body;  // of a command's reply, behind the header; zeros by default
    std::map<std::uint16_t, std::function<std::string(const std::string&)>> answer;  // makes the body from the packet

    // What has happened.
    int open = 0;                   // channels
    std::vector<std::string> sent;  // every attempt
    int size = 0;                   // of the last receive's buffer
    int timeout = 0;                // of the last receive; NoTimeout: null
};

extern CFakeChannel g_FakeChannel;
