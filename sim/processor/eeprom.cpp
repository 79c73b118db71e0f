// A serial EEPROM, "eeprom" in "i2c": "size" bytes behind a pointer of one byte, first all 0xFF, with the text "data"
// at its start. With a "device_id" it is written only while that device is halted.
#include <algorithm>
#include <optional>

#include "sim/base/fields.h"
#include "sim/base/state.h"
#include "sim/processor/i2c.h"
#include "support/files.h"

namespace sim
{

namespace
{

struct EepromDescription
{
    int Owner;                 // the device that must be halted; 0: none
    I2CDevice::Bytes Shipped;  // what it holds before it is written
};

EepromDescription Describe(CFields& fields)
{
    EepromDescription eeprom = {fields.Numeric("device_id", 0), {}};
    eeprom.Shipped.resize(fields.Numeric<std::uint16_t>("size", 256), 0xFF);
    if (eeprom.Shipped.empty() || eeprom.Shipped.size() > 256) fields.RefuseValue("size", "1 to 256 bytes");
    const std::string data = fields.Text("data");
    if (data.size() > eeprom.Shipped.size()) fields.RefuseValue("data", "a text of at most \"size\" bytes");
    std::copy(data.begin(), data.end(), eeprom.Shipped.begin());
    return eeprom;
}

class CEeprom : public I2CDevice
{
  public:
    CEeprom(const EepromDescription& eeprom, const I2CSite& site)
        : m_State(site.Folder, "eeprom-" + std::to_string(site.Bus) + "-" + std::to_string(site.Address) + ".bin",
                  eeprom.Shipped.size()),
          m_IsHalted(site.IsHalted),
          m_Owner(eeprom.Owner),
          m_Shipped(eeprom.Shipped),
          m_Bytes(eeprom.Shipped),
          m_Pointer(0)
    {
        Load();
    }

    bool Write(const Bytes& bytes) override
    {
        m_Pointer = bytes[0] % m_Bytes.size();
        if (bytes.size() == 1) return true;
        if (m_Owner != 0 && !m_IsHalted(m_Owner)) return false;
        Load();
        for (std::size_t i = 1; i < bytes.size(); i++) Next() = bytes[i];
        m_State.Write(AsText(m_Bytes));
        return true;
    }

    bool Read(Bytes& bytes) override
    {
        Load();
        for (std::uint8_t& byte : bytes) byte = Next();
        return true;
    }

  private:
    void Load()
    {
        std::optional<std::string> bytes;
        if (!m_State.Refresh(bytes)) return;
        m_Bytes = m_Shipped;
        if (bytes) std::copy(bytes->begin(), bytes->end(), m_Bytes.begin());
    }

    std::uint8_t& Next()
    {
        std::uint8_t& byte = m_Bytes[m_Pointer];
        m_Pointer = (m_Pointer + 1) % m_Bytes.size();
        return byte;
    }

    CStateFile m_State;
    std::function<bool(int)> m_IsHalted;
    int m_Owner;
    const Bytes m_Shipped;
    Bytes m_Bytes;
    std::size_t m_Pointer;
};

const bool bRegistered = RegisterI2CDevice("eeprom", [](CFields& device, CFields&) -> I2CMaker {
    return [eeprom = Describe(device)](const I2CSite& site) { return std::make_unique<CEeprom>(eeprom, site); };
});

}  // namespace

}  // namespace sim
