// The C library's calls that name files, as far as installers use them for what a server keeps of them.
#include "sim/entry/folders.h"

#include <sys/stat.h>
#include <unistd.h>

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

}  // namespace

CHostPath::CHostPath(const char* path) : m_pszPath(path)
{
    const char* pszFolder = path ? FindFolder(path) : nullptr;
    CServer* pServer = pszFolder ? CurrentServer() : nullptr;
    if (!pServer) return;
    const std::string root = pServer->GetFolder().Path().string();
    std::error_code ignored;  // the call that follows fails, too
    std::filesystem::create_directories(std::filesystem::path(root + pszFolder).parent_path(), ignored);
    m_sOnServer = root + path;
    m_pszPath = m_sOnServer.c_str();
}

}  // namespace sim

using sim::CHostPath;

ENTRY_POINT int mkdir(const char* path, mode_t mode) noexcept
{
    NEXT(mkdir);
    return next(CHostPath(path), mode);
}

ENTRY_POINT int unlink(const char* path) noexcept
{
    NEXT(unlink);
    return next(CHostPath(path));
}

ENTRY_POINT int rename(const char* from, const char* to) noexcept
{
    NEXT(rename);
    return next(CHostPath(from), CHostPath(to));
}

ENTRY_POINT int access(const char* path, int mode) noexcept
{
    NEXT(access);
    return next(CHostPath(path), mode);
}

ENTRY_POINT int stat(const char* path, struct stat* status) noexcept
{
    NEXT(stat);
    return next(CHostPath(path), status);
}

ENTRY_POINT int lstat(const char* path, struct stat* status) noexcept
{
    NEXT(lstat);
    return next(CHostPath(path), status);
}

ENTRY_POINT int stat64(const char* path, struct stat64* status) noexcept
{
    NEXT(stat64);
    return next(CHostPath(path), status);
}

ENTRY_POINT int lstat64(const char* path, struct stat64* status) noexcept
{
    NEXT(lstat64);
    return next(CHostPath(path), status);
}
