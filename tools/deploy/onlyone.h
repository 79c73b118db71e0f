// One zaldeploy at a time, and no installer beside it.
#pragma once

#include <stdexcept>

#include "support/serverlock.h"
#include "tools/deploy/options.h"

// Another program works on the server.
class CServerBusy : public std::runtime_error
{
  public:
    using runtime_error::runtime_error;
};

// The lock of the server that the options name, which the installers hold, too. Waits for it as long as they say, and
// says so on standard error. Throws CServerBusy, or std::runtime_error where it can't be taken at all. There is none
// where there is no simulated server, which the next step finds out.
CServerLock LockServer(const DeployOptions& options);
