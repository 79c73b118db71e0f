#include <cstdarg>
#include <cstring>
#include <tuple>

#include "component.h"
#include "tests/support.h"
#include "util.h"

namespace
{

// Opens what a component's author reaches.
class CTestComponent : public CComponent
{
  public:
    using CComponent::m_bInitError;
    using CComponent::m_Discovery;
    using CComponent::m_InstallState;
    using CComponent::m_Properties;
    using CComponent::ParseCmdLine;
    using CComponent::SetErrorMessage;
    using CComponent::WriteDiscoveryXml;

    const char* m_pszResult = "";
    BOOL m_bDiscoverySucceeds = TRUE;
    int m_Discoveries = 0;

    void Parse(std::vector<std::string> arguments)
    {
        std::vector<char*> argv;
        for (std::string& argument : arguments) argv.push_back(argument.data());
        ParseCmdLine(static_cast<int>(argv.size()), argv.data());
        m_Arguments = arguments;
    }
    std::vector<std::string> m_Arguments;

    std::string Text(ULONG id)
    {
        char szText[1024] = "";
        EXPECT_TRUE(GetProperty(id, szText, 0, nullptr));
        return szText;
    }

    std::string State()
    {
        ZALINSTALLSTATE state;
        EXPECT_TRUE(GetProperty(ZALPROP_INSTALLSTATE, &state, 0, nullptr));
        return std::to_string(state.nState) + state.szMessage;
    }

  protected:
    BOOL PerformDiscovery() override
    {
        m_Discoveries++;
        return m_bDiscoverySucceeds;
    }

    void InstallWorker(InstallParameters* params) override
    {
        CComponent::InstallWorker(params);
        std::strcpy(params->pszResultStr, m_pszResult);
    }
};

std::string g_Logged;

void Logger(const char* format, ...)
{
    char szLine[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(szLine, sizeof szLine, format, arguments);
    va_end(arguments);
    g_Logged += szLine;
}

// The result, and what is logged.
std::string Install(CComponent& component)
{
    char szResult[64] = "untouched";
    g_Logged.clear();
    const ULONG result = component.Install(TRUE, Logger, szResult, sizeof szResult, "en");
    return std::to_string(result) + " " + g_Logged;
}

class Component : public testing::Test
{
  protected:
    CTestComponent component;
    CTestFolder folder;
};

using CommandLine = Component;
using ComponentDeathTest = Component;

}  // namespace

TEST_F(Component, StartsWithItsDefaults)
{
    const std::pair<ULONG, const char*> texts[] = {{ZALPROP_NAME, "(Name)"},
                                                   {ZALPROP_DESCRIPTION, "(Description)"},
                                                   {ZALPROP_VERSIONCURRENT, "Unknown"},
                                                   {ZALPROP_VERSIONNEW, "Unknown"}};
    for (const auto& text : texts) EXPECT_EQ(text.second, component.Text(text.first));
    for (ULONG id : {ZALPROP_SUPPORTSILENTINSTALL, ZALPROP_SUPPORTSILENTUPDATE, ZALPROP_SUPPORTDOWNGRADE}) {
        BOOL flag = FALSE;
        EXPECT_TRUE(component.GetProperty(id, &flag, 0, nullptr) && flag == TRUE) << id;
    }
    CLogCapture log;
    for (ULONG id : {0u, 9u, 10u}) EXPECT_FALSE(component.GetProperty(id, nullptr, 0, nullptr)) << id;
    EXPECT_EQ(
        "CComponent::GetProperty: Unknown property 0\nCComponent::GetProperty: ZALPROP_SETLOGSTRUCT (ignored)\n"
        "CComponent::GetProperty: Unknown property 10\n",
        log.Text());
}

TEST_F(Component, TellsTheInstallStateAndWhy)
{
    std::string states;
    for (const char* pszMessage : {"", "why"}) {
        component.SetErrorMessage(pszMessage);
        for (int state = 0; state <= 9; state++) {
            component.m_InstallState = state;
            states += component.State() + " ";
        }
    }
    const std::string unknown = "8Internal component error! ";
    EXPECT_EQ(unknown + "1 2 3 4 5 6 7The component is incomplete or damaged. " + unknown + unknown + unknown +
                  "1 2 3 4 5 6why 7why " + unknown + unknown,
              states);
    component.m_InstallState = 3;
    CLogCapture log;
    component.State();
    const std::string property = "CComponent::GetProperty: ZALPROP_INSTALLSTATE: ";
    EXPECT_EQ("CComponent::GetInstallState: ZALSTATE_INSTALLEDNEWER\n" + property + "State = 3\n" + property +
                  "Message = \"\"\n",
              log.Text());
}

TEST_F(Component, ChecksTheDriversVersion)
{
    const auto state = [](const std::string& server) {
        UseServer(RackServer(server));
        CTestComponent fresh;
        fresh.m_InstallState = ZALSTATE_INSTALLNOTALLOWED;
        return fresh.Valid_CRUDriver() ? "valid" : fresh.State();
    };
    const auto stateOf = [&](const std::string& version) {
        return state(R"({"driver": {"version": ")" + version + "\"}}");
    };
    const std::string required = " is out-of-date. The driver version must be at least 5.5.4.1\n";
    for (const char* pszVersion : {"5.5.4.1", "5.6.0.0", "6.0.0.0", "5.5.4.65535"})
        EXPECT_EQ("valid", stateOf(pszVersion)) << pszVersion;
    for (const std::string version : {"5.5.4.0", "5.5.3.9", "4.9.9.9"})
        EXPECT_EQ("7CRU Driver version " + version + required, stateOf(version));
    EXPECT_EQ("7The CRU Driver" + required, state(R"({"faults": {"driver": "refuses"}})"));
    EXPECT_EQ("7The CRU Driver" + required, state(R"({"faults": {"driver": "fails"}})"));
    EXPECT_EQ("7CRU driver is not loaded or is not responding\n", state(R"({"driver": null})"));
}

