#include "tools/deploy/serverview.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "chif.h"
#include "host/report.h"
#include "support/printable.h"
#include "tools/deploy/nodes.h"
#include "tools/deploy/table.h"
#include "tools/deploy/tamberline.h"
#include "zalph.h"

namespace
{

using Json = nlohmann::ordered_json;

const int MaxPowerSupplies = 8;

struct PartKind
{
    const char* pszKey;
    const char* pszName;
};

const PartKind Kinds[] = {
    {"product", "product"},           {"system_rom", "system ROM"},  {"processor", "management processor"},
    {"backplanes", "NVMe backplane"}, {"controllers", "controller"}, {"power_supplies", "power supply"},
};

// A part that is there and can't be read.
Json Unreadable(const std::string& name, const std::string& problem)
{
    return {{"name", name}, {"version", ""}, {"problem", problem}};
}

// Why a device node can't be opened; empty: it can.
std::string NodeProblem(const char* node, const char* missing)
{
    const int error = TryNode(node, O_RDONLY);
    if (error == 0) return "";
    if (error == EACCES || error == EPERM) return std::string(node) + " may not be opened: run as root";
    return IsNoDevice(error) ? missing : std::string(node) + ": " + std::strerror(error);
}

// Why SMBIOS and the ROM area, which the ROM utility driver reads, tell nothing.
std::string MemoryProblem()
{
    std::string problem = NodeProblem(SmbiosNode, "no SMBIOS: this host has no /vmfs/devices/char/mem/smbios");
    if (problem.empty()) problem = NodeProblem(RomDriverNode, "no driver: the ROM utility driver is not loaded");
    return problem.empty() ? "the server does not tell" : problem;
}

std::string NoDriver()
{
    return geteuid() == 0 ? "no driver: its driver is not loaded"
                          : "no driver: its driver is not loaded, or may not be opened: run as root";
}

Json Text(const CStr& text)
{
    return Printable(text.GetAnsiString());
}

template <typename... Arguments>
std::string Format(const char* format, Arguments... arguments)
{
    char szText[64];
    std::snprintf(szText, sizeof szText, format, arguments...);
    return szText;
}

Json ReadProduct(CSystem& system)
{
    const CStr name = system.GetProductName();
    if (name.IsEmpty()) return Unreadable("", MemoryProblem());
    static const char* const tpm[] = {"not present", "enabled", "disabled", "unknown"};
    return {{"name", Text(name)},
            {"version", ""},
            {"system_id", Text(system.GetSystemID())},
            {"platform_id", Text(system.GetPlatformID())},
            {"blade", system.IsBlade() != FALSE},
            {"tpm", tpm[system.GetTPMStatus() & TPM_STATUS_MASK]}};
}

Json ReadRom(CSystem& system)
{
    const CStr family = system.GetROMFamily();
    if (family.IsEmpty()) return Unreadable("", MemoryProblem());
    CFwVersion version;
    version.Parse(system.GetROMVersion());
    version.SetDate(system.GetROMDate());
    return {{"name", Text(family)},
            {"version", Text(version.ToString())},
            {"redundant_rom", Text(system.GetRDDate())},
            {"boot_block", Text(system.GetBBDate())}};
}

Json ReadProcessor(const CChannelInterface& channel)
{
    switch (channel.GetState()) {
        case ChannelState_Open:
            return {{"name", "Mox " + std::to_string(channel.GetMOXGeneration())},
                    {"version", Text(channel.GetMOXFwVersion().ToString())}};
        case ChannelState_NoDriver:
            return Unreadable("Mox", NoDriver());
        case ChannelState_Broken:
            return Unreadable("Mox", "does not answer: restart it");
        default:
            return nullptr;
    }
}

Json ReadBackplanes(CChannelInterface& channel)
{
    Json backplanes = Json::array();
    const int count = std::min<int>(channel.GetNVMeBackplaneCount(), SMIFRSP_GET_NVME_BACKPLANE_INFO::MaxBackplanes);
    for (int i = 0; i < count; i++) {
        UINT8 type = 0;
        char szId[16 + 1] = "";
        int major = 0;
        int minor = 0;
        BOOL bootLoader = FALSE;
        if (!channel.GetNVMeBackplaneInfo(i, &type, reinterpret_cast<UINT8*>(szId)) ||
            !channel.GetNVMeBackplaneVersion(i, &major, &minor, &bootLoader)) {
            backplanes.push_back(Unreadable("", "the management processor does not tell"));
            continue;
        }
        backplanes.push_back({{"name", Printable(szId)},
                              {"version", bootLoader ? IncompleteVersion : Format("%d.%02d", major, minor)},
                              {"index", i},
                              {"type", type}});
    }
    return backplanes;
}

Json ReadControllers(CChannelInterface& channel)
{
    Json controllers = Json::array();
    if (const std::optional<TamberlineFirmware> found = ReadTamberline(channel)) {
        const bool bootLoader = found->Major == 0 && found->Minor == 0;
        controllers.push_back(
            {{"name", "Tamberline controller"},
             {"version", bootLoader ? IncompleteVersion : Format("%d.%d.%d", found->Major, found->Minor, found->Pass)},
             {"family", found->Family},
             {"boot_loader", Format("%d.%d", found->LoaderMajor, found->LoaderMinor)}});
    }
    int major = 0;
    int minor = 0;
    int pass = 0;
    UINT8 kind = 0;
    BOOL bootLoader = FALSE;
    if (channel.GetPowerPICType(&kind) && channel.GetPowerPICVersion(&major, &minor, &pass, &bootLoader))
        controllers.push_back({{"name", "Power controller"},
                               {"version", bootLoader ? IncompleteVersion : Format("%d.%d.%d", major, minor, pass)},
                               {"type", kind}});
    return controllers;
}

// "system_id $4C9AA5F0, blade false"; what is empty is left out.
std::string Details(const Json& part)
{
    std::string text;
    for (const auto& [key, value] : part.items()) {
        const std::string shown = value.is_string() ? value.get<std::string>() : value.dump();
        if (key == "name" || key == "version" || key == "problem" || shown.empty()) continue;
        text.append(text.empty() ? "" : ", ").append(key).append(" ").append(shown);
    }
    std::replace(text.begin(), text.end(), '_', ' ');
    return text;
}

}  // namespace

