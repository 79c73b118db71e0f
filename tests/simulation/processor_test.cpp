#include <sys/resource.h>
#include <unistd.h>

#include <cstring>
#include <ctime>
#include <functional>
#include <nlohmann/json.hpp>
#include <set>
#include <tuple>

#include "chif.h"
#include "sim/base/clock.h"
#include "sim/images/deviceimage.h"
#include "sim/server.h"
#include "tests/support.h"
#include "zalci.h"

namespace fs = std::filesystem;

namespace
{

using Bytes = std::vector<std::uint8_t>;

const char* const Backplane = "NVMeBackplane1";

std::int64_t Milliseconds()
{
    return sim::CClock::Instance().Now() / 1000000;
}

Bytes Image(const std::string& handler, int major, int minor, std::size_t size, int pass = 0)
{
    return sim::BuildDeviceImage(
        handler, {static_cast<BYTE>(major), static_cast<BYTE>(minor), static_cast<BYTE>(pass), 3, 15, 2021}, size);
}

int Upload(CChannelInterface& channel, const char* pszHandler, const Bytes& image)
{
    return channel.UploadDeviceFlashData(pszHandler, image.data(), static_cast<int>(image.size()));
}

// Opens, uploads, waits until the device is no longer busy: its status then.
int Flash(CChannelInterface& channel, const char* pszHandler, const Bytes& image)
{
    int status = channel.OpenDeviceFlash(pszHandler);
    if (status == DeviceFlashStatus_OK) status = Upload(channel, pszHandler, image);
    while (status == DeviceFlashStatus_OK && channel.QueryDeviceFlashStatus(pszHandler) == DeviceFlashStatus_Busy)
        sleep(1);
    return status == DeviceFlashStatus_OK ? channel.QueryDeviceFlashStatus(pszHandler) : status;
}

// "1.2.5" of its numbers.
std::string Dotted(const std::vector<int>& numbers)
{
    std::string text;
    for (const int number : numbers) text += (text.empty() ? "" : ".") + std::to_string(number);
    return text;
}

std::string TamberlineVersion(CChannelInterface& channel)
{
    int numbers[3] = {};
    EXPECT_TRUE(channel.GetTamberlineVersion(&numbers[0], &numbers[1], &numbers[2]));
    return Dotted({numbers[0], numbers[1], numbers[2]});
}

// "1.20", or "loader 3".
std::string BackplaneVersion(CChannelInterface& channel, int index = 0)
{
    int major = 0;
    int minor = 0;
    BOOL bLoader = FALSE;
    if (!channel.GetNVMeBackplaneVersion(index, &major, &minor, &bLoader)) return "unknown";
    return bLoader ? "loader " + std::to_string(major) : Dotted({major, minor});
}

void UseFaults(const std::string& faults, const std::string& members = "{}")
{
    nlohmann::json server = nlohmann::json::parse(members);
    server["faults"]["processor"] = nlohmann::json::parse(faults);
    UseServer(RackServer(server.dump()));
}

class Processor : public testing::Test
{
  protected:
    Processor() { UseServer(RackServer()); }
    ~Processor() override { unsetenv("ZALSIM_JOURNAL"); }

    static std::string Journal() { return ReadFile(ServerFolder() / "journal.log"); }

    // Puts packets into that journal from the next server on.
    static void RecordPackets() { setenv("ZALSIM_JOURNAL", (ServerFolder() / "journal.log").c_str(), 1); }
};

using ProcessorDeathTest = Processor;

}  // namespace

TEST_F(Processor, IsFoundOnEverySampleServer)
{
    // With generation, major and minor version, year.
    const std::tuple<const char*, ChannelState, const char*> cases[] = {
        {"rack", ChannelState_Open, "4.3.14.2019"}, {"blade", ChannelState_Open, "4.3.6.2019"},
        {"old", ChannelState_Open, "2.1.21.2012"},  {"bare", ChannelState_NoHardware, "0.0.0.0"},
        {"broken", ChannelState_Broken, "0.0.0.0"},
    };
    for (const auto& [server, state, version] : cases) {
        UseServer(ReadFile(fs::path(SERVERS) / server / "server.json"));
        const std::int64_t start = Milliseconds();
        const CChannelInterface channel;
        EXPECT_EQ(state, channel.GetState()) << server;
        EXPECT_EQ(version, Dotted({channel.GetMOXGeneration(), channel.GetMOXMajorVersion(),
                                   channel.GetMOXMinorVersion(), channel.GetMOXFwVersion().Year}));
        EXPECT_EQ(state == ChannelState_Broken ? 20 : 0, (Milliseconds() - start) / 1000) << server;
    }
}

