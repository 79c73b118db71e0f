#include "switches.h"

#include "zalph/str.h"

const char* const SwitchesUsage =
    "Usage: %s [/y FOLDER] [/f] [/s] [/k FOLDER] [/r IMAGE] [/d [FILE]]\n"
    "\n"
    "  /y FOLDER    the component's package folder (default: the current folder)\n"
    "  /f           force: write the same version again, or an older one; replace firmware\n"
    "               that should be kept and can't be read\n"
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

namespace
{

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

}  // namespace

// The library reads the values of /d and /y: what follows these and does not begin with a dash is one, even if it is a
// switch.
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
