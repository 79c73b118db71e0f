#include <csignal>
#include <cstdlib>

#include "host/signals.h"
#include "tests/installers/installer.h"

namespace fs = std::filesystem;

namespace
{

class DeviceFirmware : public CInstallerTest
{
  protected:
    DeviceFirmware() : CInstallerTest("devicefw") {}

    std::string Journal() const { return ReadFile(m_Server.Path() / "journal.log"); }
};

const char* const Untouched = "The Tamberline controller was not touched and runs as before.";
const char* const InLoader = "The Tamberline controller waits in its boot loader: run this installer again.";
const char* const Unknown = "does not answer: restart the management processor, then run this installer again.";

}  // namespace

TEST_F(DeviceFirmware, FlashesVerifiesAndLogs)
{
    EXPECT_TRUE(Discovers(RackServer(), "<action value=\"upgrade\"/>"));
    EXPECT_TRUE(Ends(0, "  Uploading: 100352 of 200000 bytes, 50%, "));
    EXPECT_TRUE(Says("Tamberline controller firmware 1.3.2 was flashed and runs.\n"));
    EXPECT_NE(std::string::npos, Journal().find("device end handler=TMBR bytes=200000 whole=yes"));
    EXPECT_TRUE(Discovers(RackServer(), "<active_version value=\"1.3.2\"/>"));
    EXPECT_EQ(2, Run(RackServer()));
    EXPECT_EQ(0, Zalsim("--show-log"));
    EXPECT_TRUE(Says("  ROM flash    info      Tamberline controller firmware 1.3.2 flashed; was 1.2.5\n"));
}

TEST_F(DeviceFirmware, SendsNothingTwice)
{
    EXPECT_EQ(0, Run(RackServer(), "/s", "--journal " + (m_Server.Path() / "packets").string()));
    EXPECT_FALSE(Says("Uploading"));
    std::string count;
    RunCommand("grep ' send ' " + (m_Server.Path() / "packets").string() + " | grep -c DEVICE_FLASH", count);
    // Open, 196 pieces, and queries while the device is busy for 8 seconds.
    EXPECT_NEAR(1 + 196 + 9, std::stoi(count), 1);
}

TEST_F(DeviceFirmware, SaysWhyTheServerIsNotForIt)
{
    const std::tuple<const char*, int, const char*> cases[] = {
        {R"({"management_processor": {"tamberline": null}})", 4, "This server has no Tamberline controller"},
        {R"({"management_processor": null})", 7, "There is no driver for the management processor."},
        {R"({"faults": {"processor": {"dead": true}}})", 7, "The management processor does not answer; restart it"},
        {R"({"management_processor": {"generation": 2}})", 7, "its rule \"$Generation >= 3\" does not hold."},
    };
    for (const auto& [server, status, says] : cases) {
        EXPECT_TRUE(Ends(status, says, RackServer(server)));
        EXPECT_FALSE(fs::exists(m_Server.Path() / "TMBR.fw"));
    }
}

TEST_F(DeviceFirmware, FlashesTheFirstBackplaneOfItsType)
{
    Edit("settings.ini", "Kind = tamberline", "Kind = nvme_backplane\nType = 7");
    EXPECT_EQ(4, Run(RackServer())) << m_Output;
    Edit("settings.ini", "Type = 7", "Type = 2");
    Edit("settings.ini", "Handler = TMBR", "Handler = NVMeBackplane1");
    Edit("qxdevicefw.xml", "1.3.2", "1.21");
    EXPECT_TRUE(Ends(7, "the device refused the image at byte 0. The NVMe backplane runs version 1.20"));
}

TEST_F(DeviceFirmware, RefusesAPackageThatIsNotWhole)
{
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"Kind = tamberline", "Nothing = ", "The settings name no device that this installer knows: Kind must be"},
        {"Kind = tamberline", "Kind = nvme_backplane\nType = 2x", "The settings name no type of NVMe backplane: Type"},
        {"Kind = tamberline", "Kind = nvme_backplane\nType = 258", "The settings name no type of NVMe backplane: Type"},
        {"Handler = ", "Nothing = ", "The settings name no usable handler: Handler must have 1 to 15 characters."},
        {"Handler = ", "Handler = 0123456789AB", "The settings name no usable handler:"},
        {"File = ", "Nothing = ", "The settings name no device image of this package: File must be"},
    };
    for (const auto& [find, replacement, says] : cases) {
        Edit("settings.ini", find, replacement);
        EXPECT_TRUE(Ends(7, says));
        Restore("settings.ini");
    }
    const std::tuple<const char*, const char*, const char*> files[] = {
        {"qxdevicefw.xml", "truncate -s 5G", "more than the 1048576 that a package description may have."},
        {"settings.ini", "mkfifo", "The file settings.ini is no regular file."},
        {"tamberline_1.3.2.fw", "ln -s /dev/zero", "The device image tamberline_1.3.2.fw is no regular file."},
        {"tamberline_1.3.2.fw", "truncate -s 2G", "more than the 67108864 that such an image may have."},
    };
    for (const auto& [file, command, says] : files) {
        const fs::path path = m_Package.Path() / file;
        fs::remove(path);
        ASSERT_EQ(0, RunCommand(command + (" " + path.string()), m_Output));
        EXPECT_TRUE(Ends(7, says));
        fs::remove(path);
        Restore(file);
    }
    Edit("settings.ini", "Handler = TMBR", "Handler = Nobody");
    EXPECT_TRUE(Ends(7, "the management processor refused the handler Nobody that the settings name. The Tamberline"));
}

