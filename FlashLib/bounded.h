// Formatting and copying into fixed buffers that never truncates and never overruns.
#pragma once

#include <cstdarg>
#include <cstddef>

// Each call below fills buffer with a NUL-terminated text, or, when the text does not fit in size bytes, prints one
// line on standard error that names the limit and ends the process. limit names the buffer for that line.

void BoundedFormatV(const char* limit, char* buffer, std::size_t size, const char* format, va_list arguments)
    __attribute__((format(printf, 4, 0)));
void BoundedFormat(const char* limit, char* buffer, std::size_t size, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
void BoundedCopy(const char* limit, char* buffer, std::size_t size, const char* text);

// Appends the first length bytes of text to what buffer holds.
void BoundedAppend(const char* limit, char* buffer, std::size_t size, const char* text, std::size_t length);

// Copies length bytes, which need not be text.
void BoundedCopyBytes(const char* limit, void* buffer, std::size_t size, const void* bytes, std::size_t length);
