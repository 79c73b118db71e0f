#include "pwrmicro.h"

#include <tuple>

#include "chif.h"
#include "tests/library/fakechannel.h"
#include "tests/support.h"

namespace
{

// Steps of a script, beside values that are read.
const int NoAck = -1;
const int BadChecksum = 0x10000;

template <typename Values>
std::string Digits(const Values& bytes)
{
    std::string text;
    for (int byte : bytes) text += {"0123456789ABCDEF"[byte >> 4 & 15], "0123456789ABCDEF"[byte & 15]};
    return text;
}

class CPower : public CPowerMicro
{
  public:
    using CPowerMicro::CPowerMicro;
    using CPowerMicro::m_ControllerType;
    using CPowerMicro::m_MaxRetries;
    using CPowerMicro::m_RegisterSet;

    std::string Setup() const
    {
        std::ostringstream text;
        text << "type " << m_ControllerType << ", register set " << m_RegisterSet << ", bus " << m_Bus << ", address "
             << m_Address << std::hex << ", control register " << m_ControlRegister << ", keyhole register "
             << m_KeyholeRegister << std::dec << ", tries " << m_MaxRetries;
        return text.str();
    }
};

#define STEP(call) Step(#call, m_pPower->call)

// A controller whose registers and faults are scripted, and what is done with it.
class Power : public testing::Test
{
  protected:
    Power()
    {
        g_FakeChannel = CFakeChannel();
        g_FakeChannel.answer[SMIFCMD_I2C_TRANSACTION] = [this](const std::string& packet) { return Answer(packet); };
        m_pChannel = std::make_unique<CChannelInterface>();
        m_pTrace = std::make_unique<CTranscript>(
            ("power-" + std::string(testing::UnitTest::GetInstance()->current_test_info()->name())).c_str());
        UseController(ControllerType_Opal);
    }

    // Makes a new object, told of an Opal or Zephyra controller or of none.
    void UseController(PowerControllerType type)
    {
        m_pPower = std::make_unique<CPower>(m_pChannel.get());
        m_pPower->SetControllerType(type);
    }

    // Tells of a step that was just done: its result, and the bytes sent but for register reads.
    void Step(const std::string& call, int result)
    {
        (*m_pTrace)(call, ": ", result, m_Sent.empty() ? "" : ", sent", m_Sent);
        m_Sent.clear();
    }

    std::map<int, std::deque<int>> m_Registers;  // what each reads as, one after another; the last one stays
    std::deque<int> m_Writes;                    // faults of the next register writes, then of none
    std::deque<int> m_Packets;                   // and of the next packets
    std::string m_Device;                        // address and bus of the last transaction
    std::unique_ptr<CChannelInterface> m_pChannel;
    std::unique_ptr<CTranscript> m_pTrace;
    std::unique_ptr<CPower> m_pPower;

  private:
    std::string Answer(const std::string& packet)
    {
        m_Device = Digits(packet.substr(20, 3));
        const std::string bytes = packet.substr(25, static_cast<unsigned char>(packet[23]));
        const char expected = packet[24];
        std::string reply;
        std::deque<int>* pScript = &m_Packets;
        if (expected == 3) {
            pScript = &m_Registers[static_cast<unsigned char>(bytes[0])];
            if (pScript->size() == 1) pScript->push_back(pScript->front());
        } else {
            m_Sent += " " + Digits(bytes);
            if (expected == 1) pScript = &m_Writes;
        }
        const int step = pScript->empty() ? 0 : pScript->front();
        if (!pScript->empty()) pScript->pop_front();
        const char fault = step != NoAck && step & BadChecksum;
        const char value[] = {static_cast<char>(step), static_cast<char>(step >> 8)};
        if (expected == 3) reply = {value[0], value[1], static_cast<char>(fault - value[0] - value[1])};
        if (expected == 1) reply = {static_cast<char>(bytes[3] + fault)};

        std::string body(49, '\0');
        body[0] = step == NoAck || (expected == 3 && bytes[0] + bytes[1] != 0);
        body[16] = expected;
        return body.replace(17, reply.size(), reply);
    }

    std::string m_Sent;
};

}  // namespace