TEST_F(Component, InitializesFromThePackage)
{
    folder.Write("qx.xml",
                 "<zal_package><version value='1.2'/><name><name_xlate lang='en'>Thing</name_xlate></name>"
                 "<alt_name><alt_name_xlate lang='en'>Other</alt_name_xlate></alt_name></zal_package>");
    g_InstallLocalDir = folder.Path().c_str();
    UseServer(RackServer());
    CLogCapture log;
    component.Initialize();
    EXPECT_FALSE(component.m_bInitError);
    EXPECT_EQ("Thing Thing 1.2", component.Text(ZALPROP_NAME) + " " + component.Text(ZALPROP_DESCRIPTION) + " " +
                                     component.Text(ZALPROP_VERSIONNEW));
    EXPECT_TRUE(log.Has("CComponent::Initialize: Running on Quorvant RK740\n"));

    g_InstallLocalDir = "/no/such/folder";
    CTestComponent second;
    second.Initialize();
    EXPECT_TRUE(second.m_bInitError);
    EXPECT_EQ("(Name)", second.Text(ZALPROP_NAME));
    EXPECT_TRUE(
        log.Has("CComponent::Initialize: CComponentXML::Initialize failed\n"
                "CComponent::Valid_CRUDriver - VALUE OF cruFd [0x"));
}

TEST_F(Component, InstallsOnlyWhereItMay)
{
    for (int state = 0; state <= 9; state++) {
        component.m_InstallState = state;
        component.m_pszResult = "Done.";
        const bool ok = state == 1 || state == 2 || state == 3 || state == 5;
        EXPECT_EQ(ok ? "7 Done.\n" : "7 ", Install(component)) << state;
    }
    component.m_InstallState = 2;
    component.m_pszResult = "";
    CLogCapture log;
    EXPECT_EQ("7 ", Install(component));
    EXPECT_EQ("CComponent::Install: Entry\nCComponent::Install: Exit (Result = 7)\n", log.Text());
}

