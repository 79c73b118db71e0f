// Folders of the system that zaldeploy works on: of this host, or of a simulated server below the server's own folder.
#pragma once

#include <filesystem>

#include "tools/deploy/options.h"

inline std::filesystem::path RootFolder(const DeployOptions& options)
{
    return options.Server.empty() ? "/" : std::filesystem::absolute(options.Server).lexically_normal();
}

// False where a simulated server is named and there is none.
inline bool HasServer(const DeployOptions& options)
{
    std::error_code ignored;
    return options.Server.empty() || std::filesystem::exists(RootFolder(options) / "server.json", ignored);
}

// What outlives a run; --state names another.
inline std::filesystem::path StateFolder(const DeployOptions& options)
{
    return options.State.empty() ? RootFolder(options) / "var/lib/flashlib" : std::filesystem::absolute(options.State);
}

// What its administrator has decided.
inline std::filesystem::path ConfigFolder(const DeployOptions& options)
{
    return RootFolder(options) / "etc/flashlib";
}
