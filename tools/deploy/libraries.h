// The maker's closed libraries on a real host.
#pragma once

#include <filesystem>

#include "tools/deploy/options.h"

// Their folder, which the file "libraries" in the configuration's folder names; empty where there is no such file.
// Throws std::runtime_error where it names none, or others can write to the file, the folder, or what leads to them.
std::filesystem::path FindLibraries(const DeployOptions& options);
