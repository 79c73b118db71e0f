#include "support.h"

namespace fs = std::filesystem;

namespace
{

const char* const Installer = PACKAGES "/systemrom/systemrom";

// A copy of the package, and a server, for the real installer.
class SystemRom : public testing::Test
{
  protected:
    SystemRom()
    {
        fs::copy(PACKAGES "/systemrom/qxsystemrom.xml", m_Package.Path());
        fs::copy(PACKAGES "/systemrom/P70_2.40.rom", m_Package.Path());
    }

    // Runs the installer on a server; what it prints is in m_Output.
    int Run(const std::string& server, const std::string& switches = "", const std::string& options = "")
    {
        m_Server.Write("server.json", server);
        return RunCommand(std::string(ZALSIM) + " --server " + m_Server.Path().string() + " " + options + " -- " +
                              Installer + " /y " + m_Package.Path().string() + " " + switches,
                          m_Output);
    }

    bool Says(const std::string& text) const { return m_Output.find(text) != std::string::npos; }

    // Replaces a text in the package description.
    void Edit(const std::string& find, const std::string& replacement)
    {
        std::string text = ReadFile(m_Package.Path() / "qxsystemrom.xml");
        const std::size_t position = text.find(find);
        ASSERT_NE(std::string::npos, position) << find;
        m_Package.Write("qxsystemrom.xml", text.replace(position, find.size(), replacement));
    }

    CTempFolder m_Package;
    CTempFolder m_Server;
    std::string m_Output;
};

}  // namespace

TEST_F(SystemRom, DiscoversWhatItWouldDo)
{
    const struct
    {
        const char* Rom;
        const char* State;
        const char* Action;
    } cases[] = {
        {R"({"rom": {"version": "2.30"}})", "older version installed", "upgrade"},
        {R"({"rom": {"version": "2.40", "date": "03/15/2021"}})", "same version installed", "rewrite"},
        {R"({"rom": {"version": "2.40", "date": "03/16/2021"}})", "newer version installed", "downgrade"},
        {R"({"rom": {"family": "I41"}})", "not needed on this server", "skip"},
    };
    for (const auto& c : cases) {
        const fs::path xml = m_Server.Path() / "discovery.xml";
        EXPECT_EQ(0, Run(RackServer(c.Rom), "/d " + xml.string())) << m_Output;
        EXPECT_TRUE(Says(c.State)) << m_Output;
        EXPECT_TRUE(Says("Discovery complete."));
        const std::string text = ReadFile(xml);
        for (const std::string& line :
             {std::string("<action value=\"") + c.Action + "\"/>", std::string("  <type value=\"bios\"/>"),
              std::string("<product_id value=\"!00A5\"/>"), std::string("<duration value=\"300\"/>")})
            EXPECT_NE(std::string::npos, text.find(line)) << text;
    }
}

TEST_F(SystemRom, InstallsLogsAndIsThenTheSame)
{
    EXPECT_EQ(1, Run(RackServer()));
    EXPECT_TRUE(Says("  Erasing the flash part ...\n  Programming the new ROM ...\n")) << m_Output;
    EXPECT_TRUE(Says("System ROM P70 2.40 (03/15/2021) was flashed and read back. It takes effect when"));
    EXPECT_EQ(ReadFile(m_Package.Path() / "P70_2.40.rom"), ReadFile(m_Server.Path() / "rom.bin"));

    EXPECT_EQ(0, Run(RackServer(), "/d " + (m_Server.Path() / "d.xml").string()));
    EXPECT_TRUE(Says("same version installed")) << m_Output;
    EXPECT_NE(std::string::npos, ReadFile(m_Server.Path() / "d.xml").find("<action value=\"rewrite\"/>"));
    EXPECT_EQ(0, RunCommand(std::string(ZALSIM) + " --server " + m_Server.Path().string() + " --show-log", m_Output));
    EXPECT_TRUE(Says("  ROM flash    info      System ROM P70 2.40 (03/15/2021) flashed; was 2.30 (09/12/2019)\n"))
        << m_Output;
}

