#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "support/serverlock.h"
#include "tests/support.h"

namespace fs = std::filesystem;

namespace
{

using Json = nlohmann::json;

// An installer as a shell script. Its discovery tells the version and the duration that files in the package that it
// was copied from hold.
const char* const Script = R"sh(
[ "$3" = /d ] || { install; exit; }
offered=$(cat offered)
action=upgrade
[ "$(cat device)" != "$offered" ] || action=rewrite
[ $(cat device) != 9.0 ] || action=downgrade
cat > "$4" <<END
<qv_rom_discovery version="2.0.1.0">
  <alt_name value="Fan"/>
  <takes_effect value="immediate"/>
  <devices>
    <device>
      <device_id value="F&"1<$(cat id)"/>
      <fw_item>
        <!-- InstallState = 2 -->
        <version value="$offered"/>
        <active_version value="$(cat device)"/>
        <action value="$action"/>
        <duration value="$(cat duration)"/>
      </fw_item>
    </device>
  </devices>
</qv_rom_discovery>
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
    int RunHere(const std::string& arguments) { return RunOnHost(ZALDEPLOY " " + arguments, m_Output); }
    // Waits for whatever has descriptor 9, too: for what a package leaves behind.
    int RunScripts(const std::string& command)
    {
        return RunHere(command + " --allow-unsigned --state " + m_Server.Path().string() + " " +
                       m_Packages.Path().string() + " 9>&1 </dev/null");
    }
    bool Says(const std::string& text) const { return m_Output.find(text) != std::string::npos; }

    // Adds a package whose installer is that script.
    fs::path Add(const std::string& name, const std::string& script, const std::string& offered = "2.0")
    {
        const fs::path folder = m_Packages.Path() / name;
        fs::create_directory(folder);
        m_Packages.Write(name + "/device", "1.0\n");
        m_Packages.Write(name + "/duration", "0\n");
        m_Packages.Write(name + "/offered", offered + "\n");
        m_Packages.Write(name + "/id", name + "\n");
        fs::permissions(m_Packages.Write(name + "/" + name, script), fs::perms::owner_all);
        return folder;
    }

    // Adds one whose discovery is sound, and whose installation does that.
    fs::path AddSound(const std::string& name, const std::string& install, const std::string& offered = "2.0")
    {
        const std::string start = "#!/bin/sh\ncd '" + (m_Packages.Path() / name).string() + "'\n";
        return Add(name, start + "install() { " + install + "\n}\n" + Script, offered);
    }

    // What the history tells of an installation, the newest first, as the database's own tool reads it.
    std::string Rows(const std::string& columns)
    {
        std::string rows;
        RunCommand("sqlite3 $(find " + m_Server.Path().string() + " -name history.db) 'SELECT " + columns +
                       " FROM history ORDER BY id DESC'",
                   rows);
        return rows;
    }

    // What stands behind the warning that unsigned packages run.
    Json Document() const { return Json::parse(m_Output.substr(m_Output.find('{'))); }
    Json Offers() const { return Document().at("packages"); }

