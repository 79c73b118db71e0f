#include "chif.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <regex>
#include <set>
#include <tuple>

#include "clock.h"
#include "fakechannel.h"
#include "support.h"

namespace
{

using Receive = CFakeChannel::CReceive;

std::string Hex(const std::string& digits)
{
    std::string bytes;
    for (std::size_t i = 0; i < digits.size(); i++) {
        if (digits[i] == ' ') continue;
        bytes += static_cast<char>(std::stoi(digits.substr(i++, 2), nullptr, 16));
    }
    return bytes;
}

// Bytes followed by zeros.
std::string Filled(std::string bytes, std::size_t size)
{
    bytes.resize(size);
    return bytes;
}

std::string Packet(int length, int sequence, int command, const std::string& body)
{
    const WORD header[] = {static_cast<WORD>(length), static_cast<WORD>(sequence), static_cast<WORD>(command), 0};
    return Filled(std::string(reinterpret_cast<const char*>(header), sizeof header) + body,
                  static_cast<std::size_t>(length));
}

WORD SequenceOf(const std::string& packet)
{
    WORD sequence = 0;
    std::memcpy(&sequence, packet.data() + 2, sizeof sequence);
    return sequence;
}

std::string Line(const std::string& text)
{
    return "CChannelInterface::" + text + "\n";
}

std::int64_t Milliseconds()
{
    return sim::CClock::Instance().Now() / 1000000;
}

// A status reply: version 2.07 of 03/15/2020.
std::string StatusBody(int korClass = 5, int application = 0)
{
    std::string body = Filled(Hex("00000000 0000 0000 07 02 0000DE78"), 92);
    body[60] = static_cast<char>(korClass);
    body[63] = static_cast<char>(application);
    return body;
}

// Puts a grep in front of the real one that notes its arguments and finds that many lines.
class CFakeGrep
{
  public:
    explicit CFakeGrep(int lines) : m_Path(std::getenv("PATH"))
    {
        const std::string script =
            m_Folder.Write("grep", "#!/bin/sh\necho \"$*\" >\"${0%/*}/arguments\"\necho x >&2\n" + std::string("seq ") +
                                       std::to_string(lines) + "\n");
        std::filesystem::permissions(script, std::filesystem::perms::owner_all);
        setenv("PATH", (m_Folder.Path().string() + ":" + m_Path).c_str(), 1);
    }
    ~CFakeGrep() { setenv("PATH", m_Path.c_str(), 1); }
    std::string Arguments() const { return ReadFile(m_Folder.Path() / "arguments"); }

  private:
    CTempFolder m_Folder;
    std::string m_Path;
};

class Channel : public testing::Test
{
  protected:
    Channel()
    {
        // Half a second and half a millisecond from where the numbers change.
        sim::CClock& clock = sim::CClock::Instance();
        clock.Wait(1500500000 - clock.Now() % 1000000000);
        g_FakeChannel = CFakeChannel();
        g_FakeChannel.body[SMIFCMD_GET_STATUS] = StatusBody();
    }
    ~Channel() override { EXPECT_EQ(0, g_FakeChannel.open); }
};

using Transport = Channel;
using Discovery = Channel;
using Registers = Channel;
using DeviceFlash = Channel;
using Inventory = Channel;

}  // namespace

TEST_F(Transport, StampsAndChecksPackets)
{
    CChannelInterface channel;
    SMIFRESPONSE packet = {};
    packet.Length = 7;
    CLogCapture log;
    EXPECT_EQ(39, channel.Send(&packet));
    EXPECT_EQ(39, channel.Send(nullptr));
    EXPECT_EQ(39, channel.Recv(&packet, 11, 1));
    EXPECT_EQ(39, channel.Recv(nullptr, 12, 1));
    EXPECT_EQ("", log.Text());
    packet.Length = 8;
    packet.Sequence = packet.ServiceType = 7;
    EXPECT_EQ(0, channel.Send(&packet));
    EXPECT_EQ(Packet(8, 1, 0, ""), g_FakeChannel.sent.back());
    EXPECT_EQ(0, channel.Recv(&packet, 12, 0));
    EXPECT_EQ(0, g_FakeChannel.timeouts.back());

    channel.Close();
    EXPECT_EQ(2, channel.Send(&packet));
    EXPECT_EQ(2, channel.Recv(&packet, 12, 1));
    EXPECT_EQ(2, channel.SmifCommand(&packet, &packet, 12, 1));
    EXPECT_EQ("", log.Text());
}

TEST_F(Transport, TriesTenTimesWhenTheFifoIsFull)
{
    CChannelInterface channel;
    SMIFPACKET packet = {};
    packet.Length = 8;
    g_FakeChannel.sends = std::deque<ZALCISTATUS>(9, ZalCiErrFifoFull);
    EXPECT_EQ(0, channel.Send(&packet));

    g_FakeChannel.sends = std::deque<ZALCISTATUS>(11, ZalCiErrFifoFull);
    g_FakeChannel.sent.clear();
    CLogCapture log;
    const std::int64_t start = Milliseconds();
    EXPECT_EQ(20, channel.Send(&packet));
    EXPECT_EQ(500, Milliseconds() - start);
    EXPECT_EQ(std::vector<std::string>(10, Packet(8, 2, 0, "")), g_FakeChannel.sent);
    EXPECT_EQ(Line("Send: status 20"), log.Text());

    g_FakeChannel.sends = {ZalCiErrTimeout};
    EXPECT_EQ(34, channel.Send(&packet));
    EXPECT_EQ(3, SequenceOf(g_FakeChannel.sent.back()));  // the number was used up
}