TEST_F(Component, ReportsHowDiscoveryWent)
{
    component.m_InstallState = 2;
    component.SelfDiscovery();
    component.m_Discovery.bEnabled = TRUE;
    component.SelfDiscovery();
    EXPECT_EQ(0, component.m_Discoveries);
    EXPECT_EQ("7 This component does not support discovery!\n", Install(component));

    component.m_Discovery.bSupported = TRUE;
    component.m_bDiscoverySucceeds = FALSE;
    component.SelfDiscovery();
    EXPECT_EQ("7 Discovery failed!\n", Install(component));
    component.m_bDiscoverySucceeds = TRUE;
    const std::string file = (folder.Path() / "d.xml").string();
    for (const char* path : {"/no/such/folder/d.xml", "/dev/full", file.c_str()}) {
        component.m_Discovery.sXmlFileName = path;
        component.SelfDiscovery();
        EXPECT_EQ(path == file ? "0 Discovery complete.\n" : "7 Discovery failed!\n", Install(component)) << path;
    }
    EXPECT_EQ(4, component.m_Discoveries);
}

TEST_F(Component, WritesTheDiscoveryXml)
{
    component.m_Discovery.sXmlFileName = (folder.Path() / "d.xml").c_str();
    component.m_Properties.sName = "A & \"B\" %NewVersion%";
    component.m_Properties.sCurrentVersion = "1.0";
    component.m_Properties.sNewVersion = "2.0";
    component.m_Discovery.sComponentType = "nic";
    component.m_Discovery.sDeviceId = "dev";
    component.m_Discovery.sProductId = "prod";
    component.m_Discovery.EstimatedDuration = 17;
    component.m_InstallState = ZALSTATE_INSTALLEDNEWER;
    ASSERT_TRUE(component.WriteDiscoveryXml());
    EXPECT_EQ(R"(<?xml version="1.0" encoding="UTF-8" standalone="no" ?>
<qv_rom_discovery version="2.0.1.0">
  <type value="nic"/>
  <alt_name value="A & "B" 2.0"/>
  <version value="2.0"/>
  <takes_effect value="deferred"/>
  <devices>
    <device>
      <device_id value="dev"/>
      <product_id value="prod"/>
      <busnumber value=""/>
      <devicenumber value=""/>
      <funcnumber value=""/>
      <fw_item>
        <!-- InstallState = 3 -->
        <type value="dev"/>
        <firmware_id value="dev"/>
        <version value="2.0"/>
        <active_version value="1.0"/>
        <action value="downgrade"/>
        <duration value="17"/>
        <message value=""/>
        <shared value="no"/>
      </fw_item>
    </device>
  </devices>
</qv_rom_discovery>
)",
              ReadFile(folder.Path() / "d.xml"));
    EXPECT_STREQ("dev", component.m_Discovery.sFirmwareItemId);
}

TEST_F(Component, TakesTheTypeFromThePackageAndTheActionFromTheState)
{
    const char* const types[][2] = {
        {"firmware:sd:abc", "abc"}, {"FIRMWARE:nic", "nic"}, {"firmware:sd:", ""}, {"bios", "QLOGIC"}, {"", "QLOGIC"}};
    const char* const actions[] = {"skip", "rewrite", "upgrade", "downgrade", "skip", "skip", "skip", "skip", "skip"};
    g_InstallLocalDir = folder.Path().c_str();
    UseServer(RackServer());
    for (const auto& [path, type] : types) {
        folder.Write("qx.xml", std::string("<zal_package><sw_keys><sw_keys_and><sw_key><sw_key_expectedpath>") + path +
                                   "</sw_key_expectedpath></sw_key></sw_keys_and></sw_keys></zal_package>");
        CTestComponent fresh;
        fresh.Initialize();
        fresh.m_Discovery.sXmlFileName = (folder.Path() / "d.xml").c_str();
        for (int state = 0; state <= 8; state++) {
            fresh.m_InstallState = state;
            ASSERT_TRUE(fresh.WriteDiscoveryXml());
            const std::string xml = ReadFile(folder.Path() / "d.xml");
            EXPECT_NE(std::string::npos, xml.find(std::string("  <type value=\"") + type + "\"/>\n  <alt"));
            EXPECT_NE(std::string::npos, xml.find(std::string("<action value=\"") + actions[state] + "\"/>"));
        }
    }
}