    // The output is what the schema says that scripts may rely on.
    void ExpectSchema(const char* name)
    {
        EXPECT_EQ(name, Json::parse(m_Output).at("schema").at("name"));
        const std::string file = m_Packages.Write("output.json", m_Output);
        std::string problem;
        EXPECT_EQ(0, RunCommand("/usr/bin/python3 -m jsonschema -i " + file + " " SCHEMA, problem)) << problem;
    }

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
             "upgrade      reboot\n"))
        << m_Output;
    EXPECT_EQ(7, RunOnServer("install '" PACKAGES "' </dev/null"));
    EXPECT_TRUE(Says("--yes installs without asking")) << m_Output;
    EXPECT_EQ(1, RunOnServer("install --dry-run '" PACKAGES "'"));
    EXPECT_TRUE(Says(PACKAGES "/devicefw/devicefw /y " PACKAGES "/devicefw\n")) << m_Output;
    EXPECT_FALSE(fs::exists(m_Server.Path() / "rom.bin"));

    EXPECT_EQ(2, RunOnServer("install --yes '" PACKAGES "'")) << m_Output;
    EXPECT_TRUE(Says("upgrade from 1.2.5 to 1.3.2\n  installed: Tamberline controller firmware 1.3.2 was flashed"))
        << m_Output;
    EXPECT_FALSE(Says("Uploading")) << m_Output;
    EXPECT_TRUE(Says("installed, restart  2.30 (09/12/2019)  2.30 (09/12/2019)\n")) << m_Output;
    EXPECT_TRUE(Says("\nRestart the server")) << m_Output;

    EXPECT_EQ(0, RunCommand(ZALSIM " --restart --server " + m_Server.Path().string(), m_Output)) << m_Output;
    EXPECT_EQ(0, RunOnServer("install --yes '" PACKAGES "'")) << m_Output;
    EXPECT_TRUE(Says("current      reboot\n    This version is installed; --force writes it again.\n")) << m_Output;
    EXPECT_EQ(0, RunOnServer("install --yes --verbose --force --only TMBR '" PACKAGES "'")) << m_Output;
    EXPECT_TRUE(Says("  Uploading: 100352 of 200000 bytes, 50%, ")) << m_Output;
    EXPECT_TRUE(Says("  log: CComponent::CComponent()\n")) << m_Output;
    EXPECT_EQ(0, RunOnServer("install --yes --force --json '" PACKAGES "/devicefw/'")) << m_Output;
    ExpectSchema("zaldeploy.install");
    EXPECT_EQ("rewrite", Offers().at(0).at("action"));
    EXPECT_EQ("installed", Offers().at(0).at("outcome").at("result"));
}

TEST_F(Zaldeploy, SaysWhyAComponentIsNotInstalled)
{
    m_Server.Write("server.json", ReadFile(SERVERS "/blade/server.json"));
    EXPECT_EQ(1, RunOnServer("plan --json '" PACKAGES "'")) << m_Output;
    ExpectSchema("zaldeploy.plan");
    EXPECT_EQ("install", Offers().at(0).at("verdict"));
    EXPECT_EQ("This package is not meant for this server: its rule \"$Generation >= 3 && !$Blade\" does not hold.",
              Offers().at(1).at("why"));
    EXPECT_EQ("not needed", Offers().at(2).at("verdict"));
    EXPECT_EQ("This package is for ROM family P70; this server has a ROM of family T46.", Offers().at(2).at("why"));
    UseRack(R"({"faults": {"processor": {"dead": true}}})");
    EXPECT_EQ(3, RunOnServer("install --yes '" PACKAGES "/devicefw'")) << m_Output;
    EXPECT_TRUE(Says("    The management processor does not answer; restart it, then try again.\n")) << m_Output;
}

TEST_F(Zaldeploy, TellsWhatAPowerLossLeavesAndRecovers)
{
    UseRack(R"({"faults": {"flash": {"power_lost_after_blocks": 5}}})");
    EXPECT_EQ(6, RunOnServer("install --yes --quiet '" PACKAGES "/systemrom'")) << m_Output;
    EXPECT_TRUE(Says("failed  2.30 (09/12/2019)  Incomplete\n    The installer crashed (Killed)")) << m_Output;
    EXPECT_TRUE(Says("The device may be half written. Do not restart the server; run zaldeploy install again."));
    EXPECT_TRUE(Says("The debug log is ")) << m_Output;
    UseRack();
    EXPECT_EQ(2, RunOnServer("install --yes '" PACKAGES "/systemrom'")) << m_Output;
}

