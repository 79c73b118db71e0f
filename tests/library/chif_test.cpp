#include "chif.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <regex>
#include <sstream>
#include <tuple>

#include "sim/base/clock.h"
#include "sim/server.h"
#include "tests/library/fakechannel.h"
#include "tests/support.h"

#define CALL(call) [&](CChannelInterface& c) -> int { return c.call; }

namespace
{

using Call = std::function<int(CChannelInterface&)>;

CFakeChannel& fake = g_FakeChannel;

std::string Hex(const std::string& digits)
{
    std::string bytes;
    for (std::size_t i = 0; i < digits.size(); i++)
        if (digits[i] != ' ') bytes += static_cast<char>(std::stoi(digits.substr(i++, 2), nullptr, 16));
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
    const std::string packet(reinterpret_cast<const char*>(header), sizeof header);
    return Filled(packet + body, static_cast<std::size_t>(length));
}

// A device flash request behind the header.
std::string Flash(DWORD operation, DWORD offset = 0, DWORD length = 0, DWORD in = 0, const std::string& data = "")
{
    const DWORD fields[] = {0, 0, operation, offset, length, in, 0, 0, 0};
    return std::string(reinterpret_cast<const char*>(fields), sizeof fields) + Filled("tmbr", 16) + data;
}

std::string Lines(std::initializer_list<std::string> texts)
{
    std::string lines;
    for (const std::string& text : texts) lines += "CChannelInterface::" + text + "\n";
    return lines;
}

// How long an action takes, in milliseconds, and what it answers.
template <typename Action>
auto Timed(Action action)
{
    const std::int64_t start = sim::CClock::Instance().Now();
    const auto answer = action();
    return std::pair(static_cast<int>((sim::CClock::Instance().Now() - start) / 1000000), answer);
}

// Version 2.07 of 03/15/2020.
std::string StatusBody(int korClass, int application)
{
    std::string body = Filled(Hex("00000000 0000 0000 07 02 0000DE78"), 92);
    body[60] = static_cast<char>(korClass);
    body[63] = static_cast<char>(application);
    return body;
}

class Scripted : public testing::Test
{
  protected:
    Scripted()
    {
        // Half a second and half a millisecond from where the numbers change.
        sim::CClock& clock = sim::CClock::Instance();
        clock.Wait(1500500000 - clock.Now() % 1000000000);
        fake = CFakeChannel();
        fake.body[SMIFCMD_GET_STATUS] = StatusBody(5, 0);
    }
    ~Scripted() override { EXPECT_EQ(0, fake.open); }
};

class Channel : public Scripted
{
  protected:
    CChannelInterface channel;
    CLogCapture log;
};

// A bare packet, sent and answered under command 0.
class Transport : public Channel
{
  protected:
    Transport() { request.Length = 8; }
    int Command() { return channel.SmifCommand(&request, &response, sizeof response, 5); }
    int LongCommand(int seconds)
    {
        return channel.SmifCommandNoErrWithOverallTimeout(&request, &response, sizeof response, seconds);
    }
    SMIFPACKET request = {};
    SMIFRESPONSE response = {};
};

// All operations but those that go by another's name or have a log of their own.
class Operations : public Scripted
{
  protected:
    static int Failed(int code) { return code == 137 ? -1 : FALSE; }
    void ClearOutputs()
    {
        output = buffer[0] = 77;
        value = 77;
    }
    bool NothingStored() const { return value == 77 && buffer[0] == 77 && output == 77; }

    const UCHAR data[3] = {0xDE, 0xAD, 0xBE};
    UCHAR buffer[1024] = {};
    ULONG output = 0;
    int value = 0;

    // Name, and sizes of the request and the reply's buffer.
    const std::map<int, std::tuple<std::string, int, int>> commands = {
        {2, {"GET_STATUS", 8, 100}},
        {80, {"MOXFLASH_COMMAND", 12, 189}},
        {114, {"I2C_TRANSACTION", 57, 57}},
        {136, {"IO_ACCESS", 28, 28}},
        {137, {"DEVICE_FLASH", 1084, 1084}},
        {139, {"DEVICE_CONTROL", 12, 64}},
        {140, {"DEVICE_CONTROL", 20, 68}},
        {152, {"HOST_RESET", 14, 14}},
        {275, {"GET_TMBLN_INFO", 8, 24}},
        {294, {"GET_POWERPIC_INFO", 8, 272}},
        {298, {"GET_NVME_BACKPLANE_INFO", 8, 368}},
    };

