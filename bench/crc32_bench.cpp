// rom_crc32 beside zlib's crc32.
#include <zlib.h>

#include <random>

#include "bench/compare.h"
#include "bench/measurements.h"
#include "crc32.h"

void BenchCrc32()
{
    const unsigned int size = 64u << 20;
    std::vector<unsigned char> buffer(size);
    std::mt19937 random(1);
    for (unsigned char& byte : buffer) byte = static_cast<unsigned char>(random());
    unsigned char* pBytes = buffer.data();
    const unsigned long expected = crc32(0, pBytes, size);
    Compare("CRC-32 of 64 MiB", size / 1e6, "MB", 15,
            {{"zlib crc32", [=] { return crc32(0, pBytes, size) == expected; }},
             {"rom_crc32", [=] { return rom_crc32(pBytes, size, 0) == expected; }}});
}
