#include "sim/rom/romdescription.h"

#include <cstdio>

#include "sim/base/fields.h"

namespace sim
{

namespace
{

FlashFaults Faults(CFields& fields)
{
    FlashFaults faults = {};
    const Json* pFails = fields.Find("fails_at_table");
    if (pFails && pFails->is_object())
        fields.Object("fails_at_table", [&](CFields& members) {
            faults.FailsAtTable = members.Numeric("table", 0);
            faults.FailsAtRun = members.Numeric("run", 0);
        });
    else
        faults.FailsAtTable = fields.Numeric("fails_at_table", -1);
    faults.PowerLostAfterBlocks = fields.Numeric("power_lost_after_blocks", -1);
    faults.PowerLostAtTable = fields.Numeric("power_lost_at_table", faults.PowerLostAfterBlocks < 0 ? -1 : 3);
    if (faults.PowerLostAfterBlocks < 0) faults.PowerLostAfterBlocks = 0;
    faults.StuckBlock = fields.Numeric("stuck_block", -1);
    faults.NoHeader = fields.Flag("no_header");
    faults.NoTable = fields.Flag("no_table");
    return faults;
}

std::optional<std::array<std::uint16_t, 4>> DriverVersion(CFields& driver)
{
    const std::string text = driver.Text("version");
    if (text.empty()) return std::nullopt;
    std::array<unsigned, 4> numbers = {};
    int length = 0;
    std::array<std::uint16_t, 4> version = {};
    std::sscanf(text.c_str(), "%5u.%5u.%5u.%5u%n", &numbers[0], &numbers[1], &numbers[2], &numbers[3], &length);
    for (std::size_t i = 0; i < numbers.size(); i++) {
        if (numbers[i] > 0xFFFF || static_cast<std::size_t>(length) != text.size())
            driver.RefuseValue("version", "four numbers up to 65535 with points between them");
        version[i] = static_cast<std::uint16_t>(numbers[i]);
    }
    return version;
}

}  // namespace

FlashPartDescription DescribeFlashPart(CFields& rom, CFields& faults)
{
    FlashPartDescription part = {};
    part.Rom.Family = rom.Text("family");
    part.Rom.Version = rom.Text("version");
    part.Rom.Date = rom.Text("date");
    part.Rom.Name = rom.Text("name", "SYSTEM ROM");
    part.Area = rom.Text("area");
    part.Size = rom.Numeric<std::size_t>("size", 1048576);
    if (!IsRomSize(part.Size)) rom.RefuseValue("size", "a multiple of 65536 bytes up to 256 MiB");
    part.Faults = faults.Object("flash", Faults);
    return part;
}

RomDriverDescription DescribeRomDriver(CFields& server, CFields& faults)
{
    RomDriverDescription driver = {};
    driver.Version = server.Object("driver", DriverVersion);
    driver.Fault = faults.Choice<DriverFault>("driver", {{"none", DriverFault_None},
                                                         {"missing", DriverFault_Missing},
                                                         {"refuses", DriverFault_Refuses},
                                                         {"fails", DriverFault_Fails}});
    if (!driver.Version) driver.Fault = DriverFault_Missing;
    return driver;
}

}  // namespace sim
