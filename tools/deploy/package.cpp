#include "tools/deploy/package.h"

#include <fnmatch.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

#include "tools/deploy/manifest.h"
#include "tools/deploy/refusal.h"

namespace fs = std::filesystem;

namespace
{

using Entries = std::vector<fs::path>;

// What is in a folder, in order of the names. error: why it can't be read.
Entries ReadFolder(const fs::path& folder, std::error_code& error)
{
    Entries entries;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error))
        entries.push_back(entry->path());
    std::sort(entries.begin(), entries.end());
    return entries;
}

bool IsFolder(const fs::path& file)
{
    std::error_code ignored;
    return fs::is_directory(file, ignored);
}

bool IsLibrary(const fs::path& file)
{
    return file.filename().string().find(".so") != std::string::npos;
}

bool IsProgram(const fs::path& file)
{
    std::error_code ignored;
    return fs::is_regular_file(file, ignored) && access(file.c_str(), X_OK) == 0 && !IsLibrary(file);
}

bool HasList(const Entries& entries)
{
    return std::any_of(entries.begin(), entries.end(),
                       [](const fs::path& e) { return e.filename() == ManifestFile || e.filename() == SignatureFile; });
}

bool HasDescription(const Entries& entries)
{
    return std::any_of(entries.begin(), entries.end(), [](const fs::path& entry) {
        return fnmatch("qx*.xml", entry.filename().c_str(), FNM_CASEFOLD) == 0;
    });
}

bool IsPackage(const Entries& entries)
{
    return HasList(entries) || HasDescription(entries);
}

// Sets the installer of a package that has no list of its files: the program that has the folder's name, else the only
// one.
void FindInstaller(Package& package, const Entries& entries)
{
    const fs::path named = package.Folder / package.Folder.filename();
    std::error_code ignored;
    if (fs::is_regular_file(named, ignored) && !IsProgram(named)) {
        package.Problem =
            "The installer " + named.filename().string() + " may not be run. Make it executable (chmod +x).";
        return;
    }
    if (IsProgram(named)) {
        package.Installer = named.filename().string();
        return;
    }
    Entries programs;
    std::copy_if(entries.begin(), entries.end(), std::back_inserter(programs), IsProgram);
    if (programs.size() == 1)
        package.Installer = programs[0].filename().string();
    else
        package.Problem = std::string(programs.empty() ? "The package has no installer. "
                                                       : "The package has several programs, and none has its name. ") +
                          GetPackageAnew;
}

Package MakePackage(const fs::path& folder, const Entries& entries)
{
    Package package;
    package.Folder = folder;
    if (!HasList(entries)) FindInstaller(package, entries);
    return package;
}

// The package in a folder of packages; Folder is empty where there is none.
Package FindPackage(const fs::path& folder)
{
    std::error_code error;
    const Entries entries = ReadFolder(folder, error);
    Package package = MakePackage(folder, entries);
    if (error)
        package.Problem =
            "The folder can't be read (" + error.message() + "). Run zaldeploy as a user who may read it.";
    return error || IsPackage(entries) || !package.Installer.empty() ? package : Package();
}

std::vector<Package> FindPackagesIn(const fs::path& folder)
{
    std::error_code error;
    const Entries entries = ReadFolder(folder, error);
    if (error) throw std::runtime_error("the folder " + folder.string() + " can't be read: " + error.message());
    if (IsPackage(entries)) return {MakePackage(folder, entries)};
    std::vector<Package> packages;
    for (const fs::path& entry : entries) {
        if (!IsFolder(entry)) continue;
        Package package = FindPackage(entry);
        if (!package.Folder.empty()) packages.push_back(std::move(package));
    }
    const Package own = MakePackage(folder, entries);
    if (packages.empty() && !own.Installer.empty()) packages.push_back(own);
    return packages;
}

}  // namespace

bool IsSameName(const std::string& a, const std::string& b)
{
    return strcasecmp(a.c_str(), b.c_str()) == 0;
}

std::vector<Package> FindPackages(const std::vector<std::string>& folders)
{
    std::vector<Package> packages;
    for (const std::string& name : folders) {
        fs::path folder = fs::absolute(name).lexically_normal();
        if (folder.filename().empty()) folder = folder.parent_path();
        if (!IsFolder(folder)) throw std::runtime_error("there is no folder " + folder.string());
        const std::vector<Package> found = FindPackagesIn(folder);
        if (found.empty()) throw std::runtime_error("there is no component package in " + folder.string());
        for (const Package& package : found)
            if (std::none_of(packages.begin(), packages.end(),
                             [&package](const Package& other) { return other.Folder == package.Folder; }))
                packages.push_back(package);
    }
    return packages;
}