TEST_F(Processor, ShowsInThePciDeviceListThatAShellReads)
{
    const auto find = [](const std::string& members) {
        UseFaults(R"({"no_driver": true})", members);
        return CChannelInterface().GetState();
    };
    EXPECT_EQ(ChannelState_NoDriver, find("{}"));
    for (const char* pszCount : {"0", "1", "2", "4"})
        EXPECT_EQ(ChannelState_NoHardware,
                  find(std::string(R"({"management_processor": {"pci_functions": )") + pszCount + "}}"));

    // The shell is another program: it must not get the preloaded library, and the installer must keep it.
    const fs::path folder = RunFolder() / "it's a server";
    fs::create_directory(folder);
    fs::copy(fs::path(SERVERS) / "rack" / "server.json", folder);
    sim::SetCurrentServer(std::make_unique<sim::CServer>(folder));
    setenv("LD_PRELOAD", "/no/such/library.so", 1);
    testing::internal::CaptureStderr();
    CChannelInterface channel;
    EXPECT_TRUE(channel.FindDevice());
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
    EXPECT_STREQ("/no/such/library.so", std::getenv("LD_PRELOAD"));
    unsetenv("LD_PRELOAD");
}

TEST_F(Processor, KeepsRegisters)
{
    UCHAR value = 0;
    {
        CChannelInterface channel;
        EXPECT_TRUE(channel.WriteCPLD(15, 0x77) && channel.WriteGPO(1, 5));
        EXPECT_FALSE(channel.ReadCPLD(16, &value) || channel.WriteGPO(-1, 0) || channel.ReadIoByte(13, 0, &value));
        EXPECT_FALSE(channel.WriteIoByte(IoAccessOp_PutGPIEN, 0, 0));  // this server has none
    }
    RestartServer();
    CChannelInterface channel;
    EXPECT_TRUE(channel.ReadCPLD(15, &value) && value == 0x77);
    EXPECT_TRUE(channel.ReadGPO(1, &value) && value == 5);
    EXPECT_TRUE(channel.ReadCPLD(0, &value) && value == 21);
}

TEST_F(Processor, ReachesI2CDevices)
{
    const auto text = [](CChannelInterface& channel, int offset) {
        const UCHAR pointer = static_cast<UCHAR>(offset);
        UCHAR data[4] = {};
        EXPECT_TRUE(channel.I2CTransaction(1, 0x50, &pointer, 1, data, sizeof data));
        return std::string(data, data + sizeof data);
    };
    const UCHAR write[] = {2, 'x', 'y'};
    {
        CChannelInterface channel;
        EXPECT_EQ("RK74", text(channel, 0));
        EXPECT_TRUE(channel.I2CTransaction(1, 0x50, write, sizeof write, nullptr, 0));
        EXPECT_FALSE(channel.I2CTransaction(1, 0x51, write, 1, nullptr, 0));
        EXPECT_FALSE(channel.I2CTransaction(2, 0x50, write, 1, nullptr, 0));
    }
    RestartServer();
    CChannelInterface channel;
    EXPECT_EQ("RKxy", text(channel, 0));
    EXPECT_EQ(std::string("\xFF\xFF") + "RK", text(channel, 254));

    UseFaults(R"({"i2c": {"no_acknowledge": 2}})");
    CChannelInterface faulty;
    for (const BOOL expected : {FALSE, FALSE, TRUE})
        EXPECT_EQ(expected, faulty.I2CTransaction(1, 0x50, write, 1, nullptr, 0));
}

