#include <unistd.h>

#include <csignal>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>

#include "chif.h"
#include "pwrmicro.h"
#include "support.h"
#include "zalph/smbios.h"

namespace
{

using Bytes = std::vector<UINT8>;

const int NotAcknowledged = -1;
const int BootLoader = 8;

std::string Image(const std::string& name)
{
    return ReadFile(std::filesystem::path(IMAGES) / name);
}

// The shipped library on a simulated controller. Every register that microcode can lose holds something.
class PowerController : public testing::Test
{
  protected:
    void Use(const std::string& family, const std::string& actsAs = "", const std::string& faults = "{}")
    {
        nlohmann::json controller = {{"type", "power_controller"}, {"bus", 3}, {"address", 0x30}, {"family", family}};
        if (!actsAs.empty()) controller["acts_as"] = actsAs;
        for (int number = 4; number < 256; number += 2) {
            const bool control = number == 0x16 || number == 0x18;
            controller["registers"][std::to_string(number)] = control ? 1 : number << 8 | number;
        }
        nlohmann::json server;
        server["management_processor"]["i2c"] = {controller};
        server["faults"]["processor"]["i2c"]["power_controller"] = nlohmann::json::parse(faults);
        Disconnect();
        UseServer(RackServer(server.dump()));
        Connect();
    }

    // A new process, on the same server without its faults.
    void StartAnew()
    {
        Disconnect();
        const auto file = ServerFolder() / "server.json";
        nlohmann::json server = nlohmann::json::parse(ReadFile(file));
        server.erase("faults");
        std::ofstream(file) << server;
        RestartServer();
        Connect();
    }

    void Disconnect()
    {
        m_pPower.reset();
        m_pChannel.reset();
    }

    void Connect()
    {
        m_pChannel = std::make_unique<CChannelInterface>();
        m_pPower = std::make_unique<CPowerMicro>(m_pChannel.get());
        m_pPower->SetBus(3);
        m_pPower->SetAddress(0x30);
    }

    BOOL Flash(const std::string& name)
    {
        const std::string text = Image(name);
        return m_pPower->FlashHex(text.data(), static_cast<int>(text.size()));
    }

    BOOL Enter() { return m_pPower->DetermineControllerType() && m_pPower->HaltDevice() && m_pPower->Unlock(); }

    BOOL Update(const std::string& name)
    {
        return m_pPower->DetermineControllerType() && m_pPower->SaveState() && m_pPower->HaltDevice() &&
               m_pPower->Unlock() && Flash(name) && m_pPower->Reset() && m_pPower->RestoreState() &&
               m_pPower->ResumeDevice();
    }

    // What the management processor tells: "1.0.9" or "boot loader".
    std::string Version()
    {
        int major = 0;
        int minor = 0;
        int pass = 0;
        BOOL bBootLoader = FALSE;
        EXPECT_TRUE(m_pChannel->ResumeDevice(DeviceID_PowerPIC));
        EXPECT_TRUE(m_pChannel->GetPowerPICVersion(&major, &minor, &pass, &bBootLoader));
        std::ostringstream text;
        text << major << "." << minor << "." << pass;
        return bBootLoader ? "boot loader" : text.str();
    }

    UINT16 Register(int number)
    {
        UINT16 value = 0;
        EXPECT_TRUE(m_pPower->ReadRegister(number, &value)) << number;
        return value;
    }

    // Registers that hold what the server has set up.
    int KeptRegisters()
    {
        int kept = 0;
        for (int number = 4; number < 256; number += 2)
            if (number != PowerRegister_Flags) kept += Register(number) != 0;
        return kept;
    }

    // Sends a packet; the status register afterwards.
    int Send(const Bytes& packet)
    {
        if (!m_pPower->I2CTransaction(packet.data(), static_cast<int>(packet.size()), nullptr, 0))
            return NotAcknowledged;
        sleep(1);
        return Register(PowerRegister_Status);
    }

