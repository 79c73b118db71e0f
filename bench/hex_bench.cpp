// Prints the speed at which the HEX text of a 4 MiB image is validated.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "pwrmicro.h"
#include "util.h"

CStr g_InstallLocalDir;

namespace
{

constexpr unsigned int ImageSize = 4u << 20;
constexpr unsigned int DataSize = 16;  // of a record
constexpr int Rounds = 50;

using Bytes = std::vector<unsigned char>;

void AppendRecord(std::string& text, unsigned int address, unsigned int type, const Bytes& data)
{
    Bytes record = {static_cast<unsigned char>(data.size()), static_cast<unsigned char>(address >> 8),
                    static_cast<unsigned char>(address), static_cast<unsigned char>(type)};
    record.insert(record.end(), data.begin(), data.end());
    unsigned char sum = 0;
    for (unsigned char byte : record) sum = static_cast<unsigned char>(sum + byte);
    record.push_back(static_cast<unsigned char>(-sum));

    text += ':';
    for (unsigned char byte : record) {
        text += "0123456789ABCDEF"[byte >> 4];
        text += "0123456789ABCDEF"[byte & 0xF];
    }
    text += '\n';
}

std::string MakeHex()
{
    std::string text;
    std::mt19937 random(1);
    Bytes data(DataSize);
    for (unsigned int address = 0; address < ImageSize; address += DataSize) {
        if (address % 0x10000 == 0) AppendRecord(text, 0, 4, {0, static_cast<unsigned char>(address >> 16)});
        for (unsigned char& byte : data) byte = static_cast<unsigned char>(random());
        AppendRecord(text, address, 0, data);
    }
    AppendRecord(text, 0, 1, {});
    return text;
}

}  // namespace

int main()
{
    setenv("QVFLASHLOG", "/dev/null", 1);
    const std::string text = MakeHex();
    CPowerMicro controller(nullptr);
    double bestSeconds = 1e9;
    for (int round = 0; round < Rounds; round++) {
        const auto start = std::chrono::steady_clock::now();
        if (!controller.ValidateHex(text.data(), static_cast<int>(text.size()))) return EXIT_FAILURE;
        const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
        bestSeconds = std::min(bestSeconds, seconds.count());
    }
    const double length = static_cast<double>(text.size());
    std::printf("HEX text of %u MiB, %.1f MB, %zu-bit, best of %d\n", ImageSize >> 20, length / 1e6, 8 * sizeof(void*),
                Rounds);
    std::printf("%-20s %8.0f MB/s\n", "ValidateHex", length / bestSeconds / 1e6);
    return EXIT_SUCCESS;
}
