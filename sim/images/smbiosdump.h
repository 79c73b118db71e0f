// SMBIOS tables, and dumps of them in the layout of "dmidecode --dump-bin".
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "zalph/smbios.h"

namespace sim
{

struct SmbiosTables
{
    SMBIOSEntryPoint Entry;
    std::vector<std::uint8_t> Table;
};

// Makes both checksums of the entry point hold for the address of the table (DMTF DSP0134, 5.2.1).
void PlaceSmbios(SmbiosTables& tables, std::uint32_t address);

// The tables with a 32-bit entry point for a structure table, of which it takes all up to the end-of-table record.
// Throws std::runtime_error with the end of a sentence where the table is damaged, or has more than 65535 bytes.
SmbiosTables MakeSmbios(std::uint8_t majorVersion, std::uint8_t minorVersion, std::vector<std::uint8_t> table);

// Reads a dump: the entry point at the start, the table at the offset that it tells. In place of a 64-bit entry point
// comes a 32-bit one. Throws std::runtime_error with the end of a sentence.
SmbiosTables ParseSmbiosDump(const std::string& dump);

// Such a dump of tables.
std::string DumpSmbios(SmbiosTables tables);

}  // namespace sim
