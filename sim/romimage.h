// System ROM images: what a server's flash part holds.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "description.h"

namespace sim
{

// The part of an image that the server maps into the legacy BIOS area.
const std::size_t BiosAreaSize = 65536;

// Builds an image of size bytes (at least BiosAreaSize) that carries a flash image header in its last BiosAreaSize
// bytes. The same description gives the same bytes.
std::vector<std::uint8_t> BuildRomImage(const RomDescription& rom, std::size_t size);

// Offset of the flash image header in a BIOS area; nothing where there is none that is whole.
std::optional<std::size_t> FindRomHeader(const std::vector<std::uint8_t>& area);

// What the header at that offset tells.
RomDescription ReadRomHeader(const std::vector<std::uint8_t>& area, std::size_t offset);

// Bytes of the header of such a ROM, its strings included.
std::size_t RomHeaderSize(const RomDescription& rom);

}  // namespace sim