Json ReadPowerSupplies(CChannelInterface& channel)
{
    Json supplies = Json::array();
    UINT32 data1[MaxPowerSupplies] = {};
    UINT16 data2[MaxPowerSupplies] = {};
    UINT16 data3[MaxPowerSupplies] = {};
    UINT8* data4[MaxPowerSupplies] = {};
    int count = 0;
    if (!channel.IsOpen() || !channel.ReadPSInfo(data1, data2, data3, data4, &count)) return supplies;
    for (int i = 0; i < count; i++) {
        const UINT8* d = data4[i];
        supplies.push_back({{"name", Format("%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X", data1[i], data2[i],
                                            data3[i], d[0], d[1], d[2], d[3], d[4], d[5], d[6], d[7])},
                            {"version", ""}});
    }
    return supplies;
}

Json ReadServer()
{
    CSystem system;
    CChannelInterface channel;
    return {{"product", ReadProduct(system)},          {"system_rom", ReadRom(system)},
            {"processor", ReadProcessor(channel)},     {"backplanes", ReadBackplanes(channel)},
            {"controllers", ReadControllers(channel)}, {"power_supplies", ReadPowerSupplies(channel)}};
}

bool IsIncomplete(const Json& server)
{
    for (const Json& value : server)
        for (const Json& part : value.is_array() ? value : Json::array({value}))
            if (part.contains("problem")) return true;
    return false;
}

std::string ServerText(const CScreen& screen, const Json& server)
{
    const std::vector<Column> columns = {{"part", Narrow_Above}, {"name"}, {"version"}};
    std::vector<Row> rows;
    for (const PartKind& kind : Kinds) {
        const Json& value = server.at(kind.pszKey);
        for (const Json& part : value.is_array() ? value : Json::array({value})) {
            if (part.is_null())
                rows.push_back({{kind.pszName, "none", ""}, ""});
            else if (part.contains("problem"))
                rows.push_back({{kind.pszName, part.at("name"), "can't be read"}, part.at("problem"), Colour_Red});
            else
                rows.push_back({{kind.pszName, part.at("name"), part.at("version")}, Details(part)});
        }
    }
    return TableText(screen, columns, rows);
}
