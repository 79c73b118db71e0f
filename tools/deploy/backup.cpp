#include "tools/deploy/backup.h"

#include <fcntl.h>
#include <stdio.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "host/keep.h"
#include "support/files.h"
#include "support/printable.h"
#include "support/syncfolder.h"
#include "tools/deploy/package.h"
#include "tools/deploy/statefolder.h"

namespace fs = std::filesystem;

namespace
{

const char* const ImageEnd = ".bin";

// Where installers keep what they replace; host/keep.h says how.
fs::path BackupFolder(const DeployOptions& options)
{
    return RootFolder(options) / "var/lib/flashlib/backup";
}

fs::path PackageFolder(const fs::path& folder, const std::string& device)
{
    return folder / (device + ".package");
}

std::string DeviceOf(const std::string& image)
{
    return image.substr(0, image.find('_'));
}

// The names of the kept images, in their order.
std::vector<std::string> Images(const fs::path& folder)
{
    std::vector<std::string> images;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error))
        if (entry->path().extension() == ImageEnd) images.push_back(entry->path().filename().string());
    if (error && error != std::errc::no_such_file_or_directory)
        throw std::runtime_error("can't read " + folder.string() + ": " + error.message());
    std::sort(images.begin(), images.end());
    return images;
}

// True where the name is that of the image, of its device, or of the package that can put it back.
bool IsNamed(const fs::path& folder, const std::string& image, const std::string& name)
{
    const std::string device = DeviceOf(image);
    std::error_code error;
    for (fs::directory_iterator entry(PackageFolder(folder, device), error), end; !error && entry != end;
         entry.increment(error))
        if (IsSameName(entry->path().filename().string(), name)) return true;
    return image == name || IsSameName(device, KeptNamePart(name));
}

// What the last installation has replaced: it touches the image that it keeps, new or not.
std::string LastKept(const fs::path& folder, const std::vector<std::string>& images)
{
    return *std::max_element(images.begin(), images.end(), [&folder](const std::string& a, const std::string& b) {
        return fs::last_write_time(folder / a) < fs::last_write_time(folder / b);
    });
}

std::string Listed(const std::vector<std::string>& names)
{
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
    return text;
}

// Puts a whole folder in the place of one that may be there.
void Replace(const fs::path& made, const fs::path& folder)
{
    if (renameat2(AT_FDCWD, made.c_str(), AT_FDCWD, folder.c_str(), RENAME_EXCHANGE) != 0) {
        fs::remove_all(folder);  // there is none, or the file system can't do both at once
        fs::rename(made, folder);
    }
    SyncFolder(folder.parent_path());
    fs::remove_all(made);
}

}  // namespace

void KeepPackage(const DeployOptions& options, const Offer& offer)
{
    const fs::path folder = PackageFolder(BackupFolder(options), KeptNamePart(offer.Found.Device));
    const fs::path made = folder.string() + ".new";
    fs::remove_all(made);
    try {
        const fs::path package = made / offer.Package.Folder.filename();
        MakeSyncedFolder(package);
        for (const auto& entry : fs::directory_iterator(offer.Package.pCopy->Path()))
            WriteSyncedFile(package / entry.path().filename(), ReadWholeFile(entry.path()));
        SyncFolder(package);
        Replace(made, folder);
    } catch (...) {
        std::error_code ignored;
        fs::remove_all(made, ignored);
        throw;
    }
}

std::string RestoreCommand(const std::string& device)
{
    return "zaldeploy restore " + KeptNamePart(device);
}

Backup FindBackup(const DeployOptions& options, const std::string& name)
{
    const fs::path folder = BackupFolder(options);
    const std::vector<std::string> all = Images(folder);
    std::vector<std::string> found;
    std::copy_if(all.begin(), all.end(), std::back_inserter(found),
                 [&](const std::string& image) { return IsNamed(folder, image, name); });
    if (found.empty())
        throw std::runtime_error("nothing is kept of " + name + " in " + folder.string() +
                                 (all.empty() ? "" : "; kept are: " + Listed(all)));
    const std::string image = LastKept(folder, found);
    const fs::path packages = PackageFolder(folder, DeviceOf(image));
    std::error_code ignored;
    if (!fs::is_directory(packages, ignored))
        throw std::runtime_error("the package that can put " + image + " back is not kept in " + folder.string() +
                                 "; run the installer of another one for the device with /r " + image);
    return {folder / image, packages};
}

bool HasBackup(const DeployOptions& options, const std::string& name)
{
    try {
        FindBackup(options, name);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}
