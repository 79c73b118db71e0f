#include "crc32.h"

#include <cstring>

// FLASHLIB_CRC_PORTABLE builds what runs on processors without carry-less multiplication.
#if (defined(__i386__) || defined(__x86_64__)) && !defined(FLASHLIB_CRC_PORTABLE)
#define CRC_PCLMUL 1
#include <wmmintrin.h>
#else
#define CRC_PCLMUL 0
#endif

// A CRC is the remainder of the bytes, read as a polynomial over GF(2), by the polynomial P of IEEE 802.3; reflected,
// the highest power of x is bit 0. Long buffers are folded: a block is replaced by one that leaves the same remainder
// when moved to the place of the next block, and added (xor) to that. The table finishes the one block that is left.

namespace
{

struct CrcTable
{
    std::uint32_t Entry[256];
};

// value * x^power mod P.
constexpr std::uint32_t TimesPowerOfX(std::uint32_t value, int power)
{
    for (int i = 0; i < power; i++) value = (value & 1) ? (value >> 1) ^ 0xEDB88320u : value >> 1;
    return value;
}

constexpr CrcTable MakeCrcTable()
{
    CrcTable table{};
    for (std::uint32_t byte = 0; byte < 256; byte++) table.Entry[byte] = TimesPowerOfX(byte, 8);
    return table;
}

constexpr CrcTable crc_table = MakeCrcTable();

constexpr std::uint32_t AddByte(std::uint32_t value, unsigned char byte)
{
    return crc_table.Entry[(value ^ byte) & 0xFF] ^ (value >> 8);
}

std::uint32_t AddBytes(std::uint32_t value, const unsigned char* buffer, unsigned int length)
{
    for (unsigned int i = 0; i < length; i++) value = AddByte(value, buffer[i]);
    return value;
}

// The words of a block are independent of each other, so that their table look-ups overlap.
constexpr unsigned int BlockWords = 8;
constexpr unsigned int BlockSize = 4 * BlockWords;

// What each byte of a word becomes one block further on.
struct FoldTable
{
    CrcTable Byte[4];
};

constexpr FoldTable MakeFoldTable()
{
    FoldTable table{};
    for (unsigned int position = 0; position < 4; position++) {
        for (std::uint32_t byte = 0; byte < 256; byte++) {
            std::uint32_t value = byte << (8 * position);
            for (unsigned int i = 0; i < BlockSize; i++) value = AddByte(value, 0);
            table.Byte[position].Entry[byte] = value;
        }
    }
    return table;
}

constexpr FoldTable fold_table = MakeFoldTable();

std::uint32_t Fold(std::uint32_t word)
{
    return fold_table.Byte[0].Entry[word & 0xFF] ^ fold_table.Byte[1].Entry[(word >> 8) & 0xFF] ^
           fold_table.Byte[2].Entry[(word >> 16) & 0xFF] ^ fold_table.Byte[3].Entry[word >> 24];
}

std::uint32_t LoadWord(const unsigned char* buffer)
{
    std::uint32_t word;
    std::memcpy(&word, buffer, sizeof word);
    return word;
}

// length must be at least BlockSize.
std::uint32_t AddByTable(std::uint32_t value, const unsigned char* buffer, unsigned int length)
{
    std::uint32_t block[BlockWords];
    std::memcpy(block, buffer, BlockSize);
    block[0] ^= value;
    for (buffer += BlockSize, length -= BlockSize; length >= BlockSize; buffer += BlockSize, length -= BlockSize) {
#pragma GCC unroll 8
        for (std::size_t i = 0; i < BlockWords; i++) block[i] = Fold(block[i]) ^ LoadWord(buffer + 4 * i);
    }
    value = AddBytes(0, reinterpret_cast<const unsigned char*>(block), BlockSize);
    return AddBytes(value, buffer, length);
}

#if CRC_PCLMUL

#define TARGET_PCLMUL __attribute__((target("pclmul")))

// next + block * x^Bits, either half of the block by a factor of its own. The factors are 33 powers short: read as 64
// bits, 32 reflected bits count x^32 times, and the product of two reflected numbers comes out times x.
template <int Bits>
TARGET_PCLMUL inline __m128i Fold(__m128i block, __m128i next)
{
    constexpr std::uint32_t one = 0x80000000;  // x^0
    constexpr std::uint32_t low = TimesPowerOfX(one, Bits + 64 - 33);
    constexpr std::uint32_t high = TimesPowerOfX(one, Bits - 33);
    const __m128i factors = _mm_set_epi64x(high, low);
    return _mm_xor_si128(_mm_clmulepi64_si128(block, factors, 0x00),
                         _mm_xor_si128(_mm_clmulepi64_si128(block, factors, 0x11), next));
}

inline __m128i Load(const unsigned char* buffer)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(buffer));
}

// length must be at least 64.
TARGET_PCLMUL std::uint32_t AddByPclmul(std::uint32_t value, const unsigned char* buffer, unsigned int length)
{
    __m128i block[4];
    for (std::size_t i = 0; i < 4; i++) block[i] = Load(buffer + 16 * i);
    block[0] = _mm_xor_si128(block[0], _mm_cvtsi32_si128(static_cast<int>(value)));
    for (buffer += 64, length -= 64; length >= 64; buffer += 64, length -= 64) {
#pragma GCC unroll 4
        for (std::size_t i = 0; i < 4; i++) block[i] = Fold<512>(block[i], Load(buffer + 16 * i));
    }

    for (std::size_t i = 1; i < 4; i++) block[0] = Fold<128>(block[0], block[i]);
    for (; length >= 16; buffer += 16, length -= 16) block[0] = Fold<128>(block[0], Load(buffer));
    value = AddBytes(0, reinterpret_cast<const unsigned char*>(&block[0]), 16);
    return AddBytes(value, buffer, length);
}

#endif

std::uint32_t Add(std::uint32_t value, const unsigned char* buffer, unsigned int length)
{
#if CRC_PCLMUL
    if (length >= 64 && __builtin_cpu_supports("pclmul")) return AddByPclmul(value, buffer, length);
#endif
    return length >= BlockSize ? AddByTable(value, buffer, length) : AddBytes(value, buffer, length);
}

}  // namespace

unsigned long rom_crc32(unsigned char* buffer, unsigned int length, unsigned long crc)
{
    if (length == 0) return crc;

    return static_cast<std::uint32_t>(~Add(~static_cast<std::uint32_t>(crc), buffer, length));
}