TEST_F(Transport, WrapsTheSequence)
{
    CChannelInterface channel;
    SMIFPACKET packet = {};
    packet.Length = 8;
    for (int i = 0; i < 65535; i++) channel.Send(&packet);
    EXPECT_EQ(65535, SequenceOf(g_FakeChannel.sent.back()));
    channel.Send(&packet);
    EXPECT_EQ(0, SequenceOf(g_FakeChannel.sent.back()));
}

TEST_F(Transport, RefusesRunts)
{
    CChannelInterface channel;
    g_FakeChannel.receives = {{ZalCiSuccess, 0, 1}};
    CLogCapture log;
    EXPECT_FALSE(channel.VerifySMIF());
    EXPECT_EQ(Line("Recv: Runt packet (Header length = 100)") + Line("Recv: status 22") +
                  Line("VerifySMIF: SMIFCMD_GET_STATUS failed"),
              log.Text());
}

TEST_F(Transport, DiscardsThreeStaleRepliesAndGivesUpAfterFour)
{
    CChannelInterface channel;
    CLogCapture log;
    g_FakeChannel.receives = {{ZalCiSuccess, -1}, {ZalCiSuccess, -1}, {ZalCiSuccess, -1}};
    EXPECT_TRUE(channel.UpdateMOXVersion());
    const std::string stale = Line("SmifCommandNoErr: Out of sequence response (0001/0000)");
    EXPECT_EQ(stale + stale + stale + Line("UpdateMOXVersion: Firmware = Mox 3 v2.07 (03/15/2020)"), log.Text());

    SMIFPACKET request = {};
    request.Length = 8;
    SMIFRESPONSE response = {};
    g_FakeChannel.receives = std::deque<Receive>(4, {ZalCiSuccess, 1});
    EXPECT_EQ(42, channel.SmifCommand(&request, &response, sizeof response, 5));
    EXPECT_EQ(9u, g_FakeChannel.timeouts.size());
    EXPECT_EQ(5, g_FakeChannel.timeouts.back());

    g_FakeChannel.receives = {{ZalCiSuccess, 1}, {ZalCiErrTimeout}};
    EXPECT_EQ(34, channel.SmifCommand(&request, &response, sizeof response, 5));
}

TEST_F(Transport, ReportsTheErrorCodeOfAReply)
{
    CChannelInterface channel;
    SMIFPACKET request = {};
    request.Length = 8;
    SMIFRESPONSE response = {};
    g_FakeChannel.body[0] = Hex("EF00ADDE");
    CLogCapture log;
    EXPECT_EQ(0, channel.SmifCommandNoErr(&request, &response, sizeof response, 5));
    EXPECT_EQ(42, channel.SmifCommand(&request, &response, sizeof response, 5));
    EXPECT_EQ(Line("SmifCommand: ErrorCode = DEAD00EF"), log.Text());

    // The short reply shows nothing of the stale one before it.
    g_FakeChannel.body[0] = "";
    response.ErrorCode = 1;
    g_FakeChannel.receives = {{ZalCiSuccess, 1}};
    EXPECT_EQ(0, channel.SmifCommand(&request, &response, sizeof response, 5));
}

TEST_F(Transport, WaitsForLongCommandsUpToTheOverallLimit)
{
    CChannelInterface channel;
    SMIFPACKET request = {};
    request.Length = 8;
    SMIFRESPONSE response = {};
    const auto exchange = [&](int seconds) {
        return channel.SmifCommandNoErrWithOverallTimeout(&request, &response, sizeof response, seconds);
    };
    CLogCapture log;
    g_FakeChannel.receives = {{ZalCiErrFifoEmpty}, {ZalCiSuccess, 5}};
    EXPECT_EQ(0, exchange(60));
    EXPECT_EQ(Line("Recv: status 21") + Line("SmifCommandNoErrWithOverallTimeout: FIFO is empty") +
                  Line("SmifCommandNoErrWithOverallTimeout: Out of sequence response (0001/0006)"),
              log.Text());
    EXPECT_EQ(20000, g_FakeChannel.timeouts.back());

    g_FakeChannel.receives = std::deque<Receive>(9, {ZalCiErrFifoEmpty});
    EXPECT_EQ(21, exchange(60));
    EXPECT_EQ(6u, g_FakeChannel.receives.size());
    g_FakeChannel.receives = {{ZalCiErrFifoEmpty}, {ZalCiErrFifoEmpty}};
    EXPECT_EQ(0, exchange(60));
    g_FakeChannel.receives = {{ZalCiErrTimeout}};
    EXPECT_EQ(34, exchange(60));
    g_FakeChannel.receives = {{ZalCiSuccess, 1}};
    EXPECT_EQ(42, exchange(0));
}

TEST_F(Discovery, TellsWhatItFinds)
{
    {
        CLogCapture log;
        CChannelInterface channel;
        EXPECT_EQ(ChannelState_Open, channel.GetState());
        EXPECT_EQ(Line("CChannelInterface()") + Line("CheckDriver: CHIF driver found") +
                      Line("UpdateMOXVersion: Firmware = Mox 3 v2.07 (03/15/2020)") + Line("CheckDriver: Mox is alive"),
                  log.Text());
        EXPECT_STREQ("2.07 (03/15/2020)", channel.GetMOXFwVersion().ToString());
        EXPECT_EQ(channel.MakeMOXCombinedVersion(3, 2, 7, 0), channel.GetMOXCombinedVersion());
        EXPECT_GT(channel.MakeMOXCombinedVersion(1, 0, 0, 0), channel.MakeMOXCombinedVersion(0, 255, 255, 255));
        EXPECT_GT(channel.MakeMOXCombinedVersion(0, 0, 1, 0), channel.MakeMOXCombinedVersion(0, 0, 0, 255));

        channel.Close();
        EXPECT_EQ(ChannelState_Closed, channel.GetState());
        g_FakeChannel.silent = true;
        EXPECT_EQ(ChannelState_Broken, channel.GetUpdatedState());
        EXPECT_FALSE(channel.IsOpen());
        EXPECT_EQ(0, channel.GetMOXFwVersion().Year + channel.GetMOXGeneration());
        EXPECT_TRUE(log.Has(Line("UpdateMOXVersion: SMIFCMD_GET_STATUS failed") + Line("CheckDriver: Mox is dead")));
    }
    CLogCapture log;
    g_FakeChannel.noHandle = true;
    CChannelInterface channel;
    EXPECT_EQ(ChannelState_Broken, channel.GetState());
    EXPECT_EQ(0, channel.Open());
    EXPECT_TRUE(log.Has(Line("CheckDriver: Mox is dead") + Line("Open: status 0")));
}

