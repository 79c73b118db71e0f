#include "sim/processor/processordescription.h"

#include <algorithm>
#include <charconv>
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

// The numbers of a text that has nothing else than a separator between them; none of any other text.
std::vector<unsigned> SplitNumbers(const std::string& text, char separator)
{
    std::vector<unsigned> numbers;
    const char* pEnd = text.data() + text.size();
    for (const char* pText = text.data();; pText++) {
        unsigned number = 0;
        const auto parsed = std::from_chars(pText, pEnd, number);
        if (parsed.ec != std::errc()) return {};
        numbers.push_back(number);
        if (parsed.ptr == pEnd) return numbers;
        if (*parsed.ptr != separator) return {};
        pText = parsed.ptr;
    }
}

bool IsDate(unsigned month, unsigned day, unsigned year)
{
    if (month < 1 || month > 12 || year < 1000 || year > 9999) return false;
    const bool leaps = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    const unsigned february = leaps ? 29 : 28;
    const bool isLong = month < 8 ? month % 2 == 1 : month % 2 == 0;
    return day >= 1 && day <= (month == 2 ? february : isLong ? 31 : 30);
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

FirmwareVersion ParseFirmwareVersion(const std::string& version, const std::string& date)
{
    FirmwareVersion parsed = {};
    if (!version.empty()) {
        std::vector<unsigned> numbers = SplitNumbers(version, '.');
        if (numbers.size() == 2) numbers.push_back(0);
        if (numbers.size() != 3 || *std::max_element(numbers.begin(), numbers.end()) > 255) Refuse("version", version);
        parsed.Major = static_cast<std::uint8_t>(numbers[0]);
        parsed.Minor = static_cast<std::uint8_t>(numbers[1]);
        parsed.Pass = static_cast<std::uint8_t>(numbers[2]);
    }
    if (!date.empty()) {
        const std::vector<unsigned> numbers = SplitNumbers(date, '/');
        if (numbers.size() != 3 || !IsDate(numbers[0], numbers[1], numbers[2])) Refuse("date", date);
        parsed.Month = static_cast<std::uint8_t>(numbers[0]);
        parsed.Day = static_cast<std::uint8_t>(numbers[1]);
        parsed.Year = static_cast<std::uint16_t>(numbers[2]);
    }
    return parsed;
}

ProcessorFaults DescribeProcessorFaults(CFields& fields)
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
    const Json* pI2C = fields.Find("i2c");
    faults.I2C = pI2C ? pI2C->dump() : "{}";
    return faults;
}

ProcessorDescription DescribeProcessor(CFields& fields)
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
    if (const Json* pDevices = fields.Find("i2c"))
        for (const Json& device : *pDevices) processor.I2C.push_back(device.dump());
    processor.PowerPic = fields.Optional("power_pic", PowerPic);
    processor.Tamberline = fields.Optional("tamberline", Tamberline);
    processor.Backplanes = fields.Objects("nvme_backplanes", Backplane);
    for (const std::string& supply : fields.Texts("power_supplies"))
        processor.PowerSupplies.push_back(PowerSupply(supply));
    if (processor.Backplanes.size() > MaxBackplanes || processor.PowerSupplies.size() > MaxPowerSupplies)
        throw std::runtime_error("a processor knows at most 4 NVMe backplanes and 8 power supplies");
    CheckHandlers(processor);
    return processor;
}

}  // namespace sim
