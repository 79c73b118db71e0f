// What every fuzz target is made of: a file with a Fuzz function and a bound on its steps, linked with the rest here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

// An input, taken from its front.
class CInput
{
  public:
    CInput(const std::uint8_t* pData, std::size_t size) : m_pData(pData), m_Size(size) {}

    bool IsEmpty() const { return m_Size == 0; }
    std::size_t Size() const { return m_Size; }  // bytes left
    const std::uint8_t* Data() const { return m_pData; }

    // The next byte, 0 at the end.
    std::uint8_t Byte();
    std::uint32_t Word(int bytes);  // little-endian

    // The next bytes, fewer at the end.
    std::vector<std::uint8_t> Bytes(std::size_t count);

    // The text up to the next NUL or end character, which is taken too. Fills its memory with its NUL.
    std::vector<char> Text(char end = '\0');

  private:
    const std::uint8_t* m_pData;
    std::size_t m_Size;
};

// How many of its functions the library may enter for an input. More are a hang in the making, and a finding.
struct CStepBound
{
    std::uint64_t Base;
    std::uint64_t PerByte;
};

// The target's own.
extern const CStepBound StepBound;
void Fuzz(CInput& input);

// What must hold of the library's answers, whatever the input is.
#define REQUIRE(condition)                                                                      \
    do {                                                                                        \
        if (!(condition)) {                                                                     \
            std::fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                       \
        }                                                                                       \
    } while (false)

// Writes a file of that name with these bytes into the component directory, and returns its path.
std::string WriteFile(const char* name, const std::uint8_t* pData, std::size_t size);
