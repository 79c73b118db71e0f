// System ROM images: what a server's flash part holds.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace sim
{

// The legacy BIOS area, and the part of an image that the server maps there.
const std::uint32_t BiosAreaAddress = 0xF0000;
const std::size_t BiosAreaSize = 65536;
const std::size_t MaxRomSize = std::size_t{256} << 20;

// An image is some of them, up to 256 MiB.
bool IsRomSize(std::size_t size);

struct RomDescription
{
    std::string Family;   // "P70"; empty: the server has no flash image header
    std::string Version;  // "2.30"
    std::string Date;     // "09/12/2019"
    std::string Name;     // image name in the header
};

// Builds an image of size bytes that carries a flash image header in its last BiosAreaSize
// bytes and ends with the CRC-32 of what is before. The same description gives the same bytes.
std::vector<std::uint8_t> BuildRomImage(const RomDescription& rom, std::size_t size);

// True when the CRC-32 at the end holds.
bool IsWholeRomImage(const std::vector<std::uint8_t>& image);

struct RomHeader
{
    std::size_t Offset;  // in the BIOS area
    std::size_t Size;    // bytes, its strings included
    RomDescription Rom;  // what it tells
};

// The flash image header in a BIOS area; nothing where there is none that is whole.
std::optional<RomHeader> FindRomHeader(const std::vector<std::uint8_t>& area);

}  // namespace sim
