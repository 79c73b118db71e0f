#include "processordescription.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "fields.h"
#include "smifcommands.h"

namespace sim
{

namespace
{

const std::size_t MaxHandler = sizeof(SMIFREQ_DEVICE_FLASH::Handler) - 1;
const std::size_t MaxPowerSupplies = sizeof(SMIFRSP_PS_INFO::ps_data) / sizeof(PS_GUID);
const std::size_t MaxBackplanes = SMIFRSP_GET_NVME_BACKPLANE_INFO::MaxBackplanes;

[[noreturn]] void Refuse(const std::string& what, const std::string& text)
{
    throw std::runtime_error(what + " can't be \"" + text + "\"");
}

FirmwareVersion Version(const Json& object, const char* key)
{
    return ParseFirmwareVersion(Text(object, key), Text(object, "date"));
}

FlashDescription Flash(const Json& object)
{
    const Json& flash = Object(object, "flash");
    FlashDescription description = {Text(flash, "handler"), Numeric<std::uint32_t>(flash, "size", 1048576),
                                    flash.value("busy_seconds", 5), flash.value("query_seconds", 0)};
    // It names a file too.
    if (description.Handler.size() > MaxHandler || description.Handler.find('/') != std::string::npos)
        Refuse("handler", description.Handler);
    return description;
}

// Numbers, each written as one or as a text in any C notation.
template <typename Number>
std::vector<Number> Numbers(const Json& object, const char* key)
{
    std::vector<Number> numbers;
    for (const Json& entry : object.value(key, Json::array()))
        numbers.push_back(Numeric<Number>(Json{{key, entry}}, key, 0));
    return numbers;
}

PowerPicDescription PowerPic(const Json& object)
{
    return {Version(object, "version"), Numeric<std::uint16_t>(object, "type", 0), object.value("boot_loader", false),
            Numbers<std::uint16_t>(object, "registers")};
}

TamberlineDescription Tamberline(const Json& object)
{
    return {Version(object, "version"), Version(object, "loader_version"), Numeric<std::uint8_t>(object, "family", 0),
            Flash(object)};
}

BackplaneDescription Backplane(const Json& object)
{
    return {Version(object, "version"),
            Numeric<std::uint8_t>(object, "loader_version", 1),
            Numeric<std::uint8_t>(object, "segment", 0),
            Numeric<std::uint8_t>(object, "address", 0),
            Numeric<std::uint8_t>(object, "type", 0),
            Text(object, "id"),
            Flash(object)};
}

I2CDescription I2C(const Json& object)
{
    return {Numeric(object, "bus", 0), Numeric(object, "address", 0), Text(object, "type"), object.dump()};
}

// A GUID in its usual notation.
PS_GUID PowerSupply(const std::string& text)
{
    PS_GUID guid = {};
    DWORD data1 = 0;
    WORD data[3] = {};
    unsigned long long node = 0;
    if (std::sscanf(text.c_str(), "%8x-%4hx-%4hx-%4hx-%12llx", &data1, &data[0], &data[1], &data[2], &node) != 5)
        Refuse("a power supply", text);
    guid.Data1 = data1;
    guid.Data2 = data[0];
    guid.Data3 = data[1];
    const unsigned long long data4 = static_cast<unsigned long long>(data[2]) << 48 | node;
    for (int i = 0; i < 8; i++) guid.Data4[i] = static_cast<BYTE>(data4 >> (56 - 8 * i));
    return guid;
}

// A fault is the number of an exchange, the name of a command, or an object with both and a value; true: every
// exchange.
PacketFault Packets(const Json& faults, const char* key, const char* valueKey, int otherwise)
{
    const auto entry = faults.find(key);
    if (entry == faults.end() || *entry == false) return {};
    PacketFault fault = {true, 0, 0, otherwise};
    std::string command;
    if (entry->is_number()) fault.Exchange = entry->get<int>();
    if (entry->is_string()) command = entry->get<std::string>();
    if (entry->is_object()) {
        fault.Exchange = entry->value("exchange", 0);
        command = Text(*entry, "command");
        fault.Value = entry->value(valueKey, otherwise);
    }
    if (command.empty()) return fault;
    fault.Command = FindCommandCode(command);
    if (fault.Command == 0) Refuse("command", command);
    return fault;
}

ProcessorFaults Faults(const Json& object)
{
    ProcessorFaults faults = {};
    faults.FullFifo = Packets(object, "full_fifo", "times", 10);
    faults.Lost = Packets(object, "lost", "", 0);
    faults.Late = Packets(object, "late", "milliseconds", 25000);
    faults.Stale = Packets(object, "stale", "replies", 1);
    faults.Runt = Packets(object, "runt", "bytes", 10);
    faults.Error = Packets(object, "error", "code", 255);
    faults.NoDriver = object.value("no_driver", false);
    faults.Dead = object.value("dead", false);
    faults.StaysAway = object.value("stays_away", false);
    faults.DiesAtByte = object.value("dies_at_byte", std::int64_t{-1});
    faults.DeviceErrorAtByte = object.value("device_error_at_byte", std::int64_t{-1});
    faults.PowerLostAtByte = object.value("power_lost_at_byte", std::int64_t{-1});
    faults.I2C = Object(object, "i2c").dump();
    return faults;
}

}  // namespace

FirmwareVersion ParseFirmwareVersion(const std::string& version, const std::string& date)
{
    FirmwareVersion parsed = {};
    if (!version.empty() &&
        std::sscanf(version.c_str(), "%3hhu.%3hhu.%3hhu", &parsed.Major, &parsed.Minor, &parsed.Pass) < 2)
        Refuse("version", version);
    if (!date.empty() && std::sscanf(date.c_str(), "%2hhu/%2hhu/%4hu", &parsed.Month, &parsed.Day, &parsed.Year) < 3)
        Refuse("date", date);
    return parsed;
}

std::optional<ProcessorDescription> DescribeProcessor(const Json& processor, const Json& faults)
{
    if (processor.empty()) return std::nullopt;
    ProcessorDescription description = {};
    description.Generation = Numeric(processor, "generation", 4);
    description.Version = Version(processor, "version");
    description.Serial = Text(processor, "serial");
    description.Flash = Flash(processor);
    description.PciFunctions = processor.value("pci_functions", 3);
    description.DeviceControlEx = processor.value("device_control_ex", true);
    description.ResetSeconds = processor.value("reset_seconds", 30);
    description.LatencyMicroseconds = processor.value("latency_microseconds", 500);

    const Json& registers = Object(processor, "registers");
    for (const auto& file : registers.items())
        description.Registers[file.key()] = Numbers<std::uint8_t>(registers, file.key().c_str());
    for (const Json& device : processor.value("i2c", Json::array())) description.I2C.push_back(I2C(device));
    if (processor.contains("power_pic")) description.PowerPic = PowerPic(processor["power_pic"]);
    if (processor.contains("tamberline")) description.Tamberline = Tamberline(processor["tamberline"]);
    for (const Json& backplane : processor.value("nvme_backplanes", Json::array()))
        description.Backplanes.push_back(Backplane(backplane));
    for (const std::string& supply : processor.value("power_supplies", std::vector<std::string>()))
        description.PowerSupplies.push_back(PowerSupply(supply));
    if (description.Backplanes.size() > MaxBackplanes || description.PowerSupplies.size() > MaxPowerSupplies)
        throw std::runtime_error("a processor knows at most 4 NVMe backplanes and 8 power supplies");
    description.Faults = Faults(faults);
    return description;
}

}  // namespace sim
