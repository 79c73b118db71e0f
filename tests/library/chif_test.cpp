#include "chif.h"

#include <dlfcn.h>

#include <cstring>
#include <functional>
#include <regex>
#include <tuple>

#include "sim/server.h"
#include "tests/library/fakechannel.h"
#include "tests/support.h"

namespace
{

CFakeChannel& fake = g_FakeChannel;

// Bytes followed by zeros.
std::string Filled(std::string bytes, std::size_t size)
{
    bytes.resize(size);
    return bytes;
}

// The zeros between a reply's header and that offset in the packet, then the rest.
std::string Body(std::size_t offset, const std::string& rest)
{
    return std::string(offset - 8, '\0') + rest;
}

// Version 2.07 of 03/15/2050.
std::string StatusBody(int korClass, int application)
{
    std::string body = Filled(Body(16, "\x07\x02") + Body(10, "\xDE\xF0"), 92);
    body[60] = static_cast<char>(korClass);
    body[63] = static_cast<char>(application);
    return body;
}

#define STEP(call) Step(#call, m_pChannel->call)

// What is done with a channel on the scripted processor.
class Chif : public testing::Test
{
  protected:
    Chif() : trace(("chif-" + std::string(testing::UnitTest::GetInstance()->current_test_info()->name())).c_str())
    {
        fake = CFakeChannel();
        fake.body[SMIFCMD_GET_STATUS] = StatusBody(5, 0);
        Connect();
        request.Length = 8;
    }
    ~Chif() override
    {
        m_pChannel.reset();
        EXPECT_EQ(0, fake.open);
    }

    void Connect()
    {
        m_pChannel.reset();
        m_pChannel = std::make_unique<CChannelInterface>();
        fake.sent.clear();
    }

    // Places for what a call stores; null when nobody wants it.
    UCHAR* Place(std::size_t i) { return m_IsWanted ? reinterpret_cast<UCHAR*>(m_Places[i].data()) : nullptr; }
    int* Number(std::size_t i) { return reinterpret_cast<int*>(Place(i)); }

    // Tells of a call that was just made: its result, what it stored, and the packets that it sent.
    void Step(const std::string& call, int result)
    {
        std::string told;
        for (std::size_t i = 0; i < 4; i++) {
            const std::size_t size = m_Places[i].find_last_not_of('u') + 1;
            if (size > 0)
                told += "; stored " + std::to_string(size) + " bytes, " +
                        HexDigits(m_Places[i].substr(0, std::min<std::size_t>(size, 24)));
            m_Places[i].assign(1100, 'u');
        }
        trace(call, ": ", result, told);
        for (const std::string& packet : fake.sent) trace("sent ", packet.size(), " bytes, ", HexDigits(packet));
        fake.sent.clear();
    }

    CTranscript trace;
    std::unique_ptr<CChannelInterface> m_pChannel;
    SMIFPACKET request = {};
    SMIFRESPONSE response = {};
    bool m_IsWanted = true;

  private:
    std::vector<std::string> m_Places = std::vector<std::string>(4, std::string(1100, 'u'));
};

}  // namespace

TEST_F(Chif, StampsAndChecksPackets)
{
    request.Length = 7;
    STEP(Send(&request));
    STEP(Send(nullptr));
    STEP(Recv(&response, 11, 1));
    STEP(Recv(nullptr, 12, 1));
    request.Length = 8;
    request.Sequence = request.ServiceType = 7;
    STEP(Send(&request));
    fake.sent.push_back(std::string(8, '\0'));
    STEP(Recv(&response, 12, 0));
    EXPECT_EQ(int{CFakeChannel::NoTimeout}, fake.timeout);
    for (int i = 0; i < 65535; i++) m_pChannel->Send(&request);
    fake.sent.clear();
    STEP(Send(&request));
    STEP(SmifCommandNoErr(&request, nullptr, 12, 5));
    STEP(SmifCommandNoErr(&request, &response, -1, 5));
    m_pChannel->Close();
    STEP(Send(&request));
    STEP(Recv(&response, 12, 1));
    STEP(SmifCommand(&request, &response, sizeof response, 5));
    STEP(SmifCommandNoErrWithOverallTimeout(&request, &response, sizeof response, 5));
}

