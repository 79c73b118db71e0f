// What is wrong with a server's management controller: "faults.ipmi" of its server.json.
#pragma once

#include <string>

namespace sim
{

class CFields;

struct IpmiFaults
{
    bool Missing;        // no device node
    bool Silent;         // no answer
    bool Foreign;        // the answer has another message's id
    bool Event;          // what comes is an event, no answer
    int DelayMs;         // the answer comes so late
    int Interruptions;   // so many waits are interrupted by a signal
    bool PollFails;      // no wait succeeds
    int CompletionCode;  // every command is answered with it; 0: as it should be
    int Status;          // NVRAM accesses are answered with it
    bool SendFails;      // the driver takes no request
    int Padding;         // so many bytes more than it should have are in the answer
    bool EmptyAnswer;    // the answer carries no data at all
};

// The names of those that hit each message, with commas; empty for none.
std::string FindFaults(const IpmiFaults& faults);

// Throws std::runtime_error with a sentence for the user.
IpmiFaults DescribeIpmiFaults(CFields& fields);

}  // namespace sim