TEST_F(Processor, HaltsAndResumesADevice)
{
    const UCHAR data[] = {0, 1};
    ULONG flags = 7;
    const auto writes = [&](CChannelInterface& channel) {
        return channel.I2CTransaction(5, 0x57, data, sizeof data, nullptr, 0);
    };
    {
        CChannelInterface channel;
        EXPECT_FALSE(writes(channel));
        EXPECT_TRUE(channel.HaltDevice(DeviceID_DriveBackplane, 0));
        EXPECT_TRUE(channel.GetDeviceStatus(DeviceID_DriveBackplane, &flags, nullptr));
        EXPECT_EQ(1u, flags);
        EXPECT_TRUE(channel.GetDeviceStatus(DeviceID_PowerPIC, &flags, nullptr));
        EXPECT_EQ(0u, flags);
        EXPECT_TRUE(writes(channel));
        EXPECT_EQ("unknown", BackplaneVersion(channel));
        EXPECT_FALSE(channel.HaltDevice(3, 0));
    }
    RestartServer();  // an installer that ends does not resume it
    CChannelInterface channel;
    EXPECT_TRUE(writes(channel));
    EXPECT_TRUE(channel.ResumeDevice(DeviceID_DriveBackplane));
    EXPECT_FALSE(writes(channel));
    EXPECT_EQ("1.20", BackplaneVersion(channel));

    EXPECT_TRUE(channel.HaltDevice(DeviceID_DriveBackplane, 30));
    sleep(29);
    EXPECT_TRUE(writes(channel));
    sleep(2);
    EXPECT_FALSE(writes(channel));
}

TEST_F(Processor, OfAnOldServerKnowsTheShortFormOfDeviceControl)
{
    UseServer(ReadFile(fs::path(SERVERS) / "old" / "server.json"));
    CChannelInterface channel;
    CLogCapture log;
    EXPECT_TRUE(channel.HaltDevice(DeviceID_PowerPIC, 0));
    EXPECT_TRUE(log.Has("SmifCommand: ErrorCode = 00000001"));
    UINT8 type = 0;
    EXPECT_FALSE(channel.GetPowerPICType(&type));
    EXPECT_TRUE(channel.ResumeDevice(DeviceID_PowerPIC));
    EXPECT_TRUE(channel.GetPowerPICType(&type));
    EXPECT_EQ(1, type);
    EXPECT_FALSE(channel.HaltDevice(DeviceID_DriveBackplane, 0));  // it has none
    EXPECT_EQ(0, channel.GetNVMeBackplaneCount());
    EXPECT_FALSE(channel.GetTamberlineFamily(&type));
}

TEST_F(Processor, FlashesADeviceThatThenRunsTheNewFirmware)
{
    {
        CChannelInterface channel;
        EXPECT_EQ(DeviceFlashStatus_OK, channel.QueryDeviceFlashStatus(Backplane));
        EXPECT_EQ(DeviceFlashStatus_OK, channel.OpenDeviceFlash(Backplane));
        EXPECT_EQ(DeviceFlashStatus_Data, channel.QueryDeviceFlashStatus(Backplane));
        EXPECT_EQ("1.20", BackplaneVersion(channel));
        EXPECT_EQ(DeviceFlashStatus_OK, Upload(channel, Backplane, Image(Backplane, 1, 21, 100000)));
        const std::int64_t start = Milliseconds();
        EXPECT_EQ("loader 3", BackplaneVersion(channel));
        EXPECT_EQ(DeviceFlashStatus_Busy, channel.OpenDeviceFlash(Backplane));
        while (channel.QueryDeviceFlashStatus(Backplane) == DeviceFlashStatus_Busy) sleep(1);
        EXPECT_EQ(12, (Milliseconds() - start) / 1000);
        EXPECT_EQ(DeviceFlashStatus_OK, channel.QueryDeviceFlashStatus(Backplane));
        EXPECT_EQ("1.21 1.18", BackplaneVersion(channel, 0) + " " + BackplaneVersion(channel, 1));
        EXPECT_EQ(DeviceFlashStatus_OK, Flash(channel, "TMBR", Image("TMBR", 1, 3, 64, 7)));
    }
    RestartServer();
    CChannelInterface channel;
    EXPECT_EQ("1.21 1.18", BackplaneVersion(channel, 0) + " " + BackplaneVersion(channel, 1));
    EXPECT_EQ("1.3.7", TamberlineVersion(channel));
    const Bytes image = Image(Backplane, 1, 21, 100000);
    EXPECT_EQ(std::string(image.begin(), image.end()), ReadFile(ServerFolder() / "NVMeBackplane1.fw"));
}

