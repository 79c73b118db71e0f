// A serial EEPROM, "eeprom" in "i2c": "size" bytes behind a pointer of one byte, first all 0xFF, with the text "data"
// at its start. With a "device_id" it is written only while that device is halted.
#include <algorithm>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "sim/base/fields.h"
#include "sim/processor/i2c.h"

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
        : m_File(site.Folder / ("eeprom-" + std::to_string(site.Bus) + "-" + std::to_string(site.Address) + ".bin")),
          m_IsHalted(site.IsHalted),
          m_Owner(eeprom.Owner),
          m_Bytes(eeprom.Shipped),
          m_Pointer(0)
    {
        std::ifstream file(m_File, std::ios::binary);
        file.read(reinterpret_cast<char*>(m_Bytes.data()), static_cast<std::streamsize>(m_Bytes.size()));
    }

    bool Write(const Bytes& bytes) override
    {
        m_Pointer = bytes[0] % m_Bytes.size();
        if (bytes.size() == 1) return true;
        if (m_Owner != 0 && !m_IsHalted(m_Owner)) return false;
        for (std::size_t i = 1; i < bytes.size(); i++) Next() = bytes[i];
        std::ofstream file(m_File, std::ios::binary);
        const char* pBytes = reinterpret_cast<const char*>(m_Bytes.data());
        if (!file.write(pBytes, static_cast<std::streamsize>(m_Bytes.size())).flush())
            throw std::runtime_error("Can't write " + m_File.string());
        return true;
    }

    bool Read(Bytes& bytes) override
    {
        for (std::uint8_t& byte : bytes) byte = Next();
        return true;
    }

  private:
    std::uint8_t& Next()
    {
        std::uint8_t& byte = m_Bytes[m_Pointer];
        m_Pointer = (m_Pointer + 1) % m_Bytes.size();
        return byte;
    }

    std::filesystem::path m_File;
    std::function<bool(int)> m_IsHalted;
    int m_Owner;
    Bytes m_Bytes;
    std::size_t m_Pointer;
};

const bool bRegistered = RegisterI2CDevice("eeprom", [](CFields& device, CFields&) -> I2CMaker {
    return [eeprom = Describe(device)](const I2CSite& site) { return std::make_unique<CEeprom>(eeprom, site); };
});

}  // namespace

}  // namespace sim
