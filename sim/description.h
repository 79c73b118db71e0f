// What a simulated server is: the contents of its server.json, which each of its rooms reads for itself.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "sim/base/steps.h"
#include "sim/bmc/ipmifaults.h"
#include "sim/processor/processordescription.h"
#include "sim/rom/romdescription.h"
#include "sim/smbios/smbiosdescription.h"

namespace sim
{

struct ServerDescription
{
    std::filesystem::path Folder;
    StepFaults Steps;
    SmbiosDescription Smbios;
    FlashPartDescription FlashPart;
    RomDriverDescription RomDriver;
    IpmiFaults Ipmi;
    std::optional<ProcessorDescription> Processor;
    std::filesystem::path PciList;  // a file of the PCI devices; empty: the list is made
};

// Reads server.json in the server's folder, and over its faults those of a run: a JSON object, or nothing. Throws
// std::runtime_error with a sentence for the user.
ServerDescription ReadDescription(const std::filesystem::path& folder, const std::string& faults);

}  // namespace sim