TEST_F(Processor, RefusesWhatIsNoUpload)
{
    CChannelInterface channel;
    const Bytes image = Image(Backplane, 1, 22, 4096);
    Bytes damaged = image;
    damaged.back() ^= 1;
    const auto piece = [&](int offset, int size = 1024) {
        return channel.UploadDeviceFlashData(Backplane, offset, image.data() + offset, size);
    };
    const auto second = [&](int offset, int size) {
        EXPECT_EQ(DeviceFlashStatus_OK, piece(0));
        return piece(offset, size);
    };
    // The device keeps what it runs until its own image begins.
    const std::tuple<std::function<int()>, int, const char*> cases[] = {
        {[&] { return piece(1024); }, DeviceFlashStatus_Error, "1.20"},
        {[&] { return piece(0, 63); }, DeviceFlashStatus_Error, "1.20"},
        {[&] { return Upload(channel, Backplane, Image("TMBR", 1, 22, 4096)); }, DeviceFlashStatus_Error, "1.20"},
        {[&] { return channel.ResetDeviceFlash(Backplane); }, DeviceFlashStatus_OK, "1.20"},
        {[&] { return second(0, 1024); }, DeviceFlashStatus_Error, "loader 3"},
        {[&] { return second(2048, 1024); }, DeviceFlashStatus_Error, "loader 3"},
        {[&] { return second(1024, 1024) + channel.ResetDeviceFlash(Backplane); }, DeviceFlashStatus_OK, "loader 3"},
        {[&] { return piece(0) + Flash(channel, Backplane, damaged); }, DeviceFlashStatus_Error, "loader 3"},
    };
    for (const auto& [mistake, status, version] : cases) {
        ASSERT_EQ(DeviceFlashStatus_OK, channel.OpenDeviceFlash(Backplane));
        EXPECT_EQ(status, mistake());
        EXPECT_EQ(DeviceFlashStatus_Error, piece(0));  // it is no longer open
        EXPECT_EQ(version, BackplaneVersion(channel));
        EXPECT_EQ(version == std::string("1.20") ? DeviceFlashStatus_OK : DeviceFlashStatus_Error,
                  channel.QueryDeviceFlashStatus(Backplane));
    }
    ASSERT_EQ(DeviceFlashStatus_OK, channel.OpenDeviceFlash("TMBR"));
    EXPECT_EQ(DeviceFlashStatus_Overflow, Upload(channel, "TMBR", Image("TMBR", 2, 0, 262145)));
    EXPECT_EQ(DeviceFlashStatus_OK, Flash(channel, Backplane, image));
    EXPECT_EQ("1.22", BackplaneVersion(channel));
}

TEST_F(Processor, RunsItsNewFirmwareFromItsNextResetOn)
{
    const auto version = [](CChannelInterface& channel) {
        EXPECT_TRUE(channel.UpdateMOXVersion());
        return Dotted({channel.GetMOXMajorVersion(), channel.GetMOXMinorVersion()});
    };
    CChannelInterface channel;
    EXPECT_EQ(DeviceFlashStatus_OK, Flash(channel, "SignedImage", Image("SignedImage", 2, 75, 300000)));
    EXPECT_EQ("3.14", version(channel));
    CChannelInterface other;
    EXPECT_TRUE(channel.RebootMOX());
    CLogCapture log;
    const std::int64_t start = Milliseconds();
    EXPECT_TRUE(channel.WaitForReboot());
    EXPECT_EQ(32, (Milliseconds() - start) / 1000);
    EXPECT_EQ("2.75", version(channel));
    EXPECT_EQ(2021, channel.GetMOXFwVersion().Year);
    EXPECT_FALSE(other.VerifySMIF());  // the reset has cut it
    EXPECT_EQ(ZalCiSuccess, other.Open());

    // While it is away the channel can't be opened.
    EXPECT_TRUE(channel.RebootMOX());
    sleep(2);
    EXPECT_FALSE(channel.VerifySMIF());
    EXPECT_EQ(ZalCiErrChannelNotResponding, channel.Open());
    channel.VerifyFirmwareIsAlive();
    EXPECT_TRUE(log.Has("VerifyFirmwareIsAlive: Can't open channel"));
    EXPECT_EQ(ChannelState_Open, channel.GetState());

    // An upload that is cut off leaves it as it is.
    EXPECT_EQ(0, channel.OpenDeviceFlash("SignedImage"));
    EXPECT_EQ(0, channel.UploadDeviceFlashData("SignedImage", 0, Image("SignedImage", 2, 80, 4096).data(), 1024));
    RestartServer();
    CChannelInterface next;
    EXPECT_EQ("2.75", version(next));
    EXPECT_EQ(DeviceFlashStatus_Error, next.QueryDeviceFlashStatus("SignedImage"));
    EXPECT_EQ(DeviceFlashStatus_OK, next.ResetDeviceFlash("SignedImage"));
    EXPECT_EQ(DeviceFlashStatus_OK, next.QueryDeviceFlashStatus("SignedImage"));
}

