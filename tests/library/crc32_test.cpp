#include "crc32.h"

#include <algorithm>
#include <random>

#include "tests/support.h"

namespace
{

using Bytes = std::vector<unsigned char>;

Bytes RandomBytes(std::size_t length, unsigned int seed)
{
    std::mt19937 random(seed);
    Bytes bytes(length);
    for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random());
    return bytes;
}

// The CRCs of every length of the buffer from none to all, by the definition, bit by bit.
std::vector<unsigned long> Definition(const Bytes& bytes, std::uint32_t crc)
{
    std::vector<unsigned long> crcs = {crc};
    std::uint32_t value = ~crc;
    for (unsigned char byte : bytes) {
        value ^= byte;
        for (int bit = 0; bit < 8; bit++) value = (value & 1) ? (value >> 1) ^ 0xEDB88320u : value >> 1;
        crcs.push_back(~value);
    }
    return crcs;
}

// Over length bytes from that position on.
unsigned long Crc(Bytes& bytes, std::size_t position, std::size_t length, unsigned long crc)
{
    return rom_crc32(bytes.data() + position, static_cast<unsigned int>(length), crc);
}

}  // namespace

TEST(Crc32, HasTheCheckValueAndLeavesTheCrcOfNothingAlone)
{
    Bytes text = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    EXPECT_EQ(0xCBF43926ul, Crc(text, 0, 9, 0));
    for (unsigned long crc : {0ul, 0xDEADBEEFul, ~0ul}) EXPECT_EQ(crc, Crc(text, 0, 0, crc));
}

TEST(Crc32, TakesEveryLengthAtEveryAlignment)
{
    const Bytes bytes = RandomBytes(1100, 1);
    const std::vector<unsigned long> expected = Definition(bytes, 0x12345678);
    for (std::size_t alignment = 0; alignment < 16; alignment++) {
        for (std::size_t length = 0; length <= bytes.size(); length++) {
            Bytes piece(alignment + length);  // ends where the memory ends
            std::copy_n(bytes.begin(), length, piece.begin() + static_cast<std::ptrdiff_t>(alignment));
            ASSERT_EQ(expected[length], Crc(piece, alignment, length, 0x12345678)) << length << " at " << alignment;
        }
    }
}
