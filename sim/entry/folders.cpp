// The C library's calls that name files, as far as installers use them for what a server keeps of them.
#include "sim/entry/folders.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "sim/entry/entrypoint.h"
#include "sim/server.h"

namespace sim
{

namespace
{

const char* const szFolders[] = {"/run/flashlib", "/var/run/flashlib", "/var/lib/flashlib"};

// The folder of a server's own that the path names something in, or itself; null for any other path.
const char* FindFolder(const char* path)
{
    for (const char* pszFolder : szFolders) {
        const std::size_t length = std::strlen(pszFolder);
        if (std::strncmp(path, pszFolder, length) == 0 && (path[length] == '\0' || path[length] == '/'))
            return pszFolder;
    }
    return nullptr;
}

// Does what changes a path: a step, where it is the server's own.
template <typename Change>
int Do(const char* verb, const CHostPath& path, Change change)
{
    if (!path.GetServer()) return change();
    return OrEndProcess([&] {
        CStep step(path.GetServer()->GetFolder().GetSteps(), "host",
                   std::string(verb) + " " + (std::strrchr(path, '/') + 1));
        const int result = change();
        const int error = errno;
        step.End();
        errno = error;
        return result;
    });
}

// The C library's function for a status; before glibc 2.33 it has but the one that takes a version first.
template <typename Status>
int NextStat(const char* name, const char* before, const char* path, Status* status)
{
    const int version = sizeof(void*) == 4 ? 3 : 1;
    const CHostPath host(path);
    if (auto* const next = Next<int(const char*, Status*)>(nullptr, name)) return next(host, status);
    return Next<int(int, const char*, Status*)>(nullptr, before)(version, host, status);
}

}  // namespace

CHostPath::CHostPath(const char* path) : m_pszPath(path)
{
    const char* pszFolder = path ? FindFolder(path) : nullptr;
    CServer* pServer = pszFolder ? CurrentServer() : nullptr;
    if (!pServer) return;
    const std::string root = pServer->GetFolder().Path().string();
    std::error_code ignored;  // the call that follows fails, too
    std::filesystem::create_directories(std::filesystem::path(root + pszFolder).parent_path(), ignored);
    m_pServer = pServer;
    m_sOnServer = root + path;
    m_pszPath = m_sOnServer.c_str();
}

}  // namespace sim

using sim::CHostPath;

ENTRY_POINT int mkdir(const char* path, mode_t mode) noexcept
{
    NEXT(mkdir);
    const CHostPath host(path);
    return sim::Do("mkdir", host, [&] { return next(host, mode); });
}

ENTRY_POINT int unlink(const char* path) noexcept
{
    NEXT(unlink);
    const CHostPath host(path);
    return sim::Do("unlink", host, [&] { return next(host); });
}

ENTRY_POINT int rename(const char* from, const char* to) noexcept
{
    NEXT(rename);
    const CHostPath source(from);
    const CHostPath target(to);
    return sim::Do("rename", target, [&] { return next(source, target); });
}

ENTRY_POINT int access(const char* path, int mode) noexcept
{
    NEXT(access);
    return next(CHostPath(path), mode);
}

ENTRY_POINT int stat(const char* path, struct stat* status) noexcept
{
    return sim::NextStat("stat", "__xstat", path, status);
}

ENTRY_POINT int lstat(const char* path, struct stat* status) noexcept
{
    return sim::NextStat("lstat", "__lxstat", path, status);
}

ENTRY_POINT int stat64(const char* path, struct stat64* status) noexcept
{
    return sim::NextStat("stat64", "__xstat64", path, status);
}

ENTRY_POINT int lstat64(const char* path, struct stat64* status) noexcept
{
    return sim::NextStat("lstat64", "__lxstat64", path, status);
}

// What programs call that were built with an older C library; the version is the one that there is.

ENTRY_POINT int __xstat(int, const char* path, struct stat* status) noexcept
{
    return stat(path, status);
}

ENTRY_POINT int __lxstat(int, const char* path, struct stat* status) noexcept
{
    return lstat(path, status);
}

ENTRY_POINT int __xstat64(int, const char* path, struct stat64* status) noexcept
{
    return stat64(path, status);
}

ENTRY_POINT int __lxstat64(int, const char* path, struct stat64* status) noexcept
{
    return lstat64(path, status);
}