TEST_F(Zaldeploy, SurvivesDiscoveriesThatGoWrong)
{
    const std::pair<const char*, const char*> cases[] = {
        {"#!/bin/sh\necho oops >&2\nkill -SEGV $$",
         "crashed (Segmentation fault): oops. Nothing was installed. Get the"},
        {"#!/bin/sh\nprintf 'Broken\\033[2J\\302\\233 \\342\\200\\256.\\n'\nexit 3",
         "ended with exit status 3: Broken?[2J? ?. Nothing was"},
        {"#!/bin/sh\nseq 9999\necho Lost.\nexit 3", "ended with exit status 3: Lost. Nothing was"},
        {"no program", "can't be started (Exec format error). Nothing"},
        {LeavesAnother, "wrote no discovery file. Nothing"},
        {"#!/bin/sh\nmkfifo $4", "wrote rubbish"},
        {"#!/bin/sh\nhead -c 2000000 /dev/zero > $4", "wrote rubbish"},
        {"#!/bin/sh\necho '<a b=\"&\">' > $4", "discovery file is none"},
        {"#!/bin/sh\necho '<qv_rom_discovery>' > $4", "breaks off"},
        {"#!/bin/sh\nprintf '<qv_rom_discovery>\\n</qv_rom_discovery>\\n' > $4", "tells of no device"},
        {"#!/bin/sh\nprintf '<qv_rom_discovery>\\n<fw_item>\\n<action value=\"burn\"/>\\n</qv_rom_discovery>\\n' > $4",
         "tells an action that is none: \"burn\""},
    };
    char name = 'a';
    for (const auto& c : cases) Add(std::string(1, name++), c.first);
    fs::permissions(Add("plain", "") / "plain", fs::perms::owner_read);
    m_Packages.Write("plain/qxplain.xml", "");
    AddSound("sound", "exit 9");
    EXPECT_EQ(4, RunScripts("--json"));
    EXPECT_FALSE(Says("left behind"));
    const Json offers = Offers();
    const std::size_t count = std::size(cases);
    ASSERT_EQ(count + 2, offers.size()) << m_Output;
    EXPECT_EQ(4, Document().at("status"));
    for (std::size_t i = 0; i < count; i++) {
        const std::string why = offers[i].at("why");
        EXPECT_NE(std::string::npos, why.find(cases[i].second)) << cases[i].first << "\n" << why;
        EXPECT_EQ("failed", offers[i].at("verdict"));
    }
    EXPECT_EQ("The installer plain may not be run. Make it executable (chmod +x).", offers[count].at("why"));
    EXPECT_EQ("F&\"1<sound", offers.back().at("device"));
    EXPECT_EQ("install", offers.back().at("verdict"));
}

TEST_F(Zaldeploy, EndsDiscoveriesThatDoNotEnd)
{
    Add("hangs", std::string(LeavesAnother) + "sleep 20");
    Add("writes", "#!/bin/sh\ntrap '' TERM\ntimeout --foreground 20 yes rubbish");
    EXPECT_EQ(4, RunScripts("--json --timeout 0.5"));
    EXPECT_FALSE(Says("left behind"));
    for (const Json& offer : Offers())
        EXPECT_EQ(
            "The installer did not finish within 0.5 seconds and was ended. Nothing was installed. Try again with a "
            "longer --timeout.",
            offer.at("why"));
}

TEST_F(Zaldeploy, KeepsTheNewestPackageForADevice)
{
    for (const auto& [name, offered] :
         {std::pair("a", "2.9"), {"b", "2.10"}, {"c", "2.10 (01/02/2020)"}, {"d", "1.0"}}) {
        AddSound(name, "echo $offered > device", offered);
        m_Packages.Write(std::string(name) + "/id", "one");
    }
    AddSound("other", ":");
    EXPECT_EQ(1, RunScripts("--json"));
    for (int i : {0, 1, 3}) {
        EXPECT_EQ("superseded", Offers().at(i).at("verdict")) << i;
        EXPECT_EQ("A newer version, 2.10 (01/02/2020), is offered for this device by " +
                      (m_Packages.Path() / "c").string() + ".",
                  Offers().at(i).at("why"));
    }
    for (int i : {2, 4}) EXPECT_EQ("install", Offers().at(i).at("verdict")) << i;
    EXPECT_EQ(1, RunScripts("--json --only a --only D"));
    EXPECT_EQ(2u, Offers().size()) << m_Output;
    EXPECT_EQ("install", Offers().at(0).at("verdict"));
    EXPECT_EQ(1, RunScripts("plan"));
    EXPECT_TRUE(Says("\nOf several packages for a device the newest counts:\n")) << m_Output;
    EXPECT_EQ(7, RunScripts("--only e"));
    EXPECT_TRUE(Says("--only e: no package, component or device has this name")) << m_Output;
}

