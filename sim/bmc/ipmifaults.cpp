#include "sim/bmc/ipmifaults.h"

#include "sim/base/capture.h"
#include "sim/base/fields.h"

namespace sim
{

IpmiFaults DescribeIpmiFaults(CFields& fields)
{
    IpmiFaults faults = {};
    faults.Missing = fields.Flag("missing");
    faults.Silent = fields.Flag("silent");
    faults.Foreign = fields.Flag("foreign");
    faults.Event = fields.Flag("event");
    faults.DelayMs = fields.Numeric("delay_ms", 0);
    faults.Interruptions = fields.Numeric("interruptions", 0);
    faults.PollFails = fields.Flag("poll_fails");
    faults.CompletionCode = fields.Numeric("completion_code", 0);
    faults.Status = fields.Numeric("status", 0);
    faults.SendFails = fields.Flag("send_fails");
    faults.Padding = fields.Numeric("padding", 0);
    faults.EmptyAnswer = fields.Flag("empty_answer");
    return faults;
}

std::string FindFaults(const IpmiFaults& faults)
{
    return JoinFaults({{faults.SendFails, "ipmi.send_fails"},
                       {faults.Silent, "ipmi.silent"},
                       {faults.Foreign, "ipmi.foreign"},
                       {faults.Event, "ipmi.event"},
                       {faults.DelayMs != 0, "ipmi.delay_ms"},
                       {faults.Interruptions != 0, "ipmi.interruptions"},
                       {faults.PollFails, "ipmi.poll_fails"},
                       {faults.CompletionCode != 0, "ipmi.completion_code"},
                       {faults.Status != 0, "ipmi.status"},
                       {faults.Padding != 0, "ipmi.padding"},
                       {faults.EmptyAnswer, "ipmi.empty_answer"}});
}

}  // namespace sim
