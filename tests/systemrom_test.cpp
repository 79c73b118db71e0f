#include <cstdio>
#include <tuple>

#include "crc.h"
#include "installer.h"
#include "romimage.h"

namespace fs = std::filesystem;

namespace
{

const char* const Installer = PACKAGES "/systemrom/systemrom";

std::string Image(const char* family, std::size_t size)
{
    const std::vector<std::uint8_t> bytes = sim::BuildRomImage({family, "2.40", "03/15/2021", "SYSTEM ROM"}, size);
    return std::string(bytes.begin(), bytes.end());
}

class SystemRom : public CInstallerTest
{
  protected:
    SystemRom() : CInstallerTest("systemrom") {}

    // Gives the package an image with its checksum.
    void UseImage(const std::string& image)
    {
        m_Package.Write("P70_2.40.rom", image);
        char szCrc[9];
        std::snprintf(szCrc, sizeof szCrc, "%08X", sim::Crc32(image.data(), image.size()));
        m_Package.Write("settings.ini", std::string("[Image]\nFile = P70_2.40.rom\nCRC32 = ") + szCrc);
    }

    bool WasTouched() const { return fs::exists(m_Server.Path() / "rom.bin"); }
};

}  // namespace

TEST_F(SystemRom, DiscoversWhatItWouldDo)
{
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {R"({"rom": {"version": "2.30"}})", "older version installed", "upgrade"},
        {R"({"rom": {"version": "2.40", "date": "03/15/2021"}})", "same version installed", "rewrite"},
        {R"({"rom": {"version": "2.40", "date": "03/16/2021"}})", "newer version installed", "downgrade"},
        {R"({"rom": {"family": "T46"}})", "not needed on this server", "skip"},
    };
    for (const auto& [rom, state, action] : cases) {
        const fs::path xml = m_Server.Path() / "discovery.xml";
        EXPECT_EQ(0, Run(RackServer(rom), "/d " + xml.string())) << m_Output;
        EXPECT_TRUE(Says(state)) << m_Output;
        EXPECT_TRUE(Says("Discovery complete."));
        const std::string text = ReadFile(xml);
        for (const std::string& line :
             {std::string("<action value=\"") + action + "\"/>", std::string("  <type value=\"bios\"/>"),
              std::string("<product_id value=\"!00A5\"/>"), std::string("<duration value=\"300\"/>"),
              std::string("<takes_effect value=\"reboot\"/>")})
            EXPECT_NE(std::string::npos, text.find(line)) << text;
    }
}

TEST_F(SystemRom, InstallsLogsAndIsThenTheSame)
{
    EXPECT_EQ(1, Run(RackServer()));
    EXPECT_TRUE(Says("  Erasing the flash part ...\n  Programming the new ROM ...\n  Reading the ROM back ...\n"));
    EXPECT_TRUE(Says("System ROM P70 2.40 (03/15/2021) was flashed and read back. It takes effect when"));
    EXPECT_EQ(ReadFile(m_Package.Path() / "P70_2.40.rom"), ReadFile(m_Server.Path() / "rom.bin"));

    EXPECT_EQ(0, Run(RackServer(), "/d " + (m_Server.Path() / "d.xml").string()));
    EXPECT_TRUE(Says("same version installed")) << m_Output;
    EXPECT_NE(std::string::npos, ReadFile(m_Server.Path() / "d.xml").find("<action value=\"rewrite\"/>"));
    EXPECT_EQ(0, Zalsim("--show-log"));
    EXPECT_TRUE(Says("  ROM flash    info      System ROM P70 2.40 (03/15/2021) flashed; was 2.30 (09/12/2019)\n"))
        << m_Output;
}

