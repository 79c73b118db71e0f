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

// The same with gdb, which starts the command on that server when it is told to run, and is on the host itself. Throws
// std::runtime_error with a sentence also when there is no gdb.
[[noreturn]] void Debug(const std::vector<std::string>& command);

}  // namespace sim
