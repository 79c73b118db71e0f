#include "pwrmicro.h"

#include <sstream>
#include <tuple>

#include "chif.h"
#include "sim/base/clock.h"
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

    // Type, register set, bus, address, control and keyhole register, tries.
    std::string Setup() const
    {
        std::ostringstream text;
        text << m_ControllerType << " " << m_RegisterSet << " " << m_Bus << " " << m_Address << " " << m_ControlRegister
             << " " << m_KeyholeRegister << " " << m_MaxRetries;
        return text.str();
    }
};

#define TRACE(method, ...) Trace(#method, m_pPower->method(__VA_ARGS__))

// A controller whose registers and faults are scripted.
class Power : public testing::Test
{
  protected:
    Power()
    {
        // Half a second from where the seconds change.
        sim::CClock& clock = sim::CClock::Instance();
        clock.Wait(1500000000 - clock.Now() % 1000000000);
        g_FakeChannel = CFakeChannel();
        g_FakeChannel.answer[SMIFCMD_I2C_TRANSACTION] = [this](const std::string& packet) { return Answer(packet); };
        m_pChannel = std::make_unique<CChannelInterface>();
        UseController(ControllerType_Opal);
    }

    // Makes a new object, told of an Opal or Zephyra controller or of none.
    void UseController(PowerControllerType type)
    {
        m_pPower = std::make_unique<CPower>(m_pChannel.get());
        m_pPower->SetControllerType(type);
        Begin();
    }

    void Begin()
    {
        m_pLog = std::make_unique<CLogCapture>();
        m_Sent.clear();
        m_Start = sim::CClock::Instance().Now();
    }

    // Tells of a step that was just done: its result, how long it took, the bytes sent but for register reads, and its
    // lines in the log. Lines of register accesses are left out when they are a part of another step.
    std::string Trace(const std::string& step, int result)
    {
        std::string text = std::to_string(result);
        const std::int64_t milliseconds = (sim::CClock::Instance().Now() - m_Start) / 1000000;
        if (milliseconds > 0) text += " after " + std::to_string(milliseconds) + " ms";
        text += m_Sent;
        std::istringstream lines(m_pLog->Text());
        for (std::string line; std::getline(lines, line);) {
            if (line.compare(0, 13, "CPowerMicro::") != 0) continue;
            line.erase(0, 13);
            const bool own = line.compare(0, step.size() + 2, step + ": ") == 0;
            if (own || line.find("Register: ") == std::string::npos)
                text += " | " + line.substr(own ? step.size() + 2 : 0);
        }
        Begin();
        return text;
    }

    std::map<int, std::deque<int>> m_Registers;  // what each reads as, one after another; the last one stays
    std::deque<int> m_Writes;                    // faults of the next register writes, then of none
    std::deque<int> m_Packets;                   // and of the next packets
    std::string m_Device;                        // address and bus of the last transaction
    std::unique_ptr<CChannelInterface> m_pChannel;
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

    std::unique_ptr<CLogCapture> m_pLog;
    std::string m_Sent;
    std::int64_t m_Start = 0;
};

}  // namespace

TEST_F(Power, ReadsAndWritesUntilTheChecksumIsRight)
{
    m_Registers[0x16] = {NoAck, BadChecksum | 0x1234, 0x1234};
    UINT16 value = 0;
    EXPECT_EQ("1 after 100 ms | 16 - I2C problem | 16 - Bad checksum (34 12 BB) | 16 = 1234",
              TRACE(ReadRegister, 0x16, &value));
    EXPECT_EQ(0x1234, value);
    EXPECT_EQ("300002", m_Device);
    m_Registers[0xFE] = {NoAck};
    EXPECT_EQ("0 after 700 ms" + Repeat(15, " | FE - I2C problem") + " | FE - Failed",
              TRACE(ReadRegister, 0xFE, &value));
    EXPECT_EQ(0x1234, value);

    m_Writes = {BadChecksum, NoAck};
    EXPECT_EQ(
        "1 after 100 ms 163412A4 163412A4 163412A4 | 16 = 1234 - Bad checksum (A5 != A4) | "
        "16 = 1234 - I2C problem | 16 = 1234",
        TRACE(WriteRegister, 0x16, 0x1234));
    m_Writes.assign(15, NoAck);
    EXPECT_EQ(
        "0 after 700 ms" + Repeat(15, " 160000EA") + Repeat(15, " | 16 = 0000 - I2C problem") + " | 16 = 0000 - Failed",
        TRACE(WriteRegister, 0x16, 0));

    m_pPower->m_MaxRetries = 0;
    EXPECT_EQ("0 | 16 - Failed", TRACE(ReadRegister, 0x16, &value));
    EXPECT_EQ("0 | 16 = 0001 - Failed", TRACE(WriteRegister, 0x16, 1));
}