TEST_F(Zaldeploy, ShowsEachRowAsSoonAsItIsKnown)
{
    const std::string flag = (m_Server.Path() / "seen").string();
    AddSound("a", ":");
    Add("b", "#!/bin/sh\nfor i in $(seq 100); do [ ! -e " + flag + " ] || exit 7; sleep 0.1; done");
    RunCommand("{ " ZALDEPLOY " --wait 60 --allow-unsigned " + m_Packages.Path().string() +
                   " | { read head; read rule; read row; touch " + flag + "; cat; }; }",
               m_Output);
    EXPECT_TRUE(Says("ended with exit status 7")) << m_Output;
}

TEST_F(Zaldeploy, PrintsCommandsThatCanBePasted)
{
    const fs::path folder = AddSound("its $(a) \033[2J\302\233", "echo 2.0 > device; echo Done.");
    EXPECT_EQ(1, RunScripts("install --dry-run --json"));
    EXPECT_FALSE(Says("\302\233")) << m_Output;
    EXPECT_EQ(1, RunScripts("install --dry-run"));
    EXPECT_FALSE(Says("\033")) << m_Output;
    const std::size_t start = m_Output.find("$'");
    ASSERT_NE(std::string::npos, start) << m_Output;
    const std::string command = m_Output.substr(start, m_Output.find('\n', start) - start);
    EXPECT_EQ(0, RunCommand("bash " + m_Server.Write("pasted", command), m_Output)) << command << m_Output;
    EXPECT_EQ("2.0\n", ReadFile(folder / "device"));
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
        {"echo Done.", 6, "failed", "1.0", "Done. Yet the device runs 1.0. Do not restart"},
        {"echo 2.0 > device; rm $0; echo Done.", 4, "not verified", "", "Done. What the device runs now"},
        {"echo Restart.; exit 1", 2, "installed, restart", "1.0", "Restart."},
        {"echo 2.0 > device; exit 2", 0, "runs already", "2.0", "says that this version is installed already."},
        {"exit 2", 6, "failed", "1.0", "says that this version is installed already."},
        {"echo 9.0 > device; exit 3", 0, "runs already", "9.0", "says that a newer version is installed."},
        {"echo Refused.; printf 'x 49%%\\r\\rx 50%%\\n'; exit 7", 6, "failed", "1.0", "Refused."},
        {"echo 50%; exit 7", 6, "failed", "1.0", "says that it failed, and gives no reason."},
        {"echo '{\"report\": \"result\", \"message\": \"No\\u202e.\", \"left\": \"untouched\"}' >&$FLASHLIB_REPORT; "
         "echo Bye.; exit 7",
         6, "failed", "1.0", "No?."},
        {"echo half > device; kill -9 $$", 6, "failed", "half", "crashed (Killed). The device may be half written."},
        {"echo half > device; exit 99", 6, "failed", "half", "exit status 99. The device may be half written."},
    };
    for (const auto& c : cases) {
        const fs::path folder = AddSound("fan", c.Install);
        EXPECT_EQ(c.Status, RunScripts("install --yes --json")) << c.Install << m_Output;
        EXPECT_EQ(c.Status, Offers().at(0).at("status"));
        const Json outcome = Offers().at(0).at("outcome");
        EXPECT_EQ(c.Result, outcome.at("result")) << c.Install;
        EXPECT_EQ(c.Now, outcome.at("now")) << c.Install;
        EXPECT_NE(std::string::npos, outcome.at("message").get<std::string>().find(c.Message)) << c.Install << outcome;
        fs::remove_all(folder);
        fs::remove(m_Server.Path() / "history.db");
    }
}

