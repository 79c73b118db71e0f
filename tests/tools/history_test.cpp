#include <fstream>

#include "tests/tools/zaldeploy.h"

namespace
{

class History : public Zaldeploy
{
};

}  // namespace

TEST_F(History, RecordsWhatDiscoveryFindsAndNotWhatWasAnnounced)
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

TEST_F(History, PutsBackWhatAnInstallationHasReplaced)
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
    EXPECT_EQ(2, RunOnServer("verify '" PACKAGES "/systemrom'"))
        << "until the restart it runs what is gone" << m_Output;
    RunCommand(restart, m_Output);
    EXPECT_EQ(1, RunOnServer("'" PACKAGES "/systemrom'")) << m_Output;
    EXPECT_TRUE(Says("P70      2.30 (09/12/2019)  2.40 (03/15/2021)  upgrade ")) << m_Output;
    EXPECT_EQ("downgrade|2.30 (09/12/2019)|installed", Rows("action, to_version, result").substr(0, 37));

    // Of two kept images it is the last.
    for (const char* pszLast : {"2.40 (03/15/2021)", "2.30 (09/12/2019)"}) {
        EXPECT_EQ(2, RunOnServer("restore --yes --json SystemROM")) << m_Output;
        EXPECT_EQ(pszLast, Offers().at(0).at("offered"));
        RunCommand(restart, m_Output);
    }

    // Of a write that breaks off the old ROM is put back before the server restarts.
    UseRack(R"({"faults": {"flash": {"power_lost_after_blocks": 5}}})");
    EXPECT_EQ(6, RunOnServer("install --yes '" PACKAGES "/systemrom'")) << m_Output;
    EXPECT_TRUE(Says("zaldeploy install again, or put the old firmware back: zaldeploy restore P70.")) << m_Output;
    UseRack();
    EXPECT_EQ(2, RunOnServer("restore --yes P70")) << m_Output;
    EXPECT_FALSE(fs::exists(kept / "P70.writing"));

    // An image that is not what was kept is refused, and so is another installer.
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

TEST_F(History, ErasesNothingWhereTheWayBackCanNotBeKept)
{
    UseRack();
    fs::create_directories(m_Server.Path() / "var/lib/flashlib");
    m_Server.Write("var/lib/flashlib/backup", "");
    EXPECT_EQ(6, RunOnServer("install --yes '" PACKAGES "/systemrom'")) << m_Output;
    EXPECT_TRUE(Says("The way back can't be kept: ")) << m_Output;
    EXPECT_FALSE(fs::exists(m_Server.Path() / "rom.bin"));
}

TEST_F(History, TellsOfAnInstallationThatWasInterrupted)
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

    // It is told until it is known that the device is whole.
    AddSound("fan", "kill -KILL $PPID; sleep 0.1");
    EXPECT_EQ(128 + SIGKILL, RunScripts("install --yes")) << m_Output;
    m_Packages.Write("fan/device", "Incomplete\n");
    for (const char* pszFound : {"Incomplete", "1.5", ""}) {
        EXPECT_EQ(1, RunScripts("plan"));
        EXPECT_EQ(*pszFound != '\0', Says("interrupted")) << pszFound << m_Output;
        if (std::string(pszFound) == "Incomplete") m_Packages.Write("fan/device", "1.5\n");
    }
}

TEST_F(History, InstallsWithoutAHistory)
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
