// The server's power controller, "power_controller" in "i2c": 128 registers of 16 bits with even numbers, and a boot
// loader for its microcode. It is the power PIC that the processor tells of, and has its version.
//
// "family" is "opal", "zephyra", "quillon" or "brisk"; the last two act as one of the others, "acts_as". "registers"
// are what the server has set up, {"0x2C": 7}. powercontroller.json in the folder holds the registers as they are and
// whether the boot loader runs.
//
// The boot loader starts when the keyhole register gets its value while bit 7 of the control register is set. It takes
// records while the processor's own traffic is halted, and leaves upon the reset packet when the microcode is whole.
// The microcode then starts with registers that are 0.
#include <algorithm>
#include <cstdio>
#include <numeric>
#include <stdexcept>

#include "sim/base/clock.h"
#include "sim/base/fields.h"
#include "sim/base/state.h"
#include "sim/processor/bootloader.h"
#include "sim/processor/i2c.h"
#include "sim/processor/processordescription.h"

namespace sim
{

namespace
{

// A start takes so long, in which the controller does not answer.
const std::int64_t BootLoaderStart = 3000 * Millisecond;
const std::int64_t MicrocodeStart = 1500 * Millisecond;

const int Register_Status = 0;
const int Register_MiscData = 2;
const int Register_Flags = 0x6A;
const int RegisterSpace = 256;
const std::size_t MaxState = 65536;  // bytes of powercontroller.json

const std::uint16_t Status_BootLoader = 0x08;
const std::uint16_t Control_Update = 0x80;
const std::uint16_t KeyholeValue = 0x4D2B;

const std::size_t ReadRequest = 2;   // bytes: the register and a checksum
const std::size_t WriteRequest = 4;  // the register, its value, a checksum

const I2CDevice::Bytes ResetPacket = {0x00, 0x00, 0x00, 0x01, 0xFF};

enum Family : std::uint8_t
{
    Family_Opal = 1,
    Family_Zephyra = 4,
    Family_Quillon = 7,
    Family_Brisk = 12,
};

// A register set, as it is or acted as.
struct RegisterSet
{
    std::uint8_t Number;  // the server's type, and the mode of a controller that acts
    int ControlRegister;
    int KeyholeRegister;
};

const std::map<std::string, RegisterSet> RegisterSets = {{"opal", {1, 0x16, 0x5C}}, {"zephyra", {2, 0x18, 0x36}}};
const std::map<std::string, Family> Families = {
    {"opal", Family_Opal}, {"zephyra", Family_Zephyra}, {"quillon", Family_Quillon}, {"brisk", Family_Brisk}};

using Registers = std::map<int, std::uint16_t>;

Registers ReadRegisters(CFields& fields)
{
    Registers registers;
    for (const std::string& key : fields.Keys()) {
        const std::uint64_t number = ParseNumber(key).value_or(RegisterSpace);
        if (number >= RegisterSpace || number % 2 != 0)
            throw std::runtime_error("a power controller has no register " + key);
        registers[static_cast<int>(number)] = fields.Numeric<std::uint16_t>(key.c_str(), 0);
    }
    return registers;
}

std::uint8_t Sum(const I2CDevice::Bytes& bytes)
{
    return std::accumulate(bytes.begin(), bytes.end(), std::uint8_t{0},
                           [](std::uint8_t sum, std::uint8_t byte) { return static_cast<std::uint8_t>(sum + byte); });
}

PowerPicDescription& PowerPic(const I2CSite& site)
{
    if (!site.pPowerPic)
        throw std::runtime_error("A \"power_controller\" needs a \"power_pic\" of its \"management_processor\"");
    return *site.pPowerPic;
}

struct PowerControllerFaults
{
    RepeatedFault NoAcknowledge;  // of transactions
    RepeatedFault BadChecksum;    // of register accesses
    bool NeverUnlocks;
    bool NeverLeavesBootLoader;
    BootLoaderFaults Loader;
};

struct PowerControllerDescription
{
    std::string FamilyName;
    Family Type;
    RegisterSet Set;
    Registers Shipped;
    PowerControllerFaults Faults;
};

PowerControllerFaults DescribeFaults(CFields& faults)
{
    return {RepeatedFault::Read(faults, "no_acknowledge"),
            RepeatedFault::Read(faults, "bad_checksum"),
            faults.Flag("never_unlocks"),
            faults.Flag("never_leaves_boot_loader"),
            {RepeatedFault::Read(faults, "error"), faults.Numeric("busy_at_record", 0),
             faults.Numeric("power_lost_at_record", 0)}};
}

PowerControllerDescription Describe(CFields& device, CFields& faults)
{
    PowerControllerDescription controller = {};
    controller.FamilyName = device.Text("family");
    controller.Type = device.Choice("family", Families);
    controller.Set = device.Choice(RegisterSets.count(controller.FamilyName) != 0 ? "family" : "acts_as", RegisterSets);
    controller.Shipped = device.Object("registers", ReadRegisters);
    controller.Faults = faults.Object("power_controller", DescribeFaults);
    return controller;
}

class CPowerController : public I2CDevice
{
  public:
    CPowerController(const PowerControllerDescription& controller, const I2CSite& site);