TEST_F(Chif, TriesTenTimesWhenTheFifoIsFull)
{
    fake.sends = std::deque<ZALCISTATUS>(9, ZalCiErrFifoFull);
    STEP(Send(&request));
    fake.sends = std::deque<ZALCISTATUS>(10, ZalCiErrFifoFull);
    fake.sends.push_back(ZalCiErrTimeout);
    STEP(Send(&request));
    STEP(Send(&request));
}

TEST_F(Chif, RefusesRuntsErrorsAndStaleReplies)
{
    fake.receives = {{ZalCiSuccess, 0, 1}, {ZalCiErrTimeout}};
    fake.body[0] = "\xEF\xBE\xAD\xDE";
    for (int i = 0; i < 3; i++) STEP(SmifCommand(&request, &response, sizeof response, 5));
    STEP(SmifCommandNoErr(&request, &response, sizeof response, 5));
    fake.body[0] = Filled("", 4);
    fake.receives = {{ZalCiSuccess, -1}, {ZalCiSuccess, -2}, {ZalCiSuccess, 1}};
    STEP(SmifCommand(&request, &response, sizeof response, 5));
    fake.receives = std::deque<CFakeChannel::CReceive>(5, {ZalCiSuccess, 1});
    STEP(SmifCommand(&request, &response, sizeof response, 5));
    EXPECT_EQ(1u, fake.receives.size());
    fake.receives = {{ZalCiSuccess, 1}, {ZalCiErrTimeout}};
    STEP(SmifCommand(&request, &response, sizeof response, 5));
}

TEST_F(Chif, LeavesNoTraceOfStaleReplies)
{
    fake.body[0] = std::string(4088, 'x');  // all that an entry of the FIFO holds
    for (const char length : {'\0', '\x8'}) {
        for (bool overall : {false, true}) {
            std::string buffer =
                Filled(std::string(1, length) + std::string(1, '\0') + static_cast<char>(request.Sequence + 1), 8) +
                std::string(5000, 'b');
            std::string expected = buffer;
            buffer[0] = 0;
            const auto pReply = reinterpret_cast<SMIFPACKET*>(buffer.data());
            fake.receives = {{ZalCiSuccess, 1}, {ZalCiSuccess, 1}, {ZalCiSuccess, 0, 0, length}};
            EXPECT_EQ(0, overall ? m_pChannel->SmifCommandNoErrWithOverallTimeout(&request, pReply, 5008, 60)
                                 : m_pChannel->SmifCommandNoErr(&request, pReply, 5008, 5));
            EXPECT_EQ(expected, buffer);
        }
    }
}

TEST_F(Chif, WaitsForLongCommandsUpToTheOverallLimit)
{
    const auto wait = [&](int seconds) {
        Step("SmifCommandNoErrWithOverallTimeout of " + std::to_string(seconds) + " s",
             m_pChannel->SmifCommandNoErrWithOverallTimeout(&request, &response, sizeof response, seconds));
    };
    fake.receives = {{ZalCiErrFifoEmpty}, {ZalCiSuccess, 5}, {ZalCiErrFifoEmpty}};
    wait(60);
    EXPECT_EQ(20000, fake.timeout);
    fake.receives = std::deque<CFakeChannel::CReceive>(9, {ZalCiErrFifoEmpty});
    wait(60);
    fake.receives = {{ZalCiErrTimeout}};
    wait(60);
    fake.receives = {{ZalCiSuccess, 1}};
    wait(0);
}

TEST_F(Chif, TellsWhatItFinds)
{
    const auto tell = [&](const char* pszWhat) {
        trace(pszWhat, ": state ", m_pChannel->GetState(), ", open ", m_pChannel->IsOpen(), ", generation ",
              m_pChannel->GetMOXGeneration(), ", version ", m_pChannel->GetMOXFwVersion().ToString(), ", combined ",
              std::hex, m_pChannel->GetMOXCombinedVersion());
    };
    tell("alive");
    trace(std::hex, "MakeMOXCombinedVersion(0x1FF, 0x1FE, 0x1FD, 0x1FC) ",
          CChannelInterface::MakeMOXCombinedVersion(0x1FF, 0x1FE, 0x1FD, 0x1FC));
    m_pChannel->Close();
    tell("closed");
    for (const auto& [korClass, application] : {std::pair(0, 9), {3, 9}, {4, 9}, {5, 9}, {6, 0}, {6, 4}, {255, 200}}) {
        fake.body[SMIFCMD_GET_STATUS] = StatusBody(korClass, application);
        STEP(GetUpdatedState());
        tell("updated");
    }
    fake.silent = true;
    STEP(GetUpdatedState());
    tell("silent");
    fake.noHandle = true;
    STEP(GetUpdatedState());
    STEP(Open());
    fake.creates = {ZalCiErrNoDriver};
    m_pChannel->VerifyFirmwareIsAlive();
    tell("no driver");
}