TEST_F(Discovery, CountsThePciFunctionsWithoutADriver)
{
    for (int count = 0; count <= 4; count++) {
        const CFakeGrep grep(count);
        g_FakeChannel.creates = {ZalCiErrNoDriver};
        CLogCapture log;
        CChannelInterface channel;
        EXPECT_EQ(count == 3 ? ChannelState_NoDriver : ChannelState_NoHardware, channel.GetState());
        EXPECT_EQ(Line("CChannelInterface()") + Line("Open: status 1") + Line("CheckDriver: No CHIF driver") +
                      (count == 3 ? Line("FindDevice: Found Pellow") +
                                        Line("InitChannelDriver: Device exists, but driver not loaded")
                                  : Line("FindDevice: Pellow not found")),
                  log.Text());
        EXPECT_TRUE(std::regex_match(grep.Arguments(), std::regex("-i( -e [0-9a-f]{8}){4} /proc/bus/pci/devices\n")));
        EXPECT_EQ(ChannelState_Open, channel.GetUpdatedState());
    }
}

TEST_F(Discovery, TellsGenerations)
{
    CChannelInterface channel;
    const int cases[][3] = {{0, 9, 1}, {3, 9, 1}, {4, 9, 2}, {5, 9, 3}, {6, 0, 3}, {6, 4, 4}, {255, 200, 200}};
    for (const auto& c : cases) {
        g_FakeChannel.body[SMIFCMD_GET_STATUS] = StatusBody(c[0], c[1]);
        EXPECT_TRUE(channel.UpdateMOXVersion());
        EXPECT_EQ(c[2], channel.GetMOXGeneration()) << c[0];
    }
}

TEST_F(Discovery, VerifiesThatTheFirmwareIsAlive)
{
    CChannelInterface channel;
    const std::string checking = Line("VerifyFirmwareIsAlive: Checking Mox");
    const std::string alive = checking + checking + Line("UpdateMOXVersion: Firmware = Mox 3 v2.07 (03/15/2020)") +
                              Line("VerifyFirmwareIsAlive: Mox is alive");
    {
        g_FakeChannel.creates = {ZalCiErrTimeout};
        g_FakeChannel.receives = {{ZalCiErrInterface}};
        CLogCapture log;
        const std::int64_t start = Milliseconds();
        channel.VerifyFirmwareIsAlive();
        EXPECT_EQ(ChannelState_Open, channel.GetState());
        EXPECT_EQ(Line("Open: status 34") + Line("VerifyFirmwareIsAlive: Can't open channel") + checking +
                      Line("Recv: status 35") + Line("VerifySMIF: SMIFCMD_GET_STATUS failed") + alive,
                  log.Text());
        EXPECT_EQ(2000 + 4000 + 2000 + 8000, Milliseconds() - start);
    }
    g_FakeChannel.creates = std::deque<ZALCISTATUS>(40, ZalCiErrTimeout);
    CLogCapture log;
    channel.VerifyFirmwareIsAlive();
    EXPECT_EQ(ChannelState_Broken, channel.GetState());
    EXPECT_EQ(10u, g_FakeChannel.creates.size());  // at 0, 2, .. 58 seconds
    EXPECT_TRUE(log.Has(Line("VerifyFirmwareIsAlive: Mox is dead")));

    g_FakeChannel.creates = {ZalCiErrNoDriver};
    channel.VerifyFirmwareIsAlive();
    EXPECT_EQ(ChannelState_NoHardware, channel.GetState());
    EXPECT_TRUE(log.Has(Line("VerifyFirmwareIsAlive: No CHIF driver")));
}

TEST_F(Discovery, WaitsForAReboot)
{
    CChannelInterface channel;
    g_FakeChannel.creates = {ZalCiErrTimeout, ZalCiSuccess};
    g_FakeChannel.receives = {{ZalCiErrInterface}};
    const std::int64_t start = Milliseconds();
    {
        CLogCapture log;
        EXPECT_TRUE(channel.WaitForReboot());
        EXPECT_TRUE(channel.IsOpen());
        EXPECT_EQ(26000, Milliseconds() - start);
        EXPECT_EQ(Line("WaitForReboot: Waiting for Mox to reboot") + Line("Open: status 34") + Line("Recv: status 35") +
                      Line("WaitForReboot: Reboot completed"),
                  log.Text());
    }
    g_FakeChannel.creates = std::deque<ZALCISTATUS>(40, ZalCiErrTimeout);
    CLogCapture log;
    EXPECT_FALSE(channel.WaitForReboot());
    EXPECT_FALSE(channel.IsOpen());
    EXPECT_EQ(19u, g_FakeChannel.creates.size());  // at 22, 24, .. 62 seconds
    EXPECT_TRUE(log.Has(Line("WaitForReboot: Timeout! (Not fatal)")));
}

