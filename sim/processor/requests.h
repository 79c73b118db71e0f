// Which requests the management processor takes.
#pragma once

#include "smif.h"

namespace sim
{

// True for a request of the right length that has nothing in its reserved and unused bytes, and values that its command
// can have at all.
bool IsTaken(const SMIFPACKET& request);
bool IsTaken(const SMIFREQ_I2C_TRANSACTION& request);
bool IsTaken(const SMIFREQ_IO_ACCESS& request);
bool IsTaken(const SMIFREQ_DEVICE_FLASH& request);
bool IsTaken(const SMIFREQ_DEVICE_CONTROL_EX& request);
bool IsTaken(const SMIFREQ_HOST_RESET& request);

}  // namespace sim