TEST_F(Processor, FailsAndRecoversFromPacketFaults)
{
    UCHAR byte = 0;
    const std::pair<const char*, const char*> faults[] = {
        {"full_fifo", R"(, "times": 9)"}, {"full_fifo", R"(, "times": 10)"}, {"lost", ""}, {"late", ""},
        {"stale", R"(, "replies": 3)"},   {"stale", R"(, "replies": 4)"},    {"runt", ""}, {"error", ""},
    };
    // Outcome by fault: + done, - failed.
    const std::tuple<const char*, const char*, std::function<int(CChannelInterface&)>> operations[] = {
        {"GET_STATUS", "+---+---", [](auto& c) { return c.VerifySMIF(); }},
        {"IO_ACCESS", "+---+---", [&](auto& c) { return c.ReadCPLD(0, &byte) && byte == 21; }},
        {"DEVICE_FLASH", "+---+---", [](auto& c) { return c.OpenDeviceFlash(Backplane) == 0; }},
        // Waits longer than this one is late.
        {"DEVICE_FLASH", "+--++---",
         [](auto& c) { return c.DeviceFlashDispatch(Backplane, 0, nullptr, nullptr, 0, nullptr, nullptr) == 0; }},
        // Puts up with what is late or not its own.
        {"DEVICE_FLASH", "+--+++--",
         [](auto& c) { return c.QueryDeviceFlashHandler(Backplane, 0, nullptr, nullptr, 0, nullptr, nullptr) == 0; }},
        // Goes on with the short form, for whose reply it can take that of the long one, which is too long.
        {"DEVICE_CONTROL_EX", "+++-+-++", [](auto& c) { return c.HaltDevice(1, 0); }},
        // Takes any reply for its own.
        {"HOST_RESET", "+---++--", [](auto& c) { return c.ScheduleColdBoot(); }},
        // Waits without a limit, but not for what does not come.
        {"PS_INFO", "+--++---", [](auto& c) { return c.ReadPSInfo(nullptr, nullptr, nullptr, nullptr, nullptr); }},
    };
    for (const auto& [name, expected, run] : operations) {
        const std::string command = name;
        std::string outcomes;
        for (const auto& [fault, fields] : faults) {
            // The first status request is that of the discovery.
            const std::string exchange = command == "GET_STATUS" ? "2" : "1";
            UseFaults(std::string("{\"") + fault + R"(": {"command": ")" + command + R"(", "exchange": )" + exchange +
                      fields + "}}");
            CChannelInterface channel;
            outcomes += run(channel) ? '+' : '-';
            // What is left over of it, if too much or too long, costs one more command.
            EXPECT_TRUE(channel.VerifySMIF() || channel.VerifySMIF()) << command << " " << fault;
        }
        EXPECT_EQ(expected, outcomes) << command;
    }
}

TEST_F(Processor, RecordsPacketsInAJournalThatWasAskedFor)
{
    {
        const CChannelInterface channel;
        EXPECT_EQ(std::string::npos, Journal().find(" packet "));
    }
    RecordPackets();
    UseFaults(R"({"lost": {"command": "IO_ACCESS", "exchange": 2}})");
    CChannelInterface channel;
    UCHAR value = 0;
    channel.ReadCPLD(2, &value);
    channel.ReadCPLD(2, &value);
    std::istringstream lines(Journal());
    std::string line;
    std::vector<std::string> packets;
    while (std::getline(lines, line)) packets.push_back(line.substr(line.find(' ') + 1));
    ASSERT_EQ(6u, packets.size());
    EXPECT_EQ("packet send command=GET_STATUS status=0 sequence=0000 length=8 bytes=0800000002000000", packets[0]);
    EXPECT_EQ(
        "packet recv command=IO_ACCESS status=0 sequence=0001 length=28 "
        "bytes=1C00010088000000000000000200000000000000000000000000005A",
        packets[3]);
    EXPECT_EQ("packet recv command=- status=21 sequence=- length=0 bytes=-", packets[5]);
}