TEST_F(Power, ReadsAndWritesUntilTheChecksumIsRight)
{
    m_Registers[0x16] = {NoAck, BadChecksum | 0x1234, 0xF234};
    m_Registers[0xFE] = {NoAck};
    UINT16 value = 0;
    STEP(ReadRegister(0x16, &value));
    EXPECT_EQ("300002", m_Device);
    STEP(ReadRegister(0xFE, &value));
    EXPECT_EQ(0xF234, value);
    m_Writes = {BadChecksum, NoAck};
    STEP(WriteRegister(0x16, 0xF234));
    m_Writes.assign(15, NoAck);
    STEP(WriteRegister(0x16, 0));
    m_pPower->m_MaxRetries = 0;
    STEP(ReadRegister(0x16, &value));
    STEP(WriteRegister(0x16, 1));
}

TEST_F(Power, IsIdentified)
{
    std::vector<int> all = {NoAck};
    for (int family = 0; family <= 16; family++) all.push_back(family << 8 | 1);
    for (int system = 0; system <= 6; system++) all.insert(all.end(), {0x0700 | system, 0x0C00 | system});
    for (const int miscData : all) {
        m_Registers[2] = {miscData};
        UseController(ControllerType_Unknown);
        m_pPower->m_MaxRetries = 1;
        STEP(DetermineControllerType());
        (*m_pTrace)(m_pPower->Setup());
        UseController(ControllerType_Unknown);
        m_pPower->m_MaxRetries = 1;
        STEP(ReadDeviceControllerType());
        (*m_pTrace)(m_pPower->Setup());
    }
}

TEST_F(Power, IsOfTheTypeThatTheHostKnows)
{
    // Type, status register, flags register.
    const std::tuple<int, int, int> cases[] = {
        {1, NoAck, NoAck}, {2, NoAck, NoAck}, {3, NoAck, 0xFF7F}, {4, 0xFFF7, 0x80}, {4, 8, NoAck}, {3, 0, 0},
        {4, 0, 0xC0},      {3, 8, NoAck},     {4, NoAck, 0x80},   {0, 0, 0x80},      {5, 0, 0x80},
    };
    for (const auto& [type, status, flags] : cases) {
        m_Registers[0] = {status};
        m_Registers[0x6A] = {flags};
        for (const bool isKnown : {true, false}) {
            UseController(ControllerType_Unknown);
            if (isKnown) m_pPower->SetBus(259);
            if (isKnown) m_pPower->SetAddress(0x1FE);
            m_pPower->m_MaxRetries = 1;
            Step("SetControllerType " + std::to_string(type),
                 m_pPower->SetControllerType(static_cast<PowerControllerType>(type)));
            (*m_pTrace)(m_pPower->Setup());
        }
    }
    STEP(SetupBasedOnRegisterSet());
}

TEST_F(Power, TellsTheVersion)
{
    m_Registers[0] = {0xFA0F, 0xFA0F, 0xFA0F, 0xFFF7, NoAck};
    BOOL running = FALSE;
    int major = 0;
    int minor = 0;
    STEP(GetVersion(&running, &major, &minor));
    EXPECT_TRUE(running && major == 15 && minor == 10);
    STEP(GetVersion(nullptr, &major, nullptr));
    STEP(GetVersion(nullptr, nullptr, &minor));
    STEP(GetBootLoaderMode(&running));
    EXPECT_FALSE(running);
    STEP(GetBootLoaderMode(&running));
}

TEST_F(Power, UnlocksThroughTheKeyhole)
{
    m_Registers[0] = {8};
    STEP(Unlock());
    m_Registers[0] = {0, 16, 8};
    m_Registers[0x16] = {0x1201};
    STEP(Unlock());
    m_Registers[0] = {0};
    m_Registers[0x16] = {0x1281};
    STEP(Unlock());
    m_pPower->m_MaxRetries = 1;
    m_Registers[0] = {NoAck, 0, NoAck, 8, 0, 8};
    STEP(Unlock());
    m_Registers[0x16] = {NoAck, 0};
    m_Writes = {NoAck, NoAck};
    STEP(Unlock());
    STEP(Unlock());
    UseController(ControllerType_Unknown);
    m_Registers[0] = {0};
    STEP(Unlock());
}

TEST_F(Power, IsResetIntoTheApplication)
{
    m_Registers[0] = {0xFFF7, 8, 8, 0, 8};
    STEP(Reset());
    for (const std::size_t lost : {15, 16, 0}) {
        m_Packets.assign(lost, NoAck);
        STEP(Reset());
    }
    m_pPower->m_MaxRetries = 100;
    for (int poll = 0; poll < 9; poll++) {
        m_Registers[0].insert(m_Registers[0].end(), 48, NoAck);
        m_Registers[0].push_back(8);
    }
    STEP(Reset());
    m_pPower->m_MaxRetries = 1;
    m_Registers[0] = {8, NoAck};
    STEP(Reset());
    STEP(Reset());
}

