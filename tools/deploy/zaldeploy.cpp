// zaldeploy: brings a server's firmware up to date from folders of component packages.
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "support/help.h"
#include "support/output.h"
#include "support/printable.h"
#include "tools/deploy/commands.h"
#include "tools/deploy/identity.h"
#include "tools/deploy/jsonoutput.h"
#include "tools/deploy/onlyone.h"
#include "util.h"

CStr g_InstallLocalDir;

namespace
{

const char* const Footer =
    "zaldeploy DIR... is short for zaldeploy plan DIR... ; zaldeploy COMMAND --help tells the options of a command.\n"
    "\n"
    "Exit status, the worst result:\n"
    "  0  all is well: nothing to do, or done\n"
    "  1  updates are offered and were not installed\n"
    "  2  installed; takes effect when the server is restarted\n"
    "  3  a component may not be installed on this server as it is; the server lacks something\n"
    "  4  a package can't be trusted; a discovery failed: an error, a crash, the time limit, rubbish; a part of "
    "the inventory can't be read; what was installed can't be verified; nothing can be installed on the server\n"
    "  5  stopped by a signal before all was done\n"
    "  6  an installation failed\n"
    "  7  zaldeploy itself could not run, or what it found can't be printed\n"
    "  8  another program works on the firmware of this server: nothing was done\n"
    "\n"
    "Examples:\n"
    "  $ zaldeploy --server sim/servers/rack packages\n"
    "  $ zaldeploy install --only systemrom packages\n"
    "  $ zaldeploy inventory --json";

const char* const PlanFooter =
    "Changes nothing. A package is a folder with a package description (qx*.xml) or an installer. Of several packages "
    "for one device the newest counts. What is not signed by a trusted key is not run. A discovery that reaches the "
    "time limit is ended.";

const char* const InstallFooter =
    "Installs what zaldeploy plan shows, after a question on the terminal. Each package is asked again before it is "
    "installed, and afterwards. An installation has ten times the duration that it announces, if that is longer than "
    "--timeout; then it is asked to end, and is ended when as much time has passed again: one that is writing to a "
    "device goes on when asked.";

const char* const RestoreFooter =
    "Writes an image from /var/lib/flashlib/backup through the installer that has replaced it, whose package is kept "
    "beside it and checked again. The image's family, size and checksum are checked before anything is erased.";

const char* const HistoryFooter =
    "Changes nothing. The newest installation comes first; what it says of versions is what discovery has found. It is "
    "kept in an SQLite database, history.db in /var/lib/flashlib, in the folder of a simulated server there.";

const char* const VerifyFooter =
    "Changes nothing. Exit status: 0 when each device holds what its package offers, 1 when one holds something else, "
    "4 when a package can't be trusted.";

const char* const InventoryFooter = "Changes nothing. Exit status: 0, or 4 where a part can't be read.";

const char* const DoctorFooter =
    "Changes nothing. Exit status: 0 when all is well, 3 when something that not every installation needs is missing, "
    "4 when no installation can succeed.";

const char* const RecordFooter =
    "Changes nothing on the server. DIR becomes a folder that zalsim takes as a server: of the same answers, as far as "
    "they can be read. What could not be read is listed with its reason, in record.json there, too, and the exit "
    "status is 4.";

// An empty variable of a script must not stand for this server.
std::string NotEmpty(const std::string& text)
{
    return text.empty() ? "is empty" : "";
}

void AddCommonOptions(CLI::App& command, DeployOptions& options)
{
    command.add_option("--server", options.Server, "Folder of a simulated server to work on")->check(NotEmpty);
    command
        .add_option("--state", options.State,
                    "Folder of history, logs and running packages in place of /var/lib/flashlib; not of kept images")
        ->check(NotEmpty);
    command.add_flag("--json", options.Json, "Print JSON, for scripts");
}

void AddLogOption(CLI::App& command, DeployOptions& options)
{
    command.add_option("--log", options.Log, "File of the debug log")->check(NotEmpty);
}

// What all commands take that run installers.
void AddRunOptions(CLI::App& command, DeployOptions& options)
{
    command.add_option("--trust", options.Trust, "File of a public key whose signatures are trusted; may be repeated")
        ->check(NotEmpty)
        ->allow_extra_args(false);
    command.add_flag("--allow-unsigned", options.AllowUnsigned, "Run packages that nobody has signed: for development");
    command.add_option("--timeout", options.Timeout, "Time limit of each component, in seconds of real time")
        ->check(CLI::Range(0.1, 86400.0))
        ->capture_default_str();
    command.add_option("--wait", options.Wait, "Wait so many seconds for another program that works on the server")
        ->check(CLI::Range(0.0, 86400.0));
    AddCommonOptions(command, options);
    AddLogOption(command, options);
    CLI::Option* pJson = command.get_option("--json");
    CLI::Option* pQuiet = command.add_flag("--quiet", options.Quiet, "Print only what is a problem")->excludes(pJson);
    command.add_flag("--verbose", options.Verbose, "Print what installers print, and the debug log as it grows")
        ->excludes(pJson)
        ->excludes(pQuiet);
}

// What plan, install and verify take.
void AddPackageOptions(CLI::App& command, DeployOptions& options)
{
    command.add_option("DIR", options.Folders, "Folders of component packages, or package folders")
        ->required()
        ->check(NotEmpty);
    command.add_option("--only", options.Only, "Leave out all but this package, component or device; may be repeated")
        ->check(NotEmpty)
        ->allow_extra_args(false);
    AddRunOptions(command, options);
}

void AddForce(CLI::App& command, DeployOptions& options)
{
    command.add_flag(
        "--force", options.Force,
        "Write the same version again, or an older one; replace firmware that should be kept and can't be read");
}

// What answers the question before something is written.
void AddAnswers(CLI::App& command, DeployOptions& options)
{
    command.add_flag("--yes", options.Yes, "Do not ask");
    command.add_flag("--dry-run", options.DryRun, "Print the commands and run none")
        ->excludes("--quiet")
        ->excludes("--yes");
}

struct Commands
{
    explicit Commands(CLI::App& app)
        : pPlan(app.add_subcommand("plan", "Show what packages offer to the server")),
          pInstall(app.add_subcommand("install", "Install what packages offer to the server")),
          pRestore(app.add_subcommand("restore", "Put back the firmware that an installation has replaced")),
          pHistory(app.add_subcommand("history", "Show what was installed when, and with what result")),
          pVerify(app.add_subcommand("verify", "Show who has signed packages, and whether the devices hold them")),
          pInventory(app.add_subcommand("inventory", "Show what the server is made of")),
          pDoctor(app.add_subcommand("doctor", "Show whether the server has what installers need")),
          pRecord(app.add_subcommand("record", "Record the server, so that zalsim is like it")),
          pIdentity(app.add_subcommand("identity",
                                       "Print host, product, serial number and the name of this start, one a line")
                        ->group(""))
    {
    }

