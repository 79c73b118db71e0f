#include "support/printable.h"

#include <sstream>

#include "support/utf8.h"

namespace
{

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
        const std::uint32_t character = DecodeUtf8(text.data() + i, text.size() - i, length);
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
