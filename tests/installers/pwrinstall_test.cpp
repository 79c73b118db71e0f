#include <tuple>

#include "tests/installers/installer.h"

namespace fs = std::filesystem;

namespace
{

class PowerControllerInstall : public CInstallerTest
{
  protected:
    PowerControllerInstall() : CInstallerTest("powercontroller") {}

    int RunWithFault(const std::string& fault)
    {
        return Run(RackServer(), "", "--fault processor.i2c.power_controller." + fault);
    }

    std::string Registers() const { return ReadFile(m_Server.Path() / "powercontroller.json"); }

    // A controller as it was shipped.
    void Renew()
    {
        fs::remove_all(m_Server.Path());
        fs::create_directory(m_Server.Path());
    }
};

const char* const WaitsInLoader = "The power controller waits in its boot loader: run this installer again.";

}  // namespace

TEST_F(PowerControllerInstall, ProgramsRestoresVerifiesAndLogs)
{
    EXPECT_TRUE(Discovers(RackServer(), "<action value=\"upgrade\"/>"));
    EXPECT_TRUE(Ends(0, "  Unlocking the controller ...\n  Uploading: 1028 of 22556 bytes, 4%, "));
    EXPECT_TRUE(Says("Power controller microcode 2.1 was flashed and runs.\n"));
    // What the server had set up is there again.
    for (const char* value : {"\"0x1A\":1", "\"0x1C\":750", "\"0x2C\":320", "\"0x2E\":400", "\"0x30\":515"})
        EXPECT_NE(std::string::npos, Registers().find(value)) << Registers();
    EXPECT_NE(std::string::npos, ReadFile(m_Server.Path() / "journal.log").find("processor resume device=1"));
    EXPECT_EQ(2, Run(RackServer()));
    EXPECT_EQ(0, Zalsim("--show-log"));
    EXPECT_TRUE(Says("  ROM flash    info      Power controller microcode 2.1 flashed; was 1.4\n"));
}

TEST_F(PowerControllerInstall, FinishesAnUpdateThatWasCutOff)
{
    for (const char* record : {"2", "300", "513"}) {
        Renew();
        EXPECT_EQ(137, RunWithFault(std::string("power_lost_at_record=") + record)) << m_Output;
        EXPECT_TRUE(Discovers(RackServer(), "<active_version value=\"Incomplete\"/>")) << record;
        EXPECT_TRUE(Ends(0, "was flashed and runs. The update that was cut off before has cost"));
    }
}

TEST_F(PowerControllerInstall, SaysWhatStateAFailureLeaves)
{
    const std::tuple<const char*, int, const char*, const char*, const char*> cases[] = {
        {R"(error='{"at": 200, "times": 100}')", 0, "The upload failed; once more", "was flashed and runs.",
         "runs new"},
        {R"(error='{"at": 200, "times": 100000}')", 7, "it refused the microcode twice.", WaitsInLoader, "incomplete"},
        {"busy_at_record=300", 7, "it refused the microcode twice.", "", "incomplete"},
        {"never_unlocks=true", 7, "it does not enter its boot loader.",
         "The power controller runs version 1.4: run this", "runs old"},
        {"never_leaves_boot_loader=true", 7, "it does not leave its boot loader.", WaitsInLoader, "incomplete"},
        {R"(bad_checksum='{"at": 10, "times": 14}')", 0, "was flashed and runs.", "", "runs new"},
        {R"(no_acknowledge='{"at": 10, "times": 14}')", 0, "was flashed and runs.", "", "runs new"},
    };
    for (const auto& [fault, status, says, state, left] : cases) {
        Renew();
        EXPECT_EQ(status, RunWithFault(fault)) << fault << m_Output;
        EXPECT_TRUE(Says(says)) << fault;
        EXPECT_TRUE(Says(state)) << fault;
        EXPECT_EQ(left, Left()) << fault;
        EXPECT_NE(std::string::npos, ReadFile(m_Server.Path() / "journal.log").find("processor resume device=1"));
        EXPECT_EQ(0, Run(RackServer(), "/f")) << fault << m_Output;
    }
}

TEST_F(PowerControllerInstall, SaysWhyTheServerIsNotForIt)
{
    const std::tuple<std::string, int, const char*> cases[] = {
        {RackServer(R"({"management_processor": {"i2c": []}})"), 4, "This server has no power controller"},
        {RackServer(R"({"management_processor": {"i2c": [{"type": "power_controller", "bus": 3, "address": "0x30",
            "family": "brisk", "acts_as": "opal"}]}})"),
         7, "for Zephyra controllers; this server has a controller of family Brisk."},
        {RackServer(R"({"management_processor": null})"), 7, "There is no driver for the management processor."},
        {ReadFile(fs::path(SERVERS) / "blade" / "server.json"), 7, "&& !$Blade\" does not hold."},
    };
    for (const auto& [server, status, says] : cases) EXPECT_TRUE(Ends(status, says, server));
}

TEST_F(PowerControllerInstall, RefusesMicrocodeThatIsNotWholeBeforeAnythingIsTouched)
{
    Edit("settings.ini", "Family = Zephyra", "Family = Nobody");
    EXPECT_TRUE(Ends(7, "The settings name no family of power controllers."));
    Restore("settings.ini");
    Edit("settings.ini", "Bus = 3", "Bus = 3a");
    EXPECT_TRUE(Ends(7, "The settings do not say where the power controller is"));
    Restore("settings.ini");

    const std::string whole = ReadFile(m_Package.Path() / "zephyra_2.1.hex");
    m_Package.Write("zephyra_2.1.hex", whole.substr(1));
    EXPECT_TRUE(Ends(7, "zephyra_2.1.hex is damaged"));
    const std::string large = ":1C000000" + std::string(56, '0') + "E4\n";  // 28 data bytes
    const std::pair<std::string, const char*> cases[] = {
        {whole.substr(0, whole.size() / 2), "The microcode image is no valid Intel HEX text"},
        {large + whole, "has a record that the controller can't take"},
        {";" + large.substr(0, 40) + "\r" + large + whole, "has a record that the controller can't take"},
    };
    for (const auto& c : cases) {
        UseImage("zephyra_2.1.hex", c.first);
        EXPECT_TRUE(Ends(7, c.second));
    }
    EXPECT_EQ("", ReadFile(m_Server.Path() / "journal.log"));
    for (const char* pszEnd : {"", "\n:this is not read"}) {
        UseImage("zephyra_2.1.hex",
                 "; by hand\r\n\n" + whole.substr(0, whole.find(":00000001FF")) + ":00000001FF" + pszEnd);
        EXPECT_EQ(0, Run(RackServer(), "/f")) << m_Output;
    }
}