TEST_F(Power, ProgramsData)
{
    const std::pair<std::deque<int>, std::size_t> cases[] = {
        {{0xFFF8}, 0}, {{7, 7, 7, 7, 7, 0}, 1}, {{7}, 0}, {{7, 13, 0}, 0}, {{1}, 0}, {{0}, 2}, {{NoAck}, 0}};
    m_pPower->m_MaxRetries = 2;
    const UINT8 data[] = {0x00, 0xAB};
    for (const auto& [status, lost] : cases) {
        m_Registers[0] = status;
        m_Packets.assign(lost, NoAck);
        STEP(WriteData(data, sizeof data));
    }
}

TEST_F(Power, SavesAndRestoresTheListsInTheirOrder)
{
    for (const auto& [type, set] :
         {std::pair(ControllerType_Opal, RegisterSet_Opal), std::pair(ControllerType_Quillon, RegisterSet_Zephyra),
          std::pair(ControllerType_Brisk, RegisterSet_Opal), std::pair(ControllerType_Zephyra, RegisterSet_Zephyra),
          std::pair(ControllerType_Brisk, RegisterSet_Unavailable)}) {
        for (int i = 0; i < 256; i++) m_Registers[i] = {(255 - i) << 8 | i, 0x1234};
        m_Registers[0x16] = {0x5555, 0x1234};  // bit 0 alone is saved
        m_pPower->m_ControllerType = type;
        m_pPower->m_RegisterSet = set;
        STEP(SaveState());
        STEP(RestoreState());
    }
    UseController(ControllerType_Opal);
    m_pPower->m_MaxRetries = 1;
    m_Registers[0x1E] = {0, NoAck};
    m_Writes = {0, NoAck};
    STEP(SaveState());
    STEP(SaveState());
    STEP(RestoreState());
    m_Registers[0x16] = {NoAck};
    STEP(RestoreState());
}

TEST_F(Power, HaltsAndResumesTheDevice)
{
    STEP(HaltDevice());
    EXPECT_EQ("010001000000000000000000", Digits(g_FakeChannel.sent.back().substr(8)));
    STEP(ResumeDevice());
    EXPECT_EQ("010002000000000000000000", Digits(g_FakeChannel.sent.back().substr(8)));
    m_pChannel->Close();
    STEP(HaltDevice());
    STEP(ResumeDevice());
}

namespace
{

const std::string EndOfFile = ":00000001FF";

// A record with its count, checksum and line end; the digits are those of address, type and data.
std::string Record(const std::string& digits)
{
    int sum = static_cast<int>(digits.size()) / 2 - 3;
    const std::string count = Digits(std::vector<int>{sum});
    for (std::size_t i = 0; i < digits.size(); i += 2) sum += std::stoi(digits.substr(i, 2), nullptr, 16);
    return ":" + count + digits + Digits(std::vector<int>{-sum}) + "\n";
}

// Extracts a text, which ends where the memory ends, into an image of that size: the image's digits, or the line in
// the log.
std::string Extract(const std::string& hex, std::size_t size)
{
    const std::vector<char> memory(hex.begin(), hex.end());
    std::vector<UINT8> image(size, 0xEE);
    CLogCapture log;
    CPowerMicro power(nullptr);
    const BOOL done =
        power.ExtractHex(memory.data(), static_cast<int>(memory.size()), image.data(), static_cast<int>(image.size()));
    const std::string text = log.Text();
    const std::string start = "CPowerMicro::CPowerMicro()\nCPowerMicro::HexWorker: ";
    EXPECT_EQ(0u, text.find(start)) << text;
    EXPECT_EQ(done, text == start + "All done!\n") << text;
    return done ? Digits(image) : text.substr(start.size(), text.size() - start.size() - 1);
}

}  // namespace

TEST_F(Power, TakesEveryRecordButTheLast)
{
    const std::string text = Record("0000040001") + Record("000000DEADBEEF") + ";\n" + Record("000400") + EndOfFile;
    const int length = static_cast<int>(text.size());
    STEP(ValidateHex(text.data(), length));
    STEP(FlashHex(text.data(), length));
    m_Registers[0] = {0, 7};
    STEP(FlashHex(text.data(), length));
    const std::string outside = Record("000000AA") + EndOfFile;
    UINT8 image[1];
    STEP(HexWorker(outside.data(), static_cast<int>(outside.size()), TRUE, image, sizeof image));
}