// Every command: what goes out, what it waits for, and what a failure looks like.
TEST_F(Channel, SendsEveryCommandByteForByte)
{
    const UCHAR data[] = {0xDE, 0xAD, 0xBE};
    UCHAR buffer[1024];
    ULONG output = 0;
    int value = 0;
    UINT8 byte = 0;
    const std::string empty(16, '\0');
    const std::string handler = Filled("handler", 16);
    const auto flash = [&](const char* fields, const std::string& more = "") {
        return Hex("00000000 00000000" + std::string(fields)) + Hex("00000000 00000000 00000000") + handler + more;
    };
    const auto dispatched = Hex("DEADBE");
    const struct
    {
        const char* method;
        const char* command;
        std::function<int(CChannelInterface&)> call;
        int failed;
        int code;
        int length;
        std::string body;
        int replySize;
        int timeout = 20000;
    } cases[] = {
        {"VerifySMIF", "GET_STATUS", [](auto& c) { return c.VerifySMIF(); }, 0, 2, 8, "", 100},
        {"UpdateMOXVersion", "GET_STATUS", [](auto& c) { return c.UpdateMOXVersion(); }, 0, 2, 8, "", 100},
        {"RebootMOX", "MOXFLASH_COMMAND", [](auto& c) { return c.RebootMOX(); }, 0, 80, 12, Hex("03"), 189},
        {"ReadIoByte", "IO_ACCESS", [&](auto& c) { return c.ReadIoByte(2, 258, &byte); }, 0, 136, 28,
         Hex("02000000 02010000"), 28},
        {"ReadIoByte", "IO_ACCESS", [&](auto& c) { return c.ReadIoByte(10, 258, &byte); }, 0, 136, 28,
         Filled(Hex("0A000000 02010000"), 19) + "\2", 28},
        {"WriteIoByte", "IO_ACCESS", [](auto& c) { return c.WriteIoByte(5, 258, 0xA5); }, 0, 136, 28,
         Filled(Hex("05000000 02010000"), 19) + "\xA5", 28},
        {"I2CTransaction", "I2C_TRANSACTION",
         [&](auto& c) { return c.I2CTransaction(258, 0x10166, data, 3, nullptr, 4); }, 0, 114, 57,
         Hex("00000000") + Filled("MOXIBUS", 8) + Hex("6601 02 03 04 DEADBE"), 57},
        {"GetDeviceStatus", "DEVICE_CONTROL", [&](auto& c) { return c.GetDeviceStatus(258, &output, buffer); }, 0, 139,
         12, Hex("0201 0000"), 64},
        {"HaltDevice", "DEVICE_CONTROL", [](auto& c) { return c.HaltDevice(258, 70000); }, 0, 140, 20,
         Hex("0201 0100 70110000"), 68},
        {"ResumeDevice", "DEVICE_CONTROL", [](auto& c) { return c.ResumeDevice(258); }, 0, 140, 20, Hex("0201 0200"),
         68},
        {"SetHostResetMode", "HOST_RESET", [](auto& c) { return c.ScheduleColdBoot(); }, 0, 152, 14, Hex("00000000 01"),
         14},
        {"SetHostResetMode", "HOST_RESET", [](auto& c) { return c.ScheduleAuxPowerCycle(); }, 0, 152, 14,
         Hex("00000000 02"), 14},
        {"OpenDeviceFlash", "DEVICE_FLASH", [](auto& c) { return c.OpenDeviceFlash("handler"); }, -1, 137, 1084,
         flash("01000000 00000000 00000000 00000000"), 1084},
        {"QueryDeviceFlashStatus", "DEVICE_FLASH", [](auto& c) { return c.QueryDeviceFlashStatus("handler"); }, -1, 137,
         1084, flash("00000000 00000000 00000000 00000000"), 1084},
        {"ResetDeviceFlash", "DEVICE_FLASH", [](auto& c) { return c.ResetDeviceFlash("handler"); }, -1, 137, 1084,
         flash("02000000 00000000 00000000 00000000"), 1084},
        {"UploadDeviceFlashData", "DEVICE_FLASH",
         [&](auto& c) { return c.UploadDeviceFlashData("handler", 0x10203, data, 3); }, -1, 137, 1084,
         flash("03000000 03020100 03000000 00000000", dispatched), 1084},
        {"DeviceFlashDispatch", "DEVICE_FLASH",
         [&](auto& c) { return c.DeviceFlashDispatch("handler", 0x10203, &output, data, 3, buffer, &value); }, -1, 137,
         1084, flash("04000000 00000000 03000000 03020100", dispatched), 1084, 60000},
        {"QueryDeviceFlashHandler", "DEVICE_FLASH",
         [&](auto& c) { return c.QueryDeviceFlashHandler("handler", 0x10203, &output, nullptr, 3, buffer, &value); },
         -1, 137, 1084, flash("05000000 00000000 00000000 03020100"), 1084},
        {"ResetDeviceFlashHandler", "DEVICE_FLASH",
         [&](auto& c) { return c.ResetDeviceFlashHandler("handler", &output); }, -1, 137, 1084,
         flash("06000000 00000000 00000000 00000000"), 1084},
        {"GetPowerPICType", "GET_POWERPIC_INFO", [&](auto& c) { return c.GetPowerPICType(&byte); }, 0, 294, 8, "", 272},
        {"GetPowerPICVersion", "GET_POWERPIC_INFO",
         [&](auto& c) { return c.GetPowerPICVersion(&value, &value, &value, &value); }, 0, 294, 8, "", 272},
        {"GetTamberlineFamily", "GET_TMBLN_INFO", [&](auto& c) { return c.GetTamberlineFamily(&byte); }, 0, 275, 8, "",
         24},
        {"GetTamberlineVersion", "GET_TMBLN_INFO",
         [&](auto& c) { return c.GetTamberlineVersion(&value, &value, &value); }, 0, 275, 8, "", 24},
        {"GetTamberlineBootloaderVersion", "GET_TMBLN_INFO",
         [&](auto& c) { return c.GetTamberlineBootloaderVersion(&value, &value); }, 0, 275, 8, "", 24},
        {"GetNVMeBackplaneCount", "GET_NVME_BACKPLANE_INFO", [](auto& c) { return c.GetNVMeBackplaneCount(); }, 0, 298,
         8, "", 368},
        {"GetNVMeBackplaneInfo", "GET_NVME_BACKPLANE_INFO",
         [&](auto& c) { return c.GetNVMeBackplaneInfo(3, &byte, buffer); }, 0, 298, 8, "", 368},
        {"GetNVMeBackplaneVersion", "GET_NVME_BACKPLANE_INFO",
         [&](auto& c) { return c.GetNVMeBackplaneVersion(0, &value, &value, &value); }, 0, 298, 8, "", 368},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.method);
        CChannelInterface channel;
        g_FakeChannel.sent.clear();
        c.call(channel);
        ASSERT_EQ(1u, g_FakeChannel.sent.size());
        EXPECT_EQ(Packet(c.length, 1, c.code, c.body), g_FakeChannel.sent[0]);
        EXPECT_EQ(c.replySize, g_FakeChannel.sizes.back());
        EXPECT_EQ(c.timeout, g_FakeChannel.timeouts.back());

        // I/O and device flash go by a status of their own, halt and resume by the short form.
        value = byte = buffer[0] = 77;
        output = 77;
        const WORD code = static_cast<WORD>(c.code);
        g_FakeChannel.body[code] = Filled(Hex("05"), static_cast<std::size_t>(c.replySize) - 8);
        EXPECT_EQ(code == 136 || code == 140 ? 1 : 0, c.call(channel));
        g_FakeChannel.body.erase(code);

        value = byte = buffer[0] = 77;
        output = 77;
        g_FakeChannel.silent = true;
        CLogCapture log;
        EXPECT_EQ(c.failed, c.call(channel));
        const std::string failure = Line(std::string(c.method) + ": SMIFCMD_" + c.command + " failed");
        EXPECT_EQ(log.Text().size() - failure.size(), log.Text().find(failure)) << log.Text();
        channel.Close();
        CLogCapture closed;
        g_FakeChannel.sent.clear();
        EXPECT_EQ(c.failed, c.call(channel));
        EXPECT_EQ(Line(std::string(c.method) + ": Channel not available"), closed.Text());
        EXPECT_TRUE(g_FakeChannel.sent.empty());
        EXPECT_TRUE(value == 77 && byte == 77 && buffer[0] == 77 && output == 77);
        g_FakeChannel.silent = false;
        g_FakeChannel.body[SMIFCMD_GET_STATUS] = StatusBody();
    }
}

