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

RepeatedFault RepeatedFault::Read(CFields& faults, const char* key)
{
    const Json* pFault = faults.Find(key);
    if (!pFault) return {};
    if (!pFault->is_object()) return {faults.Numeric(key, 0), 1};
    return faults.Object(key, [](CFields& members) -> RepeatedFault {
        return {members.Numeric("at", 1), members.Numeric("times", 1)};
    });
}

bool RegisterI2CDevice(const char* type, I2CReader reader)
{
    return Readers().emplace(type, reader).second;
}

I2CBusesDescription DescribeI2CBuses(CFields& processor, CFields& faults)
{
    return faults.Object("i2c", [&](CFields& i2cFaults) {
        I2CBusesDescription buses = {};
        buses.NoAcknowledge = RepeatedFault::Read(i2cFaults, "no_acknowledge");
        const Json* pFault = i2cFaults.Find("no_acknowledge");
        if (pFault && !pFault->is_object()) buses.NoAcknowledge = {1, buses.NoAcknowledge.First};  // so many of them
        buses.BadChecksum = RepeatedFault::Read(i2cFaults, "bad_checksum");
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
    : m_Description(description), m_Folder(site.Folder), m_Capture(site.Journal.GetCapture()), m_Transactions(0)
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
    const auto device = m_Devices.find({bus, address});
    bool done = false;
    if (device != m_Devices.end()) {
        const bool checked = !read.empty() && device->second->HasChecksum();
        CStep step(m_Folder.GetSteps(), checked ? "i2c-checked" : "i2c",
                   std::to_string(bus) + "-" + std::to_string(address), write.size());
        const I2CDevice::Bytes sent(write.begin(), write.begin() + static_cast<std::ptrdiff_t>(step.GetDone()));
        done = Acknowledges(*device->second, sent, read);
        step.End();
    }
    m_Capture.AddReply(Wire_I2C, 0, done ? 0 : 1, read.data(), done ? read.size() : 0);
    return done;
}

bool CI2CBuses::Acknowledges(I2CDevice& device, const I2CDevice::Bytes& write, I2CDevice::Bytes& read)
{
    const int transaction = ++m_Transactions;
    if (m_Description.NoAcknowledge.Has(transaction)) {
        m_Capture.NoteFault("processor.i2c.no_acknowledge");
        return false;
    }
    const bool done = (write.empty() || device.Write(write)) && (read.empty() || device.Read(read));
    if (!read.empty() && device.HasChecksum() && m_Description.BadChecksum.Has(transaction)) {
        m_Capture.NoteFault("processor.i2c.bad_checksum");
        read.back() ^= 1;
    }
    return done;
}

}  // namespace sim
