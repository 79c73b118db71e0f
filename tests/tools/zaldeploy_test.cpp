#include <nlohmann/json.hpp>

#include "tests/support.h"

namespace fs = std::filesystem;

namespace
{

using Json = nlohmann::json;

// An installer as a shell script. Its discovery tells the version and the duration that files beside it hold.
const char* const Script = R"sh(#!/bin/sh
cd "$2"
[ "$3" = /d ] || { install; exit; }
action=rewrite
[ $(cat device) = 2.0 ] || action=upgrade
cat > "$4" <<END
<qv_rom_discovery><alt_name value="Fan"/><takes_effect value="immediate"/><devices><device><device_id value="F&amp;1"/>
<fw_item><version value="2.0"/><active_version value="$(cat device)"/><action value="$action"/>
<duration value="$(cat duration)"/></fw_item>
</device></devices></qv_rom_discovery>
END
)sh";

// An installer that leaves another process behind, which tells of itself unless it is ended.
const char* const LeavesAnother = "#!/bin/sh\n(sleep 20; echo left behind >&9) &\n";

class Zaldeploy : public testing::Test
{
  protected:
    void UseRack(const std::string& members = "{}") { m_Server.Write("server.json", RackServer(members)); }

    int Run(const std::string& arguments) { return RunCommand(ZALDEPLOY " " + arguments, m_Output); }
    int RunOnServer(const std::string& arguments)
    {
        return Run("--server " + m_Server.Path().string() + " " + arguments);
    }
    // Waits for whatever has descriptor 9, too: for what a package leaves behind.
    int RunScripts(const std::string& options) { return Run(options + " " + m_Packages.Path().string() + " 9>&1"); }
    bool Says(const std::string& text) const { return m_Output.find(text) != std::string::npos; }

    // Adds a package whose installer is that script.
    fs::path Add(const std::string& name, const std::string& script)
    {
        const fs::path folder = m_Packages.Path() / name;
        fs::create_directory(folder);
        m_Packages.Write(name + "/device", "1.0\n");
        m_Packages.Write(name + "/duration", "0\n");
        fs::permissions(m_Packages.Write(name + "/" + name, script), fs::perms::owner_all);
        return folder;
    }

    // Adds one whose discovery is sound, and whose installation does that.
    fs::path AddSound(const std::string& name, const std::string& install)
    {
        return Add(name, "#!/bin/sh\ninstall() { " + install + "\n}\n" + Script);
    }

    Json Components() const { return Json::parse(m_Output).at("components"); }

    CTestFolder m_Packages;
    CTestFolder m_Server;
    std::string m_Output;
};

}  // namespace

TEST_F(Zaldeploy, InstallsWhatTheTableSaysAndNothingTwice)
{
    UseRack();
    EXPECT_EQ(1, RunOnServer("'" PACKAGES "'")) << m_Output;
    EXPECT_TRUE(
        Says("Quorvant System ROM - P70                      P70      2.30 (09/12/2019)  2.40 (03/15/2021)  "
             "upgrade  reboot        -\n"))
        << m_Output;
    EXPECT_EQ(1, RunOnServer("--install --dry-run '" PACKAGES "'"));
    EXPECT_TRUE(Says(PACKAGES "/devicefw/devicefw /y " PACKAGES "/devicefw\n")) << m_Output;
    EXPECT_FALSE(fs::exists(m_Server.Path() / "rom.bin"));

    EXPECT_EQ(2, RunOnServer("--install '" PACKAGES "'")) << m_Output;
    EXPECT_TRUE(Says("upgrade from 1.2.5 to 1.3.2\n")) << m_Output;
    EXPECT_TRUE(Says("  Uploading: 100352 of 200000 bytes, 50%, ")) << m_Output;
    EXPECT_FALSE(Says("Silent update")) << m_Output;
    EXPECT_TRUE(Says("installed, restart  2.30 (09/12/2019)  2.30 (09/12/2019)  System ROM P70 2.40")) << m_Output;
    EXPECT_TRUE(Says("\nRestart the server")) << m_Output;

    EXPECT_EQ(0, RunCommand(ZALSIM " --restart --server " + m_Server.Path().string(), m_Output)) << m_Output;
    EXPECT_EQ(0, RunOnServer("--install '" PACKAGES "'")) << m_Output;
    EXPECT_TRUE(Says("skip    reboot        This version is installed; --force writes it again.\n")) << m_Output;
    EXPECT_EQ(0, RunOnServer("--install --force --json '" PACKAGES "/devicefw/'")) << m_Output;
    const Json devicefw = Components().at(0);
    EXPECT_EQ("rewrite", devicefw.at("action"));
    EXPECT_EQ("installed", devicefw.at("outcome").at("result"));
}

