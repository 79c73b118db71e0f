#include "support/files.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "support/descriptor.h"

namespace fs = std::filesystem;

namespace
{

[[noreturn]] void Throw(const char* what, const fs::path& file, const std::string& why)
{
    throw std::runtime_error(std::string(what) + " " + file.string() + ": " + why);
}

// Does not wait for a writer where the file is a pipe.
CDescriptor OpenToRead(const fs::path& file)
{
    return CDescriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
}

void WriteTo(const fs::path& file, int flags, std::string_view bytes)
{
    CDescriptor descriptor(open(file.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY | flags, 0666));
    if (descriptor.Get() < 0 || !WriteAll(descriptor.Get(), bytes) || !descriptor.Close())
        Throw("can't write", file, std::strerror(errno));
}

}  // namespace

std::string ReadOpenFile(int descriptor, const fs::path& file, std::size_t maxSize, std::size_t most)
{
    struct stat status = {};
    if (fstat(descriptor, &status) != 0) Throw("can't read", file, std::strerror(errno));
    if (!S_ISREG(status.st_mode)) Throw("can't read", file, "it is no regular file");
    if (static_cast<std::uintmax_t>(status.st_size) > maxSize)
        Throw("can't read", file, "it has more than " + std::to_string(maxSize) + " bytes");

    std::string bytes(std::min(static_cast<std::size_t>(status.st_size), most), '\0');
    std::size_t length = 0;
    while (length < bytes.size()) {
        const ssize_t part =
            pread(descriptor, bytes.data() + length, bytes.size() - length, static_cast<off_t>(length));
        if (part < 0 && errno == EINTR) continue;
        if (part < 0) Throw("can't read", file, std::strerror(errno));
        if (part == 0) break;  // it was cut meanwhile
        length += static_cast<std::size_t>(part);
    }
    bytes.resize(length);
    return bytes;
}

std::optional<std::string> ReadFileIfThere(const fs::path& file, std::size_t maxSize)
{
    const CDescriptor descriptor = OpenToRead(file);
    if (descriptor.Get() < 0 && errno == ENOENT) return std::nullopt;
    if (descriptor.Get() < 0) Throw("can't read", file, std::strerror(errno));
    return ReadOpenFile(descriptor.Get(), file, maxSize);
}

std::string ReadWholeFile(const fs::path& file, std::size_t maxSize)
{
    std::optional<std::string> bytes = ReadFileIfThere(file, maxSize);
    if (!bytes) Throw("can't read", file, std::strerror(ENOENT));
    return std::move(*bytes);
}

void WriteWholeFile(const fs::path& file, std::string_view bytes)
{
    std::error_code ignored;
    const fs::file_type type = fs::status(file, ignored).type();
    if (type != fs::file_type::regular && type != fs::file_type::not_found) return WriteTo(file, 0, bytes);

    // The name may be a link to the file.
    const fs::path target = type == fs::file_type::regular ? fs::canonical(file, ignored) : file;
    const fs::path temporary = target.string() + ".new";
    try {
        WriteTo(temporary, O_CREAT | O_TRUNC, bytes);
        if (std::rename(temporary.c_str(), target.c_str()) != 0) Throw("can't replace", file, std::strerror(errno));
    } catch (...) {
        fs::remove(temporary, ignored);
        throw;
    }
}

bool WriteAll(int descriptor, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t length = write(descriptor, bytes.data(), bytes.size());
        if (length < 0 && errno == EINTR) continue;
        if (length < 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(length));
    }
    return true;
}
