#include "tools/deploy/runfolder.h"

#include <fcntl.h>
#include <fnmatch.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "tools/deploy/guarded.h"
#include "tools/deploy/statefolder.h"

namespace fs = std::filesystem;

namespace
{

const mode_t OwnerOnly = 0700;
const char* const Elsewhere = "--state names another state folder";
const int FirstToInherit = 10;                   // descriptors below have a meaning for a process
const char* const RunName = "zaldeploy.XXXXXX";  // of a run; mkdtemp puts letters there
const char* const RunPattern = "zaldeploy.??????";

[[noreturn]] void Fail(const fs::path& folder, const std::string& why, const std::string& advice)
{
    throw std::runtime_error("packages can't be run from " + folder.string() + ": " + why + "; " + advice);
}

[[noreturn]] void FailToMake(const fs::path& folder, int error)
{
    Fail(folder, std::strerror(error),
         error == EACCES || error == EPERM ? "run zaldeploy as root"
                                           : "see that there is room, and that it can be written to");
}

// Opens a folder and locks it against others that do.
CDescriptor Lock(const fs::path& folder, int wait)
{
    CDescriptor descriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (descriptor.Get() >= 0 && flock(descriptor.Get(), LOCK_EX | wait) != 0) descriptor.Reset(-1);
    return descriptor;
}

// The folder that all runs share.
void MakeShared(const fs::path& folder, bool guarded)
{
    std::error_code error;
    fs::create_directories(folder.parent_path(), error);
    if (error) FailToMake(folder, error.value());
    // Who can write above it could put another folder in its place.
    if (guarded) RequireGuarded(fs::canonical(folder.parent_path()), "/");
    if (mkdir(folder.c_str(), OwnerOnly) != 0 && errno != EEXIST) FailToMake(folder, errno);
    struct stat status = {};
    if (lstat(folder.c_str(), &status) != 0) FailToMake(folder, errno);
    if (!S_ISDIR(status.st_mode) || status.st_uid != geteuid())
        Fail(folder, "it is no folder of the user that runs zaldeploy", Elsewhere);
    if (status.st_mode & (S_IWGRP | S_IWOTH))
        Fail(folder, "others can write to it", std::string("chmod go-w it, or ") + Elsewhere);
    struct statvfs system = {};
    if (statvfs(folder.c_str(), &system) == 0 && (system.f_flag & ST_NOEXEC))
        Fail(folder, "its file system is mounted with noexec, so that no program in it can be run",
             "mount it with exec, or put another file system there");
}

// What runs have left that are no more: nobody holds their locks.
void RemoveLeftovers(const fs::path& folder)
{
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(folder, ignored))
        if (fnmatch(RunPattern, entry.path().filename().c_str(), 0) == 0 && Lock(entry.path(), LOCK_NB).Get() >= 0)
            fs::remove_all(entry.path(), ignored);
}

fs::path SharedFolder(const DeployOptions& options, const fs::path& temporary)
{
    return options.Server.empty() && options.State.empty() && geteuid() != 0 ? temporary / "run"
                                                                             : StateFolder(options) / "run";
}

}  // namespace

CPrivateFolder::~CPrivateFolder()
{
    std::error_code ignored;
    fs::remove_all(m_Path, ignored);
}

CRunFolder::CRunFolder(const DeployOptions& options, const fs::path& temporary)
{
    const fs::path shared = SharedFolder(options, temporary);
    MakeShared(shared, options.Server.empty() && options.State.empty() && geteuid() == 0);
    const CDescriptor others = Lock(shared, 0);  // who makes a folder has locked it before another looks for leftovers
    if (others.Get() < 0) FailToMake(shared, errno);
    RemoveLeftovers(shared);
    std::string path = (shared / RunName).string();
    if (!mkdtemp(path.data())) FailToMake(shared, errno);
    m_pOwn = std::make_unique<CPrivateFolder>(path);
    m_Lock.Reset(fcntl(Lock(path, LOCK_NB).Get(), F_DUPFD_CLOEXEC, FirstToInherit));
    if (m_Lock.Get() < 0) FailToMake(path, errno);
}

std::unique_ptr<CPrivateFolder> CRunFolder::Make()
{
    const fs::path folder = m_pOwn->Path() / std::to_string(++m_Made);
    if (mkdir(folder.c_str(), OwnerOnly) != 0)
        throw std::runtime_error("can't make " + folder.string() + ": " + std::strerror(errno));
    return std::make_unique<CPrivateFolder>(folder);
}
