#include "sha256.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace
{

const std::size_t BlockSize = 64;
using State = std::array<std::uint32_t, 8>;

const std::uint32_t Constants[] = {
    0x428A2F98, 0x71374491, 0xB5C0FBCF, 0xE9B5DBA5, 0x3956C25B, 0x59F111F1, 0x923F82A4, 0xAB1C5ED5,
    0xD807AA98, 0x12835B01, 0x243185BE, 0x550C7DC3, 0x72BE5D74, 0x80DEB1FE, 0x9BDC06A7, 0xC19BF174,
    0xE49B69C1, 0xEFBE4786, 0x0FC19DC6, 0x240CA1CC, 0x2DE92C6F, 0x4A7484AA, 0x5CB0A9DC, 0x76F988DA,
    0x983E5152, 0xA831C66D, 0xB00327C8, 0xBF597FC7, 0xC6E00BF3, 0xD5A79147, 0x06CA6351, 0x14292967,
    0x27B70A85, 0x2E1B2138, 0x4D2C6DFC, 0x53380D13, 0x650A7354, 0x766A0ABB, 0x81C2C92E, 0x92722C85,
    0xA2BFE8A1, 0xA81A664B, 0xC24B8B70, 0xC76C51A3, 0xD192E819, 0xD6990624, 0xF40E3585, 0x106AA070,
    0x19A4C116, 0x1E376C08, 0x2748774C, 0x34B0BCB5, 0x391C0CB3, 0x4ED8AA4A, 0x5B9CCA4F, 0x682E6FF3,
    0x748F82EE, 0x78A5636F, 0x84C87814, 0x8CC70208, 0x90BEFFFA, 0xA4506CEB, 0xBEF9A3F7, 0xC67178F2};

std::uint32_t Rotate(std::uint32_t value, int bits)
{
    return value >> bits | value << (32 - bits);
}

// The message schedule of a block.
std::array<std::uint32_t, 64> Schedule(const unsigned char* block)
{
    std::array<std::uint32_t, 64> words = {};
    for (std::size_t i = 0; i < 16; i++)
        words[i] = std::uint32_t{block[4 * i]} << 24 | std::uint32_t{block[4 * i + 1]} << 16 |
                   std::uint32_t{block[4 * i + 2]} << 8 | block[4 * i + 3];
    for (std::size_t i = 16; i < words.size(); i++) {
        const std::uint32_t a = words[i - 15];
        const std::uint32_t b = words[i - 2];
        words[i] = words[i - 16] + (Rotate(a, 7) ^ Rotate(a, 18) ^ a >> 3) + words[i - 7] +
                   (Rotate(b, 17) ^ Rotate(b, 19) ^ b >> 10);
    }
    return words;
}

void Digest(State& state, const unsigned char* block)
{
    const std::array<std::uint32_t, 64> words = Schedule(block);
    auto [a, b, c, d, e, f, g, h] = state;
    for (std::size_t i = 0; i < words.size(); i++) {
        const std::uint32_t first =
            h + (Rotate(e, 6) ^ Rotate(e, 11) ^ Rotate(e, 25)) + ((e & f) ^ (~e & g)) + Constants[i] + words[i];
        const std::uint32_t second = (Rotate(a, 2) ^ Rotate(a, 13) ^ Rotate(a, 22)) + ((a & b) ^ (a & c) ^ (b & c));
        h = g;
        g = f;
        f = e;
        e = d + first;
        d = c;
        c = b;
        b = a;
        a = first + second;
    }
    const State added = {a, b, c, d, e, f, g, h};
    for (std::size_t i = 0; i < state.size(); i++) state[i] += added[i];
}

}  // namespace

std::string Sha256(const void* bytes, std::size_t size)
{
    State state = {0x6A09E667, 0xBB67AE85, 0x3C6EF372, 0xA54FF53A, 0x510E527F, 0x9B05688C, 0x1F83D9AB, 0x5BE0CD19};
    const unsigned char* pBytes = static_cast<const unsigned char*>(bytes);
    const std::size_t rest = size % BlockSize;
    for (const unsigned char* pEnd = pBytes + size - rest; pBytes < pEnd; pBytes += BlockSize) Digest(state, pBytes);

    // The end: a bit, zeros, the length in bits.
    unsigned char end[2 * BlockSize] = {};
    std::memcpy(end, pBytes, rest);
    end[rest] = 0x80;
    const std::size_t endSize = rest < BlockSize - 8 ? BlockSize : 2 * BlockSize;
    for (std::size_t i = 0; i < 8; i++)
        end[endSize - 1 - i] = static_cast<unsigned char>(std::uint64_t{size} * 8 >> 8 * i);
    for (std::size_t i = 0; i < endSize; i += BlockSize) Digest(state, end + i);

    char szDigest[65];
    for (std::size_t i = 0; i < state.size(); i++) std::snprintf(szDigest + 8 * i, 9, "%08x", state[i]);
    return szDigest;
}