TEST_F(Zaldeploy, RecordsWhatDiscoveryFindsAndNotWhatWasAnnounced)
{
    UseRack();
    EXPECT_EQ(0, RunOnServer("history"));
    EXPECT_TRUE(Says("Nothing was installed yet.")) << m_Output;
    EXPECT_EQ(2, RunOnServer("install --yes '" PACKAGES "/systemrom' '" PACKAGES "/devicefw'")) << m_Output;
    const std::string columns = "component, serial, device, from_version, to_version, action, result, status";
    EXPECT_EQ(
        "Quorvant Tamberline Controller Firmware|SIM7400001|TMBR|1.2.5|1.3.2|upgrade|installed|0\n"
        "Quorvant System ROM - P70|SIM7400001|P70|2.30 (09/12/2019)||upgrade|waiting for restart|2\n",
        Rows(columns));
    EXPECT_EQ("1\n1\n", Rows("log_excerpt LIKE \"%CComponent::Install:%\" AND seconds > 0"));
    EXPECT_EQ(2, RunOnServer("plan --json '" PACKAGES "/systemrom'"));
    ExpectSchema("zaldeploy.plan");
    EXPECT_EQ("waiting", Offers().at(0).at("verdict"));
    EXPECT_EQ("waiting for restart", Json::parse(m_Output).at("unfinished").at(0).at("result"));

    // What is flashed meanwhile is what counts.
    EXPECT_EQ(2, RunOnServer("install --yes --force '" PACKAGES "/systemrom'")) << m_Output;
    RunCommand(ZALSIM " --restart --server " + m_Server.Path().string(), m_Output);
    EXPECT_EQ(0, RunOnServer("'" PACKAGES "/systemrom'")) << m_Output;
    EXPECT_FALSE(Says("restart")) << m_Output;
    EXPECT_EQ("installed|2.40 (03/15/2021)\ninstalled|1.3.2\nreplaced|\n", Rows("result, to_version"));
    EXPECT_EQ(0, RunOnServer("history --json"));
    ExpectSchema("zaldeploy.history");

    // A ROM that does not start.
    EXPECT_EQ(2, RunOnServer("install --yes --force '" PACKAGES "/systemrom'")) << m_Output;
    m_Server.Write("rom.bin", std::string(1 << 20, 'x'));
    RunCommand(ZALSIM " --restart --server " + m_Server.Path().string(), m_Output);
    EXPECT_EQ(1, RunOnServer("'" PACKAGES "/systemrom'")) << m_Output;
    EXPECT_EQ("failed|6|Incomplete", Rows("result, status, to_version").substr(0, 19));
}

