#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <regex>
#include <thread>

#include "sim/server.h"
#include "tests/installers/installer.h"

namespace fs = std::filesystem;

namespace
{

const std::string Installer = "'" PACKAGES "/systemrom/systemrom'";

class SimulatedServer : public CInstallerTest
{
  protected:
    SimulatedServer() : CInstallerTest("systemrom") {}
};

}  // namespace

TEST_F(SimulatedServer, RefusesWhatItCantPlay)
{
    const std::string rack = std::string(ZALSIM) + " --server '" SERVERS "/rack' ";
    const fs::path set = m_Server.Path() / "set";
    fs::copy(PACKAGES "/systemrom/systemrom", set);
    fs::permissions(set, fs::perms::set_uid, fs::perm_options::add);
    for (const char* folder : {"nested", "damaged"}) fs::create_directory(m_Server.Path() / folder);
    const std::string onServer = std::string(ZALSIM) + " --describe --server " + m_Server.Path().string();
    m_Server.Write("nested/server.json", std::string(100000, '['));
    m_Server.Write("damaged/server.json", "{}");
    m_Server.Write("damaged/rom.bin", "half");
    const std::pair<std::string, const char*> commands[] = {
        {std::string(ZALSIM) + " --server /no/such/server -- /bin/true", "There is no server in /no/such/server"},
        {rack, "nothing to do"},
        {rack + "--falt x=1", "--falt"},
        {rack + "-- /no/such/program", "can't run /no/such/program: No such file"},
        {rack + "-- true", "can't run true: No such file"},  // a name is no path
        {rack + "--describe --fault =3", "a fault is written NAME=VALUE, not =3"},
        {rack + "--describe --fault flash.fail_at_table=3",
         "zalsim: A fault of this run is wrong: There is no \"fail_at_table\" in \"flash\"\n"},
        {std::string(ZALSIM) + " --server " + m_Server.Path().string() + " --journal /dev/full -- " + Installer +
             " /y " + m_Package.Path().string(),
         "zalsim: Can't write the journal /dev/full"},
        {rack + (sizeof(void*) == 4 ? "-- /bin/true" : ""), sizeof(void*) == 4 ? "is not a 32-bit program" : ""},
        {rack + "-- " + m_Server.Write("script", "#!/bin/sh\n"), "/script is a script"},
        {rack + "-- " + set.string(), "/set is a set-user-ID"},
        {onServer + "/nested", "is wrong: it is nested more than 32 deep"},
        {onServer + "/damaged",
         "/rom.bin does not hold what the server keeps there (a flash part has a multiple of 65536 bytes). "},
    };
    m_Server.Write("server.json", RackServer());
    for (const auto& [command, sentence] : commands) {
        EXPECT_EQ(126, RunCommand(command, m_Output)) << command;
        EXPECT_TRUE(Says(sentence)) << command;
    }
}

TEST_F(SimulatedServer, IsRunOnWhateverTheSimulationsFolderIsCalled)
{
    const fs::path folder = m_Server.Path() / "a b:c" / "sim";
    fs::create_directories(folder);
    fs::create_directory_symlink(BUILD "/platform", folder.parent_path() / "platform");
    for (const char* file : {"zalsim", "libzalsim.so"}) fs::copy(fs::path(ZALSIM_FOLDER) / file, folder);
    m_Server.Write("server.json", RackServer());
    EXPECT_EQ(0, RunCommand("'" + (folder / "zalsim").string() + "' --server " + m_Server.Path().string() + " -- " +
                                Installer + " /d " + (m_Server.Path() / "d.xml").string() + " /y " +
                                m_Package.Path().string(),
                            m_Output));
    EXPECT_TRUE(Says("Discovery complete."));
}

