// The program that runs on a simulated server.
#pragma once

#include <string>
#include <vector>

namespace sim
{

// Why a program, given by path, can't be simulated: what would run on the real host instead, behind "PATH is ". Empty
// for one that can, and for one that the system will not start.
std::string WhyNotSimulated(const std::string& program);

// Makes this process the command, on the server that the run options name. Comes back, with errno, when it can't be
// started; throws std::runtime_error with a sentence when the simulation is not there.
void Become(const std::vector<std::string>& command);

}  // namespace sim
