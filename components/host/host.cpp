#include "host.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "component.h"
#include "propertytable.h"
#include "util.h"
#include "zalph.h"

CStr g_InstallLocalDir(".");

namespace
{

const int ResultSize = 1024;

const char* const szUsage =
    "Usage: %s [/y FOLDER] [/f] [/s] [/d [FILE]]\n"
    "\n"
    "  /y FOLDER    the component's package folder (default: the current folder)\n"
    "  /f           force: write the same version again, or an older one\n"
    "  /s           silent: show no progress\n"
    "  /d [FILE]    discovery: write what is found and what is offered to FILE and\n"
    "               install nothing; without FILE, which only the last switch can be,\n"
    "               to /var/zal/PROGRAM_disc.xml\n"
    "  /?, --help   this text\n"
    "\n"
    "/d and /y may be written with - too. Without /d the component is installed.\n"
    "Exit status: 0 done, 1 done and takes effect after a reboot, 2 already current,\n"
    "3 a newer version is installed, 4 no such device, 5 cancelled, 6 could not run,\n"
    "7 error or not allowed.\n"
    "The debug log goes to the file that QVFLASHLOG names, else to /var/zal/flash.debug.log.\n";

// The switches that are the host's own.
const char* const szSyntax = "/f /s /? --help";

struct Switches
{
    bool Valid;
    bool Help;
    bool Discovery;
    bool Force;
    bool Silent;
};

bool IsSwitch(const char* argument)
{
    const CStr lower = CStr(argument).ToLower();
    return lower == "/y" || lower == "/f" || lower == "/s" || lower == "/?";
}

// The library reads /d and /y, each with the argument behind it; the rest is read here.
Switches ReadSwitches(int argc, char** argv)
{
    Switches switches = {};
    bool fileIsSwitch = false;
    CStr own;
    for (int i = 1; i < argc; i++) {
        const CStr argument = CStr(argv[i]).ToLower();
        const bool discovery = argument == "/d" || argument == "-d";
        if (discovery) switches.Discovery = true;
        if (!discovery && argument != "/y" && argument != "-y")
            own += CStr(argv[i]) + " ";
        else if (i + 1 < argc && argv[i + 1][0] != '-')
            i++;
        if (discovery && IsSwitch(argv[i])) fileIsSwitch = true;
    }
    const CCommandLine line(own);
    switches.Valid = line.VerifySyntax(szSyntax) && !fileIsSwitch;
    switches.Help = line.FindArgOption("/?") >= 0 || line.FindArgOption("--help") >= 0;
    switches.Force = line.FindArgOption("/f") >= 0;
    switches.Silent = line.FindArgOption("/s") >= 0;
    return switches;
}

void PrintText(CComponent& component, ULONG id, const char* name)
{
    static char szText[65536];  // components keep their texts far shorter
    component.GetProperty(id, szText, sizeof szText, "en");
    PrintPropertyRow(name, szText);
}

void PrintFlag(CComponent& component, ULONG id, const char* name)
{
    BOOL bFlag = FALSE;
    component.GetProperty(id, &bFlag, sizeof bFlag, "en");
    PrintPropertyRow(name, bFlag ? "yes" : "no");
}

// Messages may carry their own line end.
void CutLineEnd(char* text)
{
    text[std::strcspn(text, "\n")] = '\0';
}

void PrintProperties(CComponent& component, ZALINSTALLSTATE& state)
{
    PrintText(component, ZALPROP_NAME, PropertyRow_Name);
    PrintText(component, ZALPROP_DESCRIPTION, "Description");
    PrintText(component, ZALPROP_VERSIONCURRENT, PropertyRow_CurrentVersion);
    PrintText(component, ZALPROP_VERSIONNEW, PropertyRow_NewVersion);
    component.GetProperty(ZALPROP_INSTALLSTATE, &state, sizeof state, "en");
    CutLineEnd(state.szMessage);
    PrintPropertyRow(PropertyRow_InstallState, InstallStateText(state.nState));
    if (state.szMessage[0] != '\0') PrintPropertyRow(PropertyRow_Message, state.szMessage);
    PrintFlag(component, ZALPROP_SUPPORTSILENTINSTALL, "Silent install");
    PrintFlag(component, ZALPROP_SUPPORTSILENTUPDATE, "Silent update");
    PrintFlag(component, ZALPROP_SUPPORTDOWNGRADE, "Downgrade");
    std::printf("\n");
}

void PrintLine(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    std::vprintf(format, arguments);
    va_end(arguments);
}

}  // namespace

int RunComponent(CComponent& component, int argc, char** argv)
{
    const Switches switches = ReadSwitches(argc, argv);
    if (switches.Help || !switches.Valid) {
        std::fprintf(switches.Help ? stdout : stderr, szUsage, argv[0]);
        return switches.Help ? ReturnCodeNone : ReturnCodeCouldNotRun;
    }

    std::setvbuf(stdout, nullptr, _IOLBF, 0);  // progress is seen as it happens, also through a pipe
    component.ParseCmdLine(argc, argv);
    component.Initialize();
    ZALINSTALLSTATE state = {};
    PrintProperties(component, state);

    if (!switches.Discovery && !switches.Force && state.nState == ZALSTATE_INSTALLEDSAME) {
        std::printf("This version is installed already; /f writes it again.\n");
        return ReturnCodeTargetCurrent;
    }
    if (!switches.Discovery && !switches.Force && state.nState == ZALSTATE_INSTALLEDNEWER) {
        std::printf("A newer version is installed; /f goes back to this one.\n");
        return ReturnCodeTargetNewer;
    }

    char szResult[ResultSize] = "";
    component.SelfDiscovery();
    ULONG result = component.Install(switches.Silent, PrintLine, szResult, sizeof szResult, "en");
    component.PostInstall(switches.Silent, result);
    component.SwizzleLinuxReturnCode(result);
    // A component that may not be installed says nothing of its own.
    if (szResult[0] == '\0' && result == ReturnCodeErrorReturn)
        std::printf("Nothing was installed: %s.\n", InstallStateText(state.nState));
    return static_cast<int>(result);
}
