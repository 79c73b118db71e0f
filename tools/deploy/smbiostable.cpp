#include "tools/deploy/smbiostable.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <string>

#include "zalph.h"

namespace
{

const BYTE SystemInformation = 1;
const std::size_t Uuid = 8;  // offset in it
const std::size_t UuidSize = 16;
const std::size_t ShortestCopy = 4;  // characters of a serial number that is looked for elsewhere

// The fields of serial numbers and asset tags (DMTF DSP0134): system, baseboard, chassis, processor, memory device,
// battery, power supply.
const std::map<BYTE, std::vector<std::size_t>> SerialFields = {
    {1, {7}}, {2, {7, 8}}, {3, {7, 8}}, {4, {0x20, 0x21}}, {17, {0x18, 0x19}}, {22, {7}}, {39, {8, 9}},
};

using Texts = std::vector<std::string>;

// Puts X over the string with that number, and notes what it was.
void MaskString(std::vector<BYTE>& table, std::size_t place, int number, Texts& masked)
{
    for (; number > 1 && place < table.size(); number--)
        place = static_cast<std::size_t>(std::find(table.begin() + static_cast<std::ptrdiff_t>(place), table.end(), 0) -
                                         table.begin()) +
                1;
    std::string text;
    for (; number == 1 && place < table.size() && table[place] != 0; place++) {
        text.push_back(static_cast<char>(table[place]));
        table[place] = 'X';
    }
    if (text.size() >= ShortestCopy) masked.push_back(text);
}

void MaskRecord(std::vector<BYTE>& table, std::size_t record, std::size_t length, Texts& masked)
{
    const auto fields = SerialFields.find(table[record]);
    if (fields == SerialFields.end()) return;
    for (const std::size_t field : fields->second)
        if (field < length) MaskString(table, record + length, table[record + field], masked);
    if (table[record] == SystemInformation && length >= Uuid + UuidSize)
        std::fill_n(table.begin() + static_cast<std::ptrdiff_t>(record + Uuid), UuidSize, BYTE{0});
}

}  // namespace

std::optional<sim::SmbiosTables> ReadSmbios()
{
    unsigned int size = 0;
    const std::unique_ptr<unsigned char[]> region(CSMBIOS().GetSMBiosMemoryHeader(size));
    if (!region || size > 0x10000) return {};
    for (std::size_t i = 0; i + sizeof(SMBIOSEntryPoint) <= size; i += 4) {
        sim::SmbiosTables tables = {};
        std::memcpy(&tables.Entry, region.get() + i, sizeof tables.Entry);
        if (std::memcmp(tables.Entry.sAnchorString, "_SM_", sizeof tables.Entry.sAnchorString) != 0) continue;
        tables.Table.resize(tables.Entry.wSTLength);
        if (!CSystem().ReadPhysicalMemory(tables.Entry.dwSTAddr, tables.Table.data(), tables.Entry.wSTLength))
            return {};
        return tables;
    }
    return {};
}

void MaskSerials(std::vector<BYTE>& table)
{
    static const BYTE zeros[2] = {};
    Texts masked;
    for (std::size_t record = 0; record + sizeof(SMBIOS_HEADER) <= table.size();) {
        const std::size_t length = table[record + 1];
        if (length < sizeof(SMBIOS_HEADER) || record + length > table.size()) break;
        MaskRecord(table, record, length, masked);
        const auto strings = table.begin() + static_cast<std::ptrdiff_t>(record + length);
        const auto end = std::search(strings, table.end(), zeros, zeros + sizeof zeros);
        record = static_cast<std::size_t>(end - table.begin()) + sizeof zeros;
    }
    for (const std::string& text : masked)
        for (auto found = table.begin();;) {
            found = std::search(found, table.end(), text.begin(), text.end());
            if (found == table.end()) break;
            found = std::fill_n(found, text.size(), BYTE{'X'});
        }
}
