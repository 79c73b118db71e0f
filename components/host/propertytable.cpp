#include "propertytable.h"

#include <cstdio>

#include "component.h"

namespace
{

const int NameWidth = 16;
const int ValueColumn = 2 + NameWidth + 1;

}  // namespace

void PrintPropertyRow(const char* name, const char* value)
{
    std::printf("  %-*s %s\n", NameWidth, name, value);
}

bool ReadPropertyRow(const std::string& line, std::string& name, std::string& value)
{
    if (line.size() < ValueColumn || line.compare(0, 2, "  ") != 0 || line[ValueColumn - 1] != ' ') return false;
    name = line.substr(2, NameWidth);
    name.erase(name.find_last_not_of(' ') + 1);
    value = line.substr(ValueColumn);
    return !name.empty();
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

int InstallStateFromText(const std::string& text)
{
    for (int state = ZALSTATE_INSTALLEDSAME; state <= ZALSTATE_UNKNOWN; state++)
        if (text == InstallStateText(state)) return state;
    return 0;
}