    // Method, command, the request behind the header.
    const std::vector<std::tuple<std::string, int, std::string, Call>> operations = {
        {"VerifySMIF", 2, "", CALL(VerifySMIF())},
        {"UpdateMOXVersion", 2, "", CALL(UpdateMOXVersion())},
        {"RebootMOX", 80, Hex("03"), CALL(RebootMOX())},
        {"ReadIoByte", 136, Hex("02000000 02010000"), CALL(ReadIoByte(2, 258, buffer))},
        {"ReadIoByte", 136, Filled(Hex("0A000000 02010000"), 19) + "\2", CALL(ReadIoByte(10, 258, buffer))},
        {"WriteIoByte", 136, Filled(Hex("05000000 02010000"), 19) + "\xA5", CALL(WriteIoByte(5, 258, 0xA5))},
        {"I2CTransaction", 114, Hex("00000000 4D4F584942555300 6601 02 03 04 DEADBE"),
         CALL(I2CTransaction(258, 0x10166, data, 3, nullptr, 4))},
        {"GetDeviceStatus", 139, Hex("0201 0000"), CALL(GetDeviceStatus(258, &output, buffer))},
        {"HaltDevice", 140, Hex("0201 0100 70110000"), CALL(HaltDevice(258, 70000))},
        {"ResumeDevice", 140, Hex("0201 0200"), CALL(ResumeDevice(258))},
        {"SetHostResetMode", 152, Hex("00000000 01"), CALL(ScheduleColdBoot())},
        {"SetHostResetMode", 152, Hex("00000000 02"), CALL(ScheduleAuxPowerCycle())},
        {"OpenDeviceFlash", 137, Flash(1), CALL(OpenDeviceFlash("tmbr"))},
        {"QueryDeviceFlashStatus", 137, Flash(0), CALL(QueryDeviceFlashStatus("tmbr"))},
        {"ResetDeviceFlash", 137, Flash(2), CALL(ResetDeviceFlash("tmbr"))},
        {"UploadDeviceFlashData", 137, Flash(3, 0x10203, 3, 0, "\xDE\xAD\xBE"),
         CALL(UploadDeviceFlashData("tmbr", 0x10203, data, 3))},
        {"DeviceFlashDispatch", 137, Flash(4, 0, 3, 0x10203, "\xDE\xAD\xBE"),
         CALL(DeviceFlashDispatch("tmbr", 0x10203, &output, data, 3, buffer, &value))},
        {"DeviceFlashDispatch", 137, Flash(4, 0, 0, 0x10203),
         CALL(DeviceFlashDispatch("tmbr", 0x10203, &output, nullptr, -1, buffer, &value))},
        {"QueryDeviceFlashHandler", 137, Flash(5, 0, 0, 0x10203),
         CALL(QueryDeviceFlashHandler("tmbr", 0x10203, &output, nullptr, 3, buffer, &value))},
        {"QueryDeviceFlashHandler", 137, Flash(5, 0, 0, 0x10203),
         CALL(QueryDeviceFlashHandler("tmbr", 0x10203, &output, nullptr, -1, buffer, &value))},
        {"ResetDeviceFlashHandler", 137, Flash(6), CALL(ResetDeviceFlashHandler("tmbr", &output))},
        {"GetPowerPICType", 294, "", CALL(GetPowerPICType(buffer))},
        {"GetPowerPICVersion", 294, "", CALL(GetPowerPICVersion(&value, &value, &value, &value))},
        {"GetTamberlineFamily", 275, "", CALL(GetTamberlineFamily(buffer))},
        {"GetTamberlineVersion", 275, "", CALL(GetTamberlineVersion(&value, &value, &value))},
        {"GetTamberlineBootloaderVersion", 275, "", CALL(GetTamberlineBootloaderVersion(&value, &value))},
        {"GetNVMeBackplaneCount", 298, "", CALL(GetNVMeBackplaneCount())},
        {"GetNVMeBackplaneInfo", 298, "", CALL(GetNVMeBackplaneInfo(3, buffer, buffer))},
        {"GetNVMeBackplaneVersion", 298, "", CALL(GetNVMeBackplaneVersion(0, &value, &value, &value))},
    };
};

using Discovery = Scripted;
using Registers = Channel;
using DeviceFlash = Channel;
using Inventory = Channel;

}  // namespace

TEST_F(Transport, StampsAndChecksPackets)
{
    request.Length = 7;
    EXPECT_EQ(39, channel.Send(&request));
    EXPECT_EQ(39, channel.Send(nullptr));
    EXPECT_EQ(39, channel.Recv(&response, 11, 1));
    EXPECT_EQ(39, channel.Recv(nullptr, 12, 1));
    request.Length = 8;
    request.Sequence = request.ServiceType = 7;
    EXPECT_EQ(0, channel.Send(&request));
    EXPECT_EQ(Packet(8, 1, 0, ""), fake.sent.back());
    EXPECT_EQ(0, channel.Recv(&response, 12, 0));
    EXPECT_EQ(int{CFakeChannel::NoTimeout}, fake.timeout);
    for (int i = 0; i < 65535; i++) channel.Send(&request);
    EXPECT_EQ(Packet(8, 0, 0, ""), fake.sent.back());
    EXPECT_EQ(39, channel.SmifCommandNoErr(&request, nullptr, 12, 5));
    EXPECT_EQ(39, channel.SmifCommandNoErr(&request, &response, -1, 5));

    channel.Close();
    EXPECT_EQ(2, channel.Send(&request));
    EXPECT_EQ(2, channel.Recv(&response, 12, 1));
    EXPECT_EQ(2, Command());
    EXPECT_EQ("", log.Text());
}

