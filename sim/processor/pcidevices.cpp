#include "sim/processor/pcidevices.h"

#include <cstdio>

#include "platformids.h"
#include "support/files.h"
#include "support/process.h"

namespace sim
{

namespace
{

const char szPciDevices[] = "/proc/bus/pci/devices";

const char* const ProcessorIds[] = {PLATFORM_MOX_PCI_ID_0, PLATFORM_MOX_PCI_ID_1, PLATFORM_MOX_PCI_ID_2,
                                    PLATFORM_MOX_PCI_ID_3};

// Bus and function, identifier, interrupt, seven addresses, seven sizes, driver.
std::string Line(int place, const std::string& id, const char* driver)
{
    char szText[300];
    std::snprintf(szText, sizeof szText, "%04x\t%s\t%x", place, id.c_str(), 16 + place % 8);
    std::string line = szText;
    for (int i = 0; i < 14; i++) line += "\t               0";
    return line + "\t" + driver + "\n";
}

}  // namespace

bool ReadsPciDevices(const std::string& command)
{
    return command.find(szPciDevices) != std::string::npos;
}

std::filesystem::path WritePciDevices(CServerFolder& folder, int functions)
{
    std::string list = Line(0x0000, "90010001", "") + Line(0x00fa, "90010002", "sata");
    for (int i = 0; i < functions; i++)
        list += Line(0x0100 + i, ProcessorIds[static_cast<std::size_t>(i) % 4], i == 2 ? "chif" : "");
    list += Line(0x0200, "90020001", "nic");
    const CServerFolder::Lock lock(folder);
    std::filesystem::path file = folder.Path() / "pci_devices";
    WriteWholeFile(file, list);
    return file;
}

std::string WithPciDevices(const std::string& command, const std::filesystem::path& file)
{
    std::string changed = command;
    return changed.replace(changed.find(szPciDevices), sizeof szPciDevices - 1, ShellWord(file.string()));
}

}  // namespace sim
