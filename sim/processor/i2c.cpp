#include "sim/processor/i2c.h"

#include <stdexcept>
#include <string>

#include "sim/base/fields.h"

namespace sim
{

namespace
{

// Never destroyed, as the devices are not.
std::map<std::string, I2CMaker>& Makers()
{
    static auto& makers = *new std::map<std::string, I2CMaker>;
    return makers;
}

}  // namespace

bool RegisterI2CDevice(const char* type, I2CMaker maker)
{
    return Makers().emplace(type, maker).second;
}

CI2CBuses::CI2CBuses(const ProcessorDescription& processor, const std::filesystem::path& folder, CJournal& journal,
                     PowerPicDescription* pPowerPic, const std::function<bool(int)>& isHalted)
{
    const auto add = [&](CFields& fields, CFields& faults) {
        const std::string type = fields.Text("type");
        const int bus = fields.Numeric("bus", 0);
        const int address = fields.Numeric("address", 0);
        const auto maker = Makers().find(type);
        if (maker == Makers().end()) throw std::runtime_error("there is no I2C device of type \"" + type + "\"");
        m_Devices[{bus, address}] = maker->second({bus, address, folder, journal, fields, faults, pPowerPic, isHalted});
    };
    CFields::Read(Json::parse(processor.Faults.I2C), "i2c", [&](CFields& faults) {
        m_Refusals = faults.Numeric("no_acknowledge", 0);
        for (const std::string& device : processor.I2C)
            CFields::Read(Json::parse(device), "i2c", [&](CFields& fields) { add(fields, faults); });
    });
}

bool CI2CBuses::Transfer(int bus, int address, const I2CDevice::Bytes& write, I2CDevice::Bytes& read)
{
    const auto device = m_Devices.find({bus, address});
    if (device == m_Devices.end()) return false;
    if (m_Refusals > 0) {
        m_Refusals--;
        return false;
    }
    return (write.empty() || device->second->Write(write)) && (read.empty() || device->second->Read(read));
}

}  // namespace sim
