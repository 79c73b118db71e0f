// The Intel HEX text of a 4 MiB image: validated, and made binary by objcopy and srec_cat as whole processes.
#include <random>

#include "bench/compare.h"
#include "bench/measurements.h"
#include "pwrmicro.h"
#include "support/files.h"

namespace
{

const unsigned int ImageSize = 4u << 20;
const unsigned int DataSize = 16;  // of a record

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

void BenchHex(const std::string& folder)
{
    const std::string text = MakeHex();
    const std::string file = folder + "/image.hex";
    WriteWholeFile(file, text);
    CPowerMicro controller(nullptr);
    Compare(
        "HEX text of 11.5 MB", static_cast<double>(text.size()) / 1e6, "MB", 10,
        {{"objcopy, process", [&] { return RunQuietly("objcopy -I ihex -O binary " + file + " " + folder + "/bin"); }},
         {"srec_cat, process",
          [&] { return RunQuietly("srec_cat " + file + " -Intel -o " + folder + "/bin -Binary"); }},
         {"ValidateHex", [&] { return controller.ValidateHex(text.data(), static_cast<int>(text.size())) != 0; }}});
}
