#include "crc32.h"

#include <cstddef>

#if defined(__i386__) || defined(__x86_64__)
#include <wmmintrin.h>
#define CRC_PCLMUL 1
#else
#define CRC_PCLMUL 0
#endif

// A CRC is the remainder of the bytes, read as a polynomial over GF(2), by the polynomial P of IEEE 802.3; reflected,
// the highest power of x is bit 0. The table defines it, and does the work where nothing faster is at hand. Processors
// with carry-less multiplication fold long buffers: a block is replaced by one that leaves the same remainder when
// moved to the place of the next block, and added (xor) to that. The table finishes the one block that is left.

namespace
{

// value * x^power mod P.
constexpr std::uint32_t TimesPowerOfX(std::uint32_t value, int power)
{
    for (int i = 0; i < power; i++) value = (value & 1) ? (value >> 1) ^ 0xEDB88320u : value >> 1;
    return value;
}

struct CrcTable
{
    std::uint32_t Entry[256];
};

constexpr CrcTable MakeCrcTable()
{
    CrcTable table{};
    for (std::uint32_t byte = 0; byte < 256; byte++) table.Entry[byte] = TimesPowerOfX(byte, 8);
    return table;
}

constexpr CrcTable crc_table = MakeCrcTable();

std::uint32_t AddBytes(std::uint32_t value, const unsigned char* buffer, unsigned int length)
{
    for (unsigned int i = 0; i < length; i++) value = crc_table.Entry[(value ^ buffer[i]) & 0xFF] ^ (value >> 8);
    return value;
}

#if CRC_PCLMUL

#define TARGET_PCLMUL __attribute__((target("sse2,pclmul")))

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

TARGET_PCLMUL inline __m128i Load(const unsigned char* buffer)
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
    return AddBytes(value, buffer, length);
}

}  // namespace

unsigned long rom_crc32(unsigned char* buffer, unsigned int length, unsigned long crc)
{
    if (length == 0) return crc;

    return static_cast<std::uint32_t>(~Add(~static_cast<std::uint32_t>(crc), buffer, length));
}