TEST_F(Power, IdentifiesTheController)
{
    const std::tuple<int, const char*, const char*> cases[] = {
        {0x0109, "1 | Opal -> 1 1 2 48 22 92 15", "1 | Opal"},
        {0x0300, "1 | Opal -> 1 1 2 48 22 92 15", "1 | Opal"},
        {0x0400, "1 | Zephyra -> 2 2 3 48 24 54 100", "2 | Zephyra"},
        {0x0701, "1 | Quillon acting as Opal -> 3 1 2 48 22 92 15", "3 | Quillon"},
        {0x0702, "1 | Quillon acting as Zephyra -> 3 2 3 48 24 54 100", "3 | Quillon"},
        {0x0705, "1 | Quillon acting as Opal -> 3 1 2 48 22 92 15", "3 | Quillon"},
        {0x0C03, "1 | Brisk acting as Zephyra -> 4 2 3 48 24 54 100", "4 | Brisk"},
        {0x0C04, "1 | Brisk acting as Zephyra -> 4 2 3 48 24 54 100", "4 | Brisk"},
        {0x0700, "0 | Unknown Quillon type (00)", "3 | Quillon"},
        {0x0C06, "0 | Unknown Brisk type (06)", "4 | Brisk"},
        {0x0501, "0 | Tamberline (NOT SUPPORTED)", "0 | Unknown PIC family (05)"},
        {0x0001, "0 | Unknown PIC family (00)", "0 | Unknown PIC family (00)"},
        {0x0D01, "0 | Unknown PIC family (0D)", "0 | Unknown PIC family (0D)"},
        {NoAck, "0 after 700 ms | Can't read misc data register", "0 after 700 ms | Can't read misc data register"},
    };
    for (const auto& [miscData, expected, type] : cases) {
        m_Registers[2] = {miscData};
        UseController(ControllerType_Unknown);
        m_pPower->m_MaxRetries = 1;
        const BOOL known = m_pPower->DetermineControllerType();
        EXPECT_EQ(expected, Trace("DetermineControllerType", known) + (known ? " -> " + m_pPower->Setup() : ""));
        UseController(ControllerType_Unknown);
        EXPECT_EQ(type, Trace("ReadControllerType", m_pPower->ReadDeviceControllerType()));
        EXPECT_EQ("0 0 -1 -1 0 0 15", m_pPower->Setup());
    }
}

TEST_F(Power, TakesTheTypeThatTheHostKnows)
{
    const std::tuple<int, int, int, const char*> cases[] = {
        {1, NoAck, NoAck, "1 | Opal -> 1 1 7 48 22 92 15"},
        {2, NoAck, NoAck, "1 | Zephyra -> 2 2 7 48 24 54 100"},
        {3, NoAck, 0xFF7F, "1 | Quillon acting as Opal -> 3 1 7 48 22 92 15"},
        {4, 0xFFF7, 0x80, "1 | Brisk acting as Zephyra -> 4 2 7 48 24 54 100"},
        {4, 8, NoAck, "1 -> 4 3 7 -1 0 0 15"},
        {3, 0, 0, "0 | Unknown Quillon mode (0)"},
        {4, 0, 0xC0, "0 | Unknown Brisk mode (3)"},
        {3, 8, NoAck, "0 after 700 ms | Can't read flags register"},
        {4, NoAck, 0x80, "0 after 700 ms | GetVersion: Can't read status register"},
        {0, 0, 0x80, "0 | Invalid ControllerType (0)"},
        {5, 0, 0x80, "0 | Invalid ControllerType (5)"},
    };
    for (const auto& [type, status, flags, expected] : cases) {
        m_Registers[0] = {status};
        m_Registers[0x6A] = {flags};
        UseController(ControllerType_Unknown);
        m_pPower->SetBus(7);
        const BOOL taken = m_pPower->SetControllerType(static_cast<PowerControllerType>(type));
        EXPECT_EQ(expected, Trace("SetControllerType", taken) + (taken ? " -> " + m_pPower->Setup() : ""));
    }
    EXPECT_EQ("0 | Invalid RegisterSet (0)", TRACE(SetupBasedOnRegisterSet));
}