TEST_F(Registers, LogWhatTheyReadAndWrite)
{
    CChannelInterface channel;
    std::string& body = g_FakeChannel.body[SMIFCMD_IO_ACCESS];
    const std::string done = Filled("", 19) + "\x0B";
    const std::string refused = Filled(Hex("00000000 00000000 00000000 01"), 20);
    using Read = BOOL (CChannelInterface::*)(int, UCHAR*);
    const std::tuple<std::string, int, Read> reads[] = {
        {"MEMID", 1, &CChannelInterface::ReadMEMID}, {"GPI", 2, &CChannelInterface::ReadGPI},
        {"GPO", 10, &CChannelInterface::ReadGPO},    {"CPLD", 3, &CChannelInterface::ReadCPLD},
        {"XPLD", 11, &CChannelInterface::ReadXPLD},
    };
    for (const auto& [name, operation, read] : reads) {
        CLogCapture log;
        UCHAR value = 0;
        body = done;
        EXPECT_TRUE((channel.*read)(5, &value));
        EXPECT_TRUE((channel.*read)(5, nullptr));
        EXPECT_EQ(operation, g_FakeChannel.sent.back()[8]);
        body = refused;
        EXPECT_FALSE((channel.*read)(5, &value));
        EXPECT_EQ(0x0B, value);
        const std::string line = Line("Read" + name + ": " + name + "[5] = 0x0B");
        EXPECT_EQ(line + line + Line("ReadIoByte: SMIFCMD_IO_ACCESS command failed") +
                      Line("Read" + name + ": Read failed: " + name + "[5]"),
                  log.Text());
    }
    using Write = BOOL (CChannelInterface::*)(int, UCHAR);
    const std::tuple<std::string, int, Write> writes[] = {
        {"GPO", 4, &CChannelInterface::WriteGPO},
        {"CPLD", 5, &CChannelInterface::WriteCPLD},
        {"XPLD", 12, &CChannelInterface::WriteXPLD},
    };
    for (const auto& [name, operation, write] : writes) {
        CLogCapture log;
        body = done;
        EXPECT_TRUE((channel.*write)(6, 0xFE));
        EXPECT_EQ(operation, g_FakeChannel.sent.back()[8]);
        body = refused;
        EXPECT_FALSE((channel.*write)(6, 0xFE));
        EXPECT_EQ(Line("Write" + name + ": " + name + "[6] = 0xFE") +
                      Line("WriteIoByte: SMIFCMD_IO_ACCESS command failed") +
                      Line("Write" + name + ": Write failed: " + name + "[6] = 0xFE"),
                  log.Text());
    }
}

