#include "tools/deploy/libraries.h"

#include <optional>
#include <stdexcept>

#include "support/files.h"
#include "tools/deploy/guarded.h"
#include "tools/deploy/statefolder.h"

namespace fs = std::filesystem;

namespace
{

const std::size_t MaxPathSize = 4096;  // bytes

// The folder that is all of a file's text, without links in it.
fs::path ReadFolderName(const std::string& text)
{
    const fs::path named = text.substr(0, text.find('\n'));
    std::error_code error;
    fs::path folder = fs::canonical(named, error);
    if (!named.is_absolute() || error || !fs::is_directory(folder, error))
        throw std::runtime_error("there is no folder " + named.string() + "; its one line is the folder's path");
    // The loader takes a list of folders apart at these.
    if (folder.string().find_first_of(":;$") != std::string::npos)
        throw std::runtime_error("the loader does not take a folder with \":\", \";\" or \"$\" in its name");
    return folder;
}

// What the loader may find there, in folders of a processor's kind, too. A link may lead elsewhere.
void RequireGuardedLibraries(const fs::path& folder)
{
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
        const fs::path path = entry->path();
        if (path.filename().string().find(".so") == std::string::npos && !fs::is_directory(path, error)) continue;
        const fs::path target = fs::canonical(path, error);
        if (error) throw std::runtime_error(path.string() + " leads to nothing; remove it");
        RequireGuarded(target, "/");
    }
    if (error) throw std::runtime_error("can't read " + folder.string() + ": " + error.message());
}

}  // namespace

fs::path FindLibraries(const DeployOptions& options)
{
    const fs::path file = ConfigFolder(options) / "libraries";
    try {
        const std::optional<std::string> text = ReadFileIfThere(file, MaxPathSize);
        if (!text) return {};
        RequireGuarded(file, RootFolder(options));
        fs::path folder = ReadFolderName(*text);
        RequireGuarded(folder, "/");
        RequireGuardedLibraries(folder);
        return folder;
    } catch (const std::exception& error) {
        throw std::runtime_error("the maker's libraries, whose folder " + file.string() +
                                 " names, can't be used: " + error.what());
    }
}
