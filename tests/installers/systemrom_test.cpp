#include <tuple>

#include "sim/images/romimage.h"
#include "tests/installers/installer.h"

namespace fs = std::filesystem;

namespace
{

const char* const Installer = "'" PACKAGES "/systemrom/systemrom'";

std::string Image(const char* family, std::size_t size, const char* name = "SYSTEM ROM")
{
    const std::vector<std::uint8_t> bytes = sim::BuildRomImage({family, "2.40", "03/15/2021", name}, size);
    return std::string(bytes.begin(), bytes.end());
}

class SystemRom : public CInstallerTest
{
  protected:
    SystemRom() : CInstallerTest("systemrom") {}

    bool WasTouched() const { return fs::exists(m_Server.Path() / "rom.bin"); }

    // The folder of kept images on the server, and the files in it.
    fs::path Kept() const { return m_Server.Path() / "var/lib/flashlib/backup"; }
    std::vector<std::string> KeptFiles() const
    {
        std::vector<std::string> files;
        for (const auto& entry : fs::directory_iterator(Kept())) files.push_back(entry.path().filename());
        return files;
    }
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
        EXPECT_TRUE(Discovers(RackServer(rom), std::string("<action value=\"") + action + "\"/>"));
        EXPECT_TRUE(Says(state));
    }
    for (const char* pszLine : {"  <type value=\"bios\"/>", "<product_id value=\"!00A5\"/>",
                                "<duration value=\"300\"/>", "<takes_effect value=\"reboot\"/>"})
        EXPECT_TRUE(Discovers(RackServer(), pszLine));
}

TEST_F(SystemRom, InstallsLogsAndIsThenTheSame)
{
    EXPECT_TRUE(Ends(1, "  Erasing the flash part ...\n  Programming the new ROM ...\n  Reading the ROM back ...\n",
                     RackServer()));
    EXPECT_TRUE(Says("System ROM P70 2.40 (03/15/2021) was flashed and read back. It takes effect when"));
    EXPECT_EQ(ReadFile(m_Package.Path() / "P70_2.40.rom"), ReadFile(m_Server.Path() / "rom.bin"));

    // The new one runs from the next restart on.
    EXPECT_TRUE(Discovers(RackServer(), "<action value=\"upgrade\"/>"));
    EXPECT_EQ(0, Zalsim("--describe"));
    EXPECT_TRUE(Says("  system ROM     P70 v2.30 (09/12/2019)\n    after restart P70 v2.40 (03/15/2021)\n"));
    EXPECT_EQ(0, Zalsim("--restart"));
    EXPECT_TRUE(Discovers(RackServer(), "<action value=\"rewrite\"/>"));
    EXPECT_EQ(0, Zalsim("--show-log"));
    EXPECT_TRUE(Says("  ROM flash    info      System ROM P70 2.40 (03/15/2021) flashed; was 2.30 (09/12/2019)\n"));
}

TEST_F(SystemRom, RecoversFromAPowerCutAtAnyBlock)
{
    for (const char* fault :
         {"2 --fault flash.power_lost_after_blocks=1", "2 --fault flash.power_lost_after_blocks=16",
          "3 --fault flash.power_lost_after_blocks=1", "3 --fault flash.power_lost_after_blocks=15"}) {
        fs::remove(m_Server.Path() / "rom.bin");
        EXPECT_EQ(137, Run(RackServer(), "", std::string("--fault flash.power_lost_at_table=") + fault)) << m_Output;
        EXPECT_TRUE(Discovers(RackServer(), "<action value=\"upgrade\"/>"));
        EXPECT_TRUE(Says("Current version  Incomplete"));
        EXPECT_TRUE(Ends(1, "was flashed and read back"));
        EXPECT_EQ(ReadFile(m_Package.Path() / "P70_2.40.rom"), ReadFile(m_Server.Path() / "rom.bin"));
    }
}