TEST_F(Transport, TriesTenTimesWhenTheFifoIsFull)
{
    fake.sends = std::deque<ZALCISTATUS>(9, ZalCiErrFifoFull);
    EXPECT_EQ(0, channel.Send(&request));

    fake.sends = std::deque<ZALCISTATUS>(10, ZalCiErrFifoFull);
    fake.sends.push_back(ZalCiErrTimeout);
    fake.sent.clear();
    EXPECT_EQ(std::pair(500, 20), Timed([&] { return channel.Send(&request); }));
    EXPECT_EQ(std::vector<std::string>(10, Packet(8, 2, 0, "")), fake.sent);
    EXPECT_EQ(34, channel.Send(&request));
    EXPECT_EQ(Packet(8, 3, 0, ""), fake.sent.back());  // the number was used up
    EXPECT_EQ(Lines({"Send: status 20", "Send: status 34"}), log.Text());
}

TEST_F(Transport, RefusesRuntsAndErrors)
{
    fake.receives = {{ZalCiSuccess, 0, 1}, {ZalCiErrTimeout}};
    fake.body[0] = Hex("EF00ADDE");
    EXPECT_EQ(22, Command());
    EXPECT_EQ(34, Command());
    EXPECT_EQ(42, Command());
    EXPECT_EQ(0, channel.SmifCommandNoErr(&request, &response, sizeof response, 5));
    EXPECT_EQ(Lines({"Recv: Runt packet (Header length = 12)", "Recv: status 22", "Recv: status 34",
                     "SmifCommand: ErrorCode = DEAD00EF"}),
              log.Text());
}

TEST_F(Transport, DiscardsThreeStaleRepliesAndGivesUpAfterFour)
{
    fake.receives = {{ZalCiSuccess, -1}, {ZalCiSuccess, -2}, {ZalCiSuccess, 1}};
    EXPECT_EQ(0, Command());
    const std::string text = "SmifCommandNoErr: Out of sequence response ";
    EXPECT_EQ(Lines({text + "(0001/0000)", text + "(0001/FFFF)", text + "(0001/0002)"}), log.Text());

    fake.receives = std::deque<CFakeChannel::CReceive>(5, {ZalCiSuccess, 1});
    EXPECT_EQ(42, Command());
    EXPECT_EQ(1u, fake.receives.size());
    fake.receives = {{ZalCiSuccess, 1}, {ZalCiErrTimeout}};
    EXPECT_EQ(34, Command());
}

TEST_F(Transport, LeavesNoTraceOfStaleReplies)
{
    fake.body[0] = std::string(4088, 'x');  // all that an entry of the FIFO holds
    for (int length : {0, 8}) {
        for (bool overall : {false, true}) {
            std::string buffer = Packet(8, request.Sequence + 1, 0, "") + std::string(5000, 'b');
            buffer[0] = 0;
            std::string expected = buffer;
            expected[0] = static_cast<char>(length);
            const auto pReply = reinterpret_cast<SMIFPACKET*>(buffer.data());
            fake.receives = {{ZalCiSuccess, 1}, {ZalCiSuccess, 1}, {ZalCiSuccess, 0, 0, length}};
            EXPECT_EQ(0, overall ? channel.SmifCommandNoErrWithOverallTimeout(&request, pReply, 5008, 60)
                                 : channel.SmifCommandNoErr(&request, pReply, 5008, 5));
            EXPECT_EQ(expected, buffer);
        }
    }
}

TEST_F(Transport, WaitsForLongCommandsUpToTheOverallLimit)
{
    fake.receives = {{ZalCiErrFifoEmpty}, {ZalCiSuccess, 5}, {ZalCiErrFifoEmpty}};
    EXPECT_EQ(0, LongCommand(60));
    EXPECT_EQ(20000, fake.timeout);
    const std::string method = "SmifCommandNoErrWithOverallTimeout: ";
    EXPECT_EQ(Lines({"Recv: status 21", method + "FIFO is empty", method + "Out of sequence response (0001/0006)",
                     "Recv: status 21", method + "FIFO is empty"}),
              log.Text());

    fake.receives = std::deque<CFakeChannel::CReceive>(9, {ZalCiErrFifoEmpty});
    EXPECT_EQ(21, LongCommand(60));
    EXPECT_EQ(6u, fake.receives.size());
    fake.receives = {{ZalCiErrTimeout}};
    EXPECT_EQ(34, LongCommand(60));
    fake.receives = {{ZalCiSuccess, 1}};
    EXPECT_EQ(42, LongCommand(0));
}

TEST_F(Discovery, TellsWhatItFinds)
{
    CLogCapture log;
    CChannelInterface channel;
    EXPECT_EQ(ChannelState_Open, channel.GetState());
    EXPECT_EQ(Lines({"CChannelInterface()", "CheckDriver: CHIF driver found",
                     "UpdateMOXVersion: Firmware = Mox 3 v2.07 (03/15/2020)", "CheckDriver: Mox is alive"}),
              log.Text());
    EXPECT_STREQ("2.07 (03/15/2020)", channel.GetMOXFwVersion().ToString());
    EXPECT_EQ(channel.MakeMOXCombinedVersion(3, 2, 7, 0), channel.GetMOXCombinedVersion());
    EXPECT_EQ(0xFF030201u, channel.MakeMOXCombinedVersion(255, 3, 2, 1));
    channel.Close();
    EXPECT_EQ(ChannelState_Closed, channel.GetState());

    fake.silent = true;
    EXPECT_EQ(ChannelState_Broken, channel.GetUpdatedState());
    EXPECT_FALSE(channel.IsOpen());
    EXPECT_EQ(0, channel.GetMOXFwVersion().Year + channel.GetMOXGeneration());
    EXPECT_TRUE(log.Has(Lines({"UpdateMOXVersion: SMIFCMD_GET_STATUS failed", "CheckDriver: Mox is dead"})));
    fake.noHandle = true;
    EXPECT_EQ(ChannelState_Broken, channel.GetUpdatedState());
    EXPECT_EQ(0, channel.Open());
    EXPECT_TRUE(log.Has(Lines({"CheckDriver: Mox is dead", "Open: status 0"})));
}

