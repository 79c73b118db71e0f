// The host's PCI device list: what a shell reads in /proc/bus/pci/devices.
#pragma once

#include <filesystem>
#include <string>

#include "sim/base/state.h"

namespace sim
{

// True for a shell command that reads the list.
bool ReadsPciDevices(const std::string& command);

// Writes the server's own list, with so many functions of the processor, to pci_devices in its folder; its path.
std::filesystem::path WritePciDevices(CServerFolder& folder, int functions);

// The command, made to read the list in a file.
std::string WithPciDevices(const std::string& command, const std::filesystem::path& file);

}  // namespace sim