TEST_F(SystemRom, SaysWhatStateAFailureLeaves)
{
    const char* const untouched = "The system ROM was not touched and runs as before.";
    const char* const broken =
        "may hold no whole ROM: do not restart the server, run this installer again, or put the old ROM "
        "back: zaldeploy restore P70, or this installer with /r P70_2.30_";
    const char* const whole = "was flashed and read back. Afterwards a Cleanup table failed.";
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"flash.no_header=true", untouched, "untouched"}, {"flash.fails_at_table=0", untouched, "untouched"},
        {"flash.fails_at_table=2", broken, "incomplete"}, {"flash.fails_at_table=3", broken, "incomplete"},
        {"flash.stuck_block=7", broken, "incomplete"},    {"flash.fails_at_table=4", whole, "runs new"},
    };
    for (const auto& [fault, state, left] : cases) {
        fs::remove(m_Server.Path() / "rom.bin");
        EXPECT_TRUE(Ends(7, state, RackServer(), "", std::string("--fault ") + fault)) << fault;
        EXPECT_EQ(state != untouched, WasTouched());
        EXPECT_EQ(left, Left()) << fault;
        EXPECT_EQ(1, Run(RackServer(), "/f")) << fault << "\n" << m_Output;
    }
    fs::remove(m_Server.Path() / "rom.bin");
    EXPECT_TRUE(
        Ends(1, "but can't be read back. No old ROM was kept. Whether the event was logged can't be told. It takes",
             RackServer(R"({"flash_buffer": {"signature": "BRS$"}})"), "/f",
             "--fault flash.fails_at_table=1 --fault ipmi.status=1"));
    EXPECT_EQ("unknown", Left());
}

TEST_F(SystemRom, RefusesBeforeAnythingIsErased)
{
    for (const char* buffer : {"null", R"({"address": "0x6A000000", "size": 1048575})"}) {
        EXPECT_TRUE(Ends(7, "irmware reserves", RackServer(std::string("{\"flash_buffer\": ") + buffer + "}")));
        EXPECT_FALSE(WasTouched());
    }
    // Whole images, but for another part and of another family.
    UseImage("P70_2.40.rom", Image("P70", 524288));
    EXPECT_TRUE(Ends(7, "the flash part has 1048576 bytes and the image 524288. The system ROM was not touched"));
    EXPECT_EQ(std::string::npos, ReadFile(m_Server.Path() / "journal.log").find("erase"));
    UseImage("P70_2.40.rom", Image("P71", 1048576));
    EXPECT_TRUE(Ends(7, "The ROM image is P71 2.40 (03/15/2021), not what"));
    EXPECT_FALSE(WasTouched());
}

TEST_F(SystemRom, KeepsTheOldRomAndPutsItBack)
{
    EXPECT_EQ(137,
              Run(RackServer(), "", "--fault flash.power_lost_after_blocks=5 --fault flash.power_lost_at_table=3"));
    const std::vector<std::string> interrupted = KeptFiles();
    ASSERT_EQ(2u, interrupted.size());
    // What the power cut has left is not kept in place of it.
    EXPECT_TRUE(Ends(7, "zaldeploy restore P70", RackServer(), "", "--fault flash.fails_at_table=3"));
    EXPECT_EQ(interrupted, KeptFiles());
    EXPECT_EQ(1, Run(RackServer())) << m_Output;
    ASSERT_EQ(1u, KeptFiles().size());
    const std::string image = KeptFiles()[0];
    EXPECT_EQ(0u, image.find("P70_2.30_")) << image;

    EXPECT_EQ(0, Zalsim("--restart"));
    EXPECT_TRUE(Ends(1, "System ROM P70 2.30 (09/12/2019) was flashed and read back.", RackServer(), "/r " + image));
    EXPECT_EQ(ReadFile(Kept() / image), ReadFile(m_Server.Path() / "rom.bin"));
    EXPECT_EQ(0, Zalsim("--restart"));
    EXPECT_TRUE(Discovers(RackServer(), "<active_version value=\"2.30 (09/12/2019)\"/>"));
    EXPECT_NE(std::string::npos, ReadFile(m_Server.Path() / "report").find("\"way_back\": true}"));
    EXPECT_EQ(2u, KeptFiles().size());
}