TEST_F(Power, TellsTheVersion)
{
    m_Registers[0] = {0x3A0F, 0x3A0F, 0xFFF7};
    BOOL running = FALSE;
    int major = 0;
    int minor = 0;
    EXPECT_EQ("1 | BootLoaderRunning = TRUE | Version = 3.10", TRACE(GetVersion, &running, &major, &minor));
    EXPECT_TRUE(running && major == 3 && minor == 10);
    EXPECT_EQ("1", TRACE(GetVersion, nullptr, &major, nullptr));
    EXPECT_EQ("1 | BootLoaderRunning = FALSE", Trace("GetVersion", m_pPower->GetBootLoaderMode(&running)));
    EXPECT_FALSE(running);
}

TEST_F(Power, UnlocksThroughTheKeyhole)
{
    m_Registers[0] = {8};
    EXPECT_EQ("1 | Unlock() | Already unlocked", TRACE(Unlock));
    m_Registers[0] = {0, 16, 8};
    m_Registers[0x16] = {0x1201};
    EXPECT_EQ("1 after 3000 ms 16811257 5C2B4D2C | Unlock() | Not in update state | Ready for update", TRACE(Unlock));
    m_Registers[0] = {0};
    m_Registers[0x16] = {0x1281};
    EXPECT_EQ("0 after 45500 ms 5C2B4D2C 5C2B4D2C | Unlock()" + Repeat(41 + 42, " | Not in update state") + " | Failed",
              TRACE(Unlock));

    m_pPower->m_MaxRetries = 1;
    m_Registers[0] = {NoAck, 0, NoAck, 8, 0, 8};
    EXPECT_EQ("0 | Unlock() | Can't read status register", TRACE(Unlock));
    m_Registers[0x16] = {NoAck, 0};
    m_Writes = {NoAck, NoAck};
    EXPECT_EQ(
        "1 after 3000 ms 5C2B4D2C | Unlock() | Can't read PWRMICRO_REG_CONTROL_REGISTER | "
        "Can't write keyhole register | Ready for update",
        TRACE(Unlock));
    EXPECT_EQ(
        "1 after 2500 ms 1680006A 5C2B4D2C | Unlock() | Can't write PWRMICRO_REG_CONTROL_REGISTER | "
        "Ready for update",
        TRACE(Unlock));
    UseController(ControllerType_Unknown);
    m_Registers[0] = {0};
    EXPECT_EQ("0 | Unlock() | Keyhole register not defined", TRACE(Unlock));
}

TEST_F(Power, ResetsIntoTheApplication)
{
    const std::string problem = " | Sending reset packet | I2C problem";
    m_Registers[0] = {0xFFF7, 8, 8, 0, 8};
    EXPECT_EQ("1 | Reset() | Not needed", TRACE(Reset));
    m_Packets.assign(15, NoAck);
    EXPECT_EQ("1 after 3750 ms" + Repeat(16, " 00000001FF") + " | Reset()" + Repeat(15, problem) +
                  " | Sending reset packet | Completed",
              TRACE(Reset));
    m_Packets.assign(16, NoAck);
    EXPECT_EQ(
        "0 after 750 ms" + Repeat(16, " 00000001FF") + " | Reset()" + Repeat(16, problem) + " | Reset packet failed",
        TRACE(Reset));
    const std::string failed = " ms 00000001FF | Reset() | Sending reset packet | Failed";
    EXPECT_EQ("0 after 12000" + failed, TRACE(Reset));

    m_pPower->m_MaxRetries = 100;
    for (int poll = 0; poll < 9; poll++) {
        m_Registers[0].insert(m_Registers[0].end(), 48, NoAck);
        m_Registers[0].push_back(8);
    }
    EXPECT_EQ("0 after " + std::to_string(2000 + 8 * (500 + 48 * 50)) + failed, TRACE(Reset));

    m_pPower->m_MaxRetries = 1;
    m_Registers[0] = {8, NoAck};
    EXPECT_EQ("0 after 2500 ms 00000001FF | Reset() | Sending reset packet | Can't read status register", TRACE(Reset));
    EXPECT_EQ("0 | Reset() | Can't read status register", TRACE(Reset));
}

