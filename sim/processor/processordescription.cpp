#include "sim/processor/processordescription.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "sim/base/fields.h"
#include "sim/processor/smifcommands.h"

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

FirmwareVersion Version(CFields& fields, const char* key)
{
    return ParseFirmwareVersion(fields.Text(key), fields.Text("date"));
}

FlashDescription Flash(CFields& fields)
{
    FlashDescription flash = {fields.Text("handler"), fields.Numeric<std::uint32_t>("size", 1048576),
                              fields.Numeric("busy_seconds", 5), fields.Numeric("query_seconds", 0)};
    // It names a file too.
    if (flash.Handler.size() > MaxHandler || flash.Handler.find('/') != std::string::npos)
        fields.RefuseValue("handler", "a name of at most 15 characters without /");
    return flash;
}

PowerPicDescription PowerPic(CFields& fields)
{
    return {Version(fields, "version"), fields.Numeric<std::uint16_t>("type", 0), fields.Flag("boot_loader"),
            fields.Numbers<std::uint16_t>("registers")};
}

TamberlineDescription Tamberline(CFields& fields)
{
    return {Version(fields, "version"), Version(fields, "loader_version"), fields.Numeric<std::uint8_t>("family", 0),
            fields.Object("flash", Flash)};
}

BackplaneDescription Backplane(CFields& fields)
{
    return {Version(fields, "version"),
            fields.Numeric<std::uint8_t>("loader_version", 1),
            fields.Numeric<std::uint8_t>("segment", 0),
            fields.Numeric<std::uint8_t>("address", 0),
            fields.Numeric<std::uint8_t>("type", 0),
            fields.Text("id"),
            fields.Object("flash", Flash)};
}

std::map<std::string, std::vector<std::uint8_t>> RegisterFiles(CFields& fields)
{
    std::map<std::string, std::vector<std::uint8_t>> files;
    for (const char* name : {"MEMID", "GPI", "GPO", "CPLD", "XPLD", "GPIEN", "GPIST"})
        if (fields.Find(name)) files[name] = fields.Numbers<std::uint8_t>(name);
    return files;
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
PacketFault Packets(CFields& fields, const char* key, const char* valueKey, int otherwise)
{
    const Json* pFault = fields.Find(key);
    if (!pFault || *pFault == false) return {};
    PacketFault fault = {true, 0, 0, otherwise};
    std::string command;
    if (pFault->is_number())
        fault.Exchange = fields.Numeric(key, 0);
    else if (pFault->is_string())
        command = fields.Text(key);
    else if (!pFault->is_boolean())
        fields.Object(key, [&](CFields& members) {
            fault.Exchange = members.Numeric("exchange", 0);
            command = members.Text("command");
            if (valueKey) fault.Value = members.Numeric(valueKey, otherwise);
        });
    if (command.empty()) return fault;
    fault.Command = FindCommandCode(command);
    if (fault.Command == 0) Refuse("command", command);
    return fault;
}

ProcessorFaults Faults(CFields& fields)
{
    ProcessorFaults faults = {};
    faults.FullFifo = Packets(fields, "full_fifo", "times", 10);
    faults.Lost = Packets(fields, "lost", nullptr, 0);
    faults.Late = Packets(fields, "late", "milliseconds", 25000);
    faults.Stale = Packets(fields, "stale", "replies", 1);
    faults.Runt = Packets(fields, "runt", "bytes", 10);
    faults.Error = Packets(fields, "error", "code", 255);
    faults.NoDriver = fields.Flag("no_driver");
    faults.Dead = fields.Flag("dead");
    faults.StaysAway = fields.Flag("stays_away");
    faults.DiesAtByte = fields.Numeric("dies_at_byte", std::int64_t{-1});
    faults.DeviceErrorAtByte = fields.Numeric("device_error_at_byte", std::int64_t{-1});
    faults.PowerLostAtByte = fields.Numeric("power_lost_at_byte", std::int64_t{-1});
    return faults;
}

// Devices are told apart by their handlers.
void CheckHandlers(const ProcessorDescription& processor)
{
    std::vector<std::string> handlers = {processor.Flash.Handler};
    if (processor.Tamberline) handlers.push_back(processor.Tamberline->Flash.Handler);
    for (const BackplaneDescription& backplane : processor.Backplanes) handlers.push_back(backplane.Flash.Handler);
    std::sort(handlers.begin(), handlers.end());
    const auto first = std::find_if(handlers.begin(), handlers.end(), [](const auto& name) { return !name.empty(); });
    const auto twice = std::adjacent_find(first, handlers.end());
    if (twice != handlers.end()) throw std::runtime_error("two devices have the handler \"" + *twice + "\"");
}

}  // namespace

ProcessorDescription DescribeProcessor(CFields& fields, CFields& faults)
{
    ProcessorDescription processor = {};
    processor.Generation = fields.Numeric("generation", 4);
    processor.Version = Version(fields, "version");
    processor.Serial = fields.Text("serial");
    processor.Flash = fields.Object("flash", Flash);
    processor.PciFunctions = fields.Numeric("pci_functions", 3);
    processor.DeviceControlEx = fields.Flag("device_control_ex", true);
    processor.ResetSeconds = fields.Numeric("reset_seconds", 30);
    processor.LatencyMicroseconds = fields.Numeric("latency_microseconds", 500);

    processor.Registers = fields.Object("registers", RegisterFiles);
    processor.I2C = DescribeI2CBuses(fields, faults);
    processor.PowerPic = fields.Optional("power_pic", PowerPic);
    processor.Tamberline = fields.Optional("tamberline", Tamberline);
    processor.Backplanes = fields.Objects("nvme_backplanes", Backplane);
    for (const std::string& supply : fields.Texts("power_supplies"))
        processor.PowerSupplies.push_back(PowerSupply(supply));
    if (processor.Backplanes.size() > MaxBackplanes || processor.PowerSupplies.size() > MaxPowerSupplies)
        throw std::runtime_error("a processor knows at most 4 NVMe backplanes and 8 power supplies");
    CheckHandlers(processor);
    processor.Faults = Faults(faults);
    return processor;
}

}  // namespace sim
