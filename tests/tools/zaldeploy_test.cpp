#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <regex>
#include <sstream>

#include "support/serverlock.h"
#include "tests/tools/zaldeploy.h"

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

TEST_F(Zaldeploy, TellsWhatTheServerLacks)
{
    UseRack();
    EXPECT_EQ(0, RunOnServer("doctor --json")) << m_Output;
    ExpectSchema("zaldeploy.doctor");
    EXPECT_FALSE(fs::exists(m_Server.Path() / "var")) << "it has left a trace";
    EXPECT_EQ(3,
              RunCommand(ZALSIM " --clock-start 1000000000 --server " + m_Server.Path().string() +
                             " --fault processor.dead=true --fault ipmi.silent=true -- " ZALDEPLOY " doctor --server " +
                             m_Server.Path().string(),
                         m_Output));
    for (const char* line :
         {"event log             limited  -\n    The management controller does not answer. Inst",
          "processor  limited  -\n    It does not answer. Devices behind it can't be updated. Restart it.",
          "clock                 limited  2001-09-09T01:4", "built. The history", "Set the clock."})
        EXPECT_TRUE(Says(line)) << line << "\n" << m_Output;
    UseRack(R"({"driver": {"version": "5.5.4.0"}, "faults": {"smbios": "missing"}})");
    EXPECT_EQ(4, RunOnServer("doctor")) << m_Output;
    EXPECT_TRUE(
        Says("missing  5.5.4.0\n    CRU Driver version 5.5.4.0 is out-of-date. The driver version must be at "
             "least 5.5.4.1. Install a newer"))
        << m_Output;
    EXPECT_TRUE(Says("There is no /vmfs/devices/char/mem/smbios. Installers can't tell")) << m_Output;
    EXPECT_EQ(4, RunHere("doctor --state /proc")) << m_Output;
    EXPECT_TRUE(Says("    libzalftbl.so is the one for machines without the hardware")) << m_Output;
    EXPECT_TRUE(Says("state folder          missing  /proc\n") || Says("free space            missing")) << m_Output;
}

TEST_F(Zaldeploy, RecordsAServerThatAnswersAsTheOneDoes)
{
    // What installers, rules and the inventory make of a server.
    const auto answers = [this](const std::string& server) {
        std::string all;
        std::string output;
        const std::string on = "QVFLASHLOG=/dev/null " ZALSIM " --server " + server + " -- ";
        for (const std::string name : {"systemrom", "devicefw", "powercontroller"}) {
            RunCommand(on + PACKAGES "/" + name + "/" + name + " /d /dev/stdout /y " PACKAGES "/" + name, output);
            all += output;
        }
        for (const char* rule : {"MEMID(3) + GPI(1) * CPLD(2) - XPLD(0)", "$RomMajor * $Generation + $RomMinor"}) {
            RunCommand(ZALRULE " --server " + server + " '" + rule + "'", output);
            all += output;
        }
        Run("inventory --json --server " + server);
        return all + Document().at("parts").dump(2);
    };
    const std::string record = (m_Packages.Path() / "record").string();
    UseRack();
    EXPECT_EQ(0, RunOnServer("record --json --power-controller 3:0x30 " + record)) << m_Output;
    ExpectSchema("zaldeploy.record");
    EXPECT_EQ(answers(m_Server.Path().string()), answers(record));
    EXPECT_EQ(1, RunCommand("grep -rF SIM7400001 " + record + " || exit 1", m_Output)) << m_Output;
    EXPECT_EQ(2, Run("install --yes --quiet --server " + record + " '" PACKAGES "'")) << m_Output;
    EXPECT_EQ(7, RunOnServer("record " + record));
    EXPECT_TRUE(Says("can't record into " + record + ": it is there, and not an empty folder")) << m_Output;

    const char* const broken[] = {
        R"({"faults": {"driver": "missing", "processor": {"dead": true}}})",
        R"({"management_controller": false, "faults": {"smbios": "missing", "processor": {"no_driver": true}}})",
        R"({"rom": {}, "faults": {"smbios": "unreadable", "driver": "refuses"}})",
    };
    for (const char* members : broken) {
        UseRack(members);
        fs::remove_all(record);
        EXPECT_EQ(4, RunOnServer("record --keep-serials --power-controller 3:48 " + record)) << m_Output;
        EXPECT_TRUE(Says("not recorded\n    ")) << m_Output;
        EXPECT_EQ(answers(m_Server.Path().string()), answers(record)) << members;
    }
}

