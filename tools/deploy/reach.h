// How the commands get to the server that they look at by themselves, without an installer.
#pragma once

#include "tools/deploy/options.h"

// Starts this program again, with its arguments, on the simulated server that the options name, or on this host with
// the maker's libraries. Comes back with true where it runs so already, or with false and a line on standard error when
// it can't be started. Throws std::runtime_error where the simulated server can't be opened, or the libraries can't be
// used.
bool ReachServer(const DeployOptions& options, char** argv);
