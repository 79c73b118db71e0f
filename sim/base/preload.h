// How a program is started with the simulation below it.
#pragma once

#include <filesystem>
#include <map>
#include <string>

namespace sim
{

// The environment variables with which the loader first loads the simulation into a program, in front of what it loads
// now, and looks for what stands in for the closed libraries behind where it looks now, in folder (empty: none) before
// that. zalsim is the folder in which that program is. Throws std::runtime_error with a sentence when the simulation is
// not there.
std::map<std::string, std::string> LoaderVariables(const std::filesystem::path& zalsim, const std::string& folder = "");

// Gives variables to the programs that are started after this.
void SetForPrograms(const std::map<std::string, std::string>& variables);

}  // namespace sim
