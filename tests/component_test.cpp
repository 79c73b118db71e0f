#include <cstdarg>
#include <cstring>

#include "component.h"
#include "support.h"
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

    BOOL Flag(ULONG id)
    {
        BOOL flag = -1;
        EXPECT_TRUE(GetProperty(id, &flag, 0, nullptr));
        return flag;
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

ULONG Install(CComponent& component)
{
    char szResult[64] = "untouched";
    g_Logged.clear();
    return component.Install(TRUE, Logger, szResult, sizeof szResult, "en");
}

}  // namespace

TEST(Component, StartsWithItsDefaults)
{
    CTestComponent component;
    EXPECT_EQ("(Name)", component.Text(ZALPROP_NAME));
    EXPECT_EQ("(Description)", component.Text(ZALPROP_DESCRIPTION));
    EXPECT_EQ("Unknown", component.Text(ZALPROP_VERSIONCURRENT));
    EXPECT_EQ("Unknown", component.Text(ZALPROP_VERSIONNEW));
    for (ULONG id : {ZALPROP_SUPPORTSILENTINSTALL, ZALPROP_SUPPORTSILENTUPDATE, ZALPROP_SUPPORTDOWNGRADE})
        EXPECT_EQ(TRUE, component.Flag(id)) << id;
    EXPECT_EQ("8Internal component error!", component.State());
    CLogCapture log;
    for (ULONG id : {0u, 9u, 10u}) EXPECT_FALSE(component.GetProperty(id, nullptr, 0, nullptr)) << id;
    EXPECT_EQ(
        "CComponent::GetProperty: Unknown property 0\nCComponent::GetProperty: ZALPROP_SETLOGSTRUCT (ignored)\n"
        "CComponent::GetProperty: Unknown property 10\n",
        log.Text());
}

TEST(Component, TellsTheInstallStateAndWhy)
{
    CTestComponent component;
    const auto state = [&](int value) {
        component.m_InstallState = value;
        return component.State();
    };
    EXPECT_EQ("6", state(6));
    EXPECT_EQ("7The component is incomplete or damaged.", state(7));
    component.SetErrorMessage("why");
    for (int value = 1; value <= 5; value++) EXPECT_EQ(std::to_string(value), state(value));
    EXPECT_EQ("6why", state(6));
    EXPECT_EQ("7why", state(7));
    for (int value : {-1, 0, 8, 9}) EXPECT_EQ("8Internal component error!", state(value));
    CLogCapture log;
    state(3);
    EXPECT_EQ(
        "CComponent::GetInstallState: ZALSTATE_INSTALLEDNEWER\nCComponent::GetProperty: ZALPROP_INSTALLSTATE: State = "
        "3\n"
        "CComponent::GetProperty: ZALPROP_INSTALLSTATE: Message = \"\"\n",
        log.Text());
}

TEST(Component, ChecksTheDriversVersion)
{
    const char* const refused = "7The CRU Driver is out-of-date. The driver version must be at least 5.5.4.1\n";
    const auto outdated = [](const std::string& version) {
        return "7CRU Driver version " + version + " is out-of-date. The driver version must be at least 5.5.4.1\n";
    };
    const std::pair<std::string, std::string> cases[] = {
        {R"({"driver": {"version": "5.5.4.1"}})", ""},
        {R"({"driver": {"version": "5.6.0.0"}})", ""},
        {R"({"driver": {"version": "6.0.0.0"}})", ""},
        {R"({"driver": {"version": "5.5.4.65535"}})", ""},
        {R"({"driver": {"version": "5.5.4.0"}})", outdated("5.5.4.0")},
        {R"({"driver": {"version": "5.5.3.9"}})", outdated("5.5.3.9")},
        {R"({"driver": {"version": "4.9.9.9"}})", outdated("4.9.9.9")},
        {R"({"faults": {"driver": "refuses"}})", refused},
        {R"({"faults": {"driver": "fails"}})", refused},
        {R"({"driver": null})", "7CRU driver is not loaded or is not responding\n"},
    };
    for (const auto& c : cases) {
        UseServer(RackServer(c.first));
        CTestComponent component;
        component.m_InstallState = ZALSTATE_INSTALLNOTALLOWED;
        EXPECT_EQ(c.second.empty(), component.Valid_CRUDriver()) << c.first;
        EXPECT_EQ(c.second.empty() ? "7The component is incomplete or damaged." : c.second, component.State());
    }
}

