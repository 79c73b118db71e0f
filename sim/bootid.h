// What names the start of the host: each start has another name.
#pragma once

#include <memory>

#include "sim/base/device.h"
#include "sim/base/state.h"

namespace sim
{

// The open /proc/sys/kernel/random/boot_id. The name is made by the first who asks, and goes with a restart. Null
// with errno where it can't be kept.
std::unique_ptr<IDevice> OpenBootId(CServerFolder& folder);

}  // namespace sim
