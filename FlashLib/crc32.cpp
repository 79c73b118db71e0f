#include "crc32.h"

namespace
{

struct CrcTable
{
    std::uint32_t Entry[256];
};

constexpr CrcTable MakeCrcTable()
{
    CrcTable table{};
    for (std::uint32_t byte = 0; byte < 256; byte++) {
        std::uint32_t value = byte;
        for (int bit = 0; bit < 8; bit++) value = (value & 1) ? (value >> 1) ^ 0xEDB88320u : value >> 1;
        table.Entry[byte] = value;
    }
    return table;
}

constexpr CrcTable crc_table = MakeCrcTable();

}  // namespace

unsigned long rom_crc32(unsigned char* buffer, unsigned int length, unsigned long crc)
{
    if (length == 0) return crc;

    std::uint32_t value = ~static_cast<std::uint32_t>(crc);
    for (unsigned int i = 0; i < length; i++) value = crc_table.Entry[(value ^ buffer[i]) & 0xFF] ^ (value >> 8);
    return static_cast<std::uint32_t>(~value);
}