    bool Write(const Bytes& bytes) override
    {
        Load();
        m_Reply.clear();
        m_Transactions++;
        if (m_Faults.NoAcknowledge.Has(m_Transactions)) {
            NoteFault("no_acknowledge");
            return false;
        }
        if (CClock::Instance().Now() < m_AnswersAgain) return false;
        const bool taken = bytes.size() > WriteRequest ? TakePacket(bytes) : AccessRegister(bytes);
        TellProcessor();
        return taken;
    }

    bool Read(Bytes& bytes) override
    {
        if (bytes.size() != m_Reply.size()) return false;
        bytes = m_Reply;
        return true;
    }

    bool HasChecksum() const override { return true; }

  private:
    void NoteFault(const char* name)
    {
        m_Journal.GetCapture().NoteFault(std::string("processor.i2c.power_controller.") + name);
    }

    bool AccessRegister(const Bytes& request);
    bool TakePacket(const Bytes& packet);
    bool HasRegister(int number) const;
    bool IsFixed(int number) const;
    std::uint16_t GetRegister(int number) const;
    void SetRegister(int number, std::uint16_t value);
    void OpenKeyhole(std::uint16_t value);
    void Reset();
    void Start(bool bootLoader);
    void TellProcessor();
    void Load();
    void Save();

    CStateFile m_State;
    CJournal& m_Journal;
    const std::function<bool(int)> m_IsHalted;
    PowerPicDescription& m_PowerPic;

    const Family m_Family;
    const RegisterSet m_Set;
    const PowerControllerFaults m_Faults;
    int m_Transactions;
    int m_Accesses;