TEST_F(Registers, I2CReadsExactlyWhatWasAskedFor)
{
    CChannelInterface channel;
    UCHAR data[40];
    std::memset(data, 77, sizeof data);
    const auto reply = [](const char* length) {
        g_FakeChannel.body[SMIFCMD_I2C_TRANSACTION] = Filled("", 16) + Hex(length) + std::string(32, 'x');
    };
    CLogCapture log;
    for (int length : {-1, 33, 256}) EXPECT_FALSE(channel.I2CTransaction(1, 2, data, length, nullptr, 0));
    EXPECT_FALSE(channel.I2CTransaction(1, 2, nullptr, 1, nullptr, 0));
    EXPECT_EQ(1u, g_FakeChannel.sent.size());

    reply("20");
    EXPECT_TRUE(channel.I2CTransaction(1, 2, data, 32, data, 0));
    EXPECT_EQ(77, data[0]);
    EXPECT_TRUE(channel.I2CTransaction(1, 2, nullptr, 0, data, 32));
    EXPECT_EQ(std::string(32, 'x') + "M", std::string(data, data + 33));
    data[0] = 77;
    EXPECT_FALSE(channel.I2CTransaction(1, 2, nullptr, 0, data, 33));
    reply("28");
    EXPECT_FALSE(channel.I2CTransaction(1, 2, nullptr, 0, data, 40));
    EXPECT_EQ(77, data[0]);
    const std::string failed = Line("I2CTransaction: SMIFCMD_I2C_TRANSACTION failed");
    EXPECT_EQ(failed + failed + failed + failed + Line("I2CTransaction: Unexpected response length (32/33)") +
                  Line("I2CTransaction: Unexpected response length (40/40)"),
              log.Text());
}

TEST_F(Registers, ControlDevicesWithOldFirmware)
{
    CChannelInterface channel;
    g_FakeChannel.body[SMIFCMD_DEVICE_CONTROL_EX] = Hex("01000000");
    g_FakeChannel.body[SMIFCMD_DEVICE_CONTROL] = Filled(Hex("00000000 04030201") + std::string(48, 'x'), 56);
    CLogCapture log;
    EXPECT_TRUE(channel.HaltDevice(1, 5));
    EXPECT_EQ(Packet(12, 2, 139, Hex("0100 0100")), g_FakeChannel.sent.back());
    EXPECT_TRUE(channel.ResumeDevice(1));
    EXPECT_EQ(Packet(12, 4, 139, Hex("0100 0200")), g_FakeChannel.sent.back());
    EXPECT_EQ(Line("SmifCommand: ErrorCode = 00000001") + Line("SmifCommand: ErrorCode = 00000001"), log.Text());

    ULONG flags = 0;
    UCHAR status[49] = {};
    EXPECT_TRUE(channel.GetDeviceStatus(2, &flags, status));
    EXPECT_TRUE(channel.GetDeviceStatus(2, nullptr, nullptr));
    EXPECT_EQ(0x01020304u, flags);
    EXPECT_STREQ(std::string(48, 'x').c_str(), reinterpret_cast<char*>(status));
}

TEST_F(Registers, TakeAnyReplyToAHostReset)
{
    CChannelInterface channel;
    g_FakeChannel.receives = {{ZalCiSuccess, 7}};
    EXPECT_TRUE(channel.SetHostResetMode(HostResetMode_Default));
}

TEST_F(DeviceFlash, UploadsInPieces)
{
    CChannelInterface channel;
    std::vector<UCHAR> image(2049, 'a');
    image[1024] = 'b';
    image[2048] = 'c';
    CLogCapture log;
    EXPECT_EQ(0, channel.UploadDeviceFlashData("h", image.data(), 2049));
    ASSERT_EQ(4u, g_FakeChannel.sent.size());
    const DWORD expected[][3] = {{0, 1024, 'a'}, {1024, 1024, 'b'}, {2048, 1, 'c'}};
    for (std::size_t i = 0; i < 3; i++) {
        SMIFREQ_DEVICE_FLASH piece;
        std::memcpy(&piece, g_FakeChannel.sent[i + 1].data(), sizeof piece);
        EXPECT_TRUE(piece.Offset == expected[i][0] && piece.DataLength == expected[i][1] &&
                    piece.Data[0] == expected[i][2] && piece.Data[1023] == (i < 2 ? 'a' : 0));
    }
    EXPECT_EQ(0, channel.UploadDeviceFlashData(image.data(), 0));
    EXPECT_EQ(4u, g_FakeChannel.sent.size());
    const std::string complete = Line("UploadDeviceFlashData: Upload complete");
    EXPECT_EQ(Line("UploadDeviceFlashData: Uploading 2049 bytes") + complete +
                  Line("UploadDeviceFlashData: Uploading 0 bytes") + complete,
              log.Text());
}

TEST_F(DeviceFlash, StopsUploadingAtAnError)
{
    CChannelInterface channel;
    const std::vector<UCHAR> image(3000);
    CLogCapture log;
    g_FakeChannel.receives = {{}, {ZalCiErrTimeout}};
    EXPECT_EQ(-1, channel.UploadDeviceFlashData("h", image.data(), 3000));
    EXPECT_EQ(3u, g_FakeChannel.sent.size());
    EXPECT_EQ(Line("UploadDeviceFlashData: Uploading 3000 bytes") + Line("Recv: status 34") +
                  Line("UploadDeviceFlashData: SMIFCMD_DEVICE_FLASH failed") +
                  Line("UploadDeviceFlashData: Error -1 at offset 1024"),
              log.Text());
    g_FakeChannel.body[SMIFCMD_DEVICE_FLASH] = Hex("00000000 02000000");
    EXPECT_EQ(DeviceFlashStatus_Busy, channel.UploadDeviceFlashData(image.data(), 3000));
    EXPECT_EQ(4u, g_FakeChannel.sent.size());
    EXPECT_TRUE(log.Has(Line("UploadDeviceFlashData: Error 2 at offset 0")));
}

