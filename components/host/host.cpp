#include "host.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include "report.h"
#include "support/serverlock.h"
#include "util.h"

CStr g_InstallLocalDir;

namespace
{

const int ResultSize = 1024;

const char* const szUsage =
    "Usage: %s [/y FOLDER] [/f] [/s] [/k FOLDER] [/r IMAGE] [/d [FILE]]\n"
    "\n"
    "  /y FOLDER    the component's package folder (default: the current folder)\n"
    "  /f           force: write the same version again, or an older one\n"
    "  /s           silent: show no progress\n"
    "  /k FOLDER    keep the firmware that is replaced there, where the device can be\n"
    "               read (default: /var/lib/flashlib/backup)\n"
    "  /r IMAGE     put a kept image back in place of the package's: the name of a file\n"
    "               in that folder, or a path\n"
    "  /d [FILE]    discovery: write what is found and what is offered to FILE and\n"
    "               install nothing; without FILE, which only the last switch can be,\n"
    "               to /var/zal/PROGRAM_disc.xml\n"
    "  /?, --help   this text\n"
    "\n"
    "/d and /y may be written with - too. Without /d the component is installed.\n"
    "Exit status: 0 done, 1 done and takes effect after a reboot, 2 already current,\n"
    "3 a newer version is installed, 4 no such device, 5 cancelled, 6 could not run,\n"
    "7 error or not allowed, 8 another program works on the firmware of this server.\n"
    "The debug log goes to the file that QVFLASHLOG names, else to /var/zal/flash.debug.log.\n";

struct Switches
{
    bool Help;
    bool Discovery;
    bool Folder;
    bool Force;
    bool Silent;
    const char* pszKeepFolder;
    const char* pszRestored;
};

const struct SwitchName
{
    const char* pszName;
    bool Switches::*pGiven;
    bool HasValue;                  // which may be left out
    const char* Switches::*pValue;  // which must be there
} SwitchNames[] = {
    {"/d", &Switches::Discovery, true, nullptr},      {"-d", &Switches::Discovery, true, nullptr},
    {"/y", &Switches::Folder, true, nullptr},         {"-y", &Switches::Folder, true, nullptr},
    {"/f", &Switches::Force, false, nullptr},         {"/s", &Switches::Silent, false, nullptr},
    {"/k", nullptr, false, &Switches::pszKeepFolder}, {"/r", nullptr, false, &Switches::pszRestored},
    {"/?", &Switches::Help, false, nullptr},          {"--help", &Switches::Help, false, nullptr},
};

const SwitchName* FindSwitch(const char* argument)
{
    for (const SwitchName& name : SwitchNames)
        if (CStr(argument).CompareNoCase(name.pszName)) return &name;
    return nullptr;
}

// Reads which switches are given; false for a command line that makes no sense. The library reads the values of /d and
// /y: what follows these and does not begin with a dash is one, even if it is a switch.
bool ReadSwitches(int argc, char** argv, Switches& switches)
{
    bool mayBeValue = false;
    const char** ppValue = nullptr;  // where the next argument belongs
    for (char** ppArgument = argv + 1; ppArgument < argv + argc; ppArgument++) {
        const char* const pszArgument = *ppArgument;
        const SwitchName* pSwitch = FindSwitch(pszArgument);
        if (pszArgument[0] == '\0' || (ppValue && pSwitch)) return false;
        if (ppValue) {
            *ppValue = pszArgument;
            ppValue = nullptr;
            continue;
        }
        if (pSwitch ? mayBeValue && pszArgument[0] != '-' : !mayBeValue || pszArgument[0] == '-') return false;
        if (pSwitch && pSwitch->pGiven) switches.*pSwitch->pGiven = true;
        if (pSwitch && pSwitch->pValue) ppValue = &(switches.*pSwitch->pValue);
        mayBeValue = pSwitch && pSwitch->HasValue;
    }
    return !ppValue;
}

void PrintRow(const char* name, const char* value)
{
    std::printf("  %-16s %s\n", name, value);
}

CStr PrintText(CComponent& component, ULONG id, const char* name)
{
    static char szText[4096];  // components keep their texts far shorter
    component.GetProperty(id, szText, sizeof szText, "en");
    PrintRow(name, szText);
    return szText;
}

void PrintFlag(CComponent& component, ULONG id, const char* name)
{
    BOOL bFlag = FALSE;
    component.GetProperty(id, &bFlag, sizeof bFlag, "en");
    PrintRow(name, bFlag ? "yes" : "no");
}

const char* InstallStateText(int state)
{
    switch (state) {
        case ZALSTATE_INSTALLEDSAME:
            return "same version installed";
        case ZALSTATE_INSTALLEDOLDER:
            return "older version installed";
        case ZALSTATE_INSTALLEDNEWER:
            return "newer version installed";
        case ZALSTATE_INSTALLEDNOTNEEDED:
            return "installed, not needed";
        case ZALSTATE_NOTINSTALLEDNEEDED:
            return "not installed, needed";
        case ZALSTATE_NOTINSTALLEDNOTNEEDED:
            return "not needed on this server";
        case ZALSTATE_INSTALLNOTALLOWED:
            return "installation not allowed";
        default:
            return "unknown";
    }
}

// Messages may carry their own line end.
void CutLineEnd(char* text)
{
    text[std::strcspn(text, "\n")] = '\0';
}

void ShowProperties(CFirmwareComponent& component, ZALINSTALLSTATE& state)
{
    const CStr name = PrintText(component, ZALPROP_NAME, "Name");
    PrintText(component, ZALPROP_DESCRIPTION, "Description");
    const CStr current = PrintText(component, ZALPROP_VERSIONCURRENT, "Current version");
    const CStr offered = PrintText(component, ZALPROP_VERSIONNEW, "New version");
    component.GetProperty(ZALPROP_INSTALLSTATE, &state, sizeof state, "en");
    CutLineEnd(state.szMessage);
    PrintRow("Install state", InstallStateText(state.nState));
    if (state.szMessage[0] != '\0') PrintRow("Message", state.szMessage);
    PrintFlag(component, ZALPROP_SUPPORTSILENTINSTALL, "Silent install");
    PrintFlag(component, ZALPROP_SUPPORTSILENTUPDATE, "Silent update");
    PrintFlag(component, ZALPROP_SUPPORTDOWNGRADE, "Downgrade");
    std::printf("\n");
    ReportProperties(name == CFirmwareComponent::NoName ? "" : name.GetAnsiString(), current, offered, state.nState,
                     state.szMessage, component.HasWayBack());
}

void PrintLine(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    std::vprintf(format, arguments);
    va_end(arguments);
    std::fflush(stdout);  // a progress bar is no whole line
}

// What is opened later must not take the place of a standard descriptor, where it would get what is printed. Goes to
// the kernel itself: nothing that could have taken over the C library's calls is set up so early.
void OpenStandardDescriptors()
{
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (syscall(SYS_fcntl, descriptor, F_GETFD) < 0 &&
            syscall(SYS_openat, AT_FDCWD, "/dev/null", O_RDWR) != descriptor)
            _exit(ReturnCodeCouldNotRun);
}

// Runs before the constructors of any library, which may open something too.
[[gnu::section(".preinit_array"), gnu::used]] void (*const OpenFirst)() = OpenStandardDescriptors;

// Ends a run that has touched nothing.
int EndUntouched(ULONG result, const char* message)
{
    std::puts(message);
    ReportResult(message, Left_Untouched);
    return static_cast<int>(result);
}

int Install(CFirmwareComponent& component, BOOL silent, const ZALINSTALLSTATE& state)
{
    char szResult[ResultSize] = "";
    component.SelfDiscovery();
    ULONG result = component.Install(silent, PrintLine, szResult, sizeof szResult, "en");
    component.PostInstall(silent, result);
    component.SwizzleLinuxReturnCode(result);
    // A component that may not be installed says nothing of its own.
    const bool refused = szResult[0] == '\0' && result == ReturnCodeErrorReturn;
    if (refused) {
        std::snprintf(szResult, sizeof szResult, "Nothing was installed: %s.", InstallStateText(state.nState));
        std::puts(szResult);
    }
    ReportResult(refused && state.szMessage[0] != '\0' ? state.szMessage : szResult, component.GetLeft());
    return static_cast<int>(result);
}

// Keeps other programs out; otherwise says why not. Exit status, 0 when the lock is held.
int TakeLock(CServerLock& lock, const std::string& program)
{
    const CServerLock::State state = lock.Take(program.substr(program.rfind('/') + 1));
    if (state == CServerLock::State_Held) return ReturnCodeNone;
    const bool busy = state == CServerLock::State_Busy;
    const std::string advice = busy ? "; run this installer again when that has ended." : ".";
    return EndUntouched(busy ? ServerBusy : ReturnCodeCouldNotRun,
                        (lock.Problem() + ". Nothing was done" + advice).c_str());
}

int Run(CFirmwareComponent& component, const Switches& switches, int argc, char** argv)
{
    component.ParseCmdLine(argc, argv);
    if (switches.pszKeepFolder) component.SetKeepFolder(switches.pszKeepFolder);
    if (switches.pszRestored) component.Restore(switches.pszRestored);
    component.Initialize();
    ZALINSTALLSTATE state = {};
    ShowProperties(component, state);
    const bool anyVersion = switches.Discovery || switches.Force || switches.pszRestored;
    if (!anyVersion && state.nState == ZALSTATE_INSTALLEDSAME)
        return EndUntouched(ReturnCodeTargetCurrent, "This version is installed already; /f writes it again.");
    if (!anyVersion && state.nState == ZALSTATE_INSTALLEDNEWER)
        return EndUntouched(ReturnCodeTargetNewer, "A newer version is installed; /f goes back to this one.");
    return Install(component, switches.Silent, state);
}

}  // namespace

int RunComponent(std::unique_ptr<CFirmwareComponent> (*make)(), int argc, char** argv)
{
    OpenReport();
    static char szLine[BUFSIZ];
    std::setvbuf(stdout, szLine, _IOLBF, sizeof szLine);  // progress is seen as it happens, also through a pipe
    try {
        Switches switches = {};
        const bool valid = ReadSwitches(argc, argv, switches);
        if (!valid || switches.Help) {
            std::fprintf(valid ? stdout : stderr, szUsage, argc > 0 ? argv[0] : "installer");
            return valid ? ReturnCodeNone : ReturnCodeCouldNotRun;
        }
        g_InstallLocalDir = ".";
        CServerLock lock;
        const int locked = TakeLock(lock, argc > 0 ? argv[0] : "installer");
        if (locked != ReturnCodeNone) return locked;
        const std::unique_ptr<CFirmwareComponent> pComponent = make();
        return Run(*pComponent, switches, argc, argv);
    } catch (const std::bad_alloc&) {
        // Install itself answers for what it has touched.
        return EndUntouched(ReturnCodeErrorReturn, "Nothing was installed: there is not enough memory.");
    }
}