    // The same with a record, its checksum appended.
    int Record(Bytes record)
    {
        UINT8 sum = 0;
        for (UINT8 byte : record) sum = static_cast<UINT8>(sum + byte);
        record.push_back(static_cast<UINT8>(-sum));
        return Send(record);
    }

    // Without the times.
    static std::string Journal()
    {
        std::istringstream lines(ReadFile(ServerFolder() / "journal.log"));
        std::string text;
        for (std::string line; std::getline(lines, line);) text += line.substr(line.find(' ') + 1) + "\n";
        return text;
    }

    std::unique_ptr<CChannelInterface> m_pChannel;
    std::unique_ptr<CPowerMicro> m_pPower;
};

}  // namespace

TEST_F(PowerController, IsUpdatedWhateverItsFamily)
{
    const struct
    {
        const char* Family;
        const char* ActsAs;
        PowerControllerType Type;
        PowerControllerRegisterSet Set;
        int Restored;
    } cases[] = {
        {"opal", "", ControllerType_Opal, RegisterSet_Opal, 28},
        {"zephyra", "", ControllerType_Zephyra, RegisterSet_Zephyra, 5},
        {"quillon", "opal", ControllerType_Quillon, RegisterSet_Opal, 32},
        {"quillon", "zephyra", ControllerType_Quillon, RegisterSet_Zephyra, 9},
        {"brisk", "opal", ControllerType_Brisk, RegisterSet_Opal, 33},
        {"brisk", "zephyra", ControllerType_Brisk, RegisterSet_Zephyra, 10},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.Family) + " " + c.ActsAs);
        Use(c.Family, c.ActsAs);
        EXPECT_EQ("1.0.9", Version());
        EXPECT_EQ(125, KeptRegisters());
        EXPECT_TRUE(Update(std::string(c.Family) + ".hex"));
        EXPECT_EQ(c.Type, m_pPower->GetControllerType());
        EXPECT_EQ(c.Set, m_pPower->GetRegisterSet());
        EXPECT_EQ("2.5.7", Version());

        StartAnew();
        EXPECT_EQ(c.Restored, KeptRegisters());
        EXPECT_TRUE(m_pPower->SetControllerType(c.Type));
        EXPECT_EQ(c.Set, m_pPower->GetRegisterSet());
        EXPECT_TRUE(m_pPower->DetermineControllerType());
        EXPECT_EQ(0x2500, Register(PowerRegister_Status));
        EXPECT_EQ("2.5.7", Version());
        EXPECT_STREQ("2.5.7", CSMBIOS().GetPowerMicroVersion());
        UINT8 type = 0;
        EXPECT_TRUE(m_pChannel->GetPowerPICType(&type));
        EXPECT_EQ(Register(PowerRegister_MiscData) >> 8, type);
    }
}

TEST_F(PowerController, KeepsAJournal)
{
    Use("zephyra");
    EXPECT_TRUE(Update("large.hex"));
    EXPECT_EQ(
        "processor halt device=1 seconds=0\npower-controller unlock value=4D2B\n"
        "power-controller programming-start record=2\n"
        "power-controller programming-end records=5122 bytes=81920 version=3.1.0\n"
        "power-controller reset\nprocessor resume device=1 seconds=0\n",
        Journal());
    EXPECT_EQ("3.1.0", Version());
}

TEST_F(PowerController, IsFinishedByTheNextRunAfterAPowerCut)
{
    testing::FLAGS_gtest_death_test_style = "fast";
    for (int record : {2, 400, 769}) {
        Use("zephyra", "", "{\"power_lost_at_record\": " + std::to_string(record) + "}");
        EXPECT_EXIT(Update("zephyra.hex"), testing::KilledBySignal(SIGKILL), "");
        StartAnew();
        EXPECT_EQ("boot loader", Version());
        EXPECT_STREQ("", CSMBIOS().GetPowerMicroVersion());
        EXPECT_EQ(BootLoader, Register(PowerRegister_Status));
        EXPECT_TRUE(Enter());
        EXPECT_FALSE(m_pPower->Reset());
        EXPECT_FALSE(m_pPower->SaveState());  // the registers are the microcode's
        EXPECT_TRUE(Flash("zephyra.hex"));
        EXPECT_TRUE(m_pPower->Reset());
        EXPECT_EQ("2.5.7", Version());
    }
}