TEST_F(ComponentDeathTest, EndsTheProcessOverAnOverlongDiscoveryLine)
{
    component.m_Discovery.sXmlFileName = "/dev/null";
    const std::size_t longest = 255 - std::strlen("        <firmware_id value=\"\"/>");
    component.m_Discovery.sFirmwareItemId = std::string(longest, 'x').c_str();
    EXPECT_TRUE(component.WriteDiscoveryXml());
    component.m_Discovery.sFirmwareItemId = std::string(longest + 1, 'x').c_str();
    EXPECT_DEATH(component.WriteDiscoveryXml(), "256-byte buffer of ReplaceStr");
}

TEST_F(CommandLine, FindsItsSwitches)
{
    const std::tuple<std::vector<std::string>, BOOL, const char*, const char*> cases[] = {
        {{"/opt/x/setup"}, 0, "", nullptr},
        {{"/opt/x/setup", "/d"}, 1, "/var/zal/setup_disc.xml", nullptr},
        {{"setup", "/d"}, 1, "/var/zal/_disc.xml", nullptr},
        {{"/setup", "/d"}, 1, "/var/zal/_disc.xml", nullptr},
        {{"setup", "-D", "out.xml"}, 1, "out.xml", nullptr},
        {{"setup", "-d", "a.xml", "/d", "b.xml"}, 1, "b.xml", nullptr},
        {{"setup", "/d", "my file.xml"}, 1, "my file.xml", nullptr},
        {{"setup", "/d", "my\tfile.xml"}, 1, "my file.xml", nullptr},
        {{"/a/setup", "/d", "-y", "dir"}, 1, "/var/zal/setup_disc.xml", "dir"},
        {{"setup", "/d", "/y", "dir"}, 1, "/y", "dir"},
        {{"setup", "/y"}, 0, "", "."},
        {{"x/setup", "/Y", "-d"}, 1, "/var/zal/setup_disc.xml", "."},
        {{"setup", "/y", "a dir", "/y", "b"}, 0, "", "a dir"},
        {{"setup", "/dx", "x/d", "/yy"}, 0, "", nullptr},
    };
    for (const auto& [arguments, enabled, file, location] : cases) {
        g_InstallLocalDir = "untouched";
        CTestComponent fresh;
        fresh.Parse(arguments);
        std::string line;
        for (const std::string& argument : arguments) line += argument + "|";
        EXPECT_EQ(enabled, fresh.m_Discovery.bEnabled) << line;
        EXPECT_STREQ(file, fresh.m_Discovery.sXmlFileName) << line;
        EXPECT_STREQ(location ? location : "untouched", g_InstallLocalDir) << line;
        EXPECT_STREQ(location ? location : ".", fresh.m_Properties.sInstallLocation) << line;
    }
}

TEST_F(CommandLine, LogsWhatItRead)
{
    CLogCapture log;
    component.Parse({"/a/setup", "b\tc\td", "/d", "o", "-y", "dir"});
    EXPECT_EQ("b c d", component.m_Arguments[1]);
    EXPECT_EQ(
        "Command line: /a/setup \"b c d\" /d o -y dir \n"
        "CComponent::ParseCmdLine - looking for d switch. Offset = [16] \n"
        "CComponent::ParseCmdLine: Found /d switch\n"
        "CComponent::ParseCmdLine: DiscoveryXmlFile = o\n"
        "CComponent::ParseCmdLine: Found /y switch\n"
        "CComponent::ParseCmdLine:  stub_location = dir\n"
        "CComponent::GetProperty: ZALPROP_Install_LOCATION = \"dir\"\n",
        log.Text());
}

TEST_F(CommandLine, TakesOneToken)
{
    const char* const cases[][2] = {{"  a b", "a"}, {" \"a b\" c", "a b"}, {"\"a b", "a b"},
                                    {"\"\" c", ""}, {"   ", ""},           {"\ta", "\ta"}};
    for (const auto& c : cases) EXPECT_STREQ(c[1], GetCmdLineToken(c[0]));
}
