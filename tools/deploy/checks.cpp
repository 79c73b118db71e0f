#include "tools/deploy/checks.h"

#include <dlfcn.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cctype>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "chif.h"
#include "component.h"
#include "platform/interface/romdriver.h"
#include "support/printable.h"
#include "tools/deploy/guarded.h"
#include "tools/deploy/history.h"
#include "tools/deploy/keyring.h"
#include "tools/deploy/libraries.h"
#include "tools/deploy/managementcontroller.h"
#include "tools/deploy/nodes.h"
#include "tools/deploy/session.h"
#include "tools/deploy/statefolder.h"
#include "tools/deploy/utc.h"
#include "tools/deploy/workfolder.h"
#include "tools/simulated.h"
#include "zalph.h"

namespace
{

namespace fs = std::filesystem;

const std::uintmax_t RoomNeeded = std::uintmax_t{64} << 20;  // bytes: copies of packages, and the ROM that is replaced

Check Well(const std::string& name, const std::string& found)
{
    return {name, CheckState_Well, Printable(found), "", ""};
}

Check Limited(const std::string& name, const std::string& reason, const std::string& remedy)
{
    return {name, CheckState_Limited, "", reason, remedy};
}

Check Missing(const std::string& name, const std::string& reason, const std::string& remedy)
{
    return {name, CheckState_Missing, "", reason, remedy};
}

// What another part of the program refuses, with its advice.
Check Refused(const std::string& name, const std::exception& error)
{
    std::string reason = Printable(error.what());
    reason[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(reason[0])));
    return Missing(name, reason + ".", "");
}

// What speaks against a node that can't be opened. driver makes the node.
std::pair<std::string, std::string> NodeProblem(const char* node, int error, const std::string& driver)
{
    if (error == EACCES || error == EPERM) return {std::string(node) + " may not be opened.", "Run zaldeploy as root."};
    if (IsNoDevice(error)) return {std::string("There is no ") + node + ".", "Load " + driver + "."};
    return {std::string(node) + " can't be opened: " + std::strerror(error) + ".", "Load " + driver + " anew."};
}

Check CheckRights(const DeployOptions& options)
{
    if (!options.Server.empty()) return Well("rights", "any user's, on a simulated server");
    if (geteuid() == 0) return Well("rights", "root");
    return Missing("rights", "Another user than root may not open the devices, nor write what zaldeploy keeps.",
                   "Run zaldeploy as root.");
}

// CComponent keeps its message to those that derive from it.
class CDriverCheck : public CComponent
{
  public:
    std::string Problem()
    {
        if (Valid_CRUDriver()) return "";
        std::string message = GetErrorMessage().GetAnsiString();
        return message.substr(0, message.find_last_not_of('\n') + 1);
    }
};

std::string DriverVersion()
{
    const CDescriptor driver(open(RomDriverNode, O_RDWR | O_CLOEXEC));
    _versioninfo info = {};
    if (ioctl(driver.Get(), RomDriverRequest_Version, &info) < 0) return "of an unknown version";
    return std::to_string(info.esxi_major_version) + "." + std::to_string(info.esxi_minor_version) + "." +
           std::to_string(info.cru_driver_version_num) + "." + std::to_string(info.cru_driver_build_num);
}

Check CheckDriver()
{
    const char* const name = "ROM utility driver";
    if (const int error = TryNode(RomDriverNode, O_RDWR)) {
        const auto [reason, remedy] = NodeProblem(RomDriverNode, error, "the ROM utility driver");
        return Missing(name, reason + " Every installer asks it.", remedy);
    }
    const std::string problem = CDriverCheck().Problem();
    if (problem.empty()) return Well(name, DriverVersion());
    Check check = Missing(name, Printable(problem) + ".", "Install a newer ROM utility driver.");
    check.Found = DriverVersion();
    return check;
}