// With a grep in front of the real one that notes how it is called and finds that many lines.
TEST_F(Discovery, CountsThePciFunctionsWithoutADriver)
{
    sim::SetCurrentServer(nullptr);
    CTestFolder folder;
    const std::string arguments = (folder.Path() / "arguments").string();
    const std::string path = std::getenv("PATH");
    setenv("PATH", (folder.Path().string() + ":" + path).c_str(), 1);
    for (int count = 0; count <= 4; count++) {
        const std::string grep = folder.Write("grep", "#!/bin/sh\necho \"$* 2>\" $(readlink /proc/$$/fd/2) >" +
                                                          arguments + "\nseq " + std::to_string(count) + "\n");
        std::filesystem::permissions(grep, std::filesystem::perms::owner_all);
        fake.creates = {ZalCiErrNoDriver};
        CLogCapture log;
        CChannelInterface channel;
        EXPECT_EQ(count == 3 ? ChannelState_NoDriver : ChannelState_NoHardware, channel.GetState());
        std::string expected = Lines({"CChannelInterface()", "Open: status 1", "CheckDriver: No CHIF driver"});
        expected += count == 3
                        ? Lines({"FindDevice: Found Pellow", "InitChannelDriver: Device exists, but driver not loaded"})
                        : Lines({"FindDevice: Pellow not found"});
        EXPECT_EQ(expected, log.Text());
        EXPECT_TRUE(std::regex_match(ReadFile(arguments),
                                     std::regex("-i( -e [0-9a-f]{8}){4} /proc/bus/pci/devices 2> /dev/null\n")));
        EXPECT_EQ(ChannelState_Open, channel.GetUpdatedState());
        fake.creates = {ZalCiErrNoDriver};
        channel.VerifyFirmwareIsAlive();
        EXPECT_EQ(ChannelState_NoHardware, channel.GetState());
    }
    setenv("PATH", path.c_str(), 1);
}

TEST_F(Discovery, TellsGenerations)
{
    CChannelInterface channel;
    const int cases[][3] = {{0, 9, 1}, {3, 9, 1}, {4, 9, 2}, {5, 9, 3}, {6, 0, 3}, {6, 4, 4}, {255, 200, 200}};
    for (const auto& [korClass, application, generation] : cases) {
        fake.body[SMIFCMD_GET_STATUS] = StatusBody(korClass, application);
        EXPECT_TRUE(channel.UpdateMOXVersion());
        EXPECT_EQ(generation, channel.GetMOXGeneration()) << korClass;
    }
}

TEST_F(Discovery, VerifiesThatTheFirmwareIsAlive)
{
    CChannelInterface channel;
    CLogCapture log;
    const auto verify = [&] {
        channel.VerifyFirmwareIsAlive();
        return channel.GetState();
    };
    fake.creates = {ZalCiErrTimeout};
    fake.receives = {{ZalCiErrInterface}};
    EXPECT_EQ(std::pair(2000 + 4000 + 2000 + 8000, ChannelState_Open), Timed(verify));
    const std::string checking = "VerifyFirmwareIsAlive: Checking Mox";
    EXPECT_EQ(Lines({"Open: status 34", "VerifyFirmwareIsAlive: Can't open channel", checking, "Recv: status 35",
                     "VerifySMIF: SMIFCMD_GET_STATUS failed", checking, checking,
                     "UpdateMOXVersion: Firmware = Mox 3 v2.07 (03/15/2020)", "VerifyFirmwareIsAlive: Mox is alive"}),
              log.Text());

    fake.creates.assign(40, ZalCiErrTimeout);
    EXPECT_EQ(std::pair(60000, ChannelState_Broken), Timed(verify));
    fake.creates = {ZalCiErrNoDriver};
    EXPECT_EQ(std::pair(0, ChannelState_NoHardware), Timed(verify));
    EXPECT_TRUE(log.Has(
        Lines({"VerifyFirmwareIsAlive: Mox is dead", "Open: status 1", "VerifyFirmwareIsAlive: No CHIF driver"})));
    fake.silent = true;
    EXPECT_EQ(std::pair(3 * (4000 + 20000 + 2000), ChannelState_Broken), Timed(verify));
    EXPECT_EQ(0, fake.open);
}