TEST_F(SystemRom, PutsBackOnlyAWholeRomOfItsOwn)
{
    EXPECT_EQ(1, Run(RackServer())) << m_Output;
    const std::string flashed = ReadFile(m_Server.Path() / "rom.bin");
    const std::string kept = ReadFile(Kept() / KeptFiles()[0]);
    std::string changed = kept;
    changed[5000] ^= 1;
    const std::string other = Image("T46", kept.size());
    const std::string small = Image("P70", 524288);
    const auto named = [this](const std::string& image) {
        std::string digest;
        RunCommand("sha256sum " + m_Package.Write("image", image), digest);
        return "/P70_1_" + digest.substr(0, 16) + ".bin";
    };
    const std::tuple<std::string, std::string, const char*> cases[] = {
        {named(kept), changed, "is damaged: it has not the checksum that its name tells."},
        {"/P70.bin", kept, "is no kept image: its name tells no checksum."},
        {named(other), other, "is of ROM family T46; this server has a ROM of family P70."},
        {named(small), small, "the flash part has 1048576 bytes and the image 524288."},
        {named(kept).substr(0, 4), "", "its name tells no checksum."},
        {named("nothing"), "", "can't be read: No such file"},
    };
    for (const auto& [name, image, says] : cases) {
        const std::string path = image.empty() ? m_Package.Path().string() + name : m_Package.Write(name, image);
        EXPECT_TRUE(Ends(7, says, RackServer(), "/r " + path));
        EXPECT_EQ(flashed, ReadFile(m_Server.Path() / "rom.bin"));
    }
    EXPECT_EQ(6, Run(RackServer(), "/r /f"));
}

TEST_F(SystemRom, ErasesNothingThatItCanNotKeep)
{
    m_Server.Write("file", "");
    const std::string installs = std::string(ZALSIM) + " --server " + m_Server.Path().string() + " -- " + Installer +
                                 " /y " + m_Package.Path().string();
    const std::pair<std::string, const char*> cases[] = {
        {installs + " /k " + (m_Server.Path() / "file/kept").string(), "/file/kept: Not a directory."},
        {"ulimit -f 1000; QVFLASHLOG=/dev/null " + installs,
         "can't be kept in /var/lib/flashlib/backup: File too large."},
    };
    m_Server.Write("server.json", RackServer());
    for (const auto& [command, says] : cases) {
        EXPECT_EQ(7, RunCommand(command, m_Output)) << m_Output;
        EXPECT_TRUE(Says(says));
        EXPECT_TRUE(Says("The system ROM was not touched and runs as before."));
        EXPECT_FALSE(WasTouched());
        EXPECT_EQ(std::string::npos, ReadFile(m_Server.Path() / "journal.log").find("erase"));
    }
    EXPECT_TRUE(KeptFiles().empty());

    // A ROM that can't be read is given up on demand, what runs after the restart is not.
    const std::string unreadable = "--fault flash.fails_at_table=1";
    EXPECT_TRUE(Ends(7, "can't be read, so that there is no way back; /f", RackServer(), "", unreadable));
    EXPECT_FALSE(WasTouched());
    EXPECT_TRUE(Ends(1, "No old ROM was kept.", RackServer(), "/f", unreadable));
    EXPECT_EQ(0, Zalsim("--restart"));
    UseImage("P70_2.40.rom", Image("P70", 1048576, "ANOTHER ROM"));
    EXPECT_EQ(137, Run(RackServer(), "/f", "--fault flash.power_lost_after_blocks=5"));
    EXPECT_EQ(2u, KeptFiles().size());
    EXPECT_EQ(1, Run(RackServer(), "", unreadable)) << "what is not whole needs no way back" << m_Output;
}

TEST_F(SystemRom, IsNotCutOffByAClosedPipe)
{
    m_Server.Write("server.json", RackServer());
    RunCommand(std::string(ZALSIM) + " --server " + m_Server.Path().string() + " -- " + Installer + " /y " +
                   m_Package.Path().string() + " | grep -q -m1 Erasing",
               m_Output);
    const std::string image = ReadFile(m_Package.Path() / "P70_2.40.rom");
    EXPECT_EQ(image, ReadFile(m_Server.Path() / "rom.bin"));
}

