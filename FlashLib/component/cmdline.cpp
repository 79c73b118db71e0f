#include <cstring>

#include "component.h"
#include "debug.h"
#include "util.h"

namespace
{

const int SwitchLength = 4;  // " /d "

// The name after the last '/'; empty when there is none. kept: program-name ('/' as the first character does not count)
CStr ProgramName(const CStr& path)
{
    for (int i = path.GetLength() - 1; i >= 1; i--)
        if (path[i] == '/') return path.Mid(i + 1);
    return "";
}

// Position of a switch with a space on both sides, in its slash form, else in its dash form; -1 when it is absent.
int FindSwitch(const CStr& commandLine, LPCTSTR slashForm, LPCTSTR dashForm)
{
    const int offset = commandLine.FindNoCase(slashForm);
    return offset >= 0 ? offset : commandLine.FindNoCase(dashForm);
}

// The value behind the switch at offset, or the default where there is none.
CStr SwitchValue(const CStr& commandLine, int offset, const CStr& defaultValue)
{
    const CStr token = GetCmdLineToken(commandLine.Mid(offset + SwitchLength));
    return token.IsEmpty() || token[0] == '-' ? defaultValue : token;  // kept: slash-is-a-value
}

}  // namespace

CStr GetCmdLineToken(const char* text)
{
    CStr rest(text);
    rest.TrimLeft(' ');
    const bool quoted = rest[0] == '"';
    if (quoted) rest = rest.Mid(1);
    const int end = rest.Find(quoted ? "\"" : " ");
    return end < 0 ? rest : rest.Left(end);
}

void CComponent::ParseCmdLine(int argc, TCHAR** argv)
{
    m_Discovery.sDefaultXmlFileName = "/var/zal/";
    m_Discovery.sDefaultXmlFileName += ProgramName(argc > 0 ? argv[0] : "") + "_disc.xml";

    CStr commandLine;
    for (int i = 0; i < argc; i++) {
        for (TCHAR* pTab = std::strchr(argv[i], '\t'); pTab; pTab = std::strchr(pTab, '\t')) *pTab = ' ';
        const bool quote = std::strchr(argv[i], ' ') != nullptr;
        if (quote) commandLine += "\"";
        commandLine += argv[i];
        commandLine += quote ? "\" " : " ";
    }
    ParseCmdLine(commandLine);
}

void CComponent::ParseCmdLine(const CStr& commandLine)
{
    _DebugPrintf("Command line: %s\n", commandLine.GetAnsiString());

    int offset = FindSwitch(commandLine, " /d ", " -d ");
    _DebugPrintf("CComponent::ParseCmdLine - looking for d switch. Offset = [%d] \n", offset);
    if (offset >= 0) {
        _DebugPrintf("CComponent::ParseCmdLine: Found /d switch\n");
        m_Discovery.bEnabled = TRUE;
        m_Discovery.sXmlFileName = SwitchValue(commandLine, offset, m_Discovery.sDefaultXmlFileName);
        _DebugPrintf("CComponent::ParseCmdLine: DiscoveryXmlFile = %s\n", m_Discovery.sXmlFileName.GetAnsiString());
    }

    offset = FindSwitch(commandLine, " /y ", " -y ");
    if (offset < 0) return;
    _DebugPrintf("CComponent::ParseCmdLine: Found /y switch\n");
    const CStr location = SwitchValue(commandLine, offset, ".");
    m_Properties.sInstallLocation = location;
    g_InstallLocalDir = m_Properties.sInstallLocation;
    _DebugPrintf("CComponent::ParseCmdLine:  stub_location = %s\n", location.GetAnsiString());
    // kept: location-log-prefix
    _DebugPrintf("CComponent::GetProperty: ZALPROP_Install_LOCATION = \"%s\"\n",
                 m_Properties.sInstallLocation.GetAnsiString());
}
