// Where zaldeploy keeps what outlives a run.
#pragma once

#include <filesystem>

#include "tools/deploy/options.h"

// What --state says, else /var/lib/flashlib; of a simulated server the folder of that path in the server's own.
inline std::filesystem::path StateFolder(const DeployOptions& options)
{
    if (!options.State.empty()) return std::filesystem::absolute(options.State);
    const std::filesystem::path folder = "var/lib/flashlib";
    return (options.Server.empty() ? "/" : std::filesystem::absolute(options.Server)) / folder;
}
