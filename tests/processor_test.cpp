#include <sys/resource.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>

#include "chif.h"
#include "clock.h"
#include "deviceimage.h"
#include "server.h"
#include "support.h"
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

// "1.20", or "loader 3".
std::string BackplaneVersion(CChannelInterface& channel, int index = 0)
{
    int major = 0;
    int minor = 0;
    BOOL bLoader = FALSE;
    if (!channel.GetNVMeBackplaneVersion(index, &major, &minor, &bLoader)) return "unknown";
    return bLoader ? "loader " + std::to_string(major) : std::to_string(major) + "." + std::to_string(minor);
}

void UseFaults(const std::string& faults, const std::string& members = "{}")
{
    nlohmann::json server = nlohmann::json::parse(members);
    server["faults"]["processor"] = nlohmann::json::parse(faults);
    UseServer(RackServer(server.dump()));
}

std::size_t Count(const std::string& text, const std::string& part)
{
    std::size_t count = 0;
    for (std::size_t i = text.find(part); i != std::string::npos; i = text.find(part, i + 1)) count++;
    return count;
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

}  // namespace

TEST_F(Processor, IsFoundOnEverySampleServer)
{
    const struct
    {
        const char* Server;
        ChannelState State;
        int Generation, Major, Minor, Year;
    } cases[] = {
        {"rack", ChannelState_Open, 4, 3, 14, 2019}, {"blade", ChannelState_Open, 4, 3, 6, 2019},
        {"old", ChannelState_Open, 2, 1, 21, 2012},  {"bare", ChannelState_NoHardware, 0, 0, 0, 0},
        {"broken", ChannelState_Broken, 0, 0, 0, 0},
    };
    for (const auto& c : cases) {
        UseServer(ReadFile(fs::path(SERVERS) / c.Server / "server.json"));
        const std::int64_t start = Milliseconds();
        const CChannelInterface channel;
        EXPECT_EQ(c.State, channel.GetState()) << c.Server;
        EXPECT_EQ(c.Generation, channel.GetMOXGeneration()) << c.Server;
        EXPECT_EQ(c.Major, channel.GetMOXMajorVersion()) << c.Server;
        EXPECT_EQ(c.Minor, channel.GetMOXMinorVersion()) << c.Server;
        EXPECT_EQ(c.Year, channel.GetMOXFwVersion().Year) << c.Server;
        EXPECT_EQ(c.State == ChannelState_Broken ? 20 : 0, (Milliseconds() - start) / 1000) << c.Server;
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
        SMIFREQ_I2C_TRANSACTION request = {};
        request.Length = sizeof request;
        request.Command = SMIFCMD_I2C_TRANSACTION;
        request.Bus = 1;
        request.Address = 0x50;
        SMIFRSP_I2C_TRANSACTION response = {};
        EXPECT_EQ(42, channel.SmifCommand(&request, &response, sizeof response, 1000));  // no magic
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

TEST_F(Processor, TellsItsInventory)
{
    CChannelInterface channel;
    UINT8 value = 0;
    int major = 0;
    int minor = 0;
    int pass = 0;
    BOOL bLoader = TRUE;
    EXPECT_TRUE(channel.GetPowerPICType(&value));
    EXPECT_EQ(4, value);
    EXPECT_TRUE(channel.GetPowerPICVersion(&major, &minor, &pass, &bLoader));
    EXPECT_EQ("1.4.2 0", std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(pass) + " " +
                             std::to_string(bLoader));
    EXPECT_TRUE(channel.GetTamberlineFamily(&value));
    EXPECT_EQ(3, value);
    EXPECT_TRUE(channel.GetTamberlineVersion(&major, &minor, &pass));
    EXPECT_EQ("1.2.5", std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(pass));
    EXPECT_TRUE(channel.GetTamberlineBootloaderVersion(&major, &minor));
    EXPECT_EQ("1.0", std::to_string(major) + "." + std::to_string(minor));
    EXPECT_EQ(2, channel.GetNVMeBackplaneCount());
    UINT8 id[16] = {};
    EXPECT_TRUE(channel.GetNVMeBackplaneInfo(1, &value, id));
    EXPECT_EQ("2 NVME-BP-8SFF-A2", std::to_string(value) + " " + std::string(id, id + 15));
    EXPECT_EQ("1.20 1.18", BackplaneVersion(channel, 0) + " " + BackplaneVersion(channel, 1));

    UINT32 data1[8] = {};
    UINT16 data2[8] = {};
    UINT16 data3[8] = {};
    UINT8* data4[8] = {};
    int count = 0;
    EXPECT_TRUE(channel.ReadPSInfo(data1, data2, data3, data4, &count));
    EXPECT_EQ(2, count);
    EXPECT_EQ(0x5A1F0C22u, data1[1]);
    EXPECT_EQ(0x4B7E, data2[1]);
    EXPECT_EQ(0x4D02, data3[1]);
    EXPECT_EQ(0, std::memcmp(data4[1], "\x9C\x31\x08\x00\x20\x0C\x9A\x66", 8));
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
    int major = 0;
    int minor = 0;
    int pass = 0;
    EXPECT_TRUE(channel.GetTamberlineVersion(&major, &minor, &pass));
    EXPECT_EQ("1.3.7", std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(pass));
    const Bytes image = Image(Backplane, 1, 21, 100000);
    EXPECT_EQ(std::string(image.begin(), image.end()), ReadFile(ServerFolder() / "NVMeBackplane1.fw"));
}

TEST_F(Processor, GetsEveryPieceOfAnImageOnce)
{
    RecordPackets();
    for (const std::size_t size : {64u, 1024u, 1025u, 2049u, 102400u}) {
        UseServer(RackServer());
        CChannelInterface channel;
        ASSERT_EQ(DeviceFlashStatus_OK, channel.OpenDeviceFlash(Backplane));
        ASSERT_EQ(DeviceFlashStatus_OK, Upload(channel, Backplane, Image(Backplane, 2, 0, size)));
        const std::size_t exchanges = 2 + (size + 1023) / 1024;  // status and open
        EXPECT_EQ(exchanges, Count(Journal(), " packet send ")) << size;
        EXPECT_EQ(exchanges, Count(Journal(), " packet recv ")) << size;
    }
}

TEST_F(Processor, RunsItsNewFirmwareFromItsNextResetOn)
{
    const auto version = [](CChannelInterface& channel) {
        EXPECT_TRUE(channel.UpdateMOXVersion());
        return std::to_string(channel.GetMOXMajorVersion()) + "." + std::to_string(channel.GetMOXMinorVersion());
    };
    CChannelInterface channel;
    EXPECT_EQ(DeviceFlashStatus_OK, Flash(channel, "SignedImage", Image("SignedImage", 2, 75, 300000)));
    EXPECT_EQ("3.14", version(channel));
    EXPECT_TRUE(channel.RebootMOX());
    CLogCapture log;
    const std::int64_t start = Milliseconds();
    EXPECT_TRUE(channel.WaitForReboot());
    EXPECT_EQ(32, (Milliseconds() - start) / 1000);
    EXPECT_EQ("2.75", version(channel));
    EXPECT_EQ(2021, channel.GetMOXFwVersion().Year);

    // While it is away the channel can't be opened; what was open is cut.
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

TEST_F(Processor, FailsAndRecoversFromPacketFaultsWithEveryCommand)
{
    const UCHAR pointer = 0;
    UCHAR byte = 0;
    int count = 0;
    UINT32 data1[8];
    UINT16 data2[8], data3[8];
    UINT8* data4[8];
    const struct
    {
        const char* Name;
        const char* Fields;
    } faults[] = {
        {"full_fifo", R"("times": 9)"}, {"full_fifo", R"("times": 10)"}, {"lost", ""}, {"late", ""},
        {"stale", R"("replies": 3)"},   {"stale", R"("replies": 4)"},    {"runt", ""}, {"error", ""},
    };
    const struct
    {
        const char* Command;
        const char* Outcomes;  // fault by fault: + done, - failed
        std::function<int(CChannelInterface&)> Run;
    } operations[] = {
        {"GET_STATUS", "+---+---", [](auto& c) { return c.VerifySMIF(); }},
        {"MOXFLASH_COMMAND", "+---+---", [](auto& c) { return c.RebootMOX(); }},
        {"I2C_TRANSACTION", "+---+---", [&](auto& c) { return c.I2CTransaction(1, 0x50, &pointer, 1, &byte, 1); }},
        {"IO_ACCESS", "+---+---", [&](auto& c) { return c.ReadCPLD(0, &byte) && byte == 21; }},
        {"DEVICE_FLASH", "+---+---", [](auto& c) { return c.OpenDeviceFlash(Backplane) == 0; }},
        // Waits longer than this one is late.
        {"DEVICE_FLASH", "+--++---",
         [](auto& c) { return c.DeviceFlashDispatch(Backplane, 0, nullptr, nullptr, 0, nullptr, nullptr) == 0; }},
        // Puts up with what is late or not its own.
        {"DEVICE_FLASH", "+--+++--",
         [](auto& c) { return c.QueryDeviceFlashHandler(Backplane, 0, nullptr, nullptr, 0, nullptr, nullptr) == 0; }},
        {"DEVICE_CONTROL", "+---+---", [](auto& c) { return c.GetDeviceStatus(1, nullptr, nullptr); }},
        // Goes on with the short form, for whose reply it can take that of the long one, which is too long.
        {"DEVICE_CONTROL_EX", "+++-+-++", [](auto& c) { return c.HaltDevice(1, 0); }},
        // Takes any reply for its own.
        {"HOST_RESET", "+---++--", [](auto& c) { return c.ScheduleColdBoot(); }},
        {"GET_TMBLN_INFO", "+---+---", [&](auto& c) { return c.GetTamberlineFamily(&byte); }},
        // Waits without a limit, but not for what does not come.
        {"PS_INFO", "+--++---", [&](auto& c) { return c.ReadPSInfo(data1, data2, data3, data4, &count); }},
        {"GET_POWERPIC_INFO", "+---+---", [&](auto& c) { return c.GetPowerPICType(&byte); }},
        {"GET_NVME_BACKPLANE_INFO", "+---+---", [](auto& c) { return c.GetNVMeBackplaneCount() == 2; }},
    };
    for (const auto& operation : operations) {
        const std::string command = operation.Command;
        std::string outcomes;
        for (const auto& fault : faults) {
            // The first status request is that of the discovery.
            std::string fields =
                std::string(R"("command": ")") + command + R"(", "exchange": )" + (command == "GET_STATUS" ? "2" : "1");
            if (*fault.Fields) fields += std::string(", ") + fault.Fields;
            UseFaults(std::string("{\"") + fault.Name + "\": {" + fields + "}}");
            CChannelInterface channel;
            outcomes += operation.Run(channel) ? '+' : '-';
            // What is left over of it, if too much or too long, costs one more command. A reset goes on.
            EXPECT_TRUE(command == "MOXFLASH_COMMAND" || channel.VerifySMIF() || channel.VerifySMIF())
                << command << " " << fault.Name;
        }
        EXPECT_EQ(operation.Outcomes, outcomes) << command;
    }
}

TEST_F(Processor, RecordsPacketsInAJournalThatWasAskedFor)
{
    {
        const CChannelInterface channel;
        EXPECT_EQ(0u, Count(Journal(), " packet "));
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
    rusage before = {};
    rusage after = {};
    getrusage(RUSAGE_SELF, &before);
    ASSERT_EQ(DeviceFlashStatus_OK, Upload(channel, Backplane, image));
    getrusage(RUSAGE_SELF, &after);
    EXPECT_EQ(size, fs::file_size(ServerFolder() / "NVMeBackplane1.fw"));
    const auto seconds = [](const rusage& usage) {
        return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
               static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    };
    const double time = seconds(after) - seconds(before);
    const long memory = after.ru_maxrss - before.ru_maxrss;  // KiB
    std::printf("%zu MiB: %.2f s, %ld KiB of memory\n", size >> 20, time, memory);
#ifndef __SANITIZE_ADDRESS__
    EXPECT_LT(time, 2.0);
    EXPECT_LT(memory, 8192);
#endif
}
