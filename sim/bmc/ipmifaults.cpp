#include "sim/bmc/ipmifaults.h"

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
    faults.CompletionCode = fields.Numeric("completion_code", 0);
    faults.Status = fields.Numeric("status", 0);
    faults.SendFails = fields.Flag("send_fails");
    faults.Padding = fields.Numeric("padding", 0);
    faults.EmptyAnswer = fields.Flag("empty_answer");
    return faults;
}

}  // namespace sim
