#include "description.h"

#include <cstdlib>
#include <fstream>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace sim
{

namespace
{

using Json = nlohmann::json;

std::string Text(const Json& object, const char* key, const char* otherwise = "")
{
    return object.value(key, std::string(otherwise));
}

// A number, written as one or as a text in any C notation ("0xA5").
template <typename Number>
Number Numeric(const Json& object, const char* key, Number otherwise)
{
    const auto entry = object.find(key);
    if (entry == object.end()) return otherwise;
    const std::uint64_t value =
        entry->is_string() ? std::stoull(entry->get<std::string>(), nullptr, 0) : entry->get<std::uint64_t>();
    if (value > static_cast<std::uint64_t>(std::numeric_limits<Number>::max()))
        throw std::runtime_error(std::string(key) + " is too large");
    return static_cast<Number>(value);
}

template <typename Value>
Value Choice(const Json& object, const char* key, const std::map<std::string, Value>& choices)
{
    const std::string name = Text(object, key, "none");
    const auto choice = choices.find(name);
    if (choice == choices.end()) throw std::runtime_error(std::string(key) + " can't be \"" + name + "\"");
    return choice->second;
}

const Json& Object(const Json& object, const char* key)
{
    static const Json empty = Json::object();
    const auto entry = object.find(key);
    return entry == object.end() || entry->is_null() ? empty : *entry;
}

FirmwareDescription Firmware(const Json& object)
{
    static const std::map<std::string, std::uint16_t> types = {
        {"system_rom", 1}, {"redundant_rom", 2}, {"boot_block", 3}, {"power_pic", 4}, {"power_pic_boot", 5},
        {"chassis", 6},    {"chassis_boot", 7},  {"cpld", 8},       {"sps", 9},       {"chassis_cpld", 10},
        {"csm", 11},       {"apml", 12},         {"none", 0},
    };
    FirmwareDescription firmware;
    firmware.Type = Choice(object, "type", types);
    firmware.Name = Text(object, "name");
    firmware.Version = Text(object, "version");
    firmware.Format = Numeric<std::uint8_t>(object, "format", 0);
    firmware.Data = object.value("data", std::vector<std::uint8_t>());
    if (firmware.Data.size() > 12) throw std::runtime_error("a firmware's data has more than 12 bytes");
    return firmware;
}

FlashFaults FlashPartFaults(const Json& object)
{
    FlashFaults faults = {};
    faults.FailsAtTable = object.value("fails_at_table", -1);
    faults.PowerLostAfterBlocks = object.value("power_lost_after_blocks", -1);
    faults.PowerLostAtTable = object.value("power_lost_at_table", faults.PowerLostAfterBlocks < 0 ? -1 : 3);
    if (faults.PowerLostAfterBlocks < 0) faults.PowerLostAfterBlocks = 0;
    faults.StuckBlock = object.value("stuck_block", -1);
    faults.NoHeader = object.value("no_header", false);
    return faults;
}

IpmiFaults ManagementControllerFaults(const Json& object)
{
    IpmiFaults faults = {};
    faults.Missing = object.value("missing", false);
    faults.Silent = object.value("silent", false);
    faults.Foreign = object.value("foreign", false);
    faults.Event = object.value("event", false);
    faults.DelayMs = object.value("delay_ms", 0);
    faults.Interruptions = object.value("interruptions", 0);
    faults.CompletionCode = object.value("completion_code", 0);
    faults.Status = object.value("status", 0);
    faults.SendFails = object.value("send_fails", false);
    faults.Padding = object.value("padding", 0);
    faults.EmptyAnswer = object.value("empty_answer", false);
    return faults;
}

ServerDescription Describe(const Json& json, const std::filesystem::path& folder)
{
    ServerDescription server = {};
    server.Folder = folder;
    server.Product = Text(json, "product");
    server.Manufacturer = Text(json, "manufacturer", "Quorvant");
    server.Serial = Text(json, "serial");
    server.Generation = Numeric(json, "generation", 9);
    server.SystemId = Text(json, "system_id");
    server.PlatformId = Numeric<std::uint16_t>(json, "platform_id", 0);
    server.TpmStatus = Choice<std::uint8_t>(json, "tpm", {{"none", 0}, {"enabled", 1}, {"disabled", 2}});

    const Json& rom = Object(json, "rom");
    server.Rom = {Text(rom, "family"), Text(rom, "version"), Text(rom, "date"), Text(rom, "name", "SYSTEM ROM")};
    server.RomSize = Numeric<std::size_t>(rom, "size", 1048576);
    if (server.RomSize < 65536 || server.RomSize % 65536 != 0)
        throw std::runtime_error("a ROM's size is a multiple of 65536 bytes");
    server.FlashTables = json.value("flash_tables", std::vector<std::string>{"$ZALFLSH"});
    server.RedundantRomDate = Text(rom, "redundant_date");
    server.BootBlockDate = Text(rom, "boot_block_date");
    server.OemRomName = Text(rom, "oem_name");
    server.OemRomDate = Text(rom, "oem_date");
    server.PowerMicroVersion = Text(json, "power_micro_version");
    for (const Json& firmware : json.value("firmware", Json::array())) server.Firmware.push_back(Firmware(firmware));

    const Json& buffer = Object(json, "flash_buffer");
    server.FlashBufferAddress = Numeric<std::uint64_t>(buffer, "address", 0);
    server.FlashBufferSize = Numeric<std::uint32_t>(buffer, "size", 0);

    if (json.contains("smbios_dump")) server.SmbiosDump = folder / Text(json, "smbios_dump");
    server.DriverVersion = Text(Object(json, "driver"), "version");

    const Json& faults = Object(json, "faults");
    server.Smbios = Choice<SmbiosFault>(faults, "smbios",
                                        {{"none", SmbiosFault::None},
                                         {"missing", SmbiosFault::Missing},
                                         {"empty", SmbiosFault::Empty},
                                         {"read_error", SmbiosFault::ReadError},
                                         {"no_anchor", SmbiosFault::NoAnchor},
                                         {"false_anchor", SmbiosFault::FalseAnchor},
                                         {"misaligned", SmbiosFault::Misaligned},
                                         {"zero_address", SmbiosFault::ZeroAddress},
                                         {"truncated", SmbiosFault::Truncated},
                                         {"unreadable", SmbiosFault::Unreadable}});
    server.Driver = Choice<DriverFault>(faults, "driver",
                                        {{"none", DriverFault::None},
                                         {"missing", DriverFault::Missing},
                                         {"refuses", DriverFault::Refuses},
                                         {"fails", DriverFault::Fails}});
    if (server.DriverVersion.empty()) server.Driver = DriverFault::Missing;
    server.Flash = FlashPartFaults(Object(faults, "flash"));
    server.Ipmi = ManagementControllerFaults(Object(faults, "ipmi"));
    if (!json.value("management_controller", true)) server.Ipmi.Missing = true;
    return server;
}

}  // namespace

ServerDescription ReadDescription(const std::filesystem::path& folder)
{
    std::ifstream file(folder / "server.json");
    if (!file) throw std::runtime_error("There is no server in " + folder.string() + ": no server.json");
    try {
        Json json = Json::parse(file);
        if (const char* pszFaults = std::getenv("ZALSIM_FAULTS")) json["faults"].merge_patch(Json::parse(pszFaults));
        return Describe(json, folder);
    } catch (const std::exception& error) {
        throw std::runtime_error("The description of the server in " + folder.string() + " is wrong: " + error.what());
    }
}

}  // namespace sim