TEST_F(SystemRom, RecoversFromAPowerCutAtAnyBlock)
{
    for (const char* fault : {"--fault flash.power_lost_at_table=2 --fault flash.power_lost_after_blocks=16",
                              "--fault flash.power_lost_after_blocks=1", "--fault flash.power_lost_after_blocks=15"}) {
        fs::remove(m_Server.Path() / "rom.bin");
        EXPECT_EQ(137, Run(RackServer(), "", fault)) << m_Output;
        EXPECT_EQ(0, Run(RackServer(), "/d " + (m_Server.Path() / "d.xml").string()));
        EXPECT_TRUE(Says("Current version  Incomplete")) << m_Output;
        EXPECT_NE(std::string::npos, ReadFile(m_Server.Path() / "d.xml").find("<action value=\"upgrade\"/>"));
        EXPECT_EQ(1, Run(RackServer()));
        EXPECT_TRUE(Says("was flashed and read back")) << m_Output;
        EXPECT_EQ(ReadFile(m_Package.Path() / "P70_2.40.rom"), ReadFile(m_Server.Path() / "rom.bin"));
    }
}

TEST_F(SystemRom, SaysWhatStateAFailureLeaves)
{
    const char* const untouched = "The ROM was not touched and runs as before.";
    const char* const broken = "holds no whole ROM: do not restart the server, run this installer again.";
    const char* const whole = "holds the new ROM whole";
    const std::pair<const char*, const char*> cases[] = {
        {"flash.no_header=true", untouched}, {"flash.fails_at_table=0", broken},  // shows at the erase table only
        {"flash.fails_at_table=2", broken},  {"flash.fails_at_table=3", broken},
        {"flash.stuck_block=7", broken},     {"flash.fails_at_table=4", whole},
    };
    for (const auto& c : cases) {
        fs::remove(m_Server.Path() / "journal.log");
        EXPECT_EQ(7, Run(RackServer(), "", std::string("--fault ") + c.first)) << c.first;
        EXPECT_TRUE(Says(c.second)) << c.first << "\n" << m_Output;
        EXPECT_EQ(c.second == untouched, ReadFile(m_Server.Path() / "journal.log").find("erase") == std::string::npos);
        EXPECT_EQ(1, Run(RackServer())) << c.first << "\n" << m_Output;
    }
    fs::remove(m_Server.Path() / "rom.bin");
    EXPECT_EQ(1, Run(RackServer(), "", "--fault flash.fails_at_table=1 --fault ipmi.status=1"));
    EXPECT_TRUE(Says("it can't be read back here. The event could not be logged.")) << m_Output;
}

TEST_F(SystemRom, RefusesBeforeAnythingIsErased)
{
    for (const char* buffer : {"null", R"({"address": "0x6A000000", "size": 1048575})"}) {
        EXPECT_EQ(7, Run(RackServer(std::string("{\"flash_buffer\": ") + buffer + "}")));
        EXPECT_TRUE(Says("bytes for flashing; the ROM image has 1048576.")) << m_Output;
        EXPECT_FALSE(fs::exists(m_Server.Path() / "journal.log"));
    }
}

