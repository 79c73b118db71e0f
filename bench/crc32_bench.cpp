// Prints the speed of rom_crc32, of what it does without carry-less multiplication, and of zlib's crc32.

#include <zlib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

#include "crc32.h"
#include "util.h"

CStr g_InstallLocalDir;

extern "C" unsigned long rom_crc32_portable(unsigned char* buffer, unsigned int length, unsigned long crc);

namespace
{

constexpr unsigned int Size = 64u << 20;
constexpr int Rounds = 15;

unsigned long ZlibCrc32(unsigned char* buffer, unsigned int length, unsigned long crc)
{
    return crc32(crc, buffer, length);
}

struct Contestant
{
    const char* Name;
    unsigned long (*Function)(unsigned char* buffer, unsigned int length, unsigned long crc);
    double BestSeconds;
    unsigned long Result;
};

void Measure(Contestant& contestant, std::vector<unsigned char>& buffer)
{
    const auto start = std::chrono::steady_clock::now();
    contestant.Result = contestant.Function(buffer.data(), Size, 0);
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    contestant.BestSeconds = std::min(contestant.BestSeconds, seconds.count());
}

}  // namespace

int main()
{
    std::vector<unsigned char> buffer(Size);
    std::mt19937 random(1);
    for (unsigned char& byte : buffer) byte = static_cast<unsigned char>(random());

    Contestant contestants[] = {
        {"zlib crc32", ZlibCrc32, 1e9, 0},
        {"rom_crc32", rom_crc32, 1e9, 0},
        {"rom_crc32, portable", rom_crc32_portable, 1e9, 0},
    };
    for (int round = 0; round < Rounds; round++)  // taking turns: what disturbs the machine disturbs all of them
        for (Contestant& contestant : contestants) Measure(contestant, buffer);

    const Contestant& zlib = contestants[0];
    std::printf("CRC-32 of %u MiB, %zu-bit, best of %d\n", Size >> 20, 8 * sizeof(void*), Rounds);
    for (const Contestant& contestant : contestants) {
        std::printf("%-20s %8.0f MB/s %6.2f of zlib\n", contestant.Name, Size / contestant.BestSeconds / 1e6,
                    zlib.BestSeconds / contestant.BestSeconds);
        if (contestant.Result != zlib.Result) {
            std::printf("%s: %08lX, zlib has %08lX\n", contestant.Name, contestant.Result, zlib.Result);
            return EXIT_FAILURE;
        }
    }
    return EXIT_SUCCESS;
}