// With a grep in front of the real one that notes how it is called and finds that many lines.
TEST_F(Chif, CountsThePciFunctionsWithoutADriver)
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
        Connect();
        trace(count, " functions: state ", m_pChannel->GetState());
        EXPECT_TRUE(std::regex_match(ReadFile(arguments),
                                     std::regex("-i( -e [0-9a-f]{8}){4} /proc/bus/pci/devices 2> /dev/null\n")));
        EXPECT_EQ(ChannelState_Open, m_pChannel->GetUpdatedState());
        fake.creates = {ZalCiErrNoDriver};
        m_pChannel->VerifyFirmwareIsAlive();
        trace("once without a driver: state ", m_pChannel->GetState());
    }
    setenv("PATH", path.c_str(), 1);
}

TEST_F(Chif, WaitsUntilTheFirmwareIsAlive)
{
    const auto steps = [&] {
        m_pChannel->VerifyFirmwareIsAlive();
        Step("VerifyFirmwareIsAlive", m_pChannel->GetState());
        fake.receives = {{ZalCiErrInterface}};
        STEP(WaitForReboot());
        EXPECT_EQ(m_pChannel->IsOpen(), fake.open);
    };
    fake.receives = {{ZalCiErrInterface}, {}, {ZalCiErrInterface}};
    fake.creates = {ZalCiErrTimeout};
    steps();
    fake.creates.assign(70, ZalCiErrTimeout);
    steps();
    fake.creates = {ZalCiErrNoDriver, ZalCiErrTimeout};
    steps();
    fake.silent = true;
    steps();
}

