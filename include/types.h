// Basic types of every interface: fixed-width, the same on every data model.
#pragma once

#include <cstddef>
#include <cstdint>

// Booleans, characters, texts and integers under the names that all interfaces use.
using BOOL = int;
using TCHAR = char;
using LPTSTR = char*;
using LPCTSTR = const char*;
using WCHAR = wchar_t;
using LPWSTR = wchar_t*;
using LPCWSTR = const wchar_t*;
using BYTE = std::uint8_t;
using UCHAR = std::uint8_t;
using UINT8 = std::uint8_t;
using UINT16 = std::uint16_t;
using UINT32 = std::uint32_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using ULONG = std::uint32_t;
using PVOID = void*;

#ifndef TRUE
// The two values of a BOOL.
#define TRUE  1
#define FALSE 0
#endif

// Marks what the library exports; everything else stays hidden.
#define FLASHLIB_API __attribute__((visibility("default")))

// Asserts the size of a wire or driver record where it is declared.
#define FLASHLIB_LAYOUT(type, size) static_assert(sizeof(type) == (size), #type " must be " #size " bytes")