TEST_F(Zaldeploy, SaysWhyAComponentIsNotInstalled)
{
    m_Server.Write("server.json", ReadFile(SERVERS "/blade/server.json"));
    EXPECT_EQ(1, RunOnServer("--json '" PACKAGES "'")) << m_Output;
    EXPECT_EQ("upgrade", Components().at(0).at("action"));
    EXPECT_EQ("This package is not meant for this server: its rule \"$Generation >= 3 && !$Blade\" does not hold.",
              Components().at(1).at("why_not"));
    EXPECT_EQ("This package is for ROM family P70; this server has a ROM of family T46.",
              Components().at(2).at("why_not"));
    UseRack(R"({"faults": {"processor": {"dead": true}}})");
    EXPECT_EQ(3, RunOnServer("--install '" PACKAGES "/devicefw'")) << m_Output;
    EXPECT_TRUE(Says("The management processor does not answer; restart it, then try again.\n")) << m_Output;
}

TEST_F(Zaldeploy, TellsWhatAPowerLossLeavesAndRecovers)
{
    UseRack(R"({"faults": {"flash": {"power_lost_after_blocks": 5}}})");
    EXPECT_EQ(6, RunOnServer("--install '" PACKAGES "/systemrom'")) << m_Output;
    EXPECT_TRUE(Says("failed  2.30 (09/12/2019)  Incomplete  The installer crashed (Killed)")) << m_Output;
    EXPECT_TRUE(Says("The device may be half written. Do not restart the server; run zaldeploy --install again."));
    UseRack();
    EXPECT_EQ(2, RunOnServer("--install '" PACKAGES "/systemrom'")) << m_Output;
}

TEST_F(Zaldeploy, SurvivesDiscoveriesThatGoWrong)
{
    const std::pair<const char*, const char*> cases[] = {
        {"#!/bin/sh\necho oops >&2\nkill -SEGV $$",
         "crashed (Segmentation fault): oops. Nothing was installed. Get the"},
        {"#!/bin/sh\nprintf 'Broken\\033[2J!\\n'\nexit 3", "ended with exit status 3: Broken?[2J! Nothing was"},
        {"#!/bin/sh\nseq 9999\necho Lost.\nexit 3", "ended with exit status 3: Lost. Nothing was"},
        {"no program", "can't be started (Exec format error). Nothing"},
        {LeavesAnother, "wrote no discovery file. Nothing"},
        {"#!/bin/sh\nmkfifo $4", "wrote rubbish"},
        {"#!/bin/sh\nhead -c 2000000 /dev/zero > $4", "wrote rubbish"},
        {"#!/bin/sh\necho '<a b=\"&\">' > $4", "is not well-formed XML"},
        {"#!/bin/sh\necho '<qv_rom_discovery/>' > $4", "tells of no device"},
        {"#!/bin/sh\necho '<qv_rom_discovery><devices><device><fw_item><action value=\"burn\"/></fw_item></device>"
         "</devices></qv_rom_discovery>' > $4",
         "tells an action that is none: \"burn\""},
    };
    char name = 'a';
    for (const auto& c : cases) Add(std::string(1, name++), c.first);
    AddSound("sound", "exit 9");
    EXPECT_EQ(4, RunScripts("--json"));
    EXPECT_FALSE(Says("left behind"));
    const Json components = Components();
    ASSERT_EQ(std::size(cases) + 1, components.size()) << m_Output;
    EXPECT_EQ(4, Json::parse(m_Output).at("status"));
    for (std::size_t i = 0; i < std::size(cases); i++) {
        const std::string why = components[i].at("why_not");
        EXPECT_NE(std::string::npos, why.find(cases[i].second)) << cases[i].first << "\n" << why;
        EXPECT_EQ("failed", components[i].at("action"));
    }
    EXPECT_EQ("F&1", components.back().at("device"));
    EXPECT_EQ("upgrade", components.back().at("action"));
}

