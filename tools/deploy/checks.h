// What a host needs before installers can work on it.
#pragma once

#include <string>
#include <vector>

#include "tools/deploy/options.h"

enum CheckState
{
    CheckState_Well,
    CheckState_Limited,  // something that not every installation needs is missing
    CheckState_Missing,  // no installation can succeed
};

struct Check
{
    std::string Name;
    CheckState State = CheckState_Well;
    std::string Found;   // empty: nothing
    std::string Reason;  // what is wrong, in sentences; empty where all is well
    std::string Remedy;  // what to do; empty where the reason says it
};

// Looks at rights, devices, drivers, libraries, folders, keys and clock of the server that this process runs on, and
// changes nothing.
std::vector<Check> CheckHost(const DeployOptions& options);