TEST_F(Power, WritesDataUntilItIsProgrammed)
{
    const std::string busy = " | PWRMICRO_ERR_PROG_IN_PROGRESS";
    const std::tuple<std::deque<int>, std::size_t, std::string> cases[] = {
        {{0xFFF8}, 0, "0 after 100 ms 00AB | 0002 bytes"},
        {{7, 7, 7, 7, 7, 0}, 1, "0 after 650 ms 00AB 00AB | 0002 bytes | I2C problem" + Repeat(5, busy)},
        {{7}, 0, "7 after 600 ms 00AB | 0002 bytes" + Repeat(6, busy) + " | Failed"},
        {{7, 13, 0}, 0, "0 after 300 ms 00AB 00AB | 0002 bytes" + busy + " | Error status = 05"},
        {{1}, 0, "65535 after 200 ms 00AB 00AB | 0002 bytes" + Repeat(2, " | Error status = 01") + " | Failed"},
        {{0}, 2, "65535 after 100 ms 00AB 00AB | 0002 bytes" + Repeat(2, " | I2C problem") + " | Failed"},
        {{NoAck}, 0, "65535 after 150 ms 00AB | 0002 bytes | Can't read status register"},
    };
    m_pPower->m_MaxRetries = 2;
    for (const auto& [status, lost, expected] : cases) {
        m_Registers[0] = status;
        m_Packets.assign(lost, NoAck);
        const UINT8 data[] = {0x00, 0xAB};
        EXPECT_EQ(expected, TRACE(WriteData, data, sizeof data));
    }
}

TEST_F(Power, SavesAndRestoresTheListsInTheirOrder)
{
    const std::string opal = "16 1C 1E 20 22 24 26 28 2A 2C 2E 30 32 34 36 38 3A 3C 3E 40 42 44 46 4E 52 50 5A 1A ";
    const std::string zephyra = "2C 30 2E 1C 1A ";
    const std::string brisk = "02 6C 6E 70 72 76 ";
    const std::tuple<PowerControllerType, PowerControllerRegisterSet, std::string, const char*> cases[] = {
        {ControllerType_Opal, RegisterSet_Opal, opal, "1 | Opal register set"},
        {ControllerType_Quillon, RegisterSet_Zephyra, zephyra + "6C 6E 70 72 ",
         "1 | Zephyra register set | Adding Quillon register set"},
        {ControllerType_Brisk, RegisterSet_Opal, brisk + opal, "1 | Opal register set | Adding Brisk register set"},
        {ControllerType_Zephyra, RegisterSet_Zephyra, zephyra, "1 | Zephyra register set"},
        {ControllerType_Brisk, RegisterSet_Unavailable, zephyra, "0 | Unknown register set"},
    };
    for (const auto& [type, set, registers, saved] : cases) {
        for (int i = 0; i < 256; i++) m_Registers[i] = {i << 8 | i, 0x1234};
        m_Registers[0x16] = {0x5555, 0x1234};  // bit 0 alone is saved
        m_pPower->m_ControllerType = type;
        m_pPower->m_RegisterSet = set;
        EXPECT_EQ(saved, TRACE(SaveState));

        std::string sent;
        std::istringstream numbers(registers);
        for (int i; saved[0] == '1' && numbers >> std::hex >> i;)
            sent += i == 0x16 ? " 163512A3" : " " + Digits(std::vector<int>{i, i, i, -3 * i});
        EXPECT_EQ("1" + sent + " | RestoreState()", TRACE(RestoreState));
    }
}

TEST_F(Power, StopsSavingAndRestoringAtTheFirstFailure)
{
    m_pPower->m_MaxRetries = 1;
    m_Registers[0x1E] = {0, NoAck};
    EXPECT_TRUE(m_pPower->SaveState());
    Begin();
    EXPECT_EQ("0 | Opal register set | SaveRegisters: Can't save register 1E", TRACE(SaveState));
    m_Writes = {0, NoAck};
    EXPECT_EQ("0 160000EA 1C0000E4 | RestoreState() | RestoreRegisters: Can't restore register 1C",
              TRACE(RestoreState));
    m_Registers[0x16] = {NoAck};
    EXPECT_EQ("0 | RestoreState() | RestoreRegisters: Can't read register 16", TRACE(RestoreState));
}

