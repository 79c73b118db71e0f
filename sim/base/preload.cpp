#include "sim/base/preload.h"

#include <dlfcn.h>
#include <fcntl.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace sim
{

namespace
{

namespace fs = std::filesystem;

const char szPreload[] = "LD_PRELOAD";
const char szLibraries[] = "LD_LIBRARY_PATH";

// A path as it stands in a list of the loader, which takes that apart at blanks, colons and semicolons: a path that has
// some goes by a descriptor, which the installer inherits.
std::string ForLoader(const std::string& path)
{
    const bool separates = path.find_first_of(" :;") != std::string::npos;
    const int fd = open(path.c_str(), O_RDONLY | (separates ? 0 : O_CLOEXEC));
    if (fd < 0) throw std::runtime_error("can't open " + path + ": " + std::strerror(errno));
    return separates ? "/proc/self/fd/" + std::to_string(fd) : path;
}

// What to preload: the simulation, behind the sanitizer's run-time where there is one, which must come first.
std::string PreloadList(const fs::path& zalsim)
{
    std::string list;
#ifdef __SANITIZE_ADDRESS__
    Dl_info info = {};
    if (dladdr(dlsym(RTLD_DEFAULT, "__asan_init"), &info)) list = std::string(info.dli_fname) + ":";
#endif
    fs::path library = zalsim / "libzalsim.so";
    if (!fs::exists(library)) library = zalsim.parent_path() / "lib" / "flashlib" / "libzalsim.so";  // installed
    // Without it the installer would run on the real host.
    return list + ForLoader(library);
}

// Where what stands in for the closed libraries is: an installer may look for them beside itself only. Empty for
// nowhere.
std::string StandIns(const fs::path& zalsim)
{
    for (const char* folder : {"platform", "lib"}) {  // built, installed
        const fs::path path = zalsim.parent_path() / folder;
        if (fs::exists(path)) return ForLoader(path);
    }
    return "";
}

// A list of the loader; what is empty is left out.
std::string Join(const std::string& first, const std::string& second)
{
    return first + (first.empty() || second.empty() ? "" : ":") + second;
}

std::string Get(const char* name)
{
    const char* pszValue = std::getenv(name);
    return pszValue ? pszValue : "";
}

}  // namespace

std::map<std::string, std::string> LoaderVariables(const fs::path& zalsim, const std::string& folder)
{
    const std::string folders = Join(folder.empty() ? "" : ForLoader(folder), StandIns(zalsim));
    return {{szPreload, Join(PreloadList(zalsim), Get(szPreload))}, {szLibraries, Join(Get(szLibraries), folders)}};
}

void SetForPrograms(const std::map<std::string, std::string>& variables)
{
    for (const auto& [name, value] : variables)
        if (value.empty())
            unsetenv(name.c_str());
        else
            setenv(name.c_str(), value.c_str(), 1);
}

}  // namespace sim