// Every operation: with a silent processor, without a channel, and with replies of every kind.
TEST_F(Chif, Operates)
{
    using Call = std::function<int(CChannelInterface&)>;
#define CALL(command, call)                                                             \
    {                                                                                   \
        command, #call, [&](CChannelInterface& channel) -> int { return channel.call; } \
    }
    const UCHAR data[3] = {0xDE, 0xAD, 0xBE};
    const auto output = [&] { return reinterpret_cast<ULONG*>(Place(0)); };
    const std::tuple<WORD, const char*, Call> operations[] = {
        CALL(2, VerifySMIF()),
        CALL(2, UpdateMOXVersion()),
        CALL(80, RebootMOX()),
        CALL(136, ReadIoByte(2, 258, Place(0))),
        CALL(136, ReadIoByte(10, 258, Place(0))),
        CALL(136, WriteIoByte(5, 258, 0xA5)),
        CALL(136, ReadMEMID(254, Place(0))),
        CALL(136, ReadGPI(254, Place(0))),
        CALL(136, ReadGPO(254, Place(0))),
        CALL(136, ReadCPLD(254, Place(0))),
        CALL(136, ReadXPLD(254, Place(0))),
        CALL(136, WriteGPO(254, 0xFB)),
        CALL(136, WriteCPLD(254, 0xFB)),
        CALL(136, WriteXPLD(254, 0xFB)),
        CALL(114, I2CTransaction(258, 0x10166, data, 3, nullptr, 4)),
        CALL(139, GetDeviceStatus(258, output(), Place(1))),
        CALL(140, HaltDevice(258, 70000)),
        CALL(140, ResumeDevice(258)),
        CALL(152, ScheduleColdBoot()),
        CALL(152, ScheduleAuxPowerCycle()),
        CALL(137, OpenDeviceFlash("tmbr")),
        CALL(137, QueryDeviceFlashStatus("a name longer than the field")),
        CALL(137, ResetDeviceFlash(nullptr)),
        CALL(137, UploadDeviceFlashData("tmbr", 0x8070605, data, 3)),
        CALL(137, UploadDeviceFlashData(0x8070605, data, 3)),
        CALL(137, DeviceFlashDispatch("tmbr", 0x8070605, output(), data, 3, Place(1), Number(2))),
        CALL(137, DeviceFlashDispatch("tmbr", 0x8070605, output(), nullptr, -1, Place(1), Number(2))),
        CALL(137, QueryDeviceFlashHandler("tmbr", 0x8070605, output(), data, 3, Place(1), Number(2))),
        CALL(137, QueryDeviceFlashHandler("tmbr", 0x8070605, output(), nullptr, -1, Place(1), Number(2))),
        CALL(137, ResetDeviceFlashHandler("tmbr", output())),
        CALL(294, GetPowerPICType(Place(0))),
        CALL(294, GetPowerPICVersion(Number(0), Number(1), Number(2), Number(3))),
        CALL(275, GetTamberlineFamily(Place(0))),
        CALL(275, GetTamberlineVersion(Number(0), Number(1), Number(2))),
        CALL(275, GetTamberlineBootloaderVersion(Number(0), Number(1))),
        CALL(298, GetNVMeBackplaneCount()),
        CALL(298, GetNVMeBackplaneInfo(0, Place(0), Place(1))),
        CALL(298, GetNVMeBackplaneInfo(3, Place(0), Place(1))),
        CALL(298, GetNVMeBackplaneInfo(4, Place(0), Place(1))),
        CALL(298, GetNVMeBackplaneVersion(0, Number(0), Number(1), Number(2))),
        CALL(298, GetNVMeBackplaneVersion(3, Number(0), Number(1), Number(2))),
        CALL(298, GetNVMeBackplaneVersion(-1, Number(0), Number(1), Number(2))),
    };
#undef CALL
    std::string counting;
    for (int i = 12; i < 1084; i++) counting += static_cast<char>(i * 37);
    const std::pair<const char*, std::string> replies[] = {{"error code", "\5"},
                                                           {"counting bytes", Body(12, counting)},
                                                           {"all ones", Body(12, std::string(1072, '\xFF'))}};
    for (const auto& [command, name, call] : operations) {
        const auto use = [&](const std::string& body) {
            fake.body[SMIFCMD_GET_STATUS] = StatusBody(5, 0);
            Connect();
            trace.Skip();
            fake.body[command] = Filled(body, static_cast<std::size_t>(fake.sizes[command]) - 8);
            if (command == 136 && body == replies[1].second) fake.body[command].replace(12, 4, 4, '\0');  // its status
        };
        Connect();
        trace.Skip();
        fake.body.erase(command);
        Step(name, call(*m_pChannel));
        trace("buffer of ", fake.sizes[command], " bytes, timeout ", fake.timeout);
        for (const auto& [kind, body] : replies) {
            use(body);
            int result = call(*m_pChannel);
            fake.sent.clear();
            Step(kind, result);
            m_IsWanted = false;
            result = call(*m_pChannel);
            m_IsWanted = true;
            fake.sent.clear();
            Step("not wanted", result);
        }
        fake.body.erase(command);
        trace.ShowLog(false);
        for (const auto& [length, isStale] : {std::pair(0, false), {0, true}, {8, false}, {8, true}, {15, false}}) {
            fake.creates = {ZalCiErrTimeout};
            Connect();
            m_pChannel->Open();  // number 0 is next, which is also what nothing received looks like
            fake.receives = {{ZalCiSuccess, 0, 0, length}, {ZalCiErrTimeout}};
            if (isStale) fake.receives.push_front({ZalCiSuccess, 1});
            const int result = call(*m_pChannel);
            fake.sent.clear();
            fake.receives.clear();
            Step(std::to_string(length) + (isStale ? " bytes behind a stale reply" : " bytes"), result);
        }
        fake.body[SMIFCMD_GET_STATUS] = StatusBody(5, 0);
        Connect();
        trace.Skip();
        trace.ShowLog(true);
        fake.silent = true;
        const int result = call(*m_pChannel);
        fake.sent.clear();
        Step("silent", result);
        fake.silent = false;
        m_pChannel->Close();
        Step("closed", call(*m_pChannel));
    }
}

TEST_F(Chif, ReadsExactlyWhatWasAskedForOverI2C)
{
    const std::string data(40, 'd');
    const auto pData = reinterpret_cast<const UCHAR*>(data.data());
    std::string& body = fake.body[SMIFCMD_I2C_TRANSACTION];
    body = Body(24, " " + std::string(32, 'x'));  // 32 bytes
    for (int length : {-1, 33, 256}) STEP(I2CTransaction(1, 2, pData, length, nullptr, 0));
    STEP(I2CTransaction(1, 2, nullptr, 1, nullptr, 0));
    STEP(I2CTransaction(1, 2, pData, 32, Place(0), 0));
    for (int length : {31, 33, 32}) STEP(I2CTransaction(1, 2, nullptr, 0, Place(0), length));
    body[16] = 40;
    STEP(I2CTransaction(1, 2, nullptr, 0, Place(0), 40));
}