TEST_F(SystemRom, RecoversFromAPowerCutAtAnyBlock)
{
    for (const char* fault :
         {"2 --fault flash.power_lost_after_blocks=1", "2 --fault flash.power_lost_after_blocks=16",
          "3 --fault flash.power_lost_after_blocks=1", "3 --fault flash.power_lost_after_blocks=15"}) {
        fs::remove(m_Server.Path() / "rom.bin");
        EXPECT_EQ(137, Run(RackServer(), "", std::string("--fault flash.power_lost_at_table=") + fault)) << m_Output;
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
    const char* const broken = "may hold no whole ROM: do not restart the server, run this installer again.";
    const char* const whole = "was flashed and read back. Afterwards a Cleanup table failed.";
    const std::pair<const char*, const char*> cases[] = {
        {"flash.no_header=true", untouched}, {"flash.fails_at_table=0", untouched}, {"flash.fails_at_table=2", broken},
        {"flash.fails_at_table=3", broken},  {"flash.stuck_block=7", broken},       {"flash.fails_at_table=4", whole},
    };
    for (const auto& c : cases) {
        fs::remove(m_Server.Path() / "rom.bin");
        EXPECT_EQ(7, Run(RackServer(), "", std::string("--fault ") + c.first)) << c.first;
        EXPECT_TRUE(Says(c.second)) << c.first << "\n" << m_Output;
        EXPECT_EQ(c.second != untouched, WasTouched());
        EXPECT_EQ(1, Run(RackServer(), "/f")) << c.first << "\n" << m_Output;
    }
    fs::remove(m_Server.Path() / "rom.bin");
    EXPECT_EQ(1, Run(RackServer(), "", "--fault flash.fails_at_table=1 --fault ipmi.status=1"));
    EXPECT_TRUE(Says("was flashed, but can't be read back; the event could not be logged. It takes")) << m_Output;
}

TEST_F(SystemRom, RefusesBeforeAnythingIsErased)
{
    for (const char* buffer : {"null", R"({"address": "0x6A000000", "size": 1048575})"}) {
        EXPECT_EQ(7, Run(RackServer(std::string("{\"flash_buffer\": ") + buffer + "}")));
        EXPECT_TRUE(Says("The firmware reserves")) << m_Output;
        EXPECT_FALSE(WasTouched());
    }
    // Whole images, but for another part and of another family.
    UseImage(Image("P70", 524288));
    EXPECT_EQ(7, Run(RackServer()));
    EXPECT_TRUE(Says("the flash part has 1048576 bytes and the image 524288. The ROM was not touched")) << m_Output;
    EXPECT_EQ(std::string::npos, ReadFile(m_Server.Path() / "journal.log").find("erase"));
    UseImage(Image("P71", 1048576));
    EXPECT_EQ(7, Run(RackServer()));
    EXPECT_TRUE(Says("The ROM image is P71 2.40 (03/15/2021), not what")) << m_Output;
    EXPECT_FALSE(WasTouched());
}

TEST_F(SystemRom, IsNotCutOffByAClosedPipe)
{
    m_Server.Write("server.json", RackServer());
    RunCommand(std::string(ZALSIM) + " --server " + m_Server.Path().string() + " -- " + Installer + " /y " +
                   m_Package.Path().string() + " | grep -q -m1 Erasing",
               m_Output);
    const std::string image = ReadFile(m_Package.Path() / "P70_2.40.rom");
    for (int i = 0; i < 500 && ReadFile(m_Server.Path() / "rom.bin") != image; i++) RunCommand("sleep 0.01", m_Output);
    EXPECT_EQ(image, ReadFile(m_Server.Path() / "rom.bin"));
}

TEST_F(SystemRom, WritesTheSameOrAnOlderVersionOnlyWhenForced)
{
    const std::string newer = RackServer(R"({"rom": {"version": "2.41"}})");
    EXPECT_EQ(2, Run(RackServer(R"({"rom": {"version": "2.40", "date": "03/15/2021"}})")));
    EXPECT_TRUE(Says("is installed already; /f writes it again")) << m_Output;
    EXPECT_EQ(3, Run(newer));
    EXPECT_TRUE(Says("A newer version is installed; /f goes back")) << m_Output;
    EXPECT_FALSE(WasTouched());
    EXPECT_EQ(1, Run(newer, "/f /s"));
    EXPECT_FALSE(Says("Erasing")) << m_Output;
    EXPECT_EQ(6, Run(newer, "/x"));
    EXPECT_TRUE(Says("Usage:"));
}

TEST_F(SystemRom, AppliesTheRuleOfItsSettings)
{
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"$RomMajor >= 3", "not needed on this server", "its rule \"$RomMajor >= 3\" does not hold."},
        {"$PlatformId == 0xA5 && $Blade == 0", "older version installed", ""},
        {"$RomMajor >=", "installation not allowed", "\"$RomMajor >=\" can't be evaluated: syntax error at its end."},
        {"1 + $Nothing", "not allowed", "undefined name at character 6, \"Nothing\"."},
        {"CPLD(300)", "not allowed", "argument out of range at character 9, \")\"."},
        {"MEMID(0) == 0", "not allowed", "hardware can't be read"},
    };
    for (const auto& c : cases) {
        Edit("settings.ini", "$RomMajor == 0 || $RomMajor >= 2", std::get<0>(c));
        Run(RackServer(R"({"management_processor": null})"), "/d " + (m_Server.Path() / "d.xml").string());
        EXPECT_TRUE(Says(std::get<1>(c))) << m_Output;
        EXPECT_TRUE(Says(std::get<2>(c))) << m_Output;
        Restore("settings.ini");
    }
}