TEST_F(Zaldeploy, TellsWhatAPowerLossLeavesAndRecovers)
{
    UseRack(R"({"faults": {"flash": {"power_lost_after_blocks": 5}}})");
    EXPECT_EQ(6, RunOnServer("install --yes --quiet '" PACKAGES "/systemrom'")) << m_Output;
    EXPECT_TRUE(Says("failed  2.30 (09/12/2019)  Incomplete\n    The installer crashed (Killed)")) << m_Output;
    EXPECT_TRUE(Says("The device may be half written. Do not restart the server; run zaldeploy install again, or "));
    EXPECT_TRUE(Says("The debug log is ")) << m_Output;
    UseRack();
    EXPECT_EQ(2, RunOnServer("install --yes '" PACKAGES "/systemrom'")) << m_Output;
}

TEST_F(Zaldeploy, SurvivesDiscoveriesThatGoWrong)
{
    const std::string leavesAnother = LeavesAnother();
    const std::pair<const char*, const char*> cases[] = {
        {"#!/bin/sh\necho oops >&2\nkill -SEGV $$",
         "crashed (Segmentation fault): oops. Nothing was installed. Get the"},
        {"#!/bin/sh\nprintf 'Broken\\033[2J\\302\\233 \\342\\200\\256.\\n'\nexit 3",
         "ended with exit status 3: Broken?[2J? ?. Nothing was"},
        {"#!/bin/sh\nseq 9999\necho Lost.\nexit 3", "ended with exit status 3: Lost. Nothing was"},
        {"no program", "can't be started (Exec format error). Nothing"},
        {leavesAnother.c_str(), "wrote no discovery file. Nothing"},
        {"#!/bin/sh\nmkfifo $4", "wrote rubbish"},
        {"#!/bin/sh\nhead -c 2000000 /dev/zero > $4", "wrote rubbish"},
        {"#!/bin/sh\necho '<a b=\"&\">' > $4", "discovery file is none"},
        {"#!/bin/sh\necho '<qv_rom_discovery>' > $4", "breaks off"},
        {"#!/bin/sh\nprintf '<qv_rom_discovery>\n<alt_name value=\"%0999999d\"/>\n</qv_rom_discovery>\n' 0 > $4",
         "has a text of more than 1024 bytes"},
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
    EXPECT_TRUE(IsNothingLeft());
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
    Add("hangs", LeavesAnother() + "sleep 20");
    Add("writes", "#!/bin/sh\ntrap '' TERM\ntimeout --foreground 20 yes rubbish");
    EXPECT_EQ(4, RunScripts("--json --timeout 0.5"));
    EXPECT_TRUE(IsNothingLeft());
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
        {"echo Starting; echo 'Only 12% of it could be verified.'; exit 7", 6, "failed", "1.0",
         "Only 12% of it could be verified. The device runs 1.0. See to that, then run zaldeploy install again."},
        {"echo half > device; echo '  It is locked.'; exit 7", 6, "failed", "half",
         "It is locked. The device may be half written. Do not restart the server; run zaldeploy install again."},
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
    AddSound("one",
             "trap 'echo half > device; exit 4' TERM; kill -TERM $PPID; sleep 0.3; echo 2.0 > device; echo Done.");
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
        {"--quiet --timeout 3 --trust=/nowhere/key plan" + folder, "can't read /nowhere/key"},
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
        {"plan ''", "DIR: is empty"},
        {"plan --only ''" + folder, "--only: is empty"},
        {"plan --only Fan" + folder,
         "has this name, as far as they can be asked. These can't, which a plan without "
         "--only explains: sound."},
        {"--log /nowhere/log" + folder, "can't write the log /nowhere/log: No such file"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(7, RunHere(c.first)) << c.first << m_Output;
        EXPECT_TRUE(Says(c.second)) << c.first << m_Output;
    }
    EXPECT_EQ(7, RunOnHost("TMPDIR=/nowhere " ZALDEPLOY + folder, m_Output));
    EXPECT_TRUE(Says("can't make a folder in /nowhere (No such file or directory); TMPDIR names another")) << m_Output;
    EXPECT_EQ(1, RunOnHost("TMPDIR= " ZALDEPLOY " --allow-unsigned" + folder, m_Output)) << m_Output;
    EXPECT_EQ(7, RunOnHost("{ " ZALDEPLOY " plan --json --bogus" + folder + " 2>/dev/null; }", m_Output));
    ExpectSchema("zaldeploy.error");
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

TEST_F(Zaldeploy, TellsHelpIn80Columns)
{
    for (const std::string program :
         {ZALDEPLOY, ZALDEPLOY " install", ZALSIM, "'" BUILD "/tools/zalfaults'", "'" BUILD "/tools/zalrule'"}) {
        EXPECT_EQ(0, RunOnHost(program + " --help", m_Output)) << program;
        EXPECT_FALSE(std::regex_search(m_Output, std::regex("[^\n]{81}"))) << m_Output;
    }
}
