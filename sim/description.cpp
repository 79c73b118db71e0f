#include "sim/description.h"

#include <map>
#include <optional>
#include <stdexcept>

#include "sim/base/fields.h"
#include "sim/images/romimage.h"
#include "support/files.h"

namespace sim
{

namespace
{

const std::size_t MaxDescription = std::size_t{1} << 20;

FirmwareDescription Firmware(CFields& fields)
{
    static const std::map<std::string, std::uint16_t> types = {
        {"system_rom", 1}, {"redundant_rom", 2}, {"boot_block", 3}, {"power_pic", 4}, {"power_pic_boot", 5},
        {"chassis", 6},    {"chassis_boot", 7},  {"cpld", 8},       {"sps", 9},       {"chassis_cpld", 10},
        {"csm", 11},       {"apml", 12},         {"none", 0},
    };
    FirmwareDescription firmware;
    firmware.Type = fields.Choice("type", types);
    firmware.Name = fields.Text("name");
    firmware.Version = fields.Text("version");
    firmware.Format = fields.Numeric<std::uint8_t>("format", 0);
    firmware.Data = fields.Numbers<std::uint8_t>("data");
    if (firmware.Data.size() > 12) fields.RefuseValue("data", "at most 12 bytes");
    return firmware;
}

FlashFaults FlashPartFaults(CFields& fields)
{
    FlashFaults faults = {};
    faults.FailsAtTable = fields.Numeric("fails_at_table", -1);
    faults.PowerLostAfterBlocks = fields.Numeric("power_lost_after_blocks", -1);
    faults.PowerLostAtTable = fields.Numeric("power_lost_at_table", faults.PowerLostAfterBlocks < 0 ? -1 : 3);
    if (faults.PowerLostAfterBlocks < 0) faults.PowerLostAfterBlocks = 0;
    faults.StuckBlock = fields.Numeric("stuck_block", -1);
    faults.NoHeader = fields.Flag("no_header");
    return faults;
}

void DescribeRom(CFields& fields, ServerDescription& server)
{
    server.Rom.Family = fields.Text("family");
    server.Rom.Version = fields.Text("version");
    server.Rom.Date = fields.Text("date");
    server.Rom.Name = fields.Text("name", "SYSTEM ROM");
    server.RomSize = fields.Numeric<std::size_t>("size", 1048576);
    if (!IsRomSize(server.RomSize)) fields.RefuseValue("size", "a multiple of 65536 bytes");
    server.RedundantRomDate = fields.Text("redundant_date");
    server.BootBlockDate = fields.Text("boot_block_date");
    server.OemRomName = fields.Text("oem_name");
    server.OemRomDate = fields.Text("oem_date");
}

void DescribeFaults(CFields& fields, ServerDescription& server)
{
    server.Smbios = fields.Choice<SmbiosFault>("smbios", {{"none", SmbiosFault::None},
                                                          {"missing", SmbiosFault::Missing},
                                                          {"empty", SmbiosFault::Empty},
                                                          {"read_error", SmbiosFault::ReadError},
                                                          {"no_anchor", SmbiosFault::NoAnchor},
                                                          {"false_anchor", SmbiosFault::FalseAnchor},
                                                          {"misaligned", SmbiosFault::Misaligned},
                                                          {"zero_address", SmbiosFault::ZeroAddress},
                                                          {"truncated", SmbiosFault::Truncated},
                                                          {"unreadable", SmbiosFault::Unreadable}});
    server.Driver = fields.Choice<DriverFault>("driver", {{"none", DriverFault::None},
                                                          {"missing", DriverFault::Missing},
                                                          {"refuses", DriverFault::Refuses},
                                                          {"fails", DriverFault::Fails}});
    server.Flash = fields.Object("flash", FlashPartFaults);
    server.Ipmi = fields.Object("ipmi", DescribeIpmiFaults);
}

ServerDescription Describe(CFields& fields)
{
    ServerDescription server = {};
    server.Product = fields.Text("product");
    server.Manufacturer = fields.Text("manufacturer", "Quorvant");
    server.Serial = fields.Text("serial");
    server.Generation = fields.Numeric("generation", 9);
    server.SystemId = fields.Text("system_id");
    server.PlatformId = fields.Numeric<std::uint16_t>("platform_id", 0);
    server.TpmStatus = fields.Choice<std::uint8_t>("tpm", {{"none", 0}, {"enabled", 1}, {"disabled", 2}});

    fields.Object("rom", [&](CFields& rom) { DescribeRom(rom, server); });
    server.FlashTables = fields.Texts("flash_tables", {"$ZALFLSH"});
    server.PowerMicroVersion = fields.Text("power_micro_version");
    server.Firmware = fields.Objects("firmware", Firmware);
    fields.Object("flash_buffer", [&](CFields& buffer) {
        server.FlashBufferAddress = buffer.Numeric<std::uint64_t>("address", 0);
        server.FlashBufferSize = buffer.Numeric<std::uint32_t>("size", 0);
    });
    server.SmbiosDump = fields.Text("smbios_dump");
    server.DriverVersion = fields.Object("driver", [](CFields& driver) { return driver.Text("version"); });

    fields.Object("faults", [&](CFields& faults) {
        DescribeFaults(faults, server);
        ProcessorDescription processor = faults.Object("processor", [&](CFields& processorFaults) {
            return fields.Object("management_processor",
                                 [&](CFields& members) { return DescribeProcessor(members, processorFaults); });
        });
        if (fields.Find("management_processor")) server.Processor = std::move(processor);
    });
    if (server.DriverVersion.empty()) server.Driver = DriverFault::Missing;
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
        if (!server.SmbiosDump.empty()) server.SmbiosDump = folder / server.SmbiosDump;
        return server;
    } catch (const std::exception& error) {
        throw std::runtime_error(source + " is wrong: " + error.what());
    }
}

}  // namespace sim
