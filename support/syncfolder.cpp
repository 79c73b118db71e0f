#include "support/syncfolder.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "support/descriptor.h"
#include "support/files.h"

namespace fs = std::filesystem;

void MakeSyncedFolder(const fs::path& folder)
{
    std::error_code error;
    if (fs::is_directory(folder, error) || folder.empty()) return;
    MakeSyncedFolder(folder.parent_path());
    fs::create_directory(folder, error);
    if (error) throw std::runtime_error("can't make " + folder.string() + ": " + error.message());
    SyncFolder(folder.parent_path());
}

void WriteSyncedFile(const fs::path& file, std::string_view bytes)
{
    CDescriptor descriptor(open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0700));
    if (descriptor.Get() < 0 || !WriteAll(descriptor.Get(), bytes) || fsync(descriptor.Get()) != 0 ||
        !descriptor.Close())
        throw std::runtime_error("can't write " + file.string() + ": " + std::strerror(errno));
}

void SyncFolder(const fs::path& folder)
{
    const CDescriptor descriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // Some file systems have nothing to sync there.
    if (descriptor.Get() < 0 || (fsync(descriptor.Get()) != 0 && errno != EINVAL))
        throw std::runtime_error("can't sync " + folder.string() + ": " + std::strerror(errno));
}
