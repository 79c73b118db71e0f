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
    // A new server with that controller.
    void Use(const std::string& family, const std::string& actsAs = "", const std::string& faults = "{}")
    {
        nlohmann::json controller = {{"type", "power_controller"}, {"bus", 3}, {"address", 0x30}, {"family", family}};
        if (!actsAs.empty()) controller["acts_as"] = actsAs;
        for (int number = 4; number < 256; number += 2) controller["registers"][std::to_string(number)] = 0x4801;
        m_Server["management_processor"]["i2c"] = {controller};
        std::filesystem::remove_all(ServerFolder());
        StartAnew(faults);
    }

    // A new process on the same server.
    void StartAnew(const std::string& faults = "{}")
    {
        m_pPower.reset();
        m_pChannel.reset();
        std::filesystem::create_directory(ServerFolder());
        m_Server["faults"]["processor"]["i2c"]["power_controller"] = nlohmann::json::parse(faults);
        std::ofstream(ServerFolder() / "server.json") << RackServer(m_Server.dump());
        RestartServer();
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
        return m_pPower->DetermineControllerType() && m_pPower->SaveState() && Enter() && Flash(name) &&
               m_pPower->Reset() && m_pPower->RestoreState() && m_pPower->ResumeDevice();
    }

    // What the management processor tells, which has to have resumed: "1.0.9" or "boot loader".
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

    int Register(int number)
    {
        UINT16 value = 0;
        return m_pPower->ReadRegister(number, &value) ? value : NotAcknowledged;
    }

    // Registers that hold what the server has set up, or that bit of it that is saved.
    int KeptRegisters()
    {
        int kept = 0;
        for (int number = 4; number < 256; number += 2) kept += Register(number) == 0x4801 || Register(number) == 1;
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

    nlohmann::json m_Server;
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
        EXPECT_TRUE(Update(std::string(c.Family) + ".hex"));
        EXPECT_EQ("2.5.7", Version());

        StartAnew();
        EXPECT_EQ(c.Restored, KeptRegisters());
        for (BOOL known : {TRUE, FALSE}) {
            EXPECT_TRUE(known ? m_pPower->SetControllerType(c.Type) : m_pPower->DetermineControllerType());
            EXPECT_EQ(c.Type, m_pPower->GetControllerType());
            EXPECT_EQ(c.Set, m_pPower->GetRegisterSet());
        }
        EXPECT_EQ(0x2500, Register(PowerRegister_Status));
        EXPECT_STREQ("2.5.7", CSMBIOS().GetPowerMicroVersion());
    }
    EXPECT_THROW(Use("topaz"), std::runtime_error);
    EXPECT_THROW(Use("brisk"), std::runtime_error);
}

TEST_F(PowerController, IsUpdatedBeyondTheFirst64KiB)
{
    Use("zephyra");
    EXPECT_TRUE(Update("large.hex"));
    EXPECT_NE(
        std::string::npos,
        ReadFile(ServerFolder() / "journal.log").find("programming-end records=5122 bytes=81920 version=3.1.0\n"));
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
        EXPECT_TRUE(Enter());
        EXPECT_FALSE(m_pPower->Reset());
        EXPECT_FALSE(m_pPower->SaveState());  // the registers are the microcode's
        EXPECT_TRUE(Flash("zephyra.hex"));
        EXPECT_TRUE(m_pPower->Reset());
        EXPECT_EQ("2.5.7", Version());
    }
}

TEST_F(PowerController, TellsItsStatusAloneInABriskBootLoader)
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

TEST_F(PowerController, StartsMicrocodeThatIsWholeAndItsOwnWithoutItsRegisters)
{
    Use("zephyra");
    EXPECT_TRUE(Enter());
    EXPECT_FALSE(Flash("records32.hex"));  // the first one with data does not fit a transaction
    StartAnew();
    EXPECT_EQ("boot loader", Version());
    EXPECT_TRUE(Enter());
    EXPECT_TRUE(m_pPower->Reset());
    EXPECT_EQ("1.0.9", Version());
    EXPECT_EQ(0, KeptRegisters());

    EXPECT_TRUE(Enter());
    EXPECT_TRUE(Flash("opal.hex"));
    EXPECT_FALSE(m_pPower->Reset());
    EXPECT_TRUE(Flash("objcopy.hex"));
    EXPECT_TRUE(m_pPower->Reset());
    EXPECT_EQ("2.5.7", Version());

    const auto file = ServerFolder() / "powercontroller.bin";
    std::string memory = ReadFile(file);
    memory[0x1000 + 12287] ^= 1;
    std::ofstream(file, std::ios::binary) << memory;
    StartAnew();
    EXPECT_EQ("boot loader", Version());
}