TEST_F(Discovery, WaitsForAReboot)
{
    CChannelInterface channel;
    CLogCapture log;
    const auto wait = [&] { return channel.WaitForReboot(); };
    fake.creates = {ZalCiErrTimeout};
    fake.receives = {{ZalCiErrInterface}};
    EXPECT_EQ(std::pair(20000 + 3 * 2000, TRUE), Timed(wait));
    EXPECT_TRUE(channel.IsOpen());
    EXPECT_EQ(Lines({"WaitForReboot: Waiting for Mox to reboot", "Open: status 34", "Recv: status 35",
                     "WaitForReboot: Reboot completed"}),
              log.Text());
    fake.creates.assign(40, ZalCiErrTimeout);
    EXPECT_EQ(std::pair(62000, FALSE), Timed(wait));
    EXPECT_TRUE(log.Has(Lines({"WaitForReboot: Timeout! (Not fatal)"})));
    fake.creates.clear();
    fake.silent = true;
    EXPECT_EQ(std::pair(20000 + 2 * (2000 + 20000), FALSE), Timed(wait));
    EXPECT_EQ(0, fake.open);
}

TEST_F(Operations, SendTheirPacketAndFailWithoutAReply)
{
    for (const auto& [method, code, body, call] : operations) {
        SCOPED_TRACE(method);
        const auto& [name, length, replySize] = commands.at(code);
        fake.silent = false;
        CChannelInterface channel;
        fake.silent = true;
        fake.sent.clear();
        ClearOutputs();
        CLogCapture log;
        EXPECT_EQ(Failed(code), call(channel));
        EXPECT_EQ(Packet(length, 1, code, body), fake.sent[0]);
        EXPECT_EQ(replySize, fake.sizes[static_cast<WORD>(code)]);
        EXPECT_EQ(method == "DeviceFlashDispatch" ? 60000 : 20000, fake.timeout);
        const std::string failure = Lines({method + ": SMIFCMD_" + name + " failed"});
        EXPECT_EQ(log.Text().size() - failure.size(), log.Text().find(failure)) << log.Text();
        channel.Close();
        CLogCapture closed;
        EXPECT_EQ(Failed(code), call(channel));
        EXPECT_EQ(Lines({method + ": Channel not available"}), closed.Text());
        EXPECT_TRUE(NothingStored());
    }
}

// An error code fails a command, but for I/O and device flash, which have a status of their own.
TEST_F(Operations, FailOnErrorCodesAndOnRepliesTooShortForOne)
{
    for (const auto& [method, code, body, call] : operations) {
        SCOPED_TRACE(method);
        fake.receives.clear();
        CChannelInterface channel;
        const std::size_t size = static_cast<std::size_t>(std::get<2>(commands.at(code))) - 8;
        for (int command : {139, code}) fake.body[static_cast<WORD>(command)] = Filled("\5", size);
        ClearOutputs();
        EXPECT_EQ(code == 136, call(channel));
        EXPECT_TRUE(code == 136 || code == 137 || NothingStored());
        fake.body.erase(static_cast<WORD>(code));

        for (const auto& [length, stale] : {std::pair(0, false), {0, true}, {8, false}, {8, true}}) {
            fake.creates = {ZalCiErrTimeout};
            CChannelInterface fresh;
            fresh.Open();  // number 0 is next, which is also what nothing received looks like
            fake.receives = {{ZalCiSuccess, 0, 0, length}, {ZalCiErrTimeout}};
            if (stale) fake.receives.push_front({ZalCiSuccess, 1});
            ClearOutputs();
            // Any reply to a host reset counts, and the request that it replaces is no error.
            const bool anyReply = code == 152 && (stale || length == 8);
            EXPECT_EQ(anyReply ? TRUE : Failed(code), call(fresh)) << length;
            EXPECT_TRUE(code == 137 || NothingStored());
        }
    }
}

TEST_F(Registers, LogWhatTheyReadAndWrite)
{
    std::string& body = fake.body[SMIFCMD_IO_ACCESS];
    UCHAR value = 0;
    const std::tuple<std::string, int, std::string, Call> cases[] = {
        {"Read", 1, "MEMID", CALL(ReadMEMID(5, &value))},  {"Read", 2, "GPI", CALL(ReadGPI(5, &value))},
        {"Read", 10, "GPO", CALL(ReadGPO(5, &value))},     {"Read", 3, "CPLD", CALL(ReadCPLD(5, &value))},
        {"Read", 11, "XPLD", CALL(ReadXPLD(5, &value))},   {"Write", 4, "GPO", CALL(WriteGPO(5, 0x0B))},
        {"Write", 5, "CPLD", CALL(WriteCPLD(5, 0x0B))},    {"Write", 12, "XPLD", CALL(WriteXPLD(5, 0x0B))},
        {"Read", 1, "MEMID", CALL(ReadMEMID(5, nullptr))},
    };
    for (const auto& [verb, operation, file, call] : cases) {
        body = Hex("00000000");  // no status
        EXPECT_FALSE(call(channel));
        CLogCapture lines;
        body = Filled("", 19) + "\x0B";
        EXPECT_TRUE(call(channel));
        EXPECT_EQ(operation, fake.sent.back()[8]);
        body = Filled(Hex("00000000 00000000 00000000 01"), 20);  // the status
        EXPECT_FALSE(call(channel));
        const std::string line = verb + file + ": ";
        const std::string failed = line + verb + " failed: " + file + "[5]" + (verb == "Read" ? "" : " = 0x0B");
        EXPECT_EQ(Lines({line + file + "[5] = 0x0B", verb + "IoByte: SMIFCMD_IO_ACCESS command failed", failed}),
                  lines.Text());
        EXPECT_EQ(0x0B, value);
    }
}