    CLI::App* pPlan;
    CLI::App* pInstall;
    CLI::App* pRestore;
    CLI::App* pHistory;
    CLI::App* pVerify;
    CLI::App* pInventory;
    CLI::App* pDoctor;
    CLI::App* pRecord;
    CLI::App* pIdentity;
};

void AddOptions(const Commands& commands, DeployOptions& options)
{
    commands.pPlan->footer(PlanFooter);
    AddPackageOptions(*commands.pPlan, options);
    AddForce(*commands.pPlan, options);
    commands.pVerify->footer(VerifyFooter);
    AddPackageOptions(*commands.pVerify, options);
    commands.pInstall->footer(InstallFooter);
    AddPackageOptions(*commands.pInstall, options);
    AddForce(*commands.pInstall, options);
    AddAnswers(*commands.pInstall, options);
    commands.pRestore->footer(RestoreFooter);
    commands.pRestore->add_option("NAME", options.Restored, "The device, its package, or the file of a kept image")
        ->required()
        ->check(NotEmpty);
    AddRunOptions(*commands.pRestore, options);
    AddAnswers(*commands.pRestore, options);
    commands.pHistory->footer(HistoryFooter);
    AddCommonOptions(*commands.pHistory, options);
    commands.pInventory->footer(InventoryFooter);
    AddCommonOptions(*commands.pInventory, options);
    AddLogOption(*commands.pInventory, options);
    commands.pRecord->footer(RecordFooter);
    commands.pRecord->add_option("DIR", options.Recording, "The folder to make")->required();
    AddCommonOptions(*commands.pRecord, options);
    AddLogOption(*commands.pRecord, options);
    commands.pRecord->add_flag("--keep-serials", options.KeepSerials, "Record serial numbers, which are masked else");
    commands.pRecord->add_option(
        "--power-controller", options.PowerController,
        "I2C bus and address of the power controller, as 3:0x30: its package's settings.ini says");
    commands.pDoctor->footer(DoctorFooter);
    AddCommonOptions(*commands.pDoctor, options);
    AddLogOption(*commands.pDoctor, options);
}

// The option of that name, of any command; null where none has it.
const CLI::Option* FindOption(const CLI::App& app, const std::string& name)
{
    for (const CLI::App* pCommand : app.get_subcommands(nullptr))
        if (const CLI::Option* pOption = pCommand->get_option_no_throw(name)) return pOption;
    return nullptr;
}

// Where the command stands: behind options that may come first.
std::size_t CommandPlace(const CLI::App& app, const std::vector<std::string>& arguments)
{
    std::size_t place = 0;
    while (place < arguments.size() && arguments[place].rfind("--", 0) == 0 && arguments[place] != "--help") {
        const std::size_t end = arguments[place].find('=');
        const CLI::Option* pOption = FindOption(app, arguments[place].substr(0, end));
        if (!pOption) break;
        place += end == std::string::npos && pOption->get_items_expected_min() > 0 ? 2 : 1;
    }
    return place;
}

// The arguments with the command first; it is plan where none is named.
std::vector<std::string> CommandFirst(const CLI::App& app, std::vector<std::string> arguments)
{
    if (arguments.empty()) return arguments;
    const std::size_t place = CommandPlace(app, arguments);
    const std::string name = place < arguments.size() ? arguments[place] : "";
    if (name == "--help" || name == "-h" || name == "--version") return {name};
    const auto all = app.get_subcommands(nullptr);
    const bool named =
        std::any_of(all.begin(), all.end(), [&name](const CLI::App* p) { return p->get_name() == name; });
    if (named) arguments.erase(arguments.begin() + static_cast<std::ptrdiff_t>(place));
    arguments.insert(arguments.begin(), named ? name : "plan");
    return arguments;
}

int Run(const Commands& commands, const DeployOptions& options, char** argv)
{
    if (commands.pInstall->parsed()) return RunInstall(options);
    if (commands.pRestore->parsed()) return RunRestore(options);
    if (commands.pHistory->parsed()) return RunHistory(options);
    if (commands.pVerify->parsed()) return RunVerify(options);
    if (commands.pInventory->parsed()) return RunInventory(options, argv);
    if (commands.pDoctor->parsed()) return RunDoctor(options, argv);
    if (commands.pRecord->parsed()) return RunRecord(options, argv);
    if (commands.pPlan->parsed()) return RunPlan(options);
    PrintIdentity();
    return DeployStatus_Well;
}

DeployStatus PrintErrorJson(const std::string& message, DeployStatus status)
{
    nlohmann::ordered_json json = JsonHead("zaldeploy.error", {});
    json["message"] = message;
    json["status"] = status;
    PrintJson(json);
    return status;
}

DeployStatus ShowError(const DeployOptions& options, const std::string& message, DeployStatus status)
{
    CScreen(options).Notice("zaldeploy: " + Printable(message) + ".");
    return options.Json ? PrintErrorJson(message, status) : status;
}

// For arguments that could not be read, --json among them.
DeployStatus ShowParseError(const CLI::App& app, const CLI::ParseError& error, int argc, char** argv)
{
    if (app.exit(error) == 0) return DeployStatus_Well;
    const bool json = std::find(argv + 1, argv + argc, std::string("--json")) != argv + argc;
    return json ? PrintErrorJson(error.what(), DeployStatus_CouldNotRun) : DeployStatus_CouldNotRun;
}

// Whoever starts this may have closed some. What is opened later must not take their place.
void OpenStandardDescriptors()
{
    int descriptor = 0;
    while (descriptor >= 0 && descriptor <= STDERR_FILENO) descriptor = open("/dev/null", O_RDONLY);
    close(descriptor);
}

// What else it has open is nothing to installers.
void KeepDescriptors()
{
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", ignored)) {
        const int descriptor = std::atoi(entry.path().filename().c_str());
        if (descriptor > STDERR_FILENO) fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    }
}

int ParseAndRun(int argc, char** argv)
{
    CLI::App app("Shows what firmware folders of component packages offer to a server, and installs it.", "zaldeploy");
    app.formatter(std::make_shared<CHelp>());
    app.footer(Footer);
    app.require_subcommand(1);
    app.set_version_flag("--version", "zaldeploy " FLASHLIB_VERSION);
    const Commands commands(app);
    DeployOptions options;
    AddOptions(commands, options);
    try {
        std::vector<std::string> arguments = CommandFirst(app, {argv + 1, argv + argc});
        std::reverse(arguments.begin(), arguments.end());  // as the parser takes them
        app.parse(arguments);
        return Run(commands, options, argv);
    } catch (const CLI::ParseError& error) {
        return ShowParseError(app, error, argc, argv);
    } catch (const CServerBusy& error) {
        return ShowError(options, error.what(), DeployStatus_Busy);
    } catch (const std::exception& error) {
        return ShowError(options, error.what(), DeployStatus_CouldNotRun);
    }
}

}  // namespace

int main(int argc, char** argv)
{
    OpenStandardDescriptors();
    KeepDescriptors();
    return EndOutput("zaldeploy", ParseAndRun(argc, argv), DeployStatus_CouldNotRun);
}
