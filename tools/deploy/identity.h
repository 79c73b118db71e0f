// Which server this is.
#pragma once

#include <string>

#include "support/process.h"
#include "tools/deploy/options.h"

// Texts are empty where they can't be read.
struct Identity
{
    std::string Host;  // its name in the network
    std::string Product;
    std::string Serial;
    std::string Boot;  // names its start; the next one has another name
};

// Of the server that this process runs on. Product and serial number are those of the SMBIOS system information record.
Identity ReadOwnIdentity();

// Of the server that the options name, by a process of its own: nothing that it opens reaches installers. Throws
// std::runtime_error where a simulated server can't be opened.
Identity ReadIdentity(CProcessRunner& runner, const DeployOptions& options);

// What that process does: prints a line for each text.
void PrintIdentity();