TEST_F(SystemRom, SaysWhyTheServerIsNotForIt)
{
    const std::pair<const char*, const char*> cases[] = {
        {R"({"rom": {"family": "T46"}})", "for ROM family P70; this server has a ROM of family T46."},
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
    EXPECT_TRUE(Says("reserves no memory for flashing")) << m_Output;
}

TEST_F(SystemRom, RefusesADamagedImage)
{
    const fs::path image = m_Package.Path() / "P70_2.40.rom";
    const std::string whole = ReadFile(image);
    std::string changed = whole;
    changed[5000] ^= 1;
    const std::pair<std::string, const char*> cases[] = {
        {changed, "is damaged: it has 1048576 bytes with checksum"},
        {whole.substr(0, whole.size() - 1), "is damaged: it has 1048575 bytes with checksum"},
        {"", "is damaged: it is empty"},
    };
    for (const auto& c : cases) {
        m_Package.Write("P70_2.40.rom", c.first);
        EXPECT_EQ(7, Run(RackServer()));
        EXPECT_TRUE(Says(c.second)) << m_Output;
        EXPECT_TRUE(Says("installation not allowed"));
        EXPECT_FALSE(WasTouched());
    }
    for (const std::string& text : {whole.substr(1), std::string(1048576, '\0')}) {
        UseImage(text);
        EXPECT_EQ(7, Run(RackServer()));
        EXPECT_TRUE(Says(text.size() % 2 ? "is not made of whole blocks" : "no usable flash image header")) << m_Output;
    }
    fs::remove(image);
    EXPECT_EQ(7, Run(RackServer()));
    EXPECT_TRUE(Says("is missing or can't be read")) << m_Output;
}

TEST_F(SystemRom, RefusesAPackageThatIsNotWhole)
{
    const char* const xml = "qxsystemrom.xml";
    const char* const ini = "settings.ini";
    const std::tuple<const char*, const char*, std::string, const char*> cases[] = {
        {xml, "<name_xlate lang=\"en\">Quorvant System ROM - P70</name_xlate>", "", "has no usable name"},
        {xml, "Quorvant System ROM - P70", std::string(5000, 'x'), "has no usable name"},
        {xml, "2.40 (03/15/2021)", "two", "states no usable version"},
        {xml, "2.40 (03/15/2021)", "2.40 " + std::string(200, 'x'), "states no usable version"},
        {xml, "2.40 (03/15/2021)", "2.41 (03/15/2021)", "The ROM image is P70 2.40 (03/15/2021), not what"},
        {xml, "firmware:sd:bios", "firmware:" + std::string(200, 'x'), "states no usable firmware type"},
        {xml, "sw_key name=\"P70\"", "sw_key", "states no ROM family"},
        {xml, "</zal_package>", "", "no readable package description"},
        {ini, "[Image]", "[Picture]", "The settings name no ROM image"},
        {ini, "CRC32 = ", "CRC32 = 0x", "The settings name no ROM image"},
        {ini, "File = ", "File = ../", "The settings name no ROM image"},
        {ini, "File = P70_2.40.rom", "File = qxsystemrom.xml", "is damaged"},
    };
    for (const auto& [file, find, replacement, says] : cases) {
        Edit(file, find, replacement);
        EXPECT_EQ(7, Run(RackServer()));
        EXPECT_TRUE(Says(says)) << m_Output;
        EXPECT_TRUE(Says("installation not allowed")) << m_Output;
        EXPECT_FALSE(WasTouched());
        Restore(file);
    }
    fs::remove(m_Package.Path() / ini);
    EXPECT_EQ(7, Run(RackServer()));
    EXPECT_TRUE(Says("has no usable settings.ini")) << m_Output;
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
