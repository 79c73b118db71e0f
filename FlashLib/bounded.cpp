#include "bounded.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace
{

// kept: limits-end-the-process
[[noreturn]] void EndProcess(const char* limit, std::size_t size)
{
    std::fprintf(stderr, "FlashLib: text does not fit the %zu-byte buffer of %s\n", size, limit);
    std::abort();
}

}  // namespace

void BoundedFormatV(const char* limit, char* buffer, std::size_t size, const char* format, va_list arguments)
{
    const int length = std::vsnprintf(buffer, size, format, arguments);
    if (length < 0 || static_cast<std::size_t>(length) >= size) EndProcess(limit, size);
}

void BoundedFormat(const char* limit, char* buffer, std::size_t size, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    BoundedFormatV(limit, buffer, size, format, arguments);
    va_end(arguments);
}

void BoundedCopy(const char* limit, char* buffer, std::size_t size, const char* text)
{
    BoundedCopyBytes(limit, buffer, size, text, std::strlen(text) + 1);
}

void BoundedAppend(const char* limit, char* buffer, std::size_t size, const char* text, std::size_t length)
{
    const std::size_t used = std::strlen(buffer);
    if (length >= size - used) EndProcess(limit, size);
    std::memcpy(buffer + used, text, length);
    buffer[used + length] = '\0';
}

void BoundedCopyBytes(const char* limit, void* buffer, std::size_t size, const void* bytes, std::size_t length)
{
    if (length > size) EndProcess(limit, size);
    std::memcpy(buffer, bytes, length);
}
