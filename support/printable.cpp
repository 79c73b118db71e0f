#include "support/printable.h"

#include <cstdint>
#include <sstream>

namespace
{

const std::uint32_t NoCharacter = 0xFFFFFFFF;

// The character at the start, and its length in bytes; NoCharacter, one byte long, where that is no UTF-8 (RFC 3629).
std::uint32_t Decode(const char* text, std::size_t size, std::size_t& length)
{
    const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    length = 1;
    if (byte(0) < 0x80) return byte(0);
    const std::size_t bytes = byte(0) >= 0xF0 ? 4 : byte(0) >= 0xE0 ? 3 : 2;
    if (byte(0) < 0xC2 || byte(0) > 0xF4 || bytes > size) return NoCharacter;
    std::uint32_t character = byte(0) & (0x7Fu >> bytes);
    for (std::size_t i = 1; i < bytes; i++) {
        if ((byte(i) & 0xC0) != 0x80) return NoCharacter;
        character = character << 6 | (byte(i) & 0x3Fu);
    }
    const std::uint32_t smallest[] = {0x80, 0x800, 0x10000};
    if (character < smallest[bytes - 2] || (character >= 0xD800 && character <= 0xDFFF) || character > 0x10FFFF)
        return NoCharacter;
    length = bytes;
    return character;
}

bool IsShown(std::uint32_t character)
{
    static const struct
    {
        std::uint32_t First;
        std::uint32_t Last;
    } hidden[] = {
        {0x00, 0x1F},     {0x7F, 0x9F},      // control characters
        {0x061C, 0x061C}, {0x200E, 0x200F},  // marks of direction
        {0x2028, 0x202E},                    // separators of lines and paragraphs; embeddings and overrides
        {0x2066, 0x2069},                    // isolates
        {0xFEFF, 0xFEFF}, {NoCharacter, NoCharacter},
    };
    for (const auto& range : hidden)
        if (character >= range.First && character <= range.Last) return false;
    return true;
}

}  // namespace

std::string Printable(const std::string& text)
{
    std::string shown;
    shown.reserve(text.size());
    std::size_t length = 0;
    for (std::size_t i = 0; i < text.size(); i += length) {
        const std::uint32_t character = Decode(text.data() + i, text.size() - i, length);
        if (character == '\t')
            shown += ' ';
        else if (IsShown(character))
            shown.append(text, i, length);
        else
            shown += '?';
    }
    return shown;
}

std::string PrintableLines(const std::string& text)
{
    std::istringstream lines(text);
    std::string result;
    for (std::string line; std::getline(lines, line);) result += Printable(line) + (lines.eof() ? "" : "\n");
    return result;
}
