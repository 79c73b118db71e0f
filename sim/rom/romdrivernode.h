// The node of the ROM utility driver: version query and physical memory.
#pragma once

#include <memory>

#include "sim/base/capture.h"
#include "sim/base/device.h"
#include "sim/base/memory.h"
#include "sim/rom/romdescription.h"

namespace sim
{

// The open device, or null with errno when the server does not have it.
std::unique_ptr<IDevice> OpenRomDriver(const CMemory& memory, const RomDriverDescription& driver, CCapture& capture);

}  // namespace sim