TEST_F(Registers, I2CReadsExactlyWhatWasAskedFor)
{
    UCHAR data[40] = {77};
    std::string& body = fake.body[SMIFCMD_I2C_TRANSACTION];
    body = Filled("", 16) + " " + std::string(32, 'x');  // 32 bytes
    for (int length : {-1, 33, 256}) EXPECT_FALSE(channel.I2CTransaction(1, 2, data, length, nullptr, 0));
    EXPECT_FALSE(channel.I2CTransaction(1, 2, nullptr, 1, nullptr, 0));
    EXPECT_EQ(1u, fake.sent.size());
    EXPECT_TRUE(channel.I2CTransaction(1, 2, data, 32, data, 0));
    for (int length : {31, 33}) EXPECT_FALSE(channel.I2CTransaction(1, 2, nullptr, 0, data, length));
    body[16] = 40;
    EXPECT_FALSE(channel.I2CTransaction(1, 2, nullptr, 0, data, 40));
    EXPECT_EQ(77, data[0]);
    body[16] = 32;
    EXPECT_TRUE(channel.I2CTransaction(1, 2, nullptr, 0, data, 32));
    EXPECT_EQ(Filled(std::string(32, 'x'), 40), std::string(data, data + 40));
    const char* const failed = "I2CTransaction: SMIFCMD_I2C_TRANSACTION failed";
    EXPECT_EQ(Lines({failed, failed, failed, failed, "I2CTransaction: Unexpected response length (32/31)",
                     "I2CTransaction: Unexpected response length (32/33)",
                     "I2CTransaction: Unexpected response length (40/40)"}),
              log.Text());
}

TEST_F(Registers, ControlDevicesWithOldFirmware)
{
    fake.body[SMIFCMD_DEVICE_CONTROL_EX] = Hex("01000000");
    EXPECT_TRUE(channel.HaltDevice(1, 5));
    EXPECT_EQ(Packet(12, 2, 139, Hex("0100 0100")), fake.sent.back());
    EXPECT_TRUE(channel.ResumeDevice(1));
    EXPECT_EQ(Packet(12, 4, 139, Hex("0100 0200")), fake.sent.back());
    EXPECT_EQ(Lines({"SmifCommand: ErrorCode = 00000001", "SmifCommand: ErrorCode = 00000001"}), log.Text());
}

TEST_F(DeviceFlash, UploadsInPieces)
{
    std::vector<UCHAR> image(2049, 'a');
    image[1024] = 'b';
    EXPECT_EQ(0, channel.UploadDeviceFlashData("tmbr", image.data(), 2049));
    ASSERT_EQ(4u, fake.sent.size());
    EXPECT_EQ(Packet(1084, 1, 137, Flash(3, 0, 1024, 0, std::string(1024, 'a'))), fake.sent[1]);
    EXPECT_EQ(Packet(1084, 2, 137, Flash(3, 1024, 1024, 0, "b" + std::string(1023, 'a'))), fake.sent[2]);
    EXPECT_EQ(Packet(1084, 3, 137, Flash(3, 2048, 1, 0, "a")), fake.sent[3]);
    EXPECT_EQ(0, channel.UploadDeviceFlashData(image.data(), 0));

    fake.receives = {{}, {ZalCiErrTimeout}};
    EXPECT_EQ(-1, channel.UploadDeviceFlashData("h", image.data(), 2049));
    fake.body[SMIFCMD_DEVICE_FLASH] = Hex("00000000 02000000");
    EXPECT_EQ(DeviceFlashStatus_Busy, channel.UploadDeviceFlashData(image.data(), 2049));
    EXPECT_EQ(7u, fake.sent.size());
    const std::string method = "UploadDeviceFlashData: ";
    EXPECT_EQ(Lines({method + "Uploading 2049 bytes", method + "Upload complete", method + "Uploading 0 bytes",
                     method + "Upload complete", method + "Uploading 2049 bytes", "Recv: status 34",
                     method + "SMIFCMD_DEVICE_FLASH failed", method + "Error -1 at offset 1024",
                     method + "Uploading 2049 bytes", method + "Error 2 at offset 0"}),
              log.Text());
}