TEST_F(PowerController, TellsNothingButItsStatusInABriskBootLoader)
{
    Use("brisk", "zephyra");
    EXPECT_TRUE(Enter());
    EXPECT_TRUE(Flash("opal.hex"));
    StartAnew();
    EXPECT_FALSE(m_pPower->DetermineControllerType());
    EXPECT_TRUE(m_pPower->SetControllerType(ControllerType_Brisk));
    EXPECT_EQ(RegisterSet_Unavailable, m_pPower->GetRegisterSet());
    EXPECT_TRUE(m_pPower->HaltDevice() && m_pPower->Unlock() && Flash("brisk.hex") && m_pPower->Reset());
    EXPECT_TRUE(m_pPower->SetControllerType(ControllerType_Brisk));
    EXPECT_EQ(RegisterSet_Zephyra, m_pPower->GetRegisterSet());
    EXPECT_EQ(0x0C00, Register(PowerRegister_MiscData));  // the server's type was not restored
}

TEST_F(PowerController, LosesItsRegistersByAResetAndKeepsItsMicrocode)
{
    Use("opal");
    EXPECT_TRUE(Enter());
    StartAnew();
    EXPECT_EQ("boot loader", Version());
    EXPECT_TRUE(Enter());
    EXPECT_TRUE(m_pPower->Reset());
    EXPECT_EQ("1.0.9", Version());
    EXPECT_EQ(0, KeptRegisters());
}

TEST_F(PowerController, OpensForTheRightValueWhileUpdatesAreEnabled)
{
    const struct
    {
        UINT16 Control;
        int Keyhole;
        UINT16 Value;
        bool Opens;
    } cases[] = {
        {0xFF7F, 0x36, 0x4D2B, false},
        {0x0080, 0x36, 0x2B4D, false},
        {0x0080, 0x5C, 0x4D2B, false},
        {0x0080, 0x36, 0x4D2B, true},
    };
    Use("zephyra");
    for (const auto& c : cases) {
        EXPECT_TRUE(m_pPower->WriteRegister(0x18, c.Control));
        EXPECT_TRUE(m_pPower->WriteRegister(c.Keyhole, c.Value));
        UINT16 value = 0;
        sleep(2);
        EXPECT_EQ(!c.Opens, m_pPower->ReadRegister(PowerRegister_Status, &value));  // it is starting
        sleep(1);
        EXPECT_EQ(c.Opens ? BootLoader : 0x1000, Register(PowerRegister_Status));
    }
}

TEST_F(PowerController, RefusesRecordsThatAreWrong)
{
    Use("zephyra");
    EXPECT_EQ(NotAcknowledged, Record({2, 0, 0, 4, 0, 0}));
    EXPECT_EQ(NotAcknowledged, Send({PowerRegister_Status, 1}));
    EXPECT_TRUE(Enter());
    EXPECT_EQ(BootLoader, Record({2, 0, 0, 4, 0, 1}));
    EXPECT_EQ(BootLoader | 5, Record({1, 0x80, 0x00, 0, 0}));
    EXPECT_EQ(BootLoader, Record({2, 0, 0, 4, 0, 0}));
    EXPECT_EQ(BootLoader | 4, Record({2, 0x10, 0x02, 0, 1, 2}));  // the memory is not erased
    EXPECT_EQ(BootLoader, Record({2, 0x10, 0x00, 0, 1, 2}));
    EXPECT_EQ(BootLoader | 4, Record({2, 0x10, 0x01, 0, 1, 2}));
    EXPECT_EQ(BootLoader, Record({2, 0x10, 0x04, 0, 1, 2}));
    EXPECT_EQ(BootLoader, Record({2, 0x10, 0x04, 0, 1, 2}));  // once more
    EXPECT_EQ(BootLoader | 1, Send({1, 0x10, 0x06, 0, 1, 1}));
    EXPECT_EQ(BootLoader | 2, Record({1, 0x10, 0x06, 0, 1, 1}));
    EXPECT_EQ(BootLoader | 2, Record({3, 0x10, 0x06, 0, 1, 1}));
    EXPECT_EQ(BootLoader | 2, Record({1, 0, 0, 4, 0}));
    EXPECT_EQ(BootLoader | 3, Record({2, 0, 0, 2, 0, 0}));
    EXPECT_EQ(BootLoader | 5, Record({1, 0x0F, 0xFF, 0, 0}));
    EXPECT_EQ("boot loader", Version());
    EXPECT_EQ(NotAcknowledged, Record({1, 0x10, 0x06, 0, 1}));  // nobody halts the processor's traffic
    EXPECT_EQ(std::string("FF\x01\x02\xFF\xFF\x01\x02\xFF", 2 + 7).substr(2),
              ReadFile(ServerFolder() / "powercontroller.bin").substr(0x1000, 7));
}