TEST_F(Zaldeploy, PutsBackWhatAnInstallationHasReplaced)
{
    UseRack();
    const fs::path kept = m_Server.Path() / "var/lib/flashlib/backup";
    const std::string restart = ZALSIM " --restart --server " + m_Server.Path().string();
    EXPECT_EQ(7, RunOnServer("restore --yes P70"));
    EXPECT_TRUE(Says("nothing is kept of P70 in " + kept.string())) << m_Output;
    EXPECT_EQ(2, RunOnServer("install --yes '" PACKAGES "/systemrom'")) << m_Output;
    RunCommand(restart, m_Output);
    EXPECT_EQ(7, RunOnServer("restore P70 </dev/null")) << m_Output;
    EXPECT_EQ(2, RunOnServer("restore --yes --json p70")) << m_Output;
    ExpectSchema("zaldeploy.restore");
    EXPECT_EQ("2.30 (09/12/2019)", Offers().at(0).at("offered"));
    RunCommand(restart, m_Output);
    EXPECT_EQ(1, RunOnServer("'" PACKAGES "/systemrom'")) << m_Output;
    EXPECT_TRUE(Says("P70      2.30 (09/12/2019)  2.40 (03/15/2021)  upgrade ")) << m_Output;
    EXPECT_EQ("downgrade|2.30 (09/12/2019)|installed", Rows("action, to_version, result").substr(0, 37));

    // Of a write that breaks off the old ROM is put back before the server restarts.
    UseRack(R"({"faults": {"flash": {"power_lost_after_blocks": 5}}})");
    EXPECT_EQ(6, RunOnServer("install --yes '" PACKAGES "/systemrom'")) << m_Output;
    UseRack();
    EXPECT_EQ(2, RunOnServer("restore --yes P70")) << m_Output;
    EXPECT_FALSE(fs::exists(kept / "P70.writing"));

    // Both images are there now. One that is not what was kept is refused, and so is another installer.
    EXPECT_EQ(7, RunOnServer("restore --yes P70"));
    EXPECT_TRUE(Says("several images are kept of P70: name one of P70_2.30_")) << m_Output;
    for (const auto& entry : fs::directory_iterator(kept))
        if (entry.path().filename().string().rfind("P70_2.30_", 0) == 0) {
            std::ofstream(entry.path(), std::ios::in | std::ios::binary) << "x";
            EXPECT_EQ(3, RunOnServer("restore --yes " + entry.path().filename().string())) << m_Output;
        }
    std::ofstream(kept / "P70.package/systemrom/MANIFEST", std::ios::app) << "x";
    for (const auto& entry : fs::directory_iterator(kept)) {
        const std::string image = entry.path().filename().string();
        if (image.rfind("P70_2.40_", 0) != 0) continue;
        EXPECT_EQ(4, RunOnServer("restore --yes " + image)) << m_Output;
    }
}

TEST_F(Zaldeploy, ErasesNothingWhereTheWayBackCanNotBeKept)
{
    UseRack();
    fs::create_directories(m_Server.Path() / "var/lib/flashlib");
    m_Server.Write("var/lib/flashlib/backup", "");
    EXPECT_EQ(6, RunOnServer("install --yes '" PACKAGES "/systemrom'")) << m_Output;
    EXPECT_TRUE(Says("The way back can't be kept: ")) << m_Output;
    EXPECT_FALSE(fs::exists(m_Server.Path() / "rom.bin"));
}

TEST_F(Zaldeploy, TellsOfAnInstallationThatWasInterrupted)
{
    AddSound("fan", "echo half > device; kill -KILL $PPID; sleep 0.1");
    EXPECT_EQ(128 + SIGKILL, RunScripts("install --yes")) << m_Output;
    EXPECT_EQ("interrupted|1.0||6\n", Rows("result, from_version, to_version, status"));
    EXPECT_EQ(1, RunScripts("plan"));
    EXPECT_EQ(0u, m_Output.find("An installation was interrupted: Fan, from 1.0 to 2.0, begun on 20")) << m_Output;
    EXPECT_EQ("interrupted|half\n", Rows("result, to_version"));
    AddSound("fan", "echo 2.0 > device; echo Done.");
    m_Packages.Write("fan/device", "half\n");
    EXPECT_EQ(0, RunScripts("install --yes")) << m_Output;
    EXPECT_EQ(0, RunScripts("plan"));
    EXPECT_FALSE(Says("interrupted")) << m_Output;
    EXPECT_EQ("installed|2.0\ninterrupted|half\n", Rows("result, to_version"));
}

TEST_F(Zaldeploy, InstallsWithoutAHistory)
{
    const std::string file = (m_Server.Path() / "history.db").string();
    const std::pair<std::string, const char*> cases[] = {
        {"head -c 4000 /dev/urandom > " + file, "can't be used (file is not a database)"},
        {"rm " + file + "; mkdir " + file, "it is no regular file"},
        {"rmdir " + file + "; sqlite3 " + file + " 'PRAGMA user_version = 9'", "one of another version"},
        {"rm " + file + "; ln -s /nowhere/history.db " + file, "unable to open database file"},
    };
    AddSound("fan", "echo Done.");
    for (const auto& c : cases) {
        RunCommand(c.first, m_Output);
        m_Packages.Write("fan/device", "2.0");
        EXPECT_EQ(0, RunScripts("install --yes --force")) << m_Output;
        EXPECT_TRUE(Says(c.second)) << m_Output;
        EXPECT_TRUE(Says("installed: Done.")) << m_Output;
    }
}