TEST_F(DeviceFlash, ChecksLengthsAndCutsHandlerNames)
{
    const UCHAR data[1025] = {};
    EXPECT_EQ(0, channel.UploadDeviceFlashData(0, data, 1024));
    for (const auto& [pData, length] : {std::pair(data, 1025), {data, -1}, {nullptr, 1025}}) {
        EXPECT_EQ(-1, channel.UploadDeviceFlashData("h", 0, pData, length));
        EXPECT_EQ(-1, channel.DeviceFlashDispatch("h", 0, nullptr, pData, length, nullptr, nullptr));
        EXPECT_EQ(-1, channel.QueryDeviceFlashHandler("h", 0, nullptr, pData, length, nullptr, nullptr));
    }
    EXPECT_EQ(-1, channel.UploadDeviceFlashData("h", 0, nullptr, 1));
    const std::string upload = Lines({"UploadDeviceFlashData: Invalid length"});
    const std::string each =
        upload + Lines({"DeviceFlashDispatch: Invalid length", "QueryDeviceFlashHandler: Invalid length"});
    EXPECT_EQ(each + each + each + upload, log.Text());
    EXPECT_EQ(2u, fake.sent.size());

    for (const std::size_t length : {0, 15, 16, 200}) {
        channel.OpenDeviceFlash(std::string(length, 'x').c_str());
        const std::string name(std::min<std::size_t>(length, 15), 'x');
        EXPECT_EQ(Filled(name, 16), fake.sent.back().substr(44, 16));
    }
    channel.OpenDeviceFlash(nullptr);
    EXPECT_EQ(Filled("", 16), fake.sent.back().substr(44, 16));
    const CLogCapture failures;
    fake.body[SMIFCMD_DEVICE_FLASH] = Hex("00000000 000000");  // a byte short of a status
    EXPECT_EQ(-1, channel.OpenDeviceFlash("h"));
    EXPECT_EQ(-1, channel.QueryDeviceFlashHandler("h", 0, nullptr, nullptr, 0, nullptr, nullptr));
    EXPECT_EQ(
        Lines({"OpenDeviceFlash: SMIFCMD_DEVICE_FLASH failed", "QueryDeviceFlashHandler: SMIFCMD_DEVICE_FLASH failed"}),
        failures.Text());
}

TEST_F(DeviceFlash, HandsOutWhatTheHandlerAnswers)
{
    for (const auto& [stated, value, dispatched] :
         {std::tuple("0A000000", 10, 10), std::tuple("00000000", 0, 0), std::tuple("88130000", 5000, 1024)}) {
        fake.body[SMIFCMD_DEVICE_FLASH] =
            Filled(Hex("00000000 04000000 00000000 00000000" + std::string(stated) + "00000000 09"), 52) +
            std::string(1024, 'x');
        UCHAR data[2][1025] = {};
        ULONG outputs[3] = {};
        int lengths[2] = {-1, -1};
        EXPECT_EQ(4, channel.DeviceFlashDispatch("h", 0, &outputs[0], nullptr, 0, data[0], &lengths[0]));
        EXPECT_EQ(4, channel.QueryDeviceFlashHandler("h", 0, &outputs[1], nullptr, 0, data[1], &lengths[1]));
        EXPECT_EQ(4, channel.ResetDeviceFlashHandler("h", &outputs[2]));
        EXPECT_TRUE(outputs[0] == 9 && outputs[1] == 9 && outputs[2] == 9);
        EXPECT_TRUE(lengths[0] == value && lengths[1] == value);
        EXPECT_EQ(dispatched, std::count(std::begin(data[0]), std::end(data[0]), 'x'));
        EXPECT_EQ(1024, std::count(std::begin(data[1]), std::end(data[1]), 'x'));
    }
    EXPECT_EQ(4, channel.DeviceFlashDispatch("h", 0, nullptr, nullptr, 0, nullptr, nullptr));
    EXPECT_EQ(4, channel.QueryDeviceFlashHandler("h", 0, nullptr, nullptr, 0, nullptr, nullptr));
    EXPECT_EQ(4, channel.ResetDeviceFlashHandler("h", nullptr));
    // Unlike all others the query waits a minute for a silent processor.
    fake.silent = true;
    const auto query = [&] { return channel.QueryDeviceFlashHandler("h", 0, nullptr, nullptr, 0, nullptr, nullptr); };
    EXPECT_EQ(std::pair(60000, -1), Timed(query));
}