TEST_F(SimulatedServer, NamesWhatIsWrongInADescription)
{
    const std::pair<std::string, std::string> members[] = {
        {R"("drvier": {})", R"(There is no "drvier" in "server.json")"},
        {R"("faults": {"flsh": {}})", R"(There is no "flsh" in "faults")"},
        {R"("faults": {"processor": {"lost": {"code": 3}}})", R"(There is no "code" in "lost")"},
        {R"("faults": {"processor": {"i2c": {"power_controller": {"eror": 3}}}})",
         R"(There is no "eror" in "power_controller")"},
        {R"("management_processor": {"i2c": [{"type": "eeprom", "devce_id": 2}]})",
         R"(There is no "devce_id" in "i2c")"},
        {R"("management_processor": {"i2c": [{"type": "eprom"}]})",
         R"("type" in "i2c" is "eprom", not one of eeprom, power_controller)"},
        {R"("management_processor": {"power_pic": null})", R"(A "power_controller" needs a "power_pic")"},
        {R"("product": 5)", R"("product" in "server.json" is 5, not a text)"},
        {R"("generation": "nine")", R"("generation" in "server.json" is "nine", not a number from 0 to 2147483647)"},
        {R"("generation": "9x")", R"("generation" in "server.json" is "9x", not a number)"},
        {R"("generation": -1)", R"("generation" in "server.json" is -1, not a number)"},
        {R"("platform_id": "0x10000")", R"("platform_id" in "server.json" is "0x10000", not a number from 0 to 65535)"},
        {R"("tpm": "maybe")", R"("tpm" in "server.json" is "maybe", not one of disabled, enabled, none)"},
        {R"("driver": "5.6")", R"("driver" is "5.6", not an object)"},
        {R"("firmware": {})", R"("firmware" in "server.json" is {}, not a list)"},
        {R"("faults": {"processor": {"dead": 1}})", R"("dead" in "processor" is 1, not true or false)"},
        {R"("rom": {"size": 65537})", R"("size" in "rom" is 65537, not a multiple of 65536 bytes)"},
        {R"("rom": {"name": ")" + std::string(1025, 'x') + R"("})", "have at most 1024 characters"},
        {R"("management_processor": {"version": "300.5"})", R"(version can't be "300.5")"},
        {R"("management_processor": {"version": "3.5.1.2"})", R"(version can't be "3.5.1.2")"},
        {R"("management_processor": {"version": "3.5b"})", R"(version can't be "3.5b")"},
        {R"("management_processor": {"date": "02/29/2019"})", R"(date can't be "02/29/2019")"},
        {R"("management_processor": {"date": "04/31/2019"})", R"(date can't be "04/31/2019")"},
        {R"("smbios_dump": "gone")", "There is no SMBIOS dump "},
        {R"("management_processor": {"flash": {"handler": "TMBR"}})", R"(two devices have the handler "TMBR")"},
    };
    for (const auto& [member, sentence] : members) {
        std::string said;
        try {
            UseServer(RackServer("{" + member + "}"));
        } catch (const std::exception& error) {
            said = error.what();
        }
        EXPECT_NE(std::string::npos, said.find(sentence)) << member << ": " << said;
    }
    UseServer(R"({"management_processor": {}})");
    EXPECT_NE(nullptr, sim::CurrentServer()->GetProcessor());
}

TEST_F(SimulatedServer, TellsWhatAProgramShouldNotHaveDone)
{
    m_Server.Write("server.json", RackServer());
    const std::string complaints =
        R"(zalsim: The server was used as no server should be:
zalsim: main in careless waited for the events 0x1 of a device that is waited for with 0x9.
zalsim: main in careless opened /dev/ipmi0 and did not close it.
zalsim: main in careless created a channel and did not close it.
zalsim: main in careless ran "true" and did not close its pipe with pclose.
)";
    const std::pair<const char*, int> endings[] = {{"0", 126}, {"2", 126}, {"3", 3}};
    for (const auto& [status, ended] : endings) {
        EXPECT_EQ(ended, Zalsim("-- " CARELESS " " + std::string(status)));
        const std::string becomes =
            ended == 126 ? "zalsim: So the exit status, " + std::string(status) + ", becomes 126.\n" : "";
        EXPECT_EQ(complaints + becomes,
                  std::regex_replace(m_Output, std::regex(R"((careless\+0x|poll in libasan|libasan)[^ ]*)"),
                                     "main in careless"));
    }
}

