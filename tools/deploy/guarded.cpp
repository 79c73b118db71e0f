#include "tools/deploy/guarded.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace fs = std::filesystem;

namespace
{

void RequireGuardedEntry(const fs::path& entry)
{
    struct stat status = {};
    if (lstat(entry.c_str(), &status) != 0)
        throw std::runtime_error("can't read " + entry.string() + ": " + std::strerror(errno));
    if (S_ISLNK(status.st_mode)) throw std::runtime_error(entry.string() + " is a link; put there what it leads to");
    if (status.st_uid != 0 && status.st_uid != geteuid())
        throw std::runtime_error(entry.string() + " belongs to another user, who can change it; chown root it");
    if (status.st_mode & (S_IWGRP | S_IWOTH))
        throw std::runtime_error(entry.string() +
                                 " can be written by others, who decide what runs then; chmod go-w it");
}

}  // namespace

void RequireGuarded(const fs::path& path, const fs::path& top)
{
    for (fs::path entry = path; entry != top; entry = entry.parent_path()) {
        RequireGuardedEntry(entry);
        if (entry == entry.parent_path()) return;
    }
}
