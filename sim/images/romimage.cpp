#include "sim/images/romimage.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>

#include "sim/images/crc.h"
#include "zalftbl.h"

namespace sim
{

namespace
{

const std::size_t HeaderOffset = 0xE0C3;  // in the BIOS area; images align it to nothing
const std::size_t MaxTexts = 1024;        // characters behind it

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

}  // namespace

bool IsRomSize(std::size_t size)
{
    return size >= BiosAreaSize && size <= MaxRomSize && size % BiosAreaSize == 0;
}

std::vector<std::uint8_t> BuildRomImage(const RomDescription& rom, std::size_t size)
{
    std::vector<std::uint8_t> image(size);
    const std::string revision = rom.Version.empty() ? "" : rom.Version + " (" + rom.Date + ")";
    if (rom.Name.size() + rom.Family.size() + revision.size() > MaxTexts)
        throw std::runtime_error("a ROM's name, family, version and date have at most 1024 characters");
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
    const std::uint32_t crc = Crc32(image.data(), size - sizeof(std::uint32_t));
    std::memcpy(image.data() + size - sizeof crc, &crc, sizeof crc);
    return image;
}

bool IsWholeRomImage(const std::vector<std::uint8_t>& image)
{
    std::uint32_t crc = 0;
    const std::size_t length = image.size() - sizeof crc;
    std::memcpy(&crc, image.data() + length, sizeof crc);
    return crc == Crc32(image.data(), length);
}

std::optional<RomHeader> FindRomHeader(const std::vector<std::uint8_t>& area)
{
    static const std::string signature = "$ZALFLSH";
    const std::size_t stringsOffset = offsetof(ZALFLSH_HEADER, ImageName);
    const auto found = std::search(area.begin(), area.end(), signature.begin(), signature.end());
    if (static_cast<std::size_t>(area.end() - found) <= stringsOffset) return std::nullopt;

    RomHeader header = {};
    header.Offset = static_cast<std::size_t>(found - area.begin());
    std::string revision;
    auto string = found + static_cast<std::ptrdiff_t>(stringsOffset);
    for (std::string* pText : {&header.Rom.Name, &header.Rom.Family, &revision}) {
        const auto end = std::find(string, area.end(), 0);
        if (end == area.end()) return std::nullopt;
        pText->assign(string, end);
        string = end + 1;
    }
    header.Size = static_cast<std::size_t>(string - found);
    header.Rom.Version = revision.substr(0, revision.find(' '));
    const std::size_t date = revision.find('(');
    if (date != std::string::npos) header.Rom.Date = revision.substr(date + 1, revision.find(')') - date - 1);
    return header;
}

}  // namespace sim