TEST_F(SimulatedServer, HasFoldersOfItsOwnForWhatIsKeptOnAHost)
{
    UseServer(RackServer());
    const std::string file = "/var/lib/flashlib/file";
    EXPECT_EQ(0, mkdir("/var/lib/flashlib", 0700));
    close(open((file + ".new").c_str(), O_WRONLY | O_CREAT, 0600));
    EXPECT_EQ(0, rename((file + ".new").c_str(), file.c_str()));
    EXPECT_TRUE(fs::is_regular_file(ServerFolder() / "var/lib/flashlib/file"));
    struct stat status = {};
    EXPECT_EQ(0, lstat(file.c_str(), &status) + stat(file.c_str(), &status) + access(file.c_str(), F_OK));
    EXPECT_EQ(0, unlink(file.c_str()));
    EXPECT_TRUE(fs::is_empty(ServerFolder() / "var/lib/flashlib"));
}

TEST_F(SimulatedServer, OpensItsDevicesInEveryThread)
{
    UseServer(RackServer());
    std::atomic<int> opened = 0;
    const auto openOften = [&] {
        for (int i = 0; i < 20000; i++) {
            const int fd = open("/dev/qvrcru", O_RDWR);
            if (ioctl(fd, 0) < 0 && errno == EINVAL) opened++;  // as the driver answers
            close(fd);
        }
    };
    std::thread threads[4];
    for (std::thread& thread : threads) thread = std::thread(openOften);
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(80000, opened);
}

TEST_F(SimulatedServer, IsNotInTheShellsThatAnInstallerStarts)
{
    UseServer(RackServer());
    setenv("LD_PRELOAD", "libzalsim.so", 1);
    EXPECT_EQ(0, RunCommand("echo \"[$LD_PRELOAD]\"", m_Output));
    EXPECT_EQ("[]\n", m_Output);
    EXPECT_STREQ("libzalsim.so", getenv("LD_PRELOAD"));
    unsetenv("LD_PRELOAD");
}

TEST_F(SimulatedServer, CutsARunAtTheStepThatIsNamed)
{
    const auto run = [&](const std::string& options) {
        for (const char* file : {"rom.bin", "steps", "var", "boot_id.running"}) fs::remove_all(m_Server.Path() / file);
        return Run(RackServer(), "/s", "--steps " + (m_Server.Path() / "steps").string() + " " + options);
    };
    ASSERT_EQ(1, run(""));
    std::smatch step;  // the fourth block, when it is programmed
    const std::string steps = ReadFile(m_Server.Path() / "steps");
    ASSERT_TRUE(std::regex_search(steps, step, std::regex("table 0 program\n(?:.*\n){3}([0-9]+) block 65536 3\n")));
    const std::size_t block = 65536;
    const std::string image = ReadFile(m_Package.Path() / "P70_2.40.rom");
    for (const auto& [when, written] :
         {std::pair(R"("when": "before")", 3 * block), std::pair(R"("when": "middle")", 3 * block + block / 2),
          std::pair(R"("bytes": 100)", 3 * block + 100), std::pair(R"("when": "after")", 4 * block)}) {
        EXPECT_EQ(137, run("--fault power_lost_at_step='{\"step\": " + step.str(1) + ", " + when + "}'"));
        EXPECT_EQ(image.substr(0, written) + std::string(image.size() - written, '\xFF'),
                  ReadFile(m_Server.Path() / "rom.bin"))
            << when;
    }
    std::regex_search(steps, step, std::regex("([0-9]+) table 0 erase\n"));
    EXPECT_EQ(137, run("--kill-at " + step.str(1)));
    EXPECT_EQ(std::string(image.size(), '\xFF'), ReadFile(m_Server.Path() / "rom.bin"));
    EXPECT_TRUE(fs::exists(m_Server.Path() / "rom.running"));  // the server was not restarted
}
