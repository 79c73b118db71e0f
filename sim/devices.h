// The device nodes that a server can have.
#pragma once

#include <memory>

#include "sim/server.h"

namespace sim
{

// Each returns the open device, or null with errno when the server does not have it.
std::unique_ptr<IDevice> OpenSmbiosNode(CServer& server);
std::unique_ptr<IDevice> OpenRomUtilityDriver(CServer& server);

}  // namespace sim
