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
    return {device.Numeric<std::uint8_t>("bus", 0), device.Numeric<std::uint16_t>("address", 0), device.Text("type"),
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

CI2CBuses::CI2CBuses(const I2CBusesDescription& description, I2CSite site)
    : m_Capture(site.Journal.GetCapture()), m_Refusals(description.Refusals)
{
    for (const I2CDescription& device : description.Devices) {
        site.Bus = device.Bus;
        site.Address = device.Address;
        m_Devices[{device.Bus, device.Address}] = device.Make(site);
    }
}

bool CI2CBuses::Transfer(int bus, int address, const I2CDevice::Bytes& write, I2CDevice::Bytes& read)
{
    const CAPTURE_I2C start = {static_cast<BYTE>(bus), static_cast<WORD>(address), static_cast<BYTE>(read.size())};
    std::string request(reinterpret_cast<const char*>(&start), sizeof start);
    request.append(write.begin(), write.end());
    m_Capture.AddRequest(Wire_I2C, 0, request.data(), request.size());
    const bool done = Acknowledges(bus, address, write, read);
    m_Capture.AddReply(Wire_I2C, 0, done ? 0 : 1, read.data(), done ? read.size() : 0);
    return done;
}

bool CI2CBuses::Acknowledges(int bus, int address, const I2CDevice::Bytes& write, I2CDevice::Bytes& read)
{
    const auto device = m_Devices.find({bus, address});
    if (device == m_Devices.end()) return false;
    if (m_Refusals > 0) {
        m_Refusals--;
        m_Capture.NoteFault("processor.i2c.no_acknowledge");
        return false;
    }
    return (write.empty() || device->second->Write(write)) && (read.empty() || device->second->Read(read));
}

}  // namespace sim
