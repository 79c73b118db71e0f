// The Linux IPMI driver's device node: requests to the management controller and their answers.
#pragma once

#include <memory>

#include "sim/base/capture.h"
#include "sim/base/device.h"
#include "sim/bmc/bmc.h"

namespace sim
{

// The open device; null with errno when the server does not have it. Controller, faults and capture live as long as it
// does.
std::unique_ptr<IDevice> OpenIpmiNode(CBmc& bmc, const IpmiFaults& faults, CCapture& capture);

}  // namespace sim
