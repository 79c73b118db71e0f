#include "romimage.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "zalftbl.h"

namespace sim
{

namespace
{

const std::size_t HeaderOffset = 0xE0C3;  // in the BIOS area; images align it to nothing

// Bytes that look like code: neither empty nor compressible, and their own for every image.
void FillWithCode(std::vector<std::uint8_t>& image, const std::string& seed)
{
    std::uint32_t state = 2166136261u;
    for (char c : seed) state = (state ^ static_cast<std::uint8_t>(c)) * 16777619u;
    for (std::uint8_t& byte : image) {
        state = state * 1664525u + 1013904223u;
        byte = static_cast<std::uint8_t>(state >> 24);
    }
}

// "2.30 (09/12/2019)"; empty for a ROM without a version.
std::string Revision(const RomDescription& rom)
{
    return rom.Version.empty() ? "" : rom.Version + " (" + rom.Date + ")";
}

}  // namespace

std::vector<std::uint8_t> BuildRomImage(const RomDescription& rom, std::size_t size)
{
    std::vector<std::uint8_t> image(size);
    const std::string revision = Revision(rom);
    FillWithCode(image, rom.Family + revision);

    ZALFLSH_HEADER header = {};
    std::memcpy(header.Signature, "$ZALFLSH", sizeof header.Signature);
    header.Version = 1;
    header.FeatureBits1 = 4;
    std::memcpy(header.Date, rom.Date.data(), std::min(rom.Date.size(), sizeof header.Date));
    header.TablePhysAddr = 0xFFFF0000;

    std::uint8_t* pHeader = image.data() + size - BiosAreaSize + HeaderOffset;
    std::memcpy(pHeader, &header, sizeof header);
    char* pString = reinterpret_cast<char*>(pHeader) + offsetof(ZALFLSH_HEADER, ImageName);
    for (const std::string* pText : {&rom.Name, &rom.Family, &revision}) {
        std::strcpy(pString, pText->c_str());
        pString += pText->size() + 1;
    }
    return image;
}

std::optional<std::size_t> FindRomHeader(const std::vector<std::uint8_t>& area)
{
    static const std::string signature = "$ZALFLSH";
    const auto found = std::search(area.begin(), area.end(), signature.begin(), signature.end());
    const std::size_t offset = static_cast<std::size_t>(found - area.begin());
    if (area.size() - offset <= offsetof(ZALFLSH_HEADER, ImageName)) return std::nullopt;
    const auto strings = found + offsetof(ZALFLSH_HEADER, ImageName);
    if (std::count(strings, area.end(), 0) < 3) return std::nullopt;
    return offset;
}

RomDescription ReadRomHeader(const std::vector<std::uint8_t>& area, std::size_t offset)
{
    const char* pString = reinterpret_cast<const char*>(area.data() + offset) + offsetof(ZALFLSH_HEADER, ImageName);
    RomDescription rom;
    std::string revision;
    for (std::string* pText : {&rom.Name, &rom.Family, &revision}) {
        *pText = pString;
        pString += pText->size() + 1;
    }
    rom.Version = revision.substr(0, revision.find(' '));
    const std::size_t date = revision.find('(');
    if (date != std::string::npos) rom.Date = revision.substr(date + 1, revision.find(')') - date - 1);
    return rom;
}

std::size_t RomHeaderSize(const RomDescription& rom)
{
    return offsetof(ZALFLSH_HEADER, ImageName) + rom.Name.size() + rom.Family.size() + Revision(rom).size() + 3;
}

}  // namespace sim