TEST(Component, InitializesFromThePackage)
{
    CTempFolder folder;
    folder.Write("qx.xml",
                 "<zal_package><version value='1.2'/><name><name_xlate lang='en'>Thing</name_xlate></name>"
                 "<alt_name><alt_name_xlate lang='en'>Other</alt_name_xlate></alt_name></zal_package>");
    g_InstallLocalDir = folder.Path().c_str();
    UseServer(RackServer());
    CTestComponent component;
    CLogCapture log;
    component.Initialize();
    EXPECT_FALSE(component.m_bInitError);
    EXPECT_EQ("Thing", component.Text(ZALPROP_NAME));
    EXPECT_EQ("Thing", component.Text(ZALPROP_DESCRIPTION));
    EXPECT_EQ("1.2", component.Text(ZALPROP_VERSIONNEW));
    EXPECT_TRUE(log.Has("CComponent::Initialize: Running on Quorvant RX380 Gen9\n"));

    g_InstallLocalDir = "/no/such/folder";
    CTestComponent second;
    second.Initialize();
    EXPECT_TRUE(second.m_bInitError);
    EXPECT_EQ("(Name)", second.Text(ZALPROP_NAME));
    EXPECT_TRUE(
        log.Has("CComponent::Initialize: CComponentXML::Initialize failed\n"
                "CComponent::Valid_CRUDriver - VALUE OF cruFd [0x"));
}

TEST(Component, InstallsOnlyWhereItMay)
{
    CTestComponent component;
    for (int state = 0; state <= 9; state++) {
        component.m_InstallState = state;
        component.m_pszResult = "Done.";
        EXPECT_EQ(7u, Install(component));
        const bool ok = state == 1 || state == 2 || state == 3 || state == 5;
        EXPECT_EQ(ok ? "Done.\n" : "", g_Logged) << state;
    }
    component.m_InstallState = 2;
    component.m_pszResult = "";
    CLogCapture log;
    Install(component);
    EXPECT_EQ("", g_Logged);
    EXPECT_EQ("CComponent::Install: Entry\nCComponent::Install: Exit (Result = 7)\n", log.Text());
}

TEST(Component, ReportsHowDiscoveryWent)
{
    CTempFolder folder;
    CTestComponent component;
    component.m_InstallState = 2;
    component.SelfDiscovery();
    component.m_Discovery.bEnabled = TRUE;
    component.SelfDiscovery();
    EXPECT_EQ(0, component.m_Discoveries);
    EXPECT_EQ(7u, Install(component));
    EXPECT_EQ("This component does not support discovery!\n", g_Logged);

    component.m_Discovery.bSupported = TRUE;
    component.m_Discovery.sXmlFileName = (folder.Path() / "d.xml").c_str();
    component.SelfDiscovery();
    EXPECT_EQ(0u, Install(component));
    EXPECT_EQ("Discovery complete.\n", g_Logged);

    component.m_bDiscoverySucceeds = FALSE;
    component.SelfDiscovery();
    EXPECT_EQ(7u, Install(component));
    EXPECT_EQ("Discovery failed!\n", g_Logged);

    component.m_bDiscoverySucceeds = TRUE;
    for (const char* path : {"/no/such/folder/d.xml", "/dev/full"}) {
        component.m_Discovery.sXmlFileName = path;
        component.SelfDiscovery();
        EXPECT_TRUE(component.m_Discovery.bFailed) << path;
    }
    EXPECT_EQ(4, component.m_Discoveries);
}

