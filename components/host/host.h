// The host program that all installers share: drives a component the way a deployment tool does.
#pragma once

#include <memory>

#include "firmwarecomponent.h"

// Exit status of an installer that found another program at work on the server and did nothing; eReturnCode has none.
const int ServerBusy = 8;

// Runs the component that make makes; see below.
int RunComponent(std::unique_ptr<CFirmwareComponent> (*make)(), int argc, char** argv);

// An installer's main: makes a component of the class, parses the command line, shows the properties as a table, runs
// discovery when asked and the installation otherwise, and prints the result, all under the server's lock. Returns the
// eReturnCode, or ServerBusy, as exit status.
template <class Component>
int RunComponent(int argc, char** argv)
{
    const auto make = []() -> std::unique_ptr<CFirmwareComponent> { return std::make_unique<Component>(); };
    return RunComponent(make, argc, argv);
}