TEST_F(Inventory, StoresTheOutputsThatAreAskedFor)
{
    UCHAR* b[4] = {};  // outputs that are bytes, and the same ones as numbers
    int* n[4] = {};
    const std::string data = "101112131415161718191A1B1C1D1E1F";
    const std::string status = data + data + data;
    const std::string powerPIC = "00000000 0312 7856 ";
    const std::string tamberline = "00000000 0045FFFF FF56FFFF FF67FFFF";
    std::string planes = "00000000 07000000";
    for (const char* entry : {"010203FE00005500", "0102030100000000", "FFFF070000000000", "FF02070000006600"})
        planes += entry + data + std::string(128, '0');
    const auto version = [&](CChannelInterface& c) { return c.GetPowerPICVersion(n[0], n[1], n[2], n[3]); };
    // Command, its reply behind the header, what is stored.
    const std::tuple<WORD, std::string, std::string, Call> cases[] = {
        {136, std::string(38, '0') + "0B", "0B", CALL(ReadIoByte(1, 5, b[0]))},
        {139, "00000000 04030201" + status, "04030201 " + status,
         CALL(GetDeviceStatus(2, reinterpret_cast<ULONG*>(n[0]), b[1]))},
        {294, powerPIC, "78", CALL(GetPowerPICType(b[0]))},
        {294, powerPIC + "0800", "01000000 02000000 03000000 01000000", version},
        {294, powerPIC + "F7FF", "01000000 02000000 03000000 00000000", version},
        {275, tamberline, "56", CALL(GetTamberlineFamily(b[0]))},
        {275, tamberline, "04000000 05000000 7F000000", CALL(GetTamberlineVersion(n[0], n[1], n[2]))},
        {275, tamberline, "06000000 07000000", CALL(GetTamberlineBootloaderVersion(n[0], n[1]))},
        {298, planes, "55 " + data, CALL(GetNVMeBackplaneInfo(0, b[0], b[1]))},
        {298, planes, "66 " + data, CALL(GetNVMeBackplaneInfo(3, b[0], b[1]))},
        {298, planes, "01000000 02000000 00000000", CALL(GetNVMeBackplaneVersion(0, n[0], n[1], n[2]))},
        {298, planes, "03000000 00000000 01000000", CALL(GetNVMeBackplaneVersion(1, n[0], n[1], n[2]))},
        {298, planes, "07000000 00000000 01000000", CALL(GetNVMeBackplaneVersion(2, n[0], n[1], n[2]))},
        {298, planes, "FF000000 02000000 00000000", CALL(GetNVMeBackplaneVersion(3, n[0], n[1], n[2]))},
    };
    for (const auto& [command, body, stored, call] : cases) {
        fake.body[command] = Hex(body);
        std::istringstream values(stored);
        std::string places[4];
        for (int i = 0; i < 4; i++) {
            places[i].resize(64, 'u');
            b[i] = reinterpret_cast<UCHAR*>(places[i].data());
            n[i] = reinterpret_cast<int*>(b[i]);
        }
        EXPECT_TRUE(call(channel));
        for (const std::string& place : places) {
            std::string expected;
            values >> expected;
            expected = Hex(expected);
            expected.resize(64, 'u');  // untouched
            EXPECT_EQ(expected, place) << stored;
        }
        std::fill(b, b + 4, nullptr);
        std::fill(n, n + 4, nullptr);
        EXPECT_TRUE(call(channel));
    }
    EXPECT_EQ(7, channel.GetNVMeBackplaneCount());
    channel.Close();
    EXPECT_FALSE(channel.GetNVMeBackplaneInfo(4, nullptr, nullptr));
    EXPECT_FALSE(channel.GetNVMeBackplaneVersion(-1, nullptr, nullptr, nullptr));
    const std::string invalid = ": Invalid backplane index";
    EXPECT_EQ(Lines({"GetNVMeBackplaneInfo" + invalid, "GetNVMeBackplaneVersion" + invalid}), log.Text());
}

TEST_F(Inventory, ReadsPowerSupplies)
{
    UINT32 data1[9] = {11};
    UINT16 data2[9] = {22};
    UINT16 data3[9] = {33};
    UINT8* data4[9] = {};
    int count = -1;
    const auto read = [&] { return channel.ReadPSInfo(data1, data2, data3, data4, &count) ? count : -1; };
    EXPECT_EQ(0, read());
    EXPECT_EQ(Packet(8, 1, 285, ""), fake.sent.back());
    EXPECT_TRUE(fake.sizes[285] == 140 && fake.timeout == -1);

    std::string& body = fake.body[SMIFCMD_PS_INFO] = Hex("00000000");
    for (char i = '1'; i <= '8'; i++) body += Hex("04030201 0605 0807") + std::string(8, i);
    EXPECT_EQ(8, read());
    EXPECT_TRUE(data1[7] == 0x01020304 && data2[7] == 0x0506 && data3[7] == 0x0708 && data1[8] == 0 && !data4[8]);
    EXPECT_TRUE(channel.ReadPSInfo(nullptr, nullptr, nullptr, nullptr, nullptr));
    body.replace(4 + 2 * 16, 4, 4, '\0');
    EXPECT_EQ(2, read());
    channel.Close();
    EXPECT_EQ(-1, read());
    EXPECT_EQ("22222222", std::string(data4[1], data4[1] + 8));  // stays

    const auto logged = [](const std::string& guid, const std::string& first) {
        return Lines({"ReadPSInfo::Response Packet Length - 140", "ReadPSInfo::GUID[0] " + guid,
                      "ReadPSInfo::Command 285", "ReadPSInfo: PSGUID[0] " + first});
    };
    const std::string guid = "16909060,1286,1800";
    EXPECT_EQ(logged("0,0,0", "11,22") + logged(guid, "16909060,1286") + logged(guid, "0,0") +
                  logged(guid, "16909060,1286") + Lines({"ReadPSInfo:: Smif Command Error "}),
              log.Text());
}

TEST(AbsentChannel, HasNoDriverAndATextForEveryStatus)
{
    void* pLibrary = dlopen(ZALCI, RTLD_NOW);
    ASSERT_TRUE(pLibrary) << dlerror();
    const auto create = reinterpret_cast<decltype(&ZalCiCreate)>(dlsym(pLibrary, "ZalCiCreate"));
    const auto message = reinterpret_cast<decltype(&ZalCiStatusMessage)>(dlsym(pLibrary, "ZalCiStatusMessage"));
    ZALCIHANDLE handle = nullptr;
    EXPECT_EQ(ZalCiErrNoDriver, create(nullptr, &handle, 2, 4096, 2, 4096, ZalCiNormalPriority, nullptr));
    for (int i = -1; i <= ZalCiErrMax; i++) EXPECT_STRNE("", message(static_cast<ZALCISTATUS>(i)));
    dlclose(pLibrary);
}