TEST_F(Processor, TakesALargeImageFastAndWithoutKeepingIt)
{
#ifdef __SANITIZE_ADDRESS__
    const std::size_t size = 1 << 20;
#else
    const std::size_t size = 64 << 20;
#endif
    const Bytes image = Image(Backplane, 3, 0, size);
    CChannelInterface channel;
    ASSERT_EQ(DeviceFlashStatus_OK, channel.OpenDeviceFlash(Backplane));
    const auto memory = [] {
        rusage usage = {};
        getrusage(RUSAGE_SELF, &usage);
        return usage.ru_maxrss;  // KiB
    };
    const long before = memory();
    const std::clock_t start = std::clock();
    ASSERT_EQ(DeviceFlashStatus_OK, Upload(channel, Backplane, image));
    EXPECT_LT(std::clock() - start, 2 * CLOCKS_PER_SEC);  // processor time
    EXPECT_LT(memory() - before, 8192);
    EXPECT_EQ(size, fs::file_size(ServerFolder() / "NVMeBackplane1.fw"));
}

TEST_F(Processor, AnswersMisuseOfItsChannelsWithAStatus)
{
    char buffer[4097] = "\x08\0\0\0\x02";  // a status request
    ZALCIHANDLE handle = nullptr;
    const auto create = [&](ULONG entries, ULONG size, int priority) {
        return ZalCiCreate(nullptr, &handle, entries, size, 2, 4096, static_cast<ZALCIPRIORITY>(priority), nullptr);
    };
    const auto carry = [&](auto function, int size) {
        ZALCISTATUS status = ZalCiErrMax;
        function(handle, buffer, size, &status, nullptr);
        return status;
    };
    ZalCiInitialize(nullptr);
    EXPECT_EQ(ZalCiErrBadDescriptorCount, create(0, 4096, ZalCiNormalPriority));
    EXPECT_EQ(ZalCiErrBadDescriptorSize, create(2, 7, ZalCiNormalPriority));
    EXPECT_EQ(ZalCiErrBadPriority, create(2, 4096, 2));
    EXPECT_EQ(ZalCiErrBadParameter, carry(ZalCiSend, 8));  // there is no channel
    std::set<ZALCIHANDLE> open;
    for (int i = 0; i < 8; i++) {
        ASSERT_EQ(ZalCiSuccess, create(2, 4096, ZalCiCriticalPriority_7));
        open.insert(handle);
    }
    EXPECT_EQ(8u, open.size());
    EXPECT_EQ(ZalCiErrNoMoreChannels, create(2, 4096, ZalCiNormalPriority));
    handle = *open.begin();
    EXPECT_EQ(ZalCiErrBadParameter, carry(ZalCiSend, -1));
    EXPECT_EQ(ZalCiErrBadDescriptorSize, carry(ZalCiSend, sizeof buffer));
    EXPECT_EQ(ZalCiErrChannelNotResponding, carry(ZalCiRecv, sizeof buffer));  // nothing was sent
    EXPECT_EQ(ZalCiSuccess, carry(ZalCiSend, 8));
    EXPECT_EQ(ZalCiErrPartialTransfer, carry(ZalCiRecv, 12));
    for (const ZALCIHANDLE channel : open) EXPECT_EQ(ZalCiSuccess, ZalCiClose(channel));
    EXPECT_EQ(ZalCiErrChannelDeleted, ZalCiClose(handle));
    EXPECT_EQ(ZalCiErrChannelDeleted, carry(ZalCiSend, 8));
}

// Nothing may be thrown through the library.
TEST_F(ProcessorDeathTest, EndsTheProcessOverAFaultOfItsOwn)
{
    CChannelInterface channel;
    for (const char* name : {"registers.json", "pci_devices"}) fs::create_directory(ServerFolder() / name);
    EXPECT_EXIT(channel.WriteCPLD(0, 1), testing::ExitedWithCode(sim::CouldNotRun),
                "zalsim: .*registers.json does not hold what the server keeps there .* Remove the file");
    EXPECT_EXIT(channel.FindDevice(), testing::ExitedWithCode(sim::CouldNotRun), "zalsim: can't write .*pci_devices");
    channel.RebootMOX();
    sleep(2);
    fs::create_directory(ServerFolder() / "processor.json");
    EXPECT_EXIT(channel.Open(), testing::ExitedWithCode(sim::CouldNotRun), "zalsim: can't write .*processor.json");
}
