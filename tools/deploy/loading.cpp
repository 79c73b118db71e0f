#include "tools/deploy/loading.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

#include "support/descriptor.h"
#include "support/files.h"
#include "support/printable.h"
#include "tools/deploy/manifest.h"
#include "tools/deploy/refusal.h"
#include "tools/deploy/utc.h"

namespace fs = std::filesystem;

namespace
{

const mode_t OwnerOnly = 0700;

[[noreturn]] void Refuse(const std::string& what)
{
    throw CRefusal(what, GetPackageAnew);
}

[[noreturn]] void Fail(const std::string& what, int error)
{
    throw std::runtime_error(what + ": " + std::strerror(error));
}

[[noreturn]] void RefuseAnother(const std::string& name)
{
    Refuse("The package holds another " + name + " than its list of files says.");
}

const char* KindName(mode_t mode)
{
    if (S_ISLNK(mode)) return "a symbolic link";
    if (S_ISDIR(mode)) return "a folder";
    return S_ISCHR(mode) || S_ISBLK(mode) ? "a device" : "no file";
}

// A package's folder, which is opened once: whatever takes its name later is not looked at.
class CPackageFolder
{
  public:
    explicit CPackageFolder(const fs::path& folder)
        : m_Path(folder), m_Folder(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
    {
        if (m_Folder.Get() < 0) Fail("can't read " + folder.string(), errno);
    }

    // What is in it, in order of the names.
    std::vector<std::string> Names() const
    {
        DIR* pFolder = fdopendir(openat(m_Folder.Get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (!pFolder) Fail("can't read " + m_Path.string(), errno);
        std::vector<std::string> names;
        // One more than may be there is enough to tell.
        for (const dirent* pEntry = readdir(pFolder); pEntry && names.size() <= MaxPackageFiles + 2;
             pEntry = readdir(pFolder)) {
            const std::string name = pEntry->d_name;
            if (name != "." && name != "..") names.push_back(name);
        }
        closedir(pFolder);
        std::sort(names.begin(), names.end());
        return names;
    }

    // Reads a file whole; nothing where there is none of that name. One that is listed has exactly that size.
    std::optional<std::string> Read(const std::string& name, std::size_t maxSize, bool listed = false) const
    {
        struct stat status = {};
        // Opening is an act for some devices.
        if (fstatat(m_Folder.Get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && !S_ISREG(status.st_mode))
            Refuse("The package holds " + Printable(name) + ", which is " + KindName(status.st_mode) + ".");
        const CDescriptor file(
            openat(m_Folder.Get(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        if (file.Get() < 0 && errno == ENOENT) return std::nullopt;
        if (file.Get() < 0) Fail("can't read " + (m_Path / name).string(), errno);
        if (listed && (fstat(file.Get(), &status) != 0 || static_cast<std::uintmax_t>(status.st_size) != maxSize))
            RefuseAnother(name);
        return ReadOpenFile(file.Get(), m_Path / name, maxSize);
    }

  private:
    const fs::path m_Path;
    const CDescriptor m_Folder;
};

// What a package holds: its list of files and their signature, as they were read, and the files to take over.
struct Contents
{
    std::optional<std::string> List;
    std::optional<std::string> Signature;
    std::vector<ListedFile> Files;
};

bool IsListed(const Contents& contents, const std::string& name)
{
    return name == ManifestFile || name == SignatureFile ||
           std::any_of(contents.Files.begin(), contents.Files.end(),
                       [&name](const ListedFile& file) { return file.Name == name; });
}

Manifest ReadList(const std::string& text)
{
    try {
        return ReadManifest(text);
    } catch (const std::exception& error) {
        Refuse(std::string("The package's MANIFEST is no list of files: ") + error.what() + ".");
    }
}

// The list of files that the package has, or, of one that has none, what lies in it.
Contents ReadContents(const Session& session, const CPackageFolder& folder, Package& package)
{
    Contents contents = {folder.Read(ManifestFile, MaxManifestSize), folder.Read(SignatureFile, MaxSignatureSize), {}};
    if (contents.Signature) {
        if (!contents.List) Refuse("The package has a signature, and no MANIFEST.");
        // What was kept was trusted then, and nobody but root can have changed it: a key that has expired since must
        // not close the way back. One that is not trusted at all any more does.
        const std::string day = package.Restored.empty() ? UtcNow("%Y-%m-%d") : "";
        package.Signer = session.Keys.FindSigner(*contents.List, *contents.Signature, day).Key.Name();
    } else if (!AllowsUnsigned(session.Options)) {
        throw CRefusal(
            "The package is not signed.",
            "Get a signed one from its maker. --allow-unsigned runs what nobody has signed: for development.");
    }
    const std::vector<std::string> names = folder.Names();
    if (!contents.List) {
        for (const std::string& name : names) contents.Files.push_back({"", MaxFileSize, name});
        if (names.size() > MaxPackageFiles)
            Refuse("The package has more than " + std::to_string(MaxPackageFiles) + " files.");
        return contents;
    }
    const Manifest manifest = ReadList(*contents.List);
    contents.Files = manifest.Files;
    package.Installer = manifest.Name;
    package.Version = manifest.Version;
    package.ListDigest = Digest(*contents.List);
    for (const std::string& name : names)
        if (!IsListed(contents, name))
            Refuse("The package holds " + Printable(name) + ", which is not in its list of files.");
    return contents;
}

// The bytes of a file, which are those that the list means.
std::string ReadFile(const CPackageFolder& folder, const ListedFile& file)
{
    const bool listed = !file.Digest.empty();
    std::optional<std::string> bytes = folder.Read(file.Name, file.Size, listed);
    if (!bytes) Refuse("The package lacks " + Printable(file.Name) + ", which is in its list of files.");
    if (listed && Digest(*bytes) != file.Digest) RefuseAnother(file.Name);
    return std::move(*bytes);
}

void Write(const fs::path& file, const std::string& bytes)
{
    CDescriptor descriptor(open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, OwnerOnly));
    if (descriptor.Get() < 0 || !WriteAll(descriptor.Get(), bytes) || !descriptor.Close())
        Fail("can't write " + file.string(), errno);
}

void Copy(Session& session, Package& package)
{
    const CPackageFolder folder(package.Folder);
    const Contents contents = ReadContents(session, folder, package);
    std::shared_ptr<const CPrivateFolder> pCopy = session.Run.Make();
    for (const ListedFile& file : contents.Files) Write(pCopy->Path() / file.Name, ReadFile(folder, file));
    // With these the copy can be checked again.
    if (contents.List) Write(pCopy->Path() / ManifestFile, *contents.List);
    if (contents.Signature) Write(pCopy->Path() / SignatureFile, *contents.Signature);
    package.IsUnsigned = !contents.Signature;
    package.pCopy = std::move(pCopy);
}

}  // namespace

void Load(Session& session, Package& package)
{
    if (!package.Problem.empty()) return;
    try {
        Copy(session, package);
    } catch (const CRefusal& refusal) {
        package.Problem = refusal.what();
        package.IsRefused = true;
    } catch (const std::exception& error) {
        package.Problem = std::string("The package can't be taken over: ") + error.what() +
                          ". Nothing of it was run. See to that, then run zaldeploy again.";
    }
}