TEST_F(PowerController, StaysInItsBootLoaderWithMicrocodeThatIsNotItsOwn)
{
    Use("zephyra");
    EXPECT_TRUE(Enter());
    EXPECT_TRUE(Flash("opal.hex"));
    EXPECT_FALSE(m_pPower->Reset());
    EXPECT_TRUE(Flash("objcopy.hex"));
    EXPECT_TRUE(m_pPower->Reset());
    EXPECT_EQ("2.5.7", Version());
}

TEST_F(PowerController, ChecksItsMicrocodeWhenItStarts)
{
    Use("zephyra");
    EXPECT_TRUE(Update("zephyra.hex"));
    const auto file = ServerFolder() / "powercontroller.bin";
    std::string memory = ReadFile(file);
    memory[0x1000 + 12287] ^= 1;
    std::ofstream(file, std::ios::binary) << memory;
    StartAnew();
    EXPECT_EQ("boot loader", Version());
}

TEST_F(PowerController, IsNotTouchedByRecordsThatDoNotFitATransaction)
{
    Use("zephyra");
    EXPECT_TRUE(Enter());
    EXPECT_FALSE(Flash("records32.hex"));
    EXPECT_TRUE(m_pPower->Reset());
    EXPECT_EQ("1.0.9", Version());
}

TEST_F(PowerController, ComesThroughFaultsThatPass)
{
    const std::pair<const char*, const char*> cases[] = {
        {R"({"no_acknowledge": 1})", "ReadRegister: 02 - I2C problem"},
        {R"({"no_acknowledge": {"at": 41, "times": 14}})", "WriteData: I2C problem"},
        {R"({"bad_checksum": {"at": 1, "times": 14}})", "ReadRegister: 02 - Bad checksum"},
        {R"({"bad_checksum": 9})", "WriteRegister: 18 = 0081 - Bad checksum (66 != 67)"},
        {R"({"error": {"at": 5, "times": 14}})", "WriteData: Error status = 06"},
    };
    for (const auto& c : cases) {
        Use("zephyra", "", c.first);
        const CLogCapture log;
        EXPECT_TRUE(Update("zephyra.hex")) << c.first;
        EXPECT_TRUE(log.Has(c.second)) << c.first;
        EXPECT_EQ("2.5.7", Version());
    }
}