TEST_F(Zaldeploy, AsksAnInstallationToEndBeforeItIsEnded)
{
    AddSound("announces", "sleep 1.2; echo 2.0 > device; echo Done.");
    m_Packages.Write("announces/duration", "1\n");  // seconds
    AddSound("finishes", "trap 'echo 2.0 > device; echo Done.; exit 0' TERM; sleep 20");
    AddSound("ignores", "trap '' TERM; sleep 20");
    EXPECT_EQ(6, RunScripts("install --yes --json --timeout 1"));
    for (int i : {0, 1}) EXPECT_EQ("installed", Offers()[i].at("outcome").at("result")) << m_Output;
    EXPECT_EQ(
        "The installer did not finish within 1 seconds and was ended. The device may be half written. Do not restart "
        "the server; run zaldeploy install again.",
        Offers()[2].at("outcome").at("message"));
}

TEST_F(Zaldeploy, StopsAfterTheComponentThatRuns)
{
    AddSound(
        "one",
        "trap 'echo 2.0 > device; echo Done.; exit 0' TERM; kill -TERM $PPID; for i in $(seq 100); do sleep 0.1; done");
    AddSound("two", "echo 2.0 > device");
    EXPECT_EQ(5, RunScripts("install --yes")) << m_Output;
    EXPECT_TRUE(Says("Finishing Fan, then stopping; do not switch off.\n  installed: Done.")) << m_Output;
    EXPECT_TRUE(Says("not run    1.0  1.0\n    zaldeploy was stopped before. The device was not touched.")) << m_Output;
    EXPECT_EQ("1.0\n", ReadFile(m_Packages.Path() / "two" / "device"));

    Add("one", "#!/bin/sh\nkill -HUP $PPID\nsleep 20");
    EXPECT_EQ(5, RunScripts("install --yes")) << m_Output;
    EXPECT_TRUE(Says("The installer was stopped. Nothing was installed. Run zaldeploy again.")) << m_Output;
    EXPECT_TRUE(Says("  stopped      -\n    zaldeploy was stopped before. Nothing")) << m_Output;
}

TEST_F(Zaldeploy, ShowsWhatTheServerIsMadeOf)
{
    UseRack();
    EXPECT_EQ(0, RunOnServer("inventory")) << m_Output;
    EXPECT_TRUE(
        Says("system ROM            P70                                   2.30 (09/12/2019)\n"
             "    redundant rom v2.10 (03/02/2018), boot block 04/17/2016\n"))
        << m_Output;
    EXPECT_EQ(0, RunOnServer("inventory --json"));
    ExpectSchema("zaldeploy.inventory");
    EXPECT_EQ("SIM7400001", Json::parse(m_Output).at("serial"));
    const Json server = Json::parse(m_Output).at("parts");
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
    EXPECT_TRUE(Says("can't be read\n    does not answer: restart it\n")) << m_Output;
    m_Server.Write("server.json", ReadFile(SERVERS "/bare/server.json"));
    EXPECT_EQ(4, RunOnServer("inventory --json")) << m_Output;
    ExpectSchema("zaldeploy.inventory");
}

TEST_F(Zaldeploy, FitsTheScreen)
{
    UseRack();
    for (const int width : {60, 80, 130}) {
        const std::string columns = "COLUMNS=" + std::to_string(width) + " " ZALDEPLOY " --server ";
        for (const char* command :
             {" '" PACKAGES "'", " inventory", " install --yes --force '" PACKAGES "'", " history"}) {
            RunCommand(columns + m_Server.Path().string() + command, m_Output);
            std::istringstream lines(m_Output);
            for (std::string line; std::getline(lines, line);)
                EXPECT_GE(static_cast<std::size_t>(width), line.size()) << line;
        }
    }
}

