#include "tools/deploy/serverview.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "chif.h"
#include "support/process.h"
#include "tools/deploy/table.h"
#include "zalph.h"

namespace
{

using Json = nlohmann::ordered_json;

const int MaxPowerSupplies = 8;

struct PartKind
{
    const char* pszKey;
    const char* pszName;
    const char* pszNull;  // what it means that there is nothing
};

const PartKind Kinds[] = {
    {"product", "product", "can't be read"},        {"system_rom", "system ROM", "can't be read"},
    {"processor", "management processor", "none"},  {"backplanes", "NVMe backplane", "can't be read"},
    {"controllers", "controller", "can't be read"}, {"power_supplies", "power supply", "can't be read"},
};

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
    if (name.IsEmpty()) return nullptr;
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
    if (family.IsEmpty()) return nullptr;
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
                    {"version", Text(channel.GetMOXFwVersion().ToString())},
                    {"state", "open"}};
        case ChannelState_NoDriver:
            return {{"name", "Mox"}, {"version", ""}, {"state", "its driver is not loaded"}};
        case ChannelState_Broken:
            return {{"name", "Mox"}, {"version", ""}, {"state", "does not answer: restart it"}};
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
            backplanes.push_back(nullptr);
            continue;
        }
        backplanes.push_back({{"name", Printable(szId)},
                              {"version", bootLoader ? "Incomplete" : Format("%d.%02d", major, minor)},
                              {"index", i},
                              {"type", type}});
    }
    return backplanes;
}

Json ReadControllers(CChannelInterface& channel)
{
    Json controllers = Json::array();
    int major = 0;
    int minor = 0;
    int pass = 0;
    int loaderMajor = 0;
    int loaderMinor = 0;
    UINT8 kind = 0;
    if (channel.GetTamberlineFamily(&kind) && channel.GetTamberlineVersion(&major, &minor, &pass) &&
        channel.GetTamberlineBootloaderVersion(&loaderMajor, &loaderMinor))
        controllers.push_back(
            {{"name", "Tamberline controller"},
             {"version", major == 0 && minor == 0 ? "Incomplete" : Format("%d.%d.%d", major, minor, pass)},
             {"family", kind},
             {"boot_loader", Format("%d.%d", loaderMajor, loaderMinor)}});
    BOOL bootLoader = FALSE;
    if (channel.GetPowerPICType(&kind) && channel.GetPowerPICVersion(&major, &minor, &pass, &bootLoader))
        controllers.push_back({{"name", "Power controller"},
                               {"version", bootLoader ? "Incomplete" : Format("%d.%d.%d", major, minor, pass)},
                               {"type", kind}});
    return controllers;
}

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

// "system_id $4C9AA5F0, blade false"; what is empty is left out.
std::string Details(const Json& part)
{
    std::string text;
    for (const auto& [key, value] : part.items()) {
        const std::string shown = value.is_string() ? value.get<std::string>() : value.dump();
        if (key == "name" || key == "version" || shown.empty()) continue;
        text.append(text.empty() ? "" : ", ").append(key).append(" ").append(shown);
    }
    std::replace(text.begin(), text.end(), '_', ' ');
    return text;
}

}  // namespace

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
    const Json& processor = server.at("processor");
    const Json& backplanes = server.at("backplanes");
    return server.at("product").is_null() || server.at("system_rom").is_null() ||
           (!processor.is_null() && processor.at("state") != "open") ||
           std::find(backplanes.begin(), backplanes.end(), nullptr) != backplanes.end();
}

void PrintServer(const Json& server)
{
    std::vector<std::vector<std::string>> rows = {{"part", "name", "version", "details"}};
    for (const PartKind& kind : Kinds) {
        const Json& value = server.at(kind.pszKey);
        for (const Json& part : value.is_array() ? value : Json::array({value})) {
            if (part.is_null())
                rows.push_back({kind.pszName, kind.pszNull, "", ""});
            else
                rows.push_back({kind.pszName, part.at("name"), part.at("version"), Details(part)});
        }
    }
    PrintTable(rows);
}
