#include "sim/images/crc.h"

#include <array>

namespace sim
{

namespace
{

const int Slices = 8;  // bytes that are taken at once

// What a byte leaves, and what it leaves with 1 to 7 zeros behind it.
using Tables = std::array<std::array<std::uint32_t, 256>, Slices>;

Tables MakeTables()
{
    Tables tables = {};
    for (std::uint32_t i = 0; i < 256; i++) {
        std::uint32_t crc = i;
        for (int bit = 0; bit < 8; bit++) crc = crc & 1 ? crc >> 1 ^ 0xEDB88320 : crc >> 1;
        tables[0][i] = crc;
    }
    for (std::size_t zeros = 1; zeros < Slices; zeros++)
        for (std::size_t i = 0; i < 256; i++) {
            const std::uint32_t crc = tables[zeros - 1][i];
            tables[zeros][i] = crc >> 8 ^ tables[0][crc & 0xFF];
        }
    return tables;
}

}  // namespace

std::uint32_t Crc32(const void* bytes, std::size_t size, std::uint32_t crc)
{
    static const Tables tables = MakeTables();
    const auto* pBytes = static_cast<const std::uint8_t*>(bytes);
    crc = ~crc;
    for (; size >= Slices; size -= Slices, pBytes += Slices) {
        std::uint32_t next = 0;
        for (std::size_t i = 0; i < Slices; i++) {
            const std::uint32_t byte = pBytes[i] ^ (i < sizeof crc ? crc >> 8 * i : 0);
            next ^= tables[Slices - 1 - i][byte & 0xFF];
        }
        crc = next;
    }
    for (; size > 0; size--, pBytes++) crc = crc >> 8 ^ tables[0][(crc ^ *pBytes) & 0xFF];
    return ~crc;
}

}  // namespace sim