Check CheckSmbios()
{
    if (const int error = TryNode(SmbiosNode, O_RDONLY)) {
        const auto [reason, remedy] = NodeProblem(SmbiosNode, error, "the driver that tells of SMBIOS");
        return Missing("SMBIOS", reason + " Installers can't tell what server this is.", remedy);
    }
    CSMBIOS smbios;
    if (smbios.Exists()) return Well("SMBIOS", smbios.GetProductName().GetAnsiString());
    return Missing("SMBIOS",
                   "The node holds no 32-bit entry point, or the table to which that leads can't be read. Installers "
                   "can't tell what server this is.",
                   "See to the ROM utility driver first; else update the system ROM by other means.");
}

Check CheckEventLog()
{
    const char* const name = "event log";
    const std::string lost = " Installations are not recorded in the server's event log.";
    if (const int error = TryNode(IpmiNode, O_RDWR)) {
        const auto [reason, remedy] = NodeProblem(IpmiNode, error, "the IPMI driver (ipmi_si, ipmi_devintf)");
        return Limited(name, reason + lost, remedy);
    }
    if (ControllerAnswers()) return Well(name, "the management controller answers");
    return Limited(name, "The management controller does not answer." + lost, "Restart it.");
}

Check CheckProcessor()
{
    const char* const name = "management processor";
    const std::string lost = " Devices behind it can't be updated.";
    const CChannelInterface channel;
    switch (channel.GetState()) {
        case ChannelState_Open:
            return Well(name, "Mox " + std::to_string(channel.GetMOXGeneration()) + ", " +
                                  channel.GetMOXFwVersion().ToString().GetAnsiString());
        case ChannelState_NoDriver:
            return Limited(name, "Its driver is not loaded, or may not be opened." + lost,
                           "Load it, and run zaldeploy as root.");
        case ChannelState_Broken:
            return Limited(name, "It does not answer." + lost, "Restart it.");
        default:
            return Well(name, "none in this server");
    }
}

// True where a function of a closed library is that of the library which is installed with this program, for machines
// without the hardware.
bool IsStandIn(const char* function)
{
    Dl_info info = {};
    if (!dladdr(dlsym(RTLD_DEFAULT, function), &info)) return false;
    std::error_code ignored;
    const fs::path folder = fs::canonical(info.dli_fname, ignored).parent_path();
    const fs::path own = fs::path(OwnProgram()).parent_path().parent_path();
    return folder == own / "lib" || folder == own / "platform";  // installed, built
}

Check CheckLibraries(const DeployOptions& options)
{
    const char* const name = "maker's libraries";
    if (!options.Server.empty()) return Well(name, "played by the simulated server");
    try {
        const fs::path folder = FindLibraries(options);
        for (const auto& [function, library] :
             {std::pair("InitFlashTableDriver", "libzalftbl.so"), std::pair("ZalCiInitialize", "libzalci.so")})
            if (IsStandIn(function))
                return Missing(name,
                               std::string(library) +
                                   " is the one for machines without the hardware: nothing can be "
                                   "flashed through it.",
                               "Write the folder of the maker's libraries into " +
                                   (ConfigFolder(options) / "libraries").string() + ", one line.");
        return Well(name, folder.empty() ? "where the loader finds them" : folder.string());
    } catch (const std::exception& error) {
        return Refused(name, error);
    }
}

// The folder, or what of its path is there.
fs::path ExistingPart(fs::path folder)
{
    std::error_code ignored;
    while (!fs::exists(folder, ignored) && folder.has_relative_path()) folder = folder.parent_path();
    return folder;
}

Check CheckFolder(const std::string& name, const fs::path& folder, CheckState worst)
{
    const fs::path existing = ExistingPart(folder);
    Check check = Well(name, folder.string());
    if (access(existing.c_str(), W_OK | X_OK) == 0) return check;
    check.State = worst;
    check.Reason = "Nothing can be written to " + existing.string() + ": " + std::strerror(errno) + ".";
    check.Remedy = "Run zaldeploy as root, on a file system that can be written to.";
    return check;
}