TEST(Component, WritesTheDiscoveryXml)
{
    CTempFolder folder;
    CTestComponent component;
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

TEST(Component, TakesTheTypeFromThePackageAndTheActionFromTheState)
{
    const std::pair<const char*, const char*> types[] = {
        {"firmware:sd:abc", "abc"}, {"FIRMWARE:nic", "nic"}, {"firmware:sd:", ""}, {"bios", "QLOGIC"}, {"", "QLOGIC"}};
    const std::pair<int, const char*> actions[] = {
        {1, "rewrite"}, {2, "upgrade"}, {4, "skip"}, {5, "skip"}, {8, "skip"}};
    CTempFolder folder;
    g_InstallLocalDir = folder.Path().c_str();
    UseServer(RackServer());
    for (const auto& type : types) {
        folder.Write("qx.xml", std::string("<zal_package><sw_keys><sw_keys_and><sw_key><sw_key_expectedpath>") +
                                   type.first +
                                   "</sw_key_expectedpath></sw_key></sw_keys_and></sw_keys></zal_package>");
        CTestComponent component;
        component.Initialize();
        component.m_Discovery.sXmlFileName = (folder.Path() / "d.xml").c_str();
        for (const auto& action : actions) {
            component.m_InstallState = action.first;
            ASSERT_TRUE(component.WriteDiscoveryXml());
            const std::string xml = ReadFile(folder.Path() / "d.xml");
            EXPECT_NE(std::string::npos, xml.find(std::string("  <type value=\"") + type.second + "\"/>\n  <alt"));
            EXPECT_NE(std::string::npos, xml.find(std::string("<action value=\"") + action.second + "\"/>"));
        }
    }
}

TEST(ComponentDeathTest, EndsTheProcessOverAnOverlongDiscoveryLine)
{
    CTestComponent component;
    component.m_Discovery.sXmlFileName = "/dev/null";
    const std::size_t longest = 255 - std::strlen("        <firmware_id value=\"\"/>");
    component.m_Discovery.sFirmwareItemId = std::string(longest, 'x').c_str();
    EXPECT_TRUE(component.WriteDiscoveryXml());
    component.m_Discovery.sFirmwareItemId = std::string(longest + 1, 'x').c_str();
    EXPECT_DEATH(component.WriteDiscoveryXml(), "256-byte buffer of ReplaceStr");
}

TEST(CommandLine, FindsItsSwitches)
{
    const struct
    {
        std::vector<std::string> Arguments;
        BOOL Enabled;
        const char* File;
        const char* Location;
    } cases[] = {
        {{"/opt/x/setup"}, 0, "", nullptr},
        {{"/opt/x/setup", "/d"}, 1, "/var/zal/setup_disc.xml", nullptr},
        {{"setup", "/d"}, 1, "/var/zal/_disc.xml", nullptr},
        {{"/setup", "/d"}, 1, "/var/zal/_disc.xml", nullptr},
        {{"x/", "/d"}, 1, "/var/zal/_disc.xml", nullptr},
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
    for (const auto& c : cases) {
        g_InstallLocalDir = "untouched";
        CTestComponent component;
        component.Parse(c.Arguments);
        std::string line;
        for (const std::string& argument : c.Arguments) line += argument + "|";
        EXPECT_EQ(c.Enabled, component.m_Discovery.bEnabled) << line;
        EXPECT_STREQ(c.File, component.m_Discovery.sXmlFileName) << line;
        EXPECT_STREQ(c.Location ? c.Location : "untouched", g_InstallLocalDir) << line;
        EXPECT_STREQ(c.Location ? c.Location : ".", component.m_Properties.sInstallLocation) << line;
    }
}

TEST(CommandLine, LogsWhatItRead)
{
    CTestComponent component;
    CLogCapture log;
    component.Parse({"/a/setup", "b\tc", "/d", "o", "-y", "dir"});
    EXPECT_EQ("b c", component.m_Arguments[1]);
    EXPECT_EQ(
        "Command line: /a/setup \"b c\" /d o -y dir \n"
        "CComponent::ParseCmdLine - looking for d switch. Offset = [14] \n"
        "CComponent::ParseCmdLine: Found /d switch\n"
        "CComponent::ParseCmdLine: DiscoveryXmlFile = o\n"
        "CComponent::ParseCmdLine: Found /y switch\n"
        "CComponent::ParseCmdLine:  stub_location = dir\n"
        "CComponent::GetProperty: ZALPROP_Install_LOCATION = \"dir\"\n",
        log.Text());
}

TEST(CommandLine, TakesOneToken)
{
    EXPECT_STREQ("a", GetCmdLineToken("  a b"));
    EXPECT_STREQ("a b", GetCmdLineToken(" \"a b\" c"));
    EXPECT_STREQ("a b", GetCmdLineToken("\"a b"));
    EXPECT_STREQ("", GetCmdLineToken("\"\" c"));
    EXPECT_STREQ("", GetCmdLineToken("   "));
    EXPECT_STREQ("\ta", GetCmdLineToken("\ta"));
}
