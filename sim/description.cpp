#include "sim/description.h"

#include <optional>
#include <stdexcept>
#include <utility>

#include "sim/base/fields.h"
#include "support/files.h"

namespace sim
{

namespace
{

const std::size_t MaxDescription = std::size_t{1} << 20;

ServerDescription Describe(CFields& fields)
{
    ServerDescription server = {};
    fields.Object("faults", [&](CFields& faults) {
        fields.Object("rom", [&](CFields& rom) {
            server.Smbios = DescribeSmbios(fields, rom, faults);
            server.FlashPart = DescribeFlashPart(rom, faults);
        });
        server.FlashPart.Tables = fields.Texts("flash_tables", {"$ZALFLSH"});
        server.Steps = DescribeStepFaults(faults);
        server.RomDriver = DescribeRomDriver(fields, faults);
        server.Ipmi = faults.Object("ipmi", DescribeIpmiFaults);
        ProcessorDescription processor = faults.Object("processor", [&](CFields& processorFaults) {
            return fields.Object("management_processor",
                                 [&](CFields& members) { return DescribeProcessor(members, processorFaults); });
        });
        if (fields.Find("management_processor")) server.Processor = std::move(processor);
    });
    server.PciList = fields.Text("pci_list");
    if (!fields.Flag("management_controller", true)) server.Ipmi.Missing = true;
    return server;
}

}  // namespace

ServerDescription ReadDescription(const std::filesystem::path& folder, const std::string& faults)
{
    const std::optional<std::string> text = ReadFileIfThere(folder / "server.json", MaxDescription);
    if (!text) throw std::runtime_error("There is no server in " + folder.string() + ": no server.json");
    std::string source = "The description of the server in " + folder.string();
    try {
        Json json = ParseJson(*text);
        ServerDescription server = CFields::Read(json, "server.json", Describe);
        if (!faults.empty()) {
            source = "A fault of this run";
            json["faults"].merge_patch(ParseJson(faults));
            server = CFields::Read(json, "server.json", Describe);
        }
        server.Folder = folder;
        for (std::filesystem::path* pFile : {&server.Smbios.Dump, &server.FlashPart.Area, &server.PciList})
            if (!pFile->empty()) *pFile = folder / *pFile;
        return server;
    } catch (const std::exception& error) {
        throw std::runtime_error(source + " is wrong: " + error.what());
    }
}

}  // namespace sim