TEST_F(DeviceFlash, ChecksLengthsAndCutsHandlerNames)
{
    CChannelInterface channel;
    const UCHAR data[1025] = {1};
    EXPECT_EQ(0, channel.UploadDeviceFlashData(0, data, 1024));
    EXPECT_EQ(2u, g_FakeChannel.sent.size());
    CLogCapture log;
    for (int length : {1025, -1}) {
        EXPECT_EQ(-1, channel.UploadDeviceFlashData("h", 0, data, length));
        EXPECT_EQ(-1, channel.DeviceFlashDispatch("h", 0, nullptr, data, length, nullptr, nullptr));
        EXPECT_EQ(-1, channel.QueryDeviceFlashHandler("h", 0, nullptr, data, length, nullptr, nullptr));
    }
    EXPECT_EQ(-1, channel.UploadDeviceFlashData("h", 0, nullptr, 1));
    const std::string invalid = Line("UploadDeviceFlashData: Invalid length");
    const std::string each =
        invalid + Line("DeviceFlashDispatch: Invalid length") + Line("QueryDeviceFlashHandler: Invalid length");
    EXPECT_EQ(each + each + invalid, log.Text());
    EXPECT_EQ(2u, g_FakeChannel.sent.size());

    for (std::size_t length : {0, 15, 16, 200}) {
        channel.OpenDeviceFlash(std::string(length, 'x').c_str());
        EXPECT_EQ(Filled(std::string(std::min<std::size_t>(length, 15), 'x'), 16),
                  g_FakeChannel.sent.back().substr(44, 16));
    }
    channel.OpenDeviceFlash(nullptr);
    EXPECT_EQ(std::string(16, '\0'), g_FakeChannel.sent.back().substr(44, 16));
    EXPECT_TRUE(*CChannelInterface::DeviceHandler_TMBR && *CChannelInterface::DeviceHandler_SignedImage);
}

TEST_F(DeviceFlash, HandsOutWhatTheHandlerAnswers)
{
    CChannelInterface channel;
    UCHAR data[1025];
    ULONG output = 0;
    int length = 0;
    // Status 4, a stated length, the value 9, and 1024 bytes.
    const auto reply = [](const char* stated) {
        g_FakeChannel.body[SMIFCMD_DEVICE_FLASH] =
            Filled(Hex("00000000 04000000 00000000 00000000" + std::string(stated) + "00000000 09"), 52) +
            std::string(1024, 'x');
    };
    const auto stored = [&] { return std::count(std::begin(data), std::end(data), 'x'); };

    for (const auto& [stated, value, dispatched] :
         {std::tuple("0A000000", 10, 10), std::tuple("00000000", 0, 0), std::tuple("88130000", 5000, 1024)}) {
        reply(stated);
        std::memset(data, 0, sizeof data);
        EXPECT_EQ(4, channel.DeviceFlashDispatch("h", 0, &output, nullptr, 0, data, &length));
        EXPECT_TRUE(output == 9 && length == value && stored() == dispatched);
        std::memset(data, 0, sizeof data);
        output = 0;
        EXPECT_EQ(4, channel.QueryDeviceFlashHandler("h", 0, &output, nullptr, 0, data, &length));
        EXPECT_TRUE(output == 9 && length == value && stored() == 1024);
        output = 0;
        EXPECT_EQ(4, channel.ResetDeviceFlashHandler("h", &output));
        EXPECT_EQ(9u, output);
    }
    EXPECT_EQ(4, channel.DeviceFlashDispatch("h", 0, nullptr, nullptr, 0, nullptr, nullptr));
    EXPECT_EQ(4, channel.QueryDeviceFlashHandler("h", 0, nullptr, nullptr, 0, nullptr, nullptr));
    EXPECT_EQ(4, channel.ResetDeviceFlashHandler("h", nullptr));

    // A dead processor: the query has a minute, and logs each receive that stays empty.
    g_FakeChannel.silent = true;
    const std::int64_t start = Milliseconds();
    EXPECT_EQ(-1, channel.QueryDeviceFlashHandler("h", 0, &output, nullptr, 0, data, &length));
    EXPECT_EQ(60000, Milliseconds() - start);
}

TEST_F(Inventory, ReadsVersions)
{
    CChannelInterface channel;
    g_FakeChannel.body[SMIFCMD_GET_POWERPIC_INFO] = Filled(Hex("00000000 0312 7856 0800"), 264);
    UINT8 byte = 0;
    int major = 0;
    int minor = 0;
    int pass = 0;
    BOOL bootLoader = FALSE;
    EXPECT_TRUE(channel.GetPowerPICType(&byte));
    EXPECT_EQ(0x78, byte);
    EXPECT_TRUE(channel.GetPowerPICVersion(&major, &minor, &pass, &bootLoader));
    EXPECT_TRUE(major == 1 && minor == 2 && pass == 3 && bootLoader == TRUE);
    g_FakeChannel.body[SMIFCMD_GET_POWERPIC_INFO][8] = static_cast<char>(0xF7);
    EXPECT_TRUE(channel.GetPowerPICVersion(nullptr, nullptr, nullptr, &bootLoader));
    EXPECT_FALSE(bootLoader);

    g_FakeChannel.body[SMIFCMD_GET_TMBLN_INFO] = Hex("00000000 FF45FFFF FF56FFFF FF67FFFF");
    EXPECT_TRUE(channel.GetTamberlineFamily(&byte));
    EXPECT_EQ(0x56, byte);
    EXPECT_TRUE(channel.GetTamberlineVersion(&major, &minor, &pass));
    EXPECT_TRUE(major == 4 && minor == 5 && pass == 0x7F);
    EXPECT_TRUE(channel.GetTamberlineBootloaderVersion(&major, &minor));
    EXPECT_TRUE(major == 6 && minor == 7);
}

