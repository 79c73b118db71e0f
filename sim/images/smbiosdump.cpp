#include "sim/images/smbiosdump.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace sim
{

namespace
{

using Table = std::vector<std::uint8_t>;

const std::uint32_t DumpTableOffset = 32;
const std::size_t MaxTable = 0xFFFF;  // what a 32-bit entry point can tell
const BYTE EndOfTable = 127;

#pragma pack(push, 1)

// SMBIOS 3.x entry point.
struct EntryPoint64
{
    char Anchor[5];  // "_SM3_"
    BYTE Checksum;
    BYTE Length;
    BYTE MajorVersion;
    BYTE MinorVersion;
    BYTE DocumentRevision;
    BYTE Revision;
    BYTE Reserved;
    DWORD MaxTableSize;
    std::uint64_t TableAddress;
};
FLASHLIB_LAYOUT(EntryPoint64, 24);

#pragma pack(pop)

std::uint8_t SumOf(const void* bytes, std::size_t length)
{
    const std::uint8_t* pByte = static_cast<const std::uint8_t*>(bytes);
    std::uint8_t sum = 0;
    for (std::size_t i = 0; i < length; i++) sum = static_cast<std::uint8_t>(sum + pByte[i]);
    return sum;
}

// The place behind a record that begins there: its formatted area, and strings that end with two zeros.
std::size_t EndOfRecord(const Table& table, std::size_t record)
{
    static const std::uint8_t zeros[2] = {};
    const std::size_t left = table.size() - record;
    const std::size_t length = left < sizeof(SMBIOS_HEADER) ? 0 : table[record + 1];
    const auto strings = table.begin() + static_cast<std::ptrdiff_t>(record + std::min(length, left));
    const auto end = std::search(strings, table.end(), zeros, zeros + sizeof zeros);
    if (length < sizeof(SMBIOS_HEADER) || end == table.end())
        throw std::runtime_error("is damaged: the record at byte " + std::to_string(record) +
                                 " of its table is not whole");
    return static_cast<std::size_t>(end - table.begin()) + sizeof zeros;
}

template <typename EntryPoint>
EntryPoint ReadEntry(const std::string& dump)
{
    EntryPoint entry = {};
    if (dump.size() < sizeof entry) throw std::runtime_error("ends before its entry point does");
    std::memcpy(&entry, dump.data(), sizeof entry);
    return entry;
}

void RequireSum(const void* bytes, std::size_t length)
{
    if (SumOf(bytes, length) != 0) throw std::runtime_error("is damaged: a checksum of its entry point is wrong");
}

Table TableOf(const std::string& dump, std::uint64_t offset, std::size_t size)
{
    if (offset > dump.size() || size > dump.size() - static_cast<std::size_t>(offset))
        throw std::runtime_error("ends before its SMBIOS table does");
    const auto start = dump.begin() + static_cast<std::ptrdiff_t>(offset);
    return {start, start + static_cast<std::ptrdiff_t>(size)};
}

SmbiosTables Parse32(const std::string& dump)
{
    const auto entry = ReadEntry<SMBIOSEntryPoint>(dump);
    if (entry.byEPSLength < sizeof entry - 1 || entry.byEPSLength > sizeof entry ||
        std::memcmp(entry.sIntermediateAS, "_DMI_", sizeof entry.sIntermediateAS) != 0)
        throw std::runtime_error("is damaged: its entry point is none");
    RequireSum(&entry, entry.byEPSLength);
    RequireSum(entry.sIntermediateAS, sizeof entry - offsetof(SMBIOSEntryPoint, sIntermediateAS));
    SmbiosTables tables = {entry, TableOf(dump, entry.dwSTAddr, entry.wSTLength)};
    for (std::size_t record = 0, count = 0; record < tables.Table.size() && count < entry.wNumStructures; count++)
        record = EndOfRecord(tables.Table, record);
    return tables;
}

// The size that it tells is only the most that the table may have.
SmbiosTables Parse64(const std::string& dump)
{
    const auto entry = ReadEntry<EntryPoint64>(dump);
    if (entry.Length != sizeof entry) throw std::runtime_error("is damaged: its entry point is none");
    RequireSum(&entry, sizeof entry);
    const std::size_t left =
        entry.TableAddress < dump.size() ? dump.size() - static_cast<std::size_t>(entry.TableAddress) : 0;
    return MakeSmbios(entry.MajorVersion, entry.MinorVersion,
                      TableOf(dump, entry.TableAddress, std::min<std::size_t>(left, entry.MaxTableSize)));
}

}  // namespace

void PlaceSmbios(SmbiosTables& tables, std::uint32_t address)
{
    SMBIOSEntryPoint& entry = tables.Entry;
    const std::size_t intermediate = sizeof entry - offsetof(SMBIOSEntryPoint, sIntermediateAS);
    entry.dwSTAddr = address;
    entry.byIntermediateCS = 0;
    entry.byIntermediateCS = static_cast<BYTE>(-SumOf(entry.sIntermediateAS, intermediate));
    entry.byChecksum = 0;
    entry.byChecksum = static_cast<BYTE>(-SumOf(&entry, entry.byEPSLength));
}

SmbiosTables MakeSmbios(std::uint8_t majorVersion, std::uint8_t minorVersion, std::vector<std::uint8_t> table)
{
    std::size_t count = 0;
    std::size_t largest = 0;
    std::size_t size = 0;
    for (bool ended = false; !ended; count++) {
        if (size == table.size()) throw std::runtime_error("is damaged: its table has no end-of-table record");
        ended = table[size] == EndOfTable;
        const std::size_t end = EndOfRecord(table, size);
        largest = std::max(largest, end - size);
        size = end;
    }
    if (size > MaxTable)
        throw std::runtime_error("has " + std::to_string(size) +
                                 " bytes of SMBIOS tables; servers that the library knows have at most 65535");
    table.resize(size);

    SMBIOSEntryPoint entry = {};
    std::memcpy(entry.sAnchorString, "_SM_", sizeof entry.sAnchorString);
    entry.byEPSLength = sizeof entry;
    entry.byMajorVer = majorVersion;
    entry.byMinorVer = minorVersion;
    entry.wMaxStructSize = static_cast<WORD>(largest);
    std::memcpy(entry.sIntermediateAS, "_DMI_", sizeof entry.sIntermediateAS);
    entry.wSTLength = static_cast<WORD>(size);
    entry.wNumStructures = static_cast<WORD>(count);
    entry.byBCDRevision = static_cast<BYTE>(majorVersion << 4 | minorVersion);
    return {entry, std::move(table)};
}

SmbiosTables ParseSmbiosDump(const std::string& dump)
{
    if (dump.compare(0, 5, "_SM3_") == 0) return Parse64(dump);
    if (dump.compare(0, 4, "_SM_") == 0) return Parse32(dump);
    throw std::runtime_error(
        "is no dump that dmidecode --dump-bin has written of a machine with an SMBIOS entry point");
}

std::string DumpSmbios(SmbiosTables tables)
{
    PlaceSmbios(tables, DumpTableOffset);
    std::string bytes(reinterpret_cast<const char*>(&tables.Entry), sizeof tables.Entry);
    bytes.resize(DumpTableOffset);
    bytes.append(tables.Table.begin(), tables.Table.end());
    return bytes;
}

}  // namespace sim
