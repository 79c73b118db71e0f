// Commands, and how the tools run them on a simulated server for --server.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

// zalsim, which is beside the tools or, where they are not installed, in a folder of its own.
std::filesystem::path FindZalsim();

// The path of this program: the shell may have found it by its name.
std::string OwnProgram();

// The command that runs a command on the simulated server in that folder.
std::vector<std::string> OnServer(const std::string& folder, const std::vector<std::string>& command);

// True when this process runs on the simulated server in that folder.
bool RunsOnServer(const std::string& folder);

// Starts this program again, with its arguments, on the simulated server in that folder. Comes back with true where it
// runs there already, or with false and a line on standard error when it can't be started.
bool RunOnServer(const std::string& folder, char** argv);