    CBootLoader m_Loader;
    bool m_bBootLoader;  // runs
    Registers m_Registers;
    Bytes m_Reply;
    std::int64_t m_AnswersAgain;  // time of it
};

CPowerController::CPowerController(const PowerControllerDescription& controller, const I2CSite& site)
    : m_State(site.Folder, "powercontroller.json", MaxState),
      m_Journal(site.Journal),
      m_IsHalted(site.IsHalted),
      m_PowerPic(PowerPic(site)),
      m_Family(controller.Type),
      m_Set(controller.Set),
      m_Faults(controller.Faults),
      m_Transactions(0),
      m_Accesses(0),
      m_Loader(controller.FamilyName, m_PowerPic.Version, m_Faults.Loader, site.Folder, site.Journal),
      m_bBootLoader(false),
      m_Registers(controller.Shipped),
      m_AnswersAgain(0)
{
    m_Registers[Register_MiscData] = m_Set.Number;
    Load();
    TellProcessor();
}

bool CPowerController::HasRegister(int number) const
{
    if (number == Register_Status) return true;
    if (!m_bBootLoader) return number % 2 == 0;
    return m_Family != Family_Brisk && (number == Register_MiscData || number == Register_Flags);
}

// What nobody writes and no start clears.
bool CPowerController::IsFixed(int number) const
{
    return number == Register_Status || number == Register_Flags ||
           (number == Register_MiscData && m_Family != Family_Brisk);
}

std::uint16_t CPowerController::GetRegister(int number) const
{
    const auto entry = m_Registers.find(number);
    const std::uint16_t value = entry == m_Registers.end() ? 0 : entry->second;
    const FirmwareVersion version = m_Loader.GetVersion().value_or(FirmwareVersion());
    const bool acts = m_Family == Family_Quillon || m_Family == Family_Brisk;
    switch (number) {
        case Register_Status:
            return static_cast<std::uint16_t>(m_bBootLoader ? Status_BootLoader | m_Loader.GetStatus()
                                                            : version.Major << 12 | (version.Minor & 15) << 8);
        case Register_MiscData:
            return static_cast<std::uint16_t>(m_Family << 8 | (value & 0xFF));
        case Register_Flags:
            return static_cast<std::uint16_t>(acts ? m_Set.Number << 6 : 0);
        default:
            return value;
    }
}

bool CPowerController::AccessRegister(const Bytes& request)
{
    if ((request.size() != ReadRequest && request.size() != WriteRequest) || Sum(request) != 0) return false;
    const int number = request[0];
    if (!HasRegister(number)) return false;
    if (request.size() == ReadRequest) {
        const std::uint16_t value = GetRegister(number);
        m_Reply = {static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8)};
        m_Reply.push_back(static_cast<std::uint8_t>(-Sum(m_Reply)));
    } else {
        if (IsFixed(number)) return false;
        SetRegister(number, static_cast<std::uint16_t>(request[1] | request[2] << 8));
        m_Reply = {request[3]};
    }
    if (m_Faults.BadChecksum.Has(++m_Accesses)) {
        m_Reply.back() ^= 1;
        NoteFault("bad_checksum");
    }
    return true;
}

void CPowerController::SetRegister(int number, std::uint16_t value)
{
    if (number == m_Set.KeyholeRegister) return OpenKeyhole(value);
    m_Registers[number] = value;
    Save();
}

void CPowerController::OpenKeyhole(std::uint16_t value)
{
    const bool opens =
        value == KeyholeValue && (GetRegister(m_Set.ControlRegister) & Control_Update) && !m_Faults.NeverUnlocks;
    if (m_Faults.NeverUnlocks) NoteFault("never_unlocks");
    m_Journal.Write("power-controller %s value=%04X", opens ? "unlock" : "keyhole-ignored", value);
    if (opens) Start(true);
}

bool CPowerController::TakePacket(const Bytes& packet)
{
    if (!m_bBootLoader || !m_IsHalted(DeviceID_PowerPIC)) return false;
    if (packet != ResetPacket) return m_Loader.Take(packet);
    if (m_Loader.GetStatus() == ProgrammingStatus_Busy) return false;
    Reset();
    return true;
}

void CPowerController::Reset()
{
    const bool leaves = m_Loader.GetVersion() && !m_Faults.NeverLeavesBootLoader;
    if (m_Faults.NeverLeavesBootLoader) NoteFault("never_leaves_boot_loader");
    m_Journal.Write("power-controller %s", leaves ? "reset" : "reset-ignored");
    if (!leaves) return;
    for (auto entry = m_Registers.begin(); entry != m_Registers.end();)
        entry = IsFixed(entry->first) ? std::next(entry) : m_Registers.erase(entry);
    Start(false);
}

void CPowerController::Start(bool bootLoader)
{
    m_bBootLoader = bootLoader;
    m_AnswersAgain = CClock::Instance().Now() + (bootLoader ? BootLoaderStart : MicrocodeStart);
    Save();
}

void CPowerController::TellProcessor()
{
    m_PowerPic.Version = m_bBootLoader ? FirmwareVersion() : m_Loader.GetVersion().value_or(FirmwareVersion());
    m_PowerPic.Type = m_Family;
    m_PowerPic.BootLoader = m_bBootLoader;
    m_PowerPic.Registers.clear();
    for (int number = 0; number < RegisterSpace; number += 2)
        m_PowerPic.Registers.push_back(HasRegister(number) ? GetRegister(number) : std::uint16_t{0});
}

void CPowerController::Load()
{
    m_State.RefreshFields([this](CFields& fields) {
        m_bBootLoader = fields.Flag("boot_loader");
        if (fields.Find("registers")) m_Registers = fields.Object("registers", ReadRegisters);
    });
    m_bBootLoader = m_bBootLoader || !m_Loader.GetVersion();
}

void CPowerController::Save()
{
    Json state = {{"boot_loader", m_bBootLoader}, {"registers", Json::object()}};
    for (const auto& [number, value] : m_Registers) {
        char szNumber[8];
        std::snprintf(szNumber, sizeof szNumber, "0x%02X", static_cast<unsigned>(number));
        state["registers"][szNumber] = value;
    }
    m_State.WriteObject(state);
}

const bool bRegistered = RegisterI2CDevice("power_controller", [](CFields& device, CFields& faults) -> I2CMaker {
    return [controller = Describe(device, faults)](const I2CSite& site) {
        return std::make_unique<CPowerController>(controller, site);
    };
});

}  // namespace

}  // namespace sim
