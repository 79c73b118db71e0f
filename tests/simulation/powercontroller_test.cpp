#include <csignal>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <tuple>

#include "chif.h"
#include "pwrmicro.h"
#include "tests/support.h"
#include "zalph/smbios.h"

namespace
{

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
        UseServer(RackServer(server.dump()));
        Connect();
    }

    // A new process, on the same server without its faults.
    void StartAnew()
    {
        const auto file = ServerFolder() / "server.json";
        nlohmann::json server = nlohmann::json::parse(ReadFile(file));
        server.erase("faults");
        std::ofstream(file) << server;
        RestartServer();
        Connect();
    }

    void Connect()
    {
        m_pPower.reset();
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

    BOOL Update(const std::string& name)
    {
        return m_pPower->DetermineControllerType() && m_pPower->SaveState() && m_pPower->HaltDevice() &&
               m_pPower->Unlock() && Flash(name) && m_pPower->Reset() && m_pPower->RestoreState() &&
               m_pPower->ResumeDevice();
    }

    // What the management processor tells: "1.4.2" or "boot loader".
    std::string Version()
    {
        int version[3] = {};
        BOOL bBootLoader = FALSE;
        EXPECT_TRUE(m_pChannel->ResumeDevice(DeviceID_PowerPIC));
        EXPECT_TRUE(m_pChannel->GetPowerPICVersion(&version[0], &version[1], &version[2], &bBootLoader));
        if (bBootLoader) return "boot loader";
        return std::to_string(version[0]) + "." + std::to_string(version[1]) + "." + std::to_string(version[2]);
    }

    // Registers that hold what the server has set up.
    int KeptRegisters()
    {
        int kept = 0;
        for (int number = 4; number < 256; number += 2) {
            UINT16 value = 0;
            EXPECT_TRUE(m_pPower->ReadRegister(number, &value)) << number;
            if (number != PowerRegister_Flags && value != 0) kept++;
        }
        return kept;
    }

    std::unique_ptr<CChannelInterface> m_pChannel;
    std::unique_ptr<CPowerMicro> m_pPower;
};

}  // namespace

TEST_F(PowerController, IsUpdatedWhateverItsFamily)
{
    const std::tuple<const char*, const char*, PowerControllerType, PowerControllerRegisterSet, int> cases[] = {
        {"opal", "", ControllerType_Opal, RegisterSet_Opal, 28},
        {"zephyra", "", ControllerType_Zephyra, RegisterSet_Zephyra, 5},
        {"quillon", "opal", ControllerType_Quillon, RegisterSet_Opal, 32},
        {"quillon", "zephyra", ControllerType_Quillon, RegisterSet_Zephyra, 9},
        {"brisk", "opal", ControllerType_Brisk, RegisterSet_Opal, 33},
        {"brisk", "zephyra", ControllerType_Brisk, RegisterSet_Zephyra, 10},
    };
    for (const auto& [family, actsAs, type, set, restored] : cases) {
        SCOPED_TRACE(std::string(family) + " " + actsAs);
        Use(family, actsAs);
        EXPECT_EQ("1.4.2", Version());
        EXPECT_EQ(125, KeptRegisters());
        EXPECT_TRUE(Update(std::string(family) + ".hex"));
        EXPECT_EQ(type, m_pPower->GetControllerType());
        EXPECT_EQ(set, m_pPower->GetRegisterSet());
        EXPECT_EQ("2.5.7", Version());

        StartAnew();
        EXPECT_EQ(restored, KeptRegisters());
        EXPECT_TRUE(m_pPower->SetControllerType(type));
        EXPECT_EQ(set, m_pPower->GetRegisterSet());
        EXPECT_TRUE(m_pPower->DetermineControllerType());
        EXPECT_EQ("2.5.7", Version());
        EXPECT_STREQ("2.5.7", CSMBIOS().GetPowerMicroVersion());
    }
}

TEST_F(PowerController, IsFinishedByTheNextRunAfterAPowerCut)
{
    testing::FLAGS_gtest_death_test_style = "fast";
    Use("brisk", "zephyra", R"({"power_lost_at_record": 400})");
    EXPECT_EXIT(Update("brisk.hex"), testing::KilledBySignal(SIGKILL), "");
    StartAnew();
    EXPECT_EQ("boot loader", Version());
    // It tells nothing but its status, and the registers are the microcode's.
    EXPECT_FALSE(m_pPower->DetermineControllerType());
    EXPECT_TRUE(m_pPower->SetControllerType(ControllerType_Brisk));
    EXPECT_EQ(RegisterSet_Unavailable, m_pPower->GetRegisterSet());
    EXPECT_FALSE(m_pPower->SaveState());
    EXPECT_TRUE(m_pPower->HaltDevice() && m_pPower->Unlock() && Flash("brisk.hex") && m_pPower->Reset());
    EXPECT_TRUE(m_pPower->SetControllerType(ControllerType_Brisk));
    EXPECT_EQ(RegisterSet_Zephyra, m_pPower->GetRegisterSet());
    EXPECT_EQ("2.5.7", Version());
}

TEST(PowerHexText, ExtractsWhatAnotherProgramDoes)
{
    CPowerMicro power(nullptr);
    for (const char* name : {"zephyra.hex", "records32.hex", "objcopy.hex", "large.hex"}) {
        const CTestFolder folder;
        const std::string binary = (folder.Path() / "image").string();
        std::string output;
        const std::string convert = std::string(SREC_CAT " '" IMAGES "/") + name + "'";
        ASSERT_EQ(0, RunCommand(convert + " -Intel -crop 0 0x10000 -o " + binary + " -Binary", output)) << output;
        const std::string expected = ReadFile(binary);
        ASSERT_LE(0x1000u + 12288, expected.size());

        const std::string text = Image(name);
        std::vector<UINT8> image(expected.size() + 1, 0xAA);
        EXPECT_TRUE(
            power.ExtractHex(text.data(), static_cast<int>(text.size()), image.data(), static_cast<int>(image.size())));
        EXPECT_EQ(expected + '\0', std::string(image.begin(), image.end())) << name;
    }
    for (const char* name : {"segments.hex", "start.hex"}) {
        const CLogCapture log;
        const std::string text = Image(name);
        EXPECT_FALSE(power.ValidateHex(text.data(), static_cast<int>(text.size())));
        EXPECT_TRUE(log.Has("Unexpected type 0")) << name;
    }
}
