// Files as wholes: read with a bound, written so that another reader sees the old one or the new one and nothing else.
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

// What images, packages, dumps and descriptions have room in.
const std::size_t MaxFileSize = std::size_t{256} << 20;

// The bytes of a regular file. Throws std::runtime_error with a sentence where it can't be read, is no regular file, or
// has more than maxSize bytes, which is found out before anything is read.
std::string ReadWholeFile(const std::filesystem::path& file, std::size_t maxSize = MaxFileSize);

// The same; nothing where there is no such file.
std::optional<std::string> ReadFileIfThere(const std::filesystem::path& file, std::size_t maxSize = MaxFileSize);

// Writes a file into the folder in which it stands, under its name with ".new", and renames it when all of it is there.
// Throws std::runtime_error with a sentence; the old file, if there was one, then stays and the new one is gone. Two
// that write one file at once need a lock of their own. A device or a pipe is written to as it is.
void WriteWholeFile(const std::filesystem::path& file, std::string_view bytes);

// Writes all of the bytes to a descriptor; false with errno when it takes no more.
bool WriteAll(int descriptor, std::string_view bytes);

// Reads a regular file that is open, from its start, or the first bytes of it, most of them. Throws as ReadWholeFile
// does; sentences call the file by that name.
std::string ReadOpenFile(int descriptor, const std::filesystem::path& file, std::size_t maxSize,
                         std::size_t most = MaxFileSize);

// The bytes of anything that stands in a row.
template <typename Bytes>
std::string_view AsText(const Bytes& bytes)
{
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}