TEST_F(Chif, UploadsInPieces)
{
    std::vector<UCHAR> image(2049, 'a');
    image[1024] = 'b';
    STEP(UploadDeviceFlashData("tmbr", image.data(), 2049));
    STEP(UploadDeviceFlashData(image.data(), 0));
    fake.receives = {{}, {ZalCiErrTimeout}};
    STEP(UploadDeviceFlashData("h", image.data(), 2049));
    fake.body[SMIFCMD_DEVICE_FLASH] = Body(12, Filled("\2", 4));
    STEP(UploadDeviceFlashData(image.data(), 2049));
    STEP(UploadDeviceFlashData(0, image.data(), 1024));
    for (const auto& [pData, length] : {std::pair(image.data(), 1025), {image.data(), -1}, {nullptr, 1025}}) {
        STEP(UploadDeviceFlashData("h", 0, pData, length));
        STEP(DeviceFlashDispatch("h", 0, nullptr, pData, length, nullptr, nullptr));
        STEP(QueryDeviceFlashHandler("h", 0, nullptr, pData, length, nullptr, nullptr));
    }
    STEP(UploadDeviceFlashData("h", 0, nullptr, 1));
    STEP(UploadDeviceFlashData("h", 0, nullptr, 0));
}

TEST_F(Chif, HandsOutNoMoreThanTheReplyHas)
{
    for (const char* pszLength : {"\x0A", "\0", "\x88\x13", "\xFF\xFF\xFF\xFF"}) {
        fake.body[SMIFCMD_DEVICE_FLASH] = Body(12, Filled("\4", 12) + Filled(pszLength, 36) + std::string(1024, 'x'));
        STEP(DeviceFlashDispatch("h", 0, nullptr, nullptr, 0, Place(0), Number(1)));
        STEP(QueryDeviceFlashHandler("h", 0, nullptr, nullptr, 0, Place(0), Number(1)));
    }
    for (const char data : {'\x08', '\xF7'}) {
        fake.body[SMIFCMD_GET_POWERPIC_INFO] = Filled(Body(16, std::string(1, data)), 264);
        STEP(GetPowerPICVersion(Number(0), Number(1), Number(2), Number(3)));
    }
    fake.body[SMIFCMD_GET_NVME_BACKPLANE_INFO] = Body(16, "");
    for (const std::string entry : {"\1\2\3\xFE", "\1\2\3\1", "\xFF\xFF\7", "\xFF\2\7"})
        fake.body[SMIFCMD_GET_NVME_BACKPLANE_INFO] += Filled(entry, 88);
    for (int i = 0; i < 4; i++) STEP(GetNVMeBackplaneVersion(i, Number(0), Number(1), Number(2)));
}

TEST_F(Chif, ReadsPowerSupplies)
{
    UINT32 data1[9] = {11};
    UINT16 data2[9] = {22};
    UINT16 data3[9] = {33};
    UINT8* data4[9] = {};
    int count = -1;
    const auto read = [&] {
        STEP(ReadPSInfo(data1, data2, data3, data4, &count));
        trace("count ", count, "; the last one ", data1[7], " ", data2[7], " ", data3[7]);
        EXPECT_TRUE(data1[8] == 0 && !data4[8]);
    };
    read();
    EXPECT_TRUE(fake.sizes[SMIFCMD_PS_INFO] == 140 && fake.timeout == -1);
    std::string& body = fake.body[SMIFCMD_PS_INFO] = Filled("", 4);
    for (char i = '1'; i <= '8'; i++) body += i + std::string("\xF3\xF2\xF1\x06\xF5\x08\xF7") + std::string(8, i);
    read();
    STEP(ReadPSInfo(nullptr, nullptr, nullptr, nullptr, nullptr));
    body.replace(4 + 2 * 16, 4, 4, '\0');
    read();
    m_pChannel->Close();
    read();
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
    for (int i = -1; i <= ZalCiErrMax; i++) EXPECT_STRNE("", message(static_cast<ZALCISTATUS>(i)));
    dlclose(pLibrary);
}