TEST_F(Zaldeploy, EndsDiscoveriesThatDoNotEnd)
{
    Add("hangs", std::string(LeavesAnother) + "sleep 20");
    Add("writes", "#!/bin/sh\ntrap '' TERM\ntimeout --foreground 20 yes rubbish");
    EXPECT_EQ(4, RunScripts("--json --timeout 0.5"));
    EXPECT_FALSE(Says("left behind"));
    for (const Json& component : Components())
        EXPECT_EQ(
            "The installer did not finish within 0.5 seconds and was ended. Nothing was installed. Try again with a "
            "longer --timeout.",
            component.at("why_not"));
}

TEST_F(Zaldeploy, BelievesTheDeviceAndNotTheInstaller)
{
    const struct
    {
        const char* Install;
        int Status;
        const char* Result;
        const char* Now;
        const char* Message;
    } cases[] = {
        {"echo 2.0 > device; echo Done.", 0, "installed", "2.0", "Done."},
        {"echo Done.", 6, "not verified", "1.0", "Done. Yet the device runs 1.0. Do not restart"},
        {"echo 2.0 > device; rm $0; echo Done.", 4, "not verified", "", "Done. What the device runs now"},
        {"echo Restart.; exit 1", 2, "installed, restart", "1.0", "Restart."},
        {"echo Refused.; exit 7", 6, "failed", "1.0", "Refused."},
        {"echo half > device; kill -9 $$", 6, "failed", "half", "crashed (Killed). The device may be half written."},
        {"echo half > device; exit 99", 6, "failed", "half", "exit status 99. The device may be half written."},
    };
    for (const auto& c : cases) {
        const fs::path folder = AddSound("fan", c.Install);
        EXPECT_EQ(c.Status, RunScripts("--install --json")) << c.Install << m_Output;
        EXPECT_EQ(c.Status, Components().at(0).at("status"));
        const Json outcome = Components().at(0).at("outcome");
        EXPECT_EQ(c.Result, outcome.at("result")) << c.Install;
        EXPECT_EQ(c.Now, outcome.at("now")) << c.Install;
        EXPECT_NE(std::string::npos, outcome.at("message").get<std::string>().find(c.Message)) << c.Install << outcome;
        fs::remove_all(folder);
    }
}

TEST_F(Zaldeploy, AsksAnInstallationToEndBeforeItIsEnded)
{
    AddSound("announces", "sleep 1.2; echo 2.0 > device; echo Done.");
    m_Packages.Write("announces/duration", "1\n");  // seconds
    AddSound("finishes", "trap 'echo 2.0 > device; echo Done.; exit 0' TERM; sleep 20");
    AddSound("ignores", "trap '' TERM; sleep 20");
    EXPECT_EQ(6, RunScripts("--install --json --timeout 1"));
    const Json components = Components();
    for (int i : {0, 1}) EXPECT_EQ("installed", components[i].at("outcome").at("result")) << m_Output;
    EXPECT_EQ(
        "The installer did not finish within 1 seconds and was ended. The device may be half written. Do not restart "
        "the server; run zaldeploy --install again.",
        components[2].at("outcome").at("message"));
}

