// The SMBIOS tables of the server that this process runs on.
#pragma once

#include <optional>

#include "sim/images/smbiosdump.h"

// Its entry point and structure table; nothing where they can't be read.
std::optional<sim::SmbiosTables> ReadSmbios();

// Puts as many X in the place of each serial number and asset tag, wherever else in the table that stands, too, and
// zeros in the place of the system's UUID.
void MaskSerials(std::vector<BYTE>& table);
