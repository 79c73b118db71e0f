#include "tools/simulated.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "sim/base/runoptions.h"
#include "support/process.h"

namespace fs = std::filesystem;

std::string OwnProgram()
{
    return fs::read_symlink("/proc/self/exe").string();
}

fs::path FindZalsim()
{
    const fs::path own = fs::path(OwnProgram()).parent_path();
    return fs::exists(own / "zalsim") ? own / "zalsim" : own.parent_path() / "sim" / "zalsim";
}

std::vector<std::string> OnServer(const std::string& folder, const std::vector<std::string>& command)
{
    std::vector<std::string> result = {FindZalsim().string(), "--server", fs::absolute(folder).string(), "--"};
    result.insert(result.end(), command.begin(), command.end());
    return result;
}

bool RunsOnServer(const std::string& folder)
{
    return fs::absolute(folder) == sim::ReadRunOptions().Server;
}

bool RunOnServer(const std::string& folder, char** argv)
{
    if (RunsOnServer(folder)) return true;
    std::vector<std::string> own;
    own.push_back(OwnProgram());
    for (argv++; *argv; argv++) own.emplace_back(*argv);
    const std::vector<std::string> command = OnServer(folder, own);
    const std::vector<char*> arguments = ToArguments(command);
    execv(arguments[0], arguments.data());
    std::fprintf(stderr, "Can't run %s: %s\n", arguments[0], std::strerror(errno));
    return false;
}
