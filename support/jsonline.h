// Writes JSON (RFC 8259).
#pragma once

#include <cstddef>
#include <cstdio>
#include <cstring>

#include "support/utf8.h"

// One object, on one line. It asks for no memory: what tells that there is none left uses it, too.
class CJsonLine
{
  public:
    static constexpr std::size_t MaxSize = 8192;  // bytes, with the line end

    // Adds a member. Names are plain words. What is no UTF-8 in a text becomes the replacement character.
    void Add(const char* name, const char* text)
    {
        Begin(name);
        Put("\"", 1);
        std::size_t length = 0;
        for (std::size_t left = std::strlen(text); left > 0; text += length, left -= length) {
            const std::uint32_t character = DecodeUtf8(text, left, length);
            PutCharacter(text, character, length);
        }
        Put("\"", 1);
    }
    void Add(const char* name, long long number)
    {
        Begin(name);
        char szNumber[24];
        Put(szNumber, static_cast<std::size_t>(std::snprintf(szNumber, sizeof szNumber, "%lld", number)));
    }

    void AddFlag(const char* name, bool value)
    {
        Begin(name);
        Put(value ? "true" : "false", value ? 4 : 5);
    }

    // Ends the line. Returns its size in bytes; 0 when it does not fit: half an object is none.
    std::size_t End()
    {
        Put(m_Size == 0 ? "{}\n" : "}\n", m_Size == 0 ? 3 : 2);
        return m_bTooLong ? 0 : m_Size;
    }
    const char* Text() const { return m_szLine; }

  private:
    void Begin(const char* name)
    {
        Put(m_Size == 0 ? "{\"" : ", \"", m_Size == 0 ? 2 : 3);
        Put(name, std::strlen(name));
        Put("\": ", 3);
    }

    void PutCharacter(const char* text, std::uint32_t character, std::size_t length)
    {
        char szEscape[8];
        if (character == NoCharacter)
            Put("\\ufffd", 6);
        else if (character < 0x20)
            Put(szEscape, static_cast<std::size_t>(std::snprintf(szEscape, sizeof szEscape, "\\u%04x", character)));
        else if (character == '"' || character == '\\')
            Put(character == '"' ? "\\\"" : "\\\\", 2);
        else
            Put(text, length);
    }

    void Put(const char* text, std::size_t size)
    {
        m_bTooLong = m_bTooLong || size > MaxSize - m_Size;
        if (m_bTooLong) return;
        std::memcpy(m_szLine + m_Size, text, size);
        m_Size += size;
    }

    char m_szLine[MaxSize];
    std::size_t m_Size = 0;
    bool m_bTooLong = false;
};
