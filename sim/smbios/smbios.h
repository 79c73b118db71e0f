// A server's SMBIOS tables: built from its description, or taken from a dump of a real machine.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <vector>

#include "sim/images/firmwareversion.h"
#include "sim/images/romimage.h"
#include "sim/images/smbiosdump.h"
#include "sim/smbios/smbiosdescription.h"
#include "zalph/smbios.h"

namespace sim
{

// What a server's power PIC runs.
struct PowerPicFirmware
{
    FirmwareVersion Version;
    bool BootLoader;  // alone; there is no version
};

// Builds well-formed tables for the ROM that runs: types 0, 1 and 127, and the platform's own 193, 195, 216, 224 and
// 229. The checksums of the entry point hold for the address that it tells. A power PIC, where the server has one,
// takes the place of the version that the description has for it.
SmbiosTables BuildSmbios(const SmbiosDescription& server, const RomDescription& rom,
                         const std::optional<PowerPicFirmware>& powerPic, std::uint32_t address);

// The buffer that the tables' type 229 records reserve for flashing; zeros when there is none.
SMBIOS_RESERVED_BUFFER FindFlashBuffer(const SmbiosTables& tables);

// Reads a dump, and places its table at address. Throws std::runtime_error with a sentence.
SmbiosTables ReadSmbiosDump(const std::filesystem::path& file, std::uint32_t address);

}  // namespace sim
