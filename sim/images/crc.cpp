#include "sim/images/crc.h"

#include <array>

namespace sim
{

namespace
{

std::array<std::uint32_t, 256> MakeTable()
{
    std::array<std::uint32_t, 256> table = {};
    for (std::uint32_t i = 0; i < table.size(); i++) {
        std::uint32_t crc = i;
        for (int bit = 0; bit < 8; bit++) crc = crc & 1 ? crc >> 1 ^ 0xEDB88320 : crc >> 1;
        table[i] = crc;
    }
    return table;
}

}  // namespace

std::uint32_t Crc32(const void* bytes, std::size_t size, std::uint32_t crc)
{
    static const std::array<std::uint32_t, 256> table = MakeTable();
    const auto* pBytes = static_cast<const std::uint8_t*>(bytes);
    crc = ~crc;
    for (std::size_t i = 0; i < size; i++) crc = crc >> 8 ^ table[(crc ^ pBytes[i]) & 0xFF];
    return ~crc;
}

}  // namespace sim
