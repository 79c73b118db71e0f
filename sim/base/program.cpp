#include "sim/base/program.h"

#include <fcntl.h>
#include <link.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "sim/base/preload.h"
#include "support/descriptor.h"
#include "support/process.h"

namespace sim
{

namespace
{

namespace fs = std::filesystem;

// True where the loader starts the program, which loads what it is told to first.
bool HasLoader(int file, const ElfW(Ehdr) & header)
{
    for (int i = 0; i < header.e_phnum; i++) {
        ElfW(Phdr) segment = {};
        const auto offset = static_cast<off_t>(header.e_phoff) + i * header.e_phentsize;
        if (pread(file, &segment, sizeof segment, offset) == sizeof segment && segment.p_type == PT_INTERP) return true;
    }
    return false;
}

fs::path OwnFolder()
{
    return fs::read_symlink("/proc/self/exe").parent_path();
}

// The installer with its debug information, which is taken out of the one in a package: debug/NAME beside
// packages/NAME. Empty where there is none.
fs::path FindUnstripped(const fs::path& program)
{
    const fs::path package = fs::absolute(program).lexically_normal().parent_path();
    const fs::path unstripped = package.parent_path().parent_path() / "debug" / program.filename();
    return fs::is_regular_file(unstripped) ? unstripped : "";
}

}  // namespace

std::string WhyNotSimulated(const std::string& program)
{
    const CDescriptor file(open(program.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status = {};
    if (file.Get() < 0 || fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) return "";
    ElfW(Ehdr) header = {};
    const ssize_t length = pread(file.Get(), &header, sizeof header, 0);
    if (length >= 2 && std::memcmp(&header, "#!", 2) == 0)
        return "a script, and its interpreter can't be told apart from a program of the host: name the program";
    if (length < EI_NIDENT || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0) return "";
    if (header.e_ident[EI_CLASS] != (sizeof(void*) == 4 ? ELFCLASS32 : ELFCLASS64))
        return "not a " + std::to_string(8 * sizeof(void*)) +
               "-bit program, and this simulation is for such programs only";
    if (!HasLoader(file.Get(), header)) return "linked statically, and nothing can be put below it";
    if ((status.st_mode & (S_ISUID | S_ISGID)) != 0)
        return "a set-user-ID or set-group-ID program, for which the loader puts nothing below it";
    if (fgetxattr(file.Get(), "security.capability", nullptr, 0) > 0)
        return "a program with file capabilities, for which the loader puts nothing below it";
    return "";
}

void Debug(const std::vector<std::string>& command)
{
    std::vector<std::string> debugged = command;
    std::string folder;
    if (const fs::path unstripped = FindUnstripped(command[0]); !unstripped.empty()) {
        debugged[0] = unstripped.string();
        folder = fs::absolute(command[0]).parent_path().string();  // its library is in the package
    }
    // Between gdb and the program comes another one, which has the simulation loaded into what it becomes.
    std::string wrapper = "set exec-wrapper env";
    for (const auto& [name, value] : LoaderVariables(OwnFolder(), folder))
        wrapper += " " + name + "=" + ShellWord(value);
    debugged.insert(debugged.begin(), {"gdb", "-q", "-iex", "set breakpoint pending on", "-iex", wrapper, "--args"});
    const std::vector<char*> arguments = ToArguments(debugged);
    execvp(arguments[0], arguments.data());
    throw std::runtime_error(std::string("can't run gdb: ") + std::strerror(errno));
}

void Become(const std::vector<std::string>& command)
{
    SetForPrograms(LoaderVariables(OwnFolder()));
    const std::vector<char*> arguments = ToArguments(command);
    execv(arguments[0], arguments.data());
}

}  // namespace sim
