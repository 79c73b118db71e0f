// A program that is loaded once and runs many times: before its main, the simulation below it waits for requests, and
// forks for each. A request is one message on the socket whose number the variable tells: the working folder and the
// environment of the run, each with a 0 behind it, and with them, in this order, descriptors for standard output,
// standard error and reports. The answer is the number of the process that runs, whose parent is the server's own.
//
// What constructors of the program's libraries do, all runs have in common; where they use the simulated server, the
// fork server ends at once, and whoever asked has to start the program for each run.
#pragma once

#include <cstddef>

namespace sim
{

const char szForkServer[] = "ZALSIM_FORK_SERVER";
const char ForkServerReady = 'F';  // the first message, from the server: it is there
const std::size_t MaxForkRequest = std::size_t{64} << 10;

// What a run's output, errors and reports are to it.
const int ForkDescriptors[] = {1, 2, 3};
const std::size_t ForkDescriptorCount = sizeof ForkDescriptors / sizeof ForkDescriptors[0];

}  // namespace sim