TEST(PowerHex, AnswersEveryText)
{
    const std::string data = Record("000100AABB");
    const std::string zero(1, '\0');
    const std::pair<std::string, std::string> cases[] = {
        {EndOfFile, "00000000"},
        {"", "Missing EOF record"},
        {" \t\v\f\r\n; no line end", "Missing EOF record"},
        {data + ";" + EndOfFile, "Missing EOF record"},
        {data + "\r\n;\n\n \t;:00\r" + EndOfFile + "not looked at", "00AABB00"},
        {":02000100AABB98x" + EndOfFile, "00AABB00"},
        {":02000100AABB98" + EndOfFile, "Expected colon (offset 0010)"},
        {"\n" + zero, "Expected colon (offset 0001)"},
        {":", "Invalid record size (offset 0000)"},
        {":0000000100FF", "Invalid record size (offset 0000)"},
        {":00000001FE", "Invalid checksum (offset 0000)"},
        {":00000001FF0", "00000000"},
        {":01000000aF50\n" + EndOfFile, "AF000000"},
        {":010000000aF5\n" + EndOfFile, "Invalid checksum (offset 0000)"},
        {":00002F01D" + zero, "00000000"},
        {":0000AF015\x80", "00000000"},
        {":" + std::string(768, '0'), "Invalid record size (offset 0000)"},
        {":" + std::string(769, '0'), "Line too long (offset 0000)"},
        {data + Record("0000020000"), "Unexpected type 02 record (offset 0010)"},
        {Record("0000050000"), "Unexpected type 05 record (offset 0000)"},
        {":0200000400FFFB\n" + data + EndOfFile, "00000000"},
        {Record("0000040100") + data + Record("0000040000") + Record("000000CC") + EndOfFile, "CC000000"},
        {Record("000004") + data + EndOfFile, "00AABB00"},
        {Record("000200AABB") + EndOfFile, "Address outside of image buffer (offset 0000)"},
        {data + Record("FFFF00AA") + EndOfFile, "Address outside of image buffer (offset 0010)"},
        {Record("FFFF00") + EndOfFile, "00000000"},
    };
    for (const auto& c : cases) EXPECT_EQ(c.second, Extract(c.first, 4)) << c.first;

    const std::string longest = Repeat(255, "01");
    EXPECT_EQ(longest + "00", Extract(Record("000000" + longest) + EndOfFile, 256));
    EXPECT_TRUE(CPowerMicro(nullptr).ExtractHex(EndOfFile.data(), 11, nullptr, 4));
    EXPECT_FALSE(CPowerMicro(nullptr).ValidateHex(nullptr, -1));
}

TEST(PowerHex, ClearsTheImageBeforeItReads)
{
    UINT8 image[] = {1, 2, 3, 4};
    const std::string text = Record("000200AABB") + EndOfFile;
    const auto extract = [&](int length, int size) {
        return CPowerMicro(nullptr).ExtractHex(text.data(), length, image, size);
    };
    EXPECT_TRUE(extract(static_cast<int>(text.size()), 0));  // no extraction
    EXPECT_EQ("01020304", Digits(image));
    EXPECT_FALSE(extract(0, 3));
    EXPECT_EQ("00000004", Digits(image));
}

TEST(PowerHex, RefusesCutsAndChangesOrDecodesTheSame)
{
    CTranscript trace("power-hex");
    trace.ShowLog(false);
    const std::string text =
        ";\n" + Record("000000DEADBEEF") + Record("0000040000") + "\r\n " + Record("00040001") + EndOfFile;
    for (std::size_t length = 0; length <= text.size(); length++)
        trace(length, " bytes: ", Extract(text.substr(0, length), 6));
    // How many of all values that a byte may have give what.
    for (std::size_t position = 0; position < text.size(); position++) {
        std::map<std::string, int> results;
        for (int c = 0; c < 256; c++) {
            std::string changed = text;
            changed[position] = static_cast<char>(c);
            results[Extract(changed, 6)]++;
        }
        for (const auto& [result, count] : results) trace("byte ", position, ": ", count, " times ", result);
    }
}
