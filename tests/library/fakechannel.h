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
        int missing = 0;   // bytes that the reply has and that don't arrive
        int length = -1;   // of the reply; as the body makes it by default
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
    bool initialized = false;
    int open = 0;                        // channels
    std::vector<std::string> sent;       // every attempt
    std::map<std::uint16_t, int> sizes;  // of the buffer of a command's last receive
    int timeout = 0;                     // of the last receive; NoTimeout: null
};

extern CFakeChannel g_FakeChannel;
