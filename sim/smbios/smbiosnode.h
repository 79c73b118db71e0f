// The hypervisor's SMBIOS device node: the region that holds the entry point.
#pragma once

#include <memory>

#include "sim/base/capture.h"
#include "sim/base/device.h"
#include "sim/smbios/smbios.h"

namespace sim
{

// The open device, or null with errno when the server does not have it.
std::unique_ptr<IDevice> OpenSmbiosNode(const SmbiosTables& tables, SmbiosFault fault, CCapture& capture);

}  // namespace sim
