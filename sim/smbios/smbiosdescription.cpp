#include "sim/smbios/smbiosdescription.h"

#include <map>

#include "sim/base/fields.h"

namespace sim
{

namespace
{

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

void FlashBuffer(CFields& buffer, SmbiosDescription& smbios)
{
    smbios.FlashBufferAddress = buffer.Numeric<std::uint64_t>("address", 0);
    smbios.FlashBufferSize = buffer.Numeric<std::uint32_t>("size", 0);
    smbios.BufferSignature = buffer.Choice<std::uint32_t>(
        "signature",
        {{"none", FlashBufferSignature}, {"$SRB", FlashBufferSignature}, {"BRS$", ReversedFlashBufferSignature}});
}

const std::map<std::string, SmbiosFault>& Faults()
{
    static const auto& faults = *new std::map<std::string, SmbiosFault>{{"none", SmbiosFault_None},
                                                                        {"missing", SmbiosFault_Missing},
                                                                        {"empty", SmbiosFault_Empty},
                                                                        {"read_error", SmbiosFault_ReadError},
                                                                        {"no_anchor", SmbiosFault_NoAnchor},
                                                                        {"false_anchor", SmbiosFault_FalseAnchor},
                                                                        {"misaligned", SmbiosFault_Misaligned},
                                                                        {"zero_address", SmbiosFault_ZeroAddress},
                                                                        {"truncated", SmbiosFault_Truncated},
                                                                        {"unreadable", SmbiosFault_Unreadable}};
    return faults;
}

}  // namespace

SmbiosDescription DescribeSmbios(CFields& server, CFields& rom, CFields& faults)
{
    SmbiosDescription smbios = {};
    smbios.Product = server.Text("product");
    smbios.Manufacturer = server.Text("manufacturer", "Quorvant");
    smbios.Serial = server.Text("serial");
    smbios.Generation = server.Numeric("generation", 9);

    smbios.RedundantRomDate = rom.Text("redundant_date");
    smbios.BootBlockDate = rom.Text("boot_block_date");
    smbios.OemRomName = rom.Text("oem_name");
    smbios.OemRomDate = rom.Text("oem_date");
    smbios.PowerMicroVersion = server.Text("power_micro_version");
    smbios.Firmware = server.Objects("firmware", Firmware);

    smbios.SystemId = server.Text("system_id");
    smbios.PlatformId = server.Numeric<std::uint16_t>("platform_id", 0);
    smbios.TpmStatus = server.Choice<std::uint8_t>("tpm", {{"none", 0}, {"enabled", 1}, {"disabled", 2}});
    server.Object("flash_buffer", [&](CFields& buffer) { FlashBuffer(buffer, smbios); });

    smbios.Dump = server.Text("smbios_dump");
    smbios.Fault = faults.Choice("smbios", Faults());
    return smbios;
}

std::string FindFaults(SmbiosFault fault)
{
    for (const auto& [name, known] : Faults())
        if (known == fault && fault != SmbiosFault_None) return "smbios=" + name;
    return "";
}

}  // namespace sim
