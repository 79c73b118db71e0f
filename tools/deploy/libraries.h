// The maker's closed libraries on a real host.
#pragma once

#include <filesystem>
#include <string>

#include "tools/deploy/options.h"

// Tells the loader where they are.
const std::string LibrariesVariable = "LD_LIBRARY_PATH=";

// Their folder, which the file "libraries" in the configuration's folder names; empty where there is no such file.
// Throws std::runtime_error where it names none, or others can write to the file, the folder, its libraries, or what
// leads to them.
std::filesystem::path FindLibraries(const DeployOptions& options);