TEST_F(DeviceFirmware, SaysWhatStateAFailureLeavesAndRecovers)
{
    const std::tuple<const char*, int, const char*, const char*, const char*> cases[] = {
        {"device_error_at_byte=100000", 7, "the device refused the image at byte 99328", InLoader, "incomplete"},
        {"dies_at_byte=50000", 7, "the management processor stopped answering at byte 49152", Unknown, "unknown"},
        {"power_lost_at_byte=150000", 137, "Uploading: 140288", "", "nothing"},
        {R"(error='{"command": "DEVICE_FLASH", "exchange": 1}')", 7, "refused the handler", Untouched, "untouched"},
        {R"(lost='{"command": "DEVICE_FLASH", "exchange": 1}')", 7, "gave no usable answer", Untouched, "untouched"},
        {R"(lost='{"command": "DEVICE_FLASH", "exchange": 198}')", 0, "was flashed and runs", "", "runs new"},
        {R"(stale='{"command": "DEVICE_FLASH", "replies": 3}')", 0, "was flashed and runs", "", "runs new"},
    };
    for (const auto& [fault, status, says, state, left] : cases) {
        fs::remove(m_Server.Path() / "TMBR.fw");
        EXPECT_TRUE(Ends(status, says, RackServer(), "", std::string("--fault processor.") + fault)) << fault;
        EXPECT_TRUE(Says(state)) << fault;
        EXPECT_EQ(left, Left()) << fault;
        if (state == InLoader || state == Unknown || status == 137) {
            EXPECT_TRUE(Discovers(RackServer(), "<active_version value=\"Incomplete\"/>"));
        }
        EXPECT_TRUE(Ends(0, "1.3.2 was flashed and runs.", RackServer(), "/f"));
    }
}

TEST_F(DeviceFirmware, IsEndedByNoSignalThatCanBeHeld)
{
    const auto last = [] {
        HoldSignals();
        for (int signal = 1; signal <= 64; signal++)
            if (signal != SIGKILL && signal != SIGSTOP) kill(getpid(), signal);
        std::_Exit(3);
    };
    EXPECT_EXIT(last(), testing::ExitedWithCode(3), "");
}

TEST_F(DeviceFirmware, ReportsOnlyToADescriptorAndGoesOnWithoutAReader)
{
    const std::string installs = std::string(ZALSIM) + " --server " + m_Server.Path().string() +
                                 " -- '" PACKAGES "/devicefw/devicefw' /y " + m_Package.Path().string();
    m_Server.Write("server.json", RackServer());
    Edit("qxdevicefw.xml", "Tamberline Controller", "\"Fan\\ \xC3\xA9");
    EXPECT_EQ(0, Run(RackServer(), "/d " + (m_Server.Path() / "d.xml").string()));
    EXPECT_EQ(R"({"report": "properties", "name": "Quorvant \"Fan\\ é Firmware", "current": "1.2.5", )"
              R"("offered": "1.3.2", "state": 2, "message": "", "way_back": false})"
              "\n"
              R"({"report": "result", "message": "Discovery complete.", "left": "untouched"})"
              "\n",
              ReadFile(m_Server.Path() / "report"));
    EXPECT_EQ(0, RunCommand("FLASHLIB_REPORT=9x " + installs + " /f", m_Output));
    EXPECT_TRUE(Says("FLASHLIB_REPORT names no descriptor that can be written to; nothing is reported there."));
    RunCommand("{ (FLASHLIB_REPORT=9 " + installs + " /f >&8; echo $? >&8) 9>&1 | :; } 8>&1", m_Output);
    EXPECT_TRUE(Says("was flashed and runs.\n0\n"));
}

TEST_F(DeviceFirmware, PrintsIntoNoDeviceWhereTheStandardDescriptorsAreClosed)
{
    m_Server.Write("server.json", RackServer());
    const std::string log = (m_Server.Path() / "log").string();
    EXPECT_EQ(0, RunCommand("(exec 0<&- 1>&- 2>&-; QVFLASHLOG=" + log + " " + ZALSIM + " --server " +
                                m_Server.Path().string() + " -- '" PACKAGES "/devicefw/devicefw' /y " +
                                m_Package.Path().string() + ")",
                            m_Output));
    for (const char* descriptor : {"0x0", "0x1", "0x2"})
        EXPECT_EQ(std::string::npos, ReadFile(log).find(std::string("VALUE OF cruFd [") + descriptor + "]"));
    EXPECT_NE(std::string::npos, ReadFile(log).find("VALUE OF cruFd ["));
}