TEST_F(Zaldeploy, LeavesAServerAloneThatAnotherProgramWorksOn)
{
    UseRack();
    fs::create_directory(m_Server.Path() / "run");
    CServerLock lock;
    ASSERT_EQ(CServerLock::State_Held, lock.Take("/bin/other\n", m_Server.Path().string()));
    const std::string holder = "/bin/other? (process " + std::to_string(getpid()) +
                               ") has been working on the firmware of this server since 20";
    EXPECT_EQ(8, RunOnServer("install --yes '" PACKAGES "/devicefw'"));
    EXPECT_TRUE(Says("zaldeploy: " + holder)) << m_Output;
    EXPECT_EQ(8, RunCommand(ZALSIM " --server " + m_Server.Path().string() +
                                " -- '" PACKAGES "/devicefw/devicefw' /y '" PACKAGES "/devicefw'",
                            m_Output));
    EXPECT_TRUE(Says(holder)) << m_Output;

    const std::string waits = " install --yes --wait 100 '" PACKAGES "/devicefw' 2>&1 --server ";
    FILE* pOutput = popen((ZALDEPLOY + waits + m_Server.Path().string()).c_str(), "r");
    char szLine[1024] = "";
    ASSERT_TRUE(std::fgets(szLine, sizeof szLine, pOutput));
    EXPECT_TRUE(std::strstr(szLine, ". Waiting until it ends ...\n")) << szLine;
    lock = CServerLock();
    while (std::fgets(szLine, sizeof szLine, pOutput)) continue;
    EXPECT_EQ(0, pclose(pOutput)) << szLine;

    fs::permissions(m_Server.Path() / "run/flashlib", fs::perms::all);
    EXPECT_EQ(7, RunOnServer("'" PACKAGES "/devicefw'"));
    EXPECT_TRUE(Says("Others can write to the folder ")) << m_Output;
}

TEST_F(Zaldeploy, SaysWhenItCanNotRun)
{
    EXPECT_EQ(0, Run("--help"));
    EXPECT_TRUE(Says("  6  an installation failed\n")) << m_Output;
    AddSound("sound", ":");
    const std::string folder = " " + m_Packages.Path().string();
    const std::pair<std::string, const char*> cases[] = {
        {"", "A subcommand is required"},
        {"inventory folder", "not expected"},
        {"--timeout 0" + folder, "--timeout"},
        {"--nothing" + folder, "--nothing"},
        {"/nowhere", "there is no folder /nowhere"},
        {m_Server.Path().string(), "there is no component package in "},
        {"--quiet --verbose" + folder, "excludes"},
        {"--server /nowhere" + folder, "the simulated server in /nowhere can't be opened: "},
        {"inventory --server /nowhere", "the simulated server in /nowhere can't be opened: "},
        {"--server ''" + folder, "is empty"},
        {"install --dry-run --yes" + folder, "excludes"},
        {"--log /nowhere/log" + folder, "can't write the log /nowhere/log: No such file"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(7, RunHere(c.first)) << c.first << m_Output;
        EXPECT_TRUE(Says(c.second)) << c.first << m_Output;
    }
    EXPECT_EQ(7, RunOnHost("TMPDIR=/nowhere " ZALDEPLOY + folder, m_Output));
    EXPECT_TRUE(Says("there is no folder /nowhere for temporary files; TMPDIR names another")) << m_Output;
    const std::string plan = ZALDEPLOY " plan" + folder;
    const std::string commands[] = {plan,
                                    plan + " --json",
                                    ZALDEPLOY " inventory",
                                    ZALDEPLOY " history",
                                    ZALSIM " --version",
                                    "'" BUILD "/tools/zalfaults' --version",
                                    "'" BUILD "/tools/mkpackage' --version"};
    for (const std::string& command : commands) {
        EXPECT_NE(0, RunOnHost("{ " + command + " >/dev/full; }", m_Output)) << command;
        EXPECT_TRUE(Says("can't be printed: No space left on device")) << command << m_Output;
    }
}