TEST_F(SystemRom, WritesTheSameOrAnOlderVersionOnlyWhenForced)
{
    const std::string newer = RackServer(R"({"rom": {"version": "2.41"}})");
    EXPECT_TRUE(Ends(2, "is installed already; /f writes it again",
                     RackServer(R"({"rom": {"version": "2.40", "date": "03/15/2021"}})")));
    EXPECT_TRUE(Ends(3, "A newer version is installed; /f goes back", newer));
    EXPECT_FALSE(WasTouched());
    EXPECT_EQ(1, Run(newer, "/f /s"));
    EXPECT_FALSE(Says("Erasing"));
    EXPECT_TRUE(Ends(6, "Usage:", newer, "/x"));
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
        EXPECT_TRUE(Says(std::get<1>(c)));
        EXPECT_TRUE(Says(std::get<2>(c)));
        Restore("settings.ini");
    }
}

TEST_F(SystemRom, SaysWhyTheServerIsNotForIt)
{
    const std::pair<const char*, const char*> cases[] = {
        {R"({"rom": {"family": "T46"}})", "for ROM family P70; this server has a ROM of family T46."},
        {R"({"driver": null})", "CRU driver is not loaded"},
        {R"({"driver": {"version": "5.5.4.0"}})", "CRU Driver version 5.5.4.0 is out-of-date."},
        {R"({"faults": {"smbios": "missing"}})", "can't be read"},
        {R"({"faults": {"smbios": "unreadable"}})", "can't be read"},
    };
    for (const auto& c : cases) {
        EXPECT_TRUE(Ends(7, c.second, RackServer(c.first))) << c.first;
        EXPECT_TRUE(Says("Nothing was installed"));
    }
    // The end of the table, which tells the reserved region, is cut off.
    EXPECT_TRUE(Ends(7, "reserves no memory for flashing", RackServer(R"({"faults": {"smbios": "truncated"}})")));
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
        EXPECT_TRUE(Ends(7, c.second));
        EXPECT_TRUE(Says("installation not allowed"));
        EXPECT_FALSE(WasTouched());
    }
    for (const std::string& text : {whole.substr(1), std::string(1048576, '\0')}) {
        UseImage("P70_2.40.rom", text);
        EXPECT_TRUE(Ends(7, text.size() % 2 ? "is not made of whole blocks" : "no usable flash image header"))
            << m_Output;
    }
    fs::remove(image);
    EXPECT_TRUE(Ends(7, "is missing or can't be read"));
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
        {ini, "CRC32 = ", "CRC32 = 0x", "The settings state no checksum of the ROM image P70_2.40.rom:"},
        {ini, "File = ", "File = ../", "The settings name no ROM image"},
        {ini, "File = P70_2.40.rom", "File = qxsystemrom.xml", "is damaged"},
    };
    for (const auto& [file, find, replacement, says] : cases) {
        Edit(file, find, replacement);
        EXPECT_TRUE(Ends(7, says));
        EXPECT_TRUE(Says("installation not allowed"));
        EXPECT_FALSE(WasTouched());
        Restore(file);
    }
    fs::remove(m_Package.Path() / ini);
    EXPECT_TRUE(Ends(7, "has no usable settings.ini"));
}

TEST_F(SystemRom, FindsItsDescriptionAmongAThousandFilesOrSaysThatThereIsNone)
{
    for (int i = 0; i < 1000; i++) m_Package.Write("file" + std::to_string(i) + ".xml", "<a/>");
    EXPECT_TRUE(Ends(1, "older version installed"));

    for (const auto& entry : fs::directory_iterator(m_Package.Path())) fs::remove(entry);
    EXPECT_TRUE(Ends(7, "no readable package description (qx*.xml) in " + m_Package.Path().string()));
    EXPECT_EQ(7, Run(RackServer(), "/y /no/such/folder"));
    fs::remove_all(m_Package.Path());
    EXPECT_TRUE(Ends(7, "no readable package description"));
}

TEST_F(SystemRom, RunsWithoutAServerAndShowsHelp)
{
    const std::string installer = std::string("LD_LIBRARY_PATH='" BUILD "/platform' ") + Installer;
    EXPECT_EQ(7, RunOnHost(installer + " /y " + m_Package.Path().string(), m_Output));
    EXPECT_TRUE(Says("CRU driver is not loaded"));
    EXPECT_EQ(0, RunCommand(installer + " --help", m_Output));
    EXPECT_TRUE(Says("Usage:"));
}