// Where the library and the installers write unless they are told otherwise; neither makes it.
Check CheckDefaultFolder()
{
    const fs::path folder = "/var/zal";
    std::error_code ignored;
    if (fs::is_directory(folder, ignored)) return CheckFolder("folder of logs", folder, CheckState_Limited);
    return Limited("folder of logs",
                   "There is no " + folder.string() +
                       ": installers that are run by hand keep no debug log, and need a path for the discovery file.",
                   "Make it.");
}

Check CheckStateFolder(const DeployOptions& options)
{
    const fs::path folder = StateFolder(options);
    Check check = CheckFolder("state folder", folder, CheckState_Missing);
    if (check.State != CheckState_Well) return check;
    try {
        const fs::path existing = fs::canonical(ExistingPart(folder));
        if (options.Server.empty() && options.State.empty()) RequireGuarded(existing, "/");
        struct statvfs system = {};
        if (statvfs(existing.c_str(), &system) == 0 && (system.f_flag & ST_NOEXEC))
            return Missing(check.Name, folder.string() + " is mounted with noexec: no package can be run there.",
                           "Mount it with exec, or put another file system there.");
    } catch (const std::exception& error) {
        return Refused(check.Name, error);
    }
    return check;
}

Check CheckRoom(const DeployOptions& options)
{
    std::error_code error;
    const fs::space_info space = fs::space(ExistingPart(StateFolder(options)), error);
    Check check = Well("free space", std::to_string(space.available >> 20) + " MiB");
    if (!error && space.available >= RoomNeeded) return check;
    check.State = CheckState_Missing;
    check.Reason = "Packages are copied, and what they replace is kept, which takes up to " +
                   std::to_string(RoomNeeded >> 20) + " MiB in " + StateFolder(options).string() + ".";
    check.Remedy = "Make room there.";
    return check;
}

Check CheckTemporary()
{
    try {
        return Well("temporary files", CWorkFolder().Path().parent_path().string());
    } catch (const std::exception& error) {
        return Refused("temporary files", error);
    }
}

Check CheckKeys(const DeployOptions& options)
{
    try {
        const std::size_t count = CKeyring(options).Count();
        const std::string folder = (ConfigFolder(options) / "trusted.d").string();
        if (count != 0 || AllowsUnsigned(options)) return Well("trusted keys", std::to_string(count) + " in " + folder);
        return Missing("trusted keys", "No author's key is trusted: no package is run.",
                       "Put the authors' public keys into " + folder + ".");
    } catch (const std::exception& error) {
        return Refused("trusted keys", error);
    }
}

// The time is later than what has happened before: that zaldeploy was built, that it recorded an installation.
Check CheckClock(const DeployOptions& options)
{
    const std::string now = UtcNow();
    Check check = Well("clock", now);
    struct stat own = {};
    std::string reason;
    if (stat(OwnProgram().c_str(), &own) == 0 && std::time(nullptr) < own.st_mtime)
        reason = "It is before the day on which zaldeploy was built.";
    const Identity server = ReadOwnIdentity();
    const std::vector<HistoryEntry> entries = CHistory(options, server, [](const std::string&) {}).Entries();
    if (!entries.empty() && now < entries.front().Time) reason = "It is before the last installation.";
    if (reason.empty()) return check;
    check.State = CheckState_Limited;
    check.Reason = reason + " The history and the event log get wrong times, and keys are trusted that have expired.";
    check.Remedy = "Set the clock.";
    return check;
}

}  // namespace

std::vector<Check> CheckHost(const DeployOptions& options)
{
    std::vector<Check> checks = {
        CheckRights(options), CheckLibraries(options),   CheckSmbios(),      CheckDriver(),   CheckEventLog(),
        CheckProcessor(),     CheckStateFolder(options), CheckRoom(options), CheckTemporary()};
    if (options.Server.empty()) {
        checks.push_back(CheckFolder("lock", "/run/flashlib", CheckState_Missing));
        checks.push_back(CheckDefaultFolder());
    }
    checks.push_back(CheckKeys(options));
    checks.push_back(CheckClock(options));
    return checks;
}
