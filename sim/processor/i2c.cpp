#include "sim/processor/i2c.h"

#include <algorithm>
#include <stdexcept>
#include <string>

#include "sim/base/fields.h"

namespace sim
{

namespace
{

// Never destroyed, as the devices are not.
std::map<std::string, I2CReader>& Readers()
{
    static auto& readers = *new std::map<std::string, I2CReader>;
    return readers;
}

I2CDescription DescribeDevice(CFields& device, CFields& faults)
{
    return {device.Numeric<std::uint8_t>("bus", 0), device.Numeric<std::uint16_t>("address", 0),
            device.Choice("type", Readers())(device, faults)};
}

}  // namespace

bool RegisterI2CDevice(const char* type, I2CReader reader)
{
    return Readers().emplace(type, reader).second;
}

I2CBusesDescription DescribeI2CBuses(CFields& processor, CFields& faults)
{
    return faults.Object("i2c", [&](CFields& i2cFaults) {
        I2CBusesDescription buses = {};
        buses.Refusals = i2cFaults.Numeric("no_acknowledge", 0);
        buses.Devices = processor.Objects("i2c", [&](CFields& device) { return DescribeDevice(device, i2cFaults); });
        std::set<std::pair<int, int>> places;
        for (const I2CDescription& device : buses.Devices)
            if (!places.emplace(device.Bus, device.Address).second)
                throw std::runtime_error("two I2C devices have the address " + std::to_string(device.Address) +
                                         " on bus " + std::to_string(device.Bus));
        return buses;
    });
}

CI2CBuses::CI2CBuses(const I2CBusesDescription& description, I2CSite site) : m_Refusals(description.Refusals)
{
    for (const I2CDescription& device : description.Devices) {
        site.Bus = device.Bus;
        site.Address = device.Address;
        m_Devices[{device.Bus, device.Address}] = device.Make(site);
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