TEST_F(PowerController, SaysWhereAFaultEndsTheUpdate)
{
    const struct
    {
        const char* Faults;
        const char* Line;
        const char* Version;
        const char* Retried;  // version after one more upload by the same process
    } cases[] = {
        {R"({"no_acknowledge": {"at": 1, "times": 15}})", "DetermineControllerType: Can't read misc data", "1.0.9",
         "2.5.7"},
        {R"({"never_unlocks": true})", "Unlock: Failed", "1.0.9", "1.0.9"},
        {R"({"error": {"at": 5, "times": 100}})", "HexWorker: Upload failed (offset 0094)", "boot loader", "2.5.7"},
        {R"({"busy_at_record": 1})", "HexWorker: Upload failed (offset 0000)", "boot loader", "boot loader"},
        {R"({"busy_at_record": 5})", "PROG_IN_PROGRESS\nCPowerMicro::WriteData: Failed", "boot loader", "boot loader"},
        {R"({"no_acknowledge": {"at": 41, "times": 100}})", "WriteData: Failed", "boot loader", "2.5.7"},
        {R"({"never_leaves_boot_loader": true})", "Reset: Failed", "boot loader", "boot loader"},
    };
    for (const auto& c : cases) {
        Use("zephyra", "", c.Faults);
        const CLogCapture log;
        EXPECT_FALSE(Update("zephyra.hex")) << c.Faults;
        EXPECT_TRUE(log.Has(c.Line)) << c.Faults;
        EXPECT_EQ(c.Version, Version()) << c.Faults;
        if (Enter()) Flash("zephyra.hex");
        m_pPower->Reset();
        EXPECT_EQ(c.Retried, Version()) << c.Faults;

        StartAnew();
        EXPECT_TRUE(Enter() && Flash("zephyra.hex") && m_pPower->Reset()) << c.Faults;
        EXPECT_EQ("2.5.7", Version()) << c.Faults;
    }
}

TEST(PowerControllerDescription, IsRefusedWhenItIsWrong)
{
    const std::pair<const char*, const char*> cases[] = {
        {R"({"family": "topaz"})", "family can't be \"topaz\""},
        {R"({"family": "brisk"})", "acts_as can't be \"none\""},
        {R"({"family": "opal", "registers": {"0x1B": 1}})", "a power controller has no register 0x1B"},
    };
    for (const auto& c : cases) {
        nlohmann::json controller = nlohmann::json::parse(c.first);
        controller["type"] = "power_controller";
        nlohmann::json server;
        server["management_processor"]["i2c"] = {controller};
        CTempFolder folder;
        folder.Write("server.json", RackServer(server.dump()));
        std::string output;
        EXPECT_EQ(126, RunCommand(std::string(ZALSIM) + " --server " + folder.Path().string() + " --describe", output));
        EXPECT_NE(std::string::npos, output.find(c.second)) << output;
    }
}

TEST(PowerHexText, ExtractsWhatOtherProgramsDo)
{
    const std::string text = Image("zephyra.hex");
    std::string commented = "; microcode\n\n" + text;
    for (std::size_t i = 100; i < commented.size(); i += 1000)
        commented.insert(commented.find('\n', i) + 1, "\n; : 00 comment\n\n");
    std::string carriageReturns;
    for (char c : commented) carriageReturns += c == '\n' ? "\r\n" : std::string(1, c);

    const struct
    {
        std::string Text;
        std::string Readable;  // by the other program
    } cases[] = {
        {text, text},
        {commented, commented},
        {carriageReturns, commented},
        {Image("records32.hex"), Image("records32.hex")},
        {Image("objcopy.hex"), Image("objcopy.hex")},
        {Image("large.hex"), Image("large.hex")},
    };
    CPowerMicro power(nullptr);
    for (const auto& c : cases) {
        CTempFolder folder;
        std::string output;
        const std::string binary = (folder.Path() / "image").string();
        ASSERT_EQ(0, RunCommand(SREC_CAT " " + folder.Write("text", c.Readable) + " -Intel -crop 0 0x10000 -o " +
                                    binary + " -Binary",
                                output))
            << output;
        const std::string expected = ReadFile(binary);
        ASSERT_LE(0x1000u + 12288, expected.size());

        Bytes image(expected.size() + 1, 0xAA);
        EXPECT_TRUE(power.ExtractHex(c.Text.data(), static_cast<int>(c.Text.size()), image.data(),
                                     static_cast<int>(image.size())));
        EXPECT_EQ(expected + '\0', std::string(image.begin(), image.end()));
    }
    for (const char* name : {"segments.hex", "start.hex"}) {
        const CLogCapture log;
        const std::string refused = Image(name);
        EXPECT_FALSE(power.ValidateHex(refused.data(), static_cast<int>(refused.size())));
        EXPECT_TRUE(log.Has("Unexpected type 0")) << name;
    }
}
