// The host's PCI device list: what a shell reads in /proc/bus/pci/devices.
#pragma once

#include <string>

#include "sim/base/state.h"

namespace sim
{

// True for a shell command that reads the list.
bool ReadsPciDevices(const std::string& command);

// Writes the server's own list, with so many functions of the processor, to pci_devices in its folder; the command,
// made to read it there.
std::string WithPciDevices(const std::string& command, CServerFolder& folder, int functions);

}  // namespace sim
