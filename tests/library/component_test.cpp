#include "component.h"

#include <cstdarg>
#include <cstring>
#include <memory>
#include <tuple>

#include "componentxml.h"
#include "tests/support.h"
#include "util.h"
#include "zalftbl.h"

namespace
{

// Opens what a component's author reaches.
class CTestComponent : public CComponent
{
  public:
    using CComponent::GetInstallState;
    using CComponent::m_bInitError;
    using CComponent::m_Discovery;
    using CComponent::m_InstallState;
    using CComponent::m_Properties;
    using CComponent::m_pXML;
    using CComponent::m_sErrorMessage;
    using CComponent::ParseCmdLine;
    using CComponent::SetErrorMessage;
    using CComponent::WriteDiscoveryXml;

    const char* m_pszResult = "";
    ULONG m_nAdded = 0;  // to the base's result
    BOOL m_bDiscoverySucceeds = TRUE;

  protected:
    BOOL PerformDiscovery() override { return CComponent::PerformDiscovery() && m_bDiscoverySucceeds; }
    void InstallWorker(InstallParameters* params) override
    {
        params->pfnLogger("[own %d, silent %d, text \"%s\" of %u bytes, language %s, result %u, finished %d] ",
                          params->pObject == this, params->bSilent, params->pszResultStr, params->ResultStrLength,
                          params->pszLanguage, params->Result, params->bFinished);
        params->Result = 99;
        CComponent::InstallWorker(params);
        params->Result += m_nAdded;
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

class Component : public testing::Test
{
  protected:
    Component()
        : trace(("component-" + std::string(testing::UnitTest::GetInstance()->current_test_info()->name())).c_str())
    {
        trace.Rename(folder.Path().string(), "FOLDER");
        g_InstallLocalDir = folder.Path().c_str();
        UseServer(RackServer());
    }

    ~Component() override { NameDriver(); }

    // The descriptor of the server's driver, if that is open, is in the log.
    void NameDriver()
    {
        std::ostringstream number;
        number << "cruFd [0x" << std::hex << std::uppercase << cruFd << "]";
        if (cruFd >= 0) trace.Rename(number.str(), "cruFd [FD]");
    }

    // Writes what a host asks a component for.
    void Ask(CTestComponent& asked)
    {
        for (ULONG id = 0; id <= 10; id++) {
            union
            {
                BOOL Flag;
                char Text[1024];
                ZALINSTALLSTATE State;
            } buffer;
            std::memset(&buffer, '-', 7);
            buffer.Text[7] = '\0';
            const BOOL known = asked.GetProperty(id, &buffer, 0, nullptr);
            std::ostringstream stored;
            if (id == ZALPROP_INSTALLSTATE) stored << buffer.State.nState << " " << buffer.State.szMessage;
            if (id < ZALPROP_INSTALLSTATE || !known) stored << buffer.Text;
            if (id > ZALPROP_INSTALLSTATE && known) stored << buffer.Flag;
            trace("GetProperty ", id, ": ", known, ", stored \"", stored.str(), "\"");
        }
    }

    void Install(const char* pszWhat, CTestComponent& installed, ULONG length = 0)
    {
        char szResult[64] = "untouched";
        g_Logged.clear();
        const ULONG result = installed.Install(-2, Logger, szResult, length, "fr-CA");
        trace(pszWhat, ": Install ", result, ", result text \"", szResult, "\", logger: ", g_Logged);
    }

    // Puts that inside the package description.
    void Describe(const std::string& inside) const
    {
        folder.Write("qx.xml", "<zal_package>" + inside + "</zal_package>");
    }

    CTestComponent component;
    CTestFolder folder;
    CTranscript trace;
};

using CommandLine = Component;
using ComponentDeathTest = Component;

}  // namespace

TEST_F(Component, AnswersItsHost)
{
    Ask(component);
    for (const char* pszMessage : {"", "why"}) {
        component.SetErrorMessage(pszMessage);
        trace("SetErrorMessage \"", pszMessage, "\"");
        component.m_nAdded += 0xFEDCBA98;
        for (const int state : {-1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 0x7FFFFFFF}) {
            ZALINSTALLSTATE told = {-2, "old"};
            component.m_InstallState = state;
            component.m_pszResult = pszMessage;
            trace("state ", state, ": GetInstallState ", component.GetInstallState(&told), " ", told.nState, " \"",
                  told.szMessage, "\"");
            Install("in that state", component, 0x89ABCDEF);
        }
    }
    component.m_Properties.bSupportsSilentInstall = FALSE;
    component.m_Properties.bSupportsSilentUpdate = FALSE;
    component.m_Properties.bSupportsDowngrade = FALSE;
    component.m_Properties.sDescription = "a description";
    component.m_Properties.sCurrentVersion = "1.02";
    Ask(component);
}

TEST_F(Component, ChecksTheDriversVersion)
{
    const auto check = [&](const std::string& server) {
        UseServer(RackServer(server));
        trace(server, ": Valid_CRUDriver ", component.Valid_CRUDriver());
        NameDriver();
    };
    for (const std::string driver :
         {R"("5.5.4.1")", R"("5.5.4.0")", R"("5.5.3.65535")", R"("5.4.65535.2")", R"("4.65535.9.9")", R"("5.5.5.0")",
          R"("5.6.0.0")", R"("6.0.0.0")", R"("65535.65534.65533.65532")"})
        check(R"({"driver": {"version": )" + driver + "}}");
    for (const char* pszServer :
         {R"({"faults": {"driver": "refuses"}})", R"({"faults": {"driver": "fails"}})", R"({"driver": null})"})
        check(pszServer);
}

TEST_F(Component, InitializesFromThePackage)
{
    Describe(
        "<version value='1.2'/><name><name_xlate lang='en'>Thing</name_xlate></name>"
        "<alt_name><alt_name_xlate lang='en'>Other</alt_name_xlate></alt_name>");
    component.Initialize();
    trace("Initialize: error ", component.m_bInitError);
    Ask(component);
    g_InstallLocalDir = "/no/such/folder";
    CTestComponent second;
    second.Initialize();
    trace("without a package: error ", second.m_bInitError);
    g_InstallLocalDir = folder.Path().c_str();
    const std::unique_ptr<CComponentXML> first(second.m_pXML);  // which the object does not release
    second.Initialize();
    trace("once more, with one: error ", second.m_bInitError);
    NameDriver();
    UseServer(RackServer(R"({"driver": null})"));
    {
        CTestComponent third;
        third.Initialize();
        trace("without a driver: error ", third.m_bInitError);
    }
    trace("gone");
    UseServer(RackServer());
    for (int number = 1; number <= 2; number++) {
        CTestComponent fourth;
        FailAllocation(number);
        fourth.Initialize();
        FailAllocation(0);
        trace("without memory: error ", fourth.m_bInitError, ", name \"", fourth.m_Properties.sName, "\"");
    }
}

TEST_F(Component, TellsHowDiscoveryWent)
{
    component.m_InstallState = 2;
    const auto discover = [&](const char* pszWhat) {
        component.SelfDiscovery();
        Install(pszWhat, component);
    };
    discover("not asked for");
    component.m_Discovery.bEnabled = TRUE;
    discover("not supported");
    component.m_Discovery.bSupported = TRUE;
    component.m_bDiscoverySucceeds = FALSE;
    discover("fails");
    EXPECT_FALSE(std::filesystem::exists(folder.Path() / "d.xml"));
    component.m_bDiscoverySucceeds = TRUE;
    const std::string file = (folder.Path() / "d.xml").string();
    for (const char* pszFile : {"/no/such/folder/d.xml", "/dev/full", file.c_str()}) {
        component.m_Discovery.sXmlFileName = pszFile;
        discover(pszFile);
    }
    component.m_Discovery.bEnabled = FALSE;
    discover("no longer asked for");
}

TEST_F(Component, WritesTheDiscoveryXml)
{
    const auto write = [&](const std::string& what, CTestComponent& written) {
        written.m_Discovery.sXmlFileName = (folder.Path() / "d.xml").c_str();
        trace(what, ": WriteDiscoveryXml ", written.WriteDiscoveryXml());
        return ReadFile(folder.Path() / "d.xml");
    };
    const auto line = [](const std::string& xml, const char* pszElement) {
        const std::size_t begin = xml.find(pszElement);
        return xml.substr(begin, xml.find('\n', begin) - begin);
    };
    trace(write("by default", component));
    component.m_Properties.sName = "A & \"B\" %NewVersion%";
    component.m_Properties.sDescription = "not used";
    component.m_Properties.sCurrentVersion = "1.0";
    component.m_Properties.sNewVersion = "2.0";
    component.m_Discovery.sComponentType = "nic";
    component.m_Discovery.sDeviceId = "dev";
    component.m_Discovery.sProductId = "prod";
    component.m_Discovery.EstimatedDuration = 0x7FFFFFFF;
    component.m_InstallState = ZALSTATE_INSTALLEDNEWER;
    trace(write("with values", component));
    component.m_Discovery.sDeviceId = "other";
    trace(write("with another device", component));
    component.m_Discovery.sFirmwareItemType = "item";
    component.m_Discovery.sFirmwareItemId = "id";
    component.m_Discovery.sTakesEffect = "immediate";
    trace(write("with others", component));
    for (const char* pszPath : {"firmware:sd:abc", "FIRMWARE:nic", "firmware:sd:", "firmware:", "bios", ""}) {
        Describe(std::string("<sw_keys><sw_keys_and><sw_key><sw_key_expectedpath>") + pszPath +
                 "</sw_key_expectedpath></sw_key></sw_keys_and></sw_keys>");
        CTestComponent fresh;
        fresh.Initialize();
        trace.Skip();
        trace("  ", line(write(std::string("type \"") + pszPath + "\"", fresh), "<type"));
    }
    trace.ShowLog(false);
    for (int& state = component.m_InstallState = -1; state <= 9; state++)
        trace("  ", line(write("state " + std::to_string(state), component), "<action"));
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

TEST_F(ComponentDeathTest, EndsTheProcessOverTextsThatDoNotFit)
{
    component.m_InstallState = ZALSTATE_INSTALLNOTALLOWED;
    ZALINSTALLSTATE state;
    component.m_sErrorMessage = std::string(sizeof state.szMessage - 1, 'x').c_str();  // too long for the log
    EXPECT_TRUE(component.GetInstallState(&state));
    component.m_sErrorMessage = std::string(sizeof state.szMessage, 'x').c_str();
    EXPECT_DEATH(component.GetInstallState(&state), "buffer of the install state's message");

    class CXml : public CComponentXML
    {
      public:
        using CComponentXML::GetTranslatedValue;
    } xml;
    const std::string longest(4089, 'n');
    Describe("<" + longest + "/><n" + longest + "/>");
    EXPECT_TRUE(xml.Initialize());
    EXPECT_DEATH(xml.GetTranslatedValue(("n" + longest).c_str(), "en"),
                 "4096-byte buffer of a translated element's name");
}

TEST_F(CommandLine, IsSearchedForItsSwitches)
{
    std::vector<std::string> lines[] = {
        {},
        {"/opt/x/setup"},
        {"/opt/x/setup", "/d"},
        {"setup", "/d"},
        {"/setup", "/d"},
        {"x/setup", "-D", "out.xml"},
        {"setup", "-d", "a.xml", "/d", "b.xml"},
        {"setup", "/d", "my file.xml"},
        {"setup", "/d", "my\tfile\t.xml"},
        {"/a/setup", "/d", "-y", "dir"},
        {"setup", "/d", "/y", "dir"},
        {"setup", "/y"},
        {"x/setup", "/Y", "-d"},
        {"setup", "/y", "a dir", "/y", "b"},
        {"setup", "/dx", "x/d", "/yy"},
        {"setup", "a /d b"},
        {"setup", "/d", "a", "/d", "b"},
        {"x/a/"},
    };
    for (std::vector<std::string>& arguments : lines) {
        g_InstallLocalDir = "untouched";
        CTestComponent fresh;
        trace.Skip();
        std::vector<char*> argv;
        for (std::string& argument : arguments) argv.push_back(argument.data());
        fresh.ParseCmdLine(static_cast<int>(argv.size()), argv.data());
        trace("discovery ", fresh.m_Discovery.bEnabled, " into \"", fresh.m_Discovery.sXmlFileName, "\", by default \"",
              fresh.m_Discovery.sDefaultXmlFileName, "\"; location \"", fresh.m_Properties.sInstallLocation,
              "\", folder \"", g_InstallLocalDir, "\"");
        for (const std::string& argument : arguments) trace("  argument left: ", testing::PrintToString(argument));
    }
    trace.Skip();
    for (const char* pszText : {"  a b", " \"a b\" c", "\"a b", "\"\" c", "   ", "\ta", ""})
        trace(pszText, ": GetCmdLineToken \"", GetCmdLineToken(pszText), "\"");
}

TEST_F(Component, ReadsThePackageDescription)
{
    const std::string name =
        "<name><name_xlate lang='fr'>Nom</name_xlate><name_xlate lang='en'>Name</name_xlate></name>";
    const std::string files[][2] = {
        {"qx.xml", "<a>"},
        {"qx.xml", "<a/>"},
        {"qx.xml", "<zal_package/>"},
        {"qx.xml", "<zal_package><version/><alt_name/><sw_keys/></zal_package>"},
        {"qx.xml", "<zal_package><version revision='B'/><sw_keys><sw_keys_and/></sw_keys></zal_package>"},
        {"QXa.XML",
         "<zal_package><version value='1.2' revision='B'/><version value='9'/>" + name +
             "<alt_name><alt_name_xlate lang='fr'>Autre</alt_name_xlate></alt_name><sw_keys><sw_keys_and><sw_key "
             "name='K'/></sw_keys_and></sw_keys></zal_package>"},
        {"other.xml",
         "<a><b><alt_name_xlate lang='fr'>Non</alt_name_xlate><alt_name_xlate lang='en'>Elsewhere</alt_name_xlate></b>"
         "<alt_name_xlate lang='en'>No</alt_name_xlate><zal_package><alt_name/><version "
         "value='1.2'/><sw_keys><sw_keys_and><sw_key><sw_key_expectedpath>firmware:x</sw_key_expectedpath></sw_key></"
         "sw_keys_and></sw_keys>" +
             name + "</zal_package></a>"},
        {"none", ""},
    };
    for (const auto& [file, text] : files) {
        const std::string path = folder.Write(file, text);
        CComponentXML xml;
        const auto tell = [&](const std::string& what, LPCTSTR value) { trace(what, " ", value ? value : "null"); };
        tell("GetName en before", xml.GetName("en"));
        trace(file, " ", text, ": Initialize ", xml.Initialize());
        for (const char* pszLanguage : {"en", "fr", "de"}) {
            tell(std::string("GetName ") + pszLanguage, xml.GetName(pszLanguage));
            tell(std::string("GetAltName ") + pszLanguage, xml.GetAltName(pszLanguage));
        }
        tell("GetVersion", xml.GetVersion());
        tell("GetRevision", xml.GetRevision());
        tell("GetCombinedVersion", xml.GetCombinedVersion());
        tell("GetFirmwareKey", xml.GetFirmwareKey());
        tell("GetFirmwareType", xml.GetFirmwareType());
        std::filesystem::remove(path);
    }
    folder.Write("other.xml", "");
    folder.Write("qxabc.xml", "<zal_package/>");
    const auto first = [&] { return std::filesystem::directory_iterator(folder.Path())->path().filename(); };
    for (int i = 0; first() == "qxabc.xml"; i++) folder.Write(std::to_string(i) + ".xml", "");
    trace("qxabc.xml behind another: Initialize ", CComponentXML().Initialize());
}