TEST_F(Power, HaltsAndResumesTheDevice)
{
    EXPECT_EQ("1 after 5000 ms | HaltDevice()", TRACE(HaltDevice));
    EXPECT_EQ("010001000000000000000000", Digits(g_FakeChannel.sent.back().substr(8)));
    EXPECT_EQ("1 | ResumeDevice()", TRACE(ResumeDevice));
    EXPECT_EQ("010002000000000000000000", Digits(g_FakeChannel.sent.back().substr(8)));
    m_pChannel->Close();
    EXPECT_EQ("0 | HaltDevice()", TRACE(HaltDevice));
    EXPECT_EQ("0 | ResumeDevice()", TRACE(ResumeDevice));
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
    EXPECT_EQ(done, text == start + "All done!\n") << text;
    return done ? Digits(image) : text.substr(start.size(), text.size() - start.size() - 1);
}

}  // namespace

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

TEST(PowerHex, RefusesEveryCutAndEveryChangeOrDecodesTheSame)
{
    const std::string text =
        ";\n" + Record("000000DEADBEEF") + Record("0000040000") + "\r\n " + Record("00040001") + EndOfFile;
    const std::string image = "DEADBEEF0100";
    const std::size_t none = std::string::npos;
    const auto offsetIn = [](const std::string& line) {
        const std::size_t at = line.find("(offset ");
        return at == none ? at : std::stoul(line.substr(at + 8), nullptr, 16);
    };
    ASSERT_EQ(image, Extract(text, 6));
    for (std::size_t length = 0; length < text.size(); length++) {
        const std::size_t colon = text.substr(0, length).rfind(':');
        const bool inRecord = colon != none && text.find('\n', colon) > length;
        const std::string result = Extract(text.substr(0, length), 6);
        EXPECT_EQ(inRecord ? colon : none, offsetIn(result)) << length;
        EXPECT_EQ(inRecord, result != "Missing EOF record") << length;
    }

    // A ';' where a record is looked for, and a comment that does not end, hide the rest of the line: intended.
    const std::size_t blank = text.find("\r\n ");
    const std::map<std::size_t, const char*> hides = {
        {1, "000000000100"},
        {2, "000000000100"},
        {text.find(":02"), image.c_str()},
        {blank + 1, "DEADBEEF0000"},
        {blank + 2, "DEADBEEF0000"},
        {blank + 3, "DEADBEEF0000"},
        {text.find(EndOfFile), "Missing EOF record"},
    };
    for (std::size_t position = 0; position < text.size(); position++) {
        const std::size_t colon = text.rfind(':', position);
        for (int c = 0; c < 256; c++) {
            std::string changed = text;
            changed[position] = static_cast<char>(c);
            const std::string result = Extract(changed, 6);
            const bool comments = position == 1 ? c != '\r' && c != '\n' : c == ';' && hides.count(position) != 0;
            const std::size_t offset = offsetIn(result);
            EXPECT_TRUE(comments ? result == hides.at(position)
                                 : result == image || offset == colon || offset == position || offset == position + 1)
                << result << " for\n"
                << changed;
        }
    }
}

TEST_F(Power, UploadsEveryRecordButTheLast)
{
    const std::string text = Record("0000040001") + Record("000000DEADBEEF") + ";\n" + Record("000400") + EndOfFile;
    const int length = static_cast<int>(text.size());
    EXPECT_EQ("1 | All done!", Trace("HexWorker", m_pPower->ValidateHex(text.data(), length)));
    EXPECT_EQ(
        "1 after 300 ms 020000040001F9 04000000DEADBEEFC4 00000400FC | WriteData: 0007 bytes | "
        "WriteData: 0009 bytes | WriteData: 0005 bytes | All done!",
        Trace("HexWorker", m_pPower->FlashHex(text.data(), length)));
    m_Registers[0] = {0, 7};
    EXPECT_EQ("0 after 700 ms 020000040001F9 04000000DEADBEEFC4 | WriteData: 0007 bytes | WriteData: 0009 bytes" +
                  Repeat(6, " | WriteData: PWRMICRO_ERR_PROG_IN_PROGRESS") +
                  " | WriteData: Failed | Upload failed (offset 0010)",
              Trace("HexWorker", m_pPower->FlashHex(text.data(), length)));

    const std::string outside = Record("000000AA") + EndOfFile;
    UINT8 image[1];
    EXPECT_EQ("0 | Address outside of image buffer (offset 0000)",
              Trace("HexWorker",
                    m_pPower->HexWorker(outside.data(), static_cast<int>(outside.size()), TRUE, image, sizeof image)));
}
