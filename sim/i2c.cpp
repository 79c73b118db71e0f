#include "i2c.h"

#include <stdexcept>
#include <string>

#include "fields.h"

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
    const Json faults = Json::parse(processor.Faults.I2C);
    m_Refusals = faults.value("no_acknowledge", 0);
    for (const I2CDescription& device : processor.I2C) {
        const auto maker = Makers().find(device.Type);
        if (maker == Makers().end()) throw std::runtime_error("there is no I2C device of type \"" + device.Type + "\"");
        const Json description = Json::parse(device.Json);
        m_Devices[{device.Bus, device.Address}] =
            maker->second({device.Bus, device.Address, folder, journal, description, faults, pPowerPic, isHalted});
    }
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
