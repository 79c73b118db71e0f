// UTF-8 (RFC 3629) from outside, character by character.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr std::uint32_t NoCharacter = 0xFFFFFFFF;

// The character at the start of a text that is not empty, and its length in bytes; NoCharacter, one byte long, where
// that is no UTF-8.
inline std::uint32_t DecodeUtf8(const char* text, std::size_t size, std::size_t& length)
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