TEST_F(Zaldeploy, StopsAfterTheComponentThatRuns)
{
    AddSound(
        "one",
        "trap 'echo 2.0 > device; echo Done.; exit 0' TERM; kill -TERM $PPID; for i in $(seq 100); do sleep 0.1; done");
    AddSound("two", "echo 2.0 > device");
    EXPECT_EQ(5, RunScripts("--install")) << m_Output;
    EXPECT_TRUE(Says("installed  1.0  2.0  Done.")) << m_Output;
    EXPECT_TRUE(Says("not run    1.0  1.0  zaldeploy was stopped before. The device was not touched.")) << m_Output;
    EXPECT_EQ("1.0\n", ReadFile(m_Packages.Path() / "two" / "device"));

    Add("one", "#!/bin/sh\nkill -HUP $PPID\nsleep 20");
    EXPECT_EQ(5, RunScripts("--install")) << m_Output;
    EXPECT_TRUE(Says("The installer was stopped. Nothing was installed. Run zaldeploy again.")) << m_Output;
    EXPECT_TRUE(Says("two        -       -        -        failed  -             zaldeploy was stopped")) << m_Output;

    Add("one", std::string("#!/bin/sh\ntrap '' TERM\nkill -TERM $PPID\n") + Script);
    EXPECT_EQ(5, RunScripts("--install")) << m_Output;
    EXPECT_TRUE(Says("Fan        not run  1.0  1.0  zaldeploy was stopped before.")) << m_Output;
}

TEST_F(Zaldeploy, ShowsWhatTheServerIsMadeOf)
{
    UseRack();
    EXPECT_EQ(0, RunOnServer("inventory")) << m_Output;
    EXPECT_TRUE(
        Says("system ROM            P70                                   2.30 (09/12/2019)  redundant rom v2.10"));
    EXPECT_EQ(0, RunOnServer("inventory --json"));
    const Json server = Json::parse(m_Output);
    EXPECT_EQ("Quorvant RK740", server.at("product").at("name"));
    EXPECT_EQ("enabled", server.at("product").at("tpm"));
    EXPECT_EQ("3.14 (04/21/2019)", server.at("processor").at("version"));
    EXPECT_EQ(Json({{"name", "NVME-BP-8SFF-A2"}, {"version", "1.18"}, {"index", 1}, {"type", 2}}),
              server.at("backplanes").at(1));
    const Json controllers = {
        {{"name", "Tamberline controller"}, {"version", "1.2.5"}, {"family", 3}, {"boot_loader", "1.0"}},
        {{"name", "Power controller"}, {"version", "1.4.2"}, {"type", 4}}};
    EXPECT_EQ(controllers, server.at("controllers"));
    EXPECT_EQ("5A1F0C22-4B7E-4D02-9C31-0800200C9A66", server.at("power_supplies").at(1).at("name"));
    UseRack(R"({"faults": {"processor": {"dead": true}}})");
    EXPECT_EQ(4, RunOnServer("inventory"));
    EXPECT_TRUE(Says("state does not answer: restart it\n")) << m_Output;
    m_Server.Write("server.json", ReadFile(SERVERS "/bare/server.json"));
    EXPECT_EQ(4, RunOnServer("inventory")) << m_Output;
}

TEST_F(Zaldeploy, SaysWhenItCanNotRun)
{
    EXPECT_EQ(0, Run("--help"));
    EXPECT_TRUE(Says("  6  an installation failed\n")) << m_Output;
    for (const char* arguments : {"", "inventory folder", "--timeout 0 folder", "--nothing", "/nowhere"})
        EXPECT_EQ(7, Run(arguments)) << arguments << m_Output;
    EXPECT_EQ(7, Run(m_Packages.Path().string()));
    EXPECT_TRUE(Says("there is no component package in ")) << m_Output;
    EXPECT_EQ(4, Run("--server /nowhere '" PACKAGES "/systemrom'")) << m_Output;
    EXPECT_TRUE(Says("ended with exit status 126: zalsim: ")) << m_Output;
}