TEST_F(Inventory, ReadsBackplanes)
{
    CChannelInterface channel;
    const auto entry = [](const char* head) { return Filled(Hex(head) + std::string(16, 'i'), 88); };
    g_FakeChannel.body[SMIFCMD_GET_NVME_BACKPLANE_INFO] =
        Hex("00000000 07000000") + entry("01 02 03 FE 00 00 55 00") + entry("01 02 03 01 00 00 00 00") +
        entry("FF FF 07 00 00 00 00 00") + entry("FF 02 07 00 00 00 66 00");
    EXPECT_EQ(7, channel.GetNVMeBackplaneCount());

    UINT8 type = 0;
    UINT8 id[17] = {};
    EXPECT_TRUE(channel.GetNVMeBackplaneInfo(0, &type, id));
    EXPECT_EQ(0x55, type);
    EXPECT_STREQ(std::string(16, 'i').c_str(), reinterpret_cast<char*>(id));
    EXPECT_TRUE(channel.GetNVMeBackplaneInfo(3, nullptr, nullptr));

    const int expected[][3] = {{1, 2, 0}, {3, 0, 1}, {7, 0, 1}, {255, 2, 0}};
    for (int i = 0; i < 4; i++) {
        int got[3] = {-1, -1, -1};
        EXPECT_TRUE(channel.GetNVMeBackplaneVersion(i, &got[0], &got[1], &got[2]));
        EXPECT_TRUE(std::equal(got, got + 3, expected[i])) << i;
    }
    channel.Close();
    CLogCapture log;
    EXPECT_FALSE(channel.GetNVMeBackplaneInfo(4, &type, id));
    EXPECT_FALSE(channel.GetNVMeBackplaneVersion(-1, nullptr, nullptr, nullptr));
    EXPECT_EQ(Line("GetNVMeBackplaneInfo: Invalid backplane index") +
                  Line("GetNVMeBackplaneVersion: Invalid backplane index"),
              log.Text());
}

TEST_F(Inventory, ReadsPowerSupplies)
{
    CChannelInterface channel;
    UINT32 data1[9] = {11};
    UINT16 data2[9] = {22};
    UINT16 data3[9] = {33};
    UINT8* data4[9] = {};
    int count = -1;
    CLogCapture log;
    EXPECT_TRUE(channel.ReadPSInfo(data1, data2, data3, data4, &count));
    EXPECT_EQ(0, count);
    EXPECT_EQ(Packet(8, 1, 285, ""), g_FakeChannel.sent.back());
    EXPECT_EQ(140, g_FakeChannel.sizes.back());
    EXPECT_EQ(-1, g_FakeChannel.timeouts.back());
    EXPECT_EQ(Line("ReadPSInfo::Response Packet Length - 140") + Line("ReadPSInfo::GUID[0] 0,0,0") +
                  Line("ReadPSInfo::Command 285") + Line("ReadPSInfo: PSGUID[0] 11,22"),
              log.Text());

    std::string& body = g_FakeChannel.body[SMIFCMD_PS_INFO];
    body = Hex("00000000");
    for (char i = '1'; i <= '8'; i++) body += Hex("04030201 0605 0807") + std::string(8, i);
    EXPECT_TRUE(channel.ReadPSInfo(data1, data2, data3, data4, &count));
    EXPECT_EQ(8, count);
    EXPECT_TRUE(data1[7] == 0x01020304 && data2[7] == 0x0506 && data3[7] == 0x0708 && data1[8] == 0 && !data4[8]);
    EXPECT_TRUE(log.Has(Line("ReadPSInfo: PSGUID[0] 16909060,1286")));
    EXPECT_TRUE(channel.ReadPSInfo(nullptr, nullptr, nullptr, nullptr, nullptr));

    body[4 + 2 * 16 + 0] = body[4 + 2 * 16 + 1] = body[4 + 2 * 16 + 2] = body[4 + 2 * 16 + 3] = 0;
    EXPECT_TRUE(channel.ReadPSInfo(data1, data2, data3, data4, &count));
    EXPECT_EQ(2, count);

    channel.Close();
    CLogCapture closed;
    EXPECT_FALSE(channel.ReadPSInfo(data1, data2, data3, data4, &count));
    EXPECT_EQ(Line("ReadPSInfo:: Smif Command Error "), closed.Text());
    EXPECT_EQ("22222222", std::string(data4[1], data4[1] + 8));  // stays
}

TEST(AbsentChannel, HasNoDriverAndATextForEveryStatus)
{
    void* pLibrary = dlopen(ZALCI, RTLD_NOW);
    ASSERT_TRUE(pLibrary) << dlerror();
    const auto create = reinterpret_cast<decltype(&ZalCiCreate)>(dlsym(pLibrary, "ZalCiCreate"));
    const auto message = reinterpret_cast<decltype(&ZalCiStatusMessage)>(dlsym(pLibrary, "ZalCiStatusMessage"));
    ZALCIHANDLE handle = nullptr;
    EXPECT_EQ(ZalCiErrNoDriver, create(nullptr, &handle, 2, 4096, 2, 4096, ZalCiNormalPriority, nullptr));
    std::set<std::string> texts;
    for (int i = -1; i <= ZalCiErrMax; i++) texts.insert(message(static_cast<ZALCISTATUS>(i)));
    EXPECT_EQ(44u, texts.size());
    EXPECT_EQ(texts.end(), texts.find(""));
    dlclose(pLibrary);
}
