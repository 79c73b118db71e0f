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
#include "switches.h"
#include "util.h"

CStr g_InstallLocalDir;

namespace
{

const int ResultSize = 1024;

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
    if (switches.Force) component.Force();
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
            std::fprintf(valid ? stdout : stderr, SwitchesUsage, argc > 0 ? argv[0] : "installer");
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