TEST_F(SystemRom, SaysWhyTheServerIsNotForIt)
{
    const std::pair<const char*, const char*> cases[] = {
        {R"({"rom": {"family": "I41"}})", "for ROM family P70; this server has a ROM of family I41."},
        {R"({"driver": null})", "CRU driver is not loaded"},
        {R"({"driver": {"version": "5.5.4.0"}})", "CRU Driver version 5.5.4.0 is out-of-date."},
        {R"({"faults": {"driver": "refuses"}})", "The CRU Driver is out-of-date."},
        {R"({"faults": {"driver": "fails"}})", "The CRU Driver is out-of-date."},
        {R"({"faults": {"smbios": "missing"}})", "can't be read"},
        {R"({"faults": {"smbios": "empty"}})", "can't be read"},
        {R"({"faults": {"smbios": "no_anchor"}})", "can't be read"},
        {R"({"faults": {"smbios": "zero_address"}})", "can't be read"},
        {R"({"faults": {"smbios": "unreadable"}})", "can't be read"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(7, Run(RackServer(c.first))) << c.first;
        EXPECT_TRUE(Says(c.second)) << c.first << "\n" << m_Output;
        EXPECT_TRUE(Says("Nothing was installed")) << m_Output;
    }
    // The end of the table, which tells the reserved region, is cut off.
    EXPECT_EQ(7, Run(RackServer(R"({"faults": {"smbios": "truncated"}})")));
    EXPECT_TRUE(Says("reserves 0 bytes for flashing")) << m_Output;
}

TEST_F(SystemRom, RefusesADamagedImage)
{
    const fs::path image = m_Package.Path() / "P70_2.40.rom";
    const std::string whole = ReadFile(image);
    std::string changed = whole;
    changed[5000] ^= 1;
    const std::pair<std::string, const char*> cases[] = {
        {changed, "its checksum is"},
        {whole.substr(0, whole.size() - 65536), "its checksum is"},
        {whole.substr(0, whole.size() - 1), "its size is 1048575 bytes"},
        {"", "its size is 0 bytes"},
    };
    for (const auto& c : cases) {
        m_Package.Write("P70_2.40.rom", c.first);
        EXPECT_EQ(7, Run(RackServer()));
        EXPECT_TRUE(Says(c.second)) << m_Output;
        EXPECT_TRUE(Says("installation not allowed"));
        EXPECT_FALSE(fs::exists(m_Server.Path() / "journal.log"));
    }
    fs::remove(image);
    EXPECT_EQ(7, Run(RackServer()));
    EXPECT_TRUE(Says("is missing or can't be read")) << m_Output;
}

TEST_F(SystemRom, RefusesAPackageThatIsNotWhole)
{
    const struct
    {
        const char* Find;
        std::string Replacement;
        const char* Says;
    } cases[] = {
        {"<name_xlate lang=\"en\">Quorvant System ROM - P70</name_xlate>", "", "has no usable name"},
        {"Quorvant System ROM - P70", std::string(5000, 'x'), "has no usable name"},
        {"2.40 (03/15/2021)", "two", "states no usable version"},
        {"2.40 (03/15/2021)", "2.41 (03/15/2021)", "The ROM image is P70 2.40 (03/15/2021), not what"},
        {"sw_key name=\"P70\"", "sw_key", "states no ROM family"},
        {"rom_image", "image", "names no ROM image"},
        {"crc32=", "crc=", "names no ROM image"},
        {"file=\"P70_2.40.rom\"", "file=\"qxsystemrom.xml\"", "is damaged"},
        {"</zal_package>", "", "no readable package description"},
    };
    for (const auto& c : cases) {
        Edit(c.Find, c.Replacement);
        EXPECT_EQ(7, Run(RackServer()));
        EXPECT_TRUE(Says(c.Says)) << m_Output;
        EXPECT_TRUE(Says("installation not allowed")) << m_Output;
        fs::copy(PACKAGES "/systemrom/qxsystemrom.xml", m_Package.Path(), fs::copy_options::overwrite_existing);
    }
}

TEST_F(SystemRom, FindsItsDescriptionAmongAThousandFilesOrSaysThatThereIsNone)
{
    for (int i = 0; i < 1000; i++) m_Package.Write("file" + std::to_string(i) + ".xml", "<a/>");
    EXPECT_EQ(1, Run(RackServer()));
    EXPECT_TRUE(Says("older version installed")) << m_Output;

    for (const auto& entry : fs::directory_iterator(m_Package.Path())) fs::remove(entry);
    EXPECT_EQ(7, Run(RackServer()));
    EXPECT_TRUE(Says("no readable package description (qx*.xml) in " + m_Package.Path().string())) << m_Output;
    EXPECT_EQ(7, Run(RackServer(), "/y /no/such/folder"));
    fs::remove_all(m_Package.Path());
    EXPECT_EQ(7, Run(RackServer()));
    EXPECT_TRUE(Says("no readable package description")) << m_Output;
}

TEST_F(SystemRom, RunsWithoutAServerAndShowsHelp)
{
    EXPECT_EQ(7, RunCommand(std::string(Installer) + " /y " + m_Package.Path().string(), m_Output));
    EXPECT_TRUE(Says("CRU driver is not loaded")) << m_Output;
    EXPECT_EQ(0, RunCommand(std::string(Installer) + " --help", m_Output));
    EXPECT_TRUE(Says("Usage:"));
}

TEST_F(SystemRom, SimulationRefusesWhatItCantPlay)
{
    const std::string zalsim = ZALSIM;
    EXPECT_EQ(126, RunCommand(zalsim + " --server /no/such/server -- true", m_Output));
    EXPECT_TRUE(Says("There is no server in /no/such/server")) << m_Output;
    m_Server.Write("server.json", R"({"tpm": "maybe"})");
    EXPECT_EQ(126, RunCommand(zalsim + " --server " + m_Server.Path().string() + " --describe", m_Output));
    EXPECT_TRUE(Says("tpm can't be \"maybe\"")) << m_Output;
    EXPECT_EQ(126, RunCommand(zalsim + " --server " SERVERS "/rack -- /no/such/program", m_Output));
    EXPECT_EQ(126, RunCommand(zalsim + " --server " SERVERS "/rack", m_Output));
    if (sizeof(void*) == 4) {
        EXPECT_EQ(126, RunCommand(zalsim + " --server " SERVERS "/rack -- /bin/true", m_Output));
        EXPECT_TRUE(Says("is not a 32-bit program")) << m_Output;
    }
}