TEST_F(PowerController, OpensForTheRightValueWhileUpdatesAreEnabled)
{
    Use("zephyra");
    for (const auto& [control, keyhole, value] :
         {std::tuple(0xFF7F, 0x36, 0x4D2B), std::tuple(0x80, 0x36, 0x2B4D), std::tuple(0x80, 0x5C, 0x4D2B)}) {
        EXPECT_TRUE(m_pPower->WriteRegister(0x18, static_cast<UINT16>(control)));
        EXPECT_TRUE(m_pPower->WriteRegister(keyhole, static_cast<UINT16>(value)));
        sleep(20);
        EXPECT_EQ(0x1000, Register(PowerRegister_Status));
    }
    EXPECT_TRUE(m_pPower->WriteRegister(0x36, 0x4D2B));
    sleep(2);
    EXPECT_EQ(NotAcknowledged, Register(PowerRegister_Status));
    sleep(1);
    EXPECT_EQ(BootLoader, Register(PowerRegister_Status));
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
    EXPECT_EQ(BootLoader | 4, Record({2, 0x10, 0x02, 0, 1, 2}));
    EXPECT_EQ(BootLoader, Record({2, 0x10, 0x00, 0, 1, 2}));
    EXPECT_EQ(BootLoader | 4, Record({2, 0x10, 0x01, 0, 1, 2}));
    EXPECT_EQ(BootLoader, Record({2, 0x10, 0x04, 0, 1, 2}));
    EXPECT_EQ(BootLoader, Record({2, 0x10, 0x04, 0, 1, 2}));  // once more
    EXPECT_EQ(BootLoader | 1, Send({1, 0x10, 0x06, 0, 1, 1}));
    EXPECT_EQ(BootLoader | 2, Record({1, 0x10, 0x06, 0, 1, 1}));
    EXPECT_EQ(BootLoader | 2, Record({1, 0, 0, 4, 0}));
    EXPECT_EQ(BootLoader | 3, Record({2, 0, 0, 2, 0, 0}));
    EXPECT_EQ(BootLoader | 5, Record({1, 0x0F, 0xFF, 0, 0}));
    EXPECT_TRUE(m_pPower->ResumeDevice());
    EXPECT_EQ(NotAcknowledged, Record({1, 0x10, 0x06, 0, 1}));
    EXPECT_EQ("\x01\x02\xFF\xFF\x01\x02\xFF", ReadFile(ServerFolder() / "powercontroller.bin").substr(0x1000, 7));
}

TEST_F(PowerController, PutsUpWithFaultsOrEndsInAKnownState)
{
    const struct
    {
        const char* Faults;
        const char* Line;     // in the log
        const char* Version;  // after the update
        const char* Retried;  // after one more upload by the same process
    } cases[] = {
        {R"({"no_acknowledge": 1})", "ReadRegister: 02 - I2C problem", "2.5.7", "2.5.7"},
        {R"({"no_acknowledge": {"at": 42, "times": 14}})", "WriteData: I2C problem", "2.5.7", "2.5.7"},
        {R"({"bad_checksum": {"at": 1, "times": 14}})", "ReadRegister: 02 - Bad checksum", "2.5.7", "2.5.7"},
        {R"({"bad_checksum": 10})", "WriteRegister: 18 = 4881 - Bad checksum (1E != 1F)", "2.5.7", "2.5.7"},
        {R"({"error": {"at": 5, "times": 14}})", "WriteData: Error status = 06", "2.5.7", "2.5.7"},
        {R"({"no_acknowledge": {"at": 1, "times": 15}})", "Can't read misc data register", "1.0.9", "2.5.7"},
        {R"({"no_acknowledge": {"at": 42, "times": 100}})", "WriteData: Failed", "boot loader", "2.5.7"},
        {R"({"error": {"at": 5, "times": 100}})", "Upload failed (offset 0094)", "boot loader", "2.5.7"},
        {R"({"busy_at_record": 1})", "Upload failed (offset 0000)", "boot loader", "boot loader"},
        {R"({"busy_at_record": 5})", "PROG_IN_PROGRESS\nCPowerMicro::WriteData: Failed", "boot loader", "boot loader"},
        {R"({"never_unlocks": true})", "Unlock: Failed", "1.0.9", "1.0.9"},
        {R"({"never_leaves_boot_loader": true})", "Reset: Failed", "boot loader", "boot loader"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.Faults);
        Use("zephyra", "", c.Faults);
        const CLogCapture log;
        EXPECT_EQ(std::string("2.5.7") == c.Version, Update("zephyra.hex"));
        EXPECT_TRUE(log.Has(c.Line));
        EXPECT_EQ(c.Version, Version());
        if (Enter()) Flash("zephyra.hex");
        m_pPower->Reset();
        EXPECT_EQ(c.Retried, Version());

        StartAnew();
        EXPECT_TRUE(Enter() && Flash("zephyra.hex") && m_pPower->Reset());
        EXPECT_EQ("2.5.7", Version());
    }
}

TEST(PowerHexText, ExtractsWhatOtherProgramsDo)
{
    std::string commented = "; microcode\n\n" + Image("zephyra.hex");
    for (std::size_t i = 100; i < commented.size(); i += 1000)
        commented.insert(commented.find('\n', i) + 1, "\n; : 00 comment\n\n");
    std::string carriageReturns;
    for (char c : commented) carriageReturns += c == '\n' ? "\r\n" : std::string(1, c);

    CPowerMicro power(nullptr);
    const CTempFolder folder;
    const std::string binary = (folder.Path() / "image").string();
    for (const std::string& text : {Image("zephyra.hex"), Image("records32.hex"), Image("objcopy.hex"),
                                    Image("large.hex"), commented, carriageReturns}) {
        // The other program takes no carriage returns.
        const std::string file = folder.Write("text", text == carriageReturns ? commented : text);
        std::string output;
        ASSERT_EQ(0, RunCommand(SREC_CAT " " + file + " -Intel -crop 0 0x10000 -o " + binary + " -Binary", output));
        const std::string expected = ReadFile(binary);
        ASSERT_LE(0x1000u + 12288, expected.size());

        std::string image(expected.size() + 1, 'x');
        EXPECT_TRUE(power.ExtractHex(text.data(), static_cast<int>(text.size()), reinterpret_cast<UINT8*>(image.data()),
                                     static_cast<int>(image.size())));
        EXPECT_EQ(expected + '\0', image);
    }
}
