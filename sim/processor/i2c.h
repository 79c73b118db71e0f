// The server's I2C buses and the devices on them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "sim/base/journal.h"
#include "sim/processor/processordescription.h"

namespace sim
{

// One device at one address. Registering its class makes it known to descriptions; see eeprom.cpp.
class I2CDevice
{
  public:
    using Bytes = std::vector<std::uint8_t>;

    virtual ~I2CDevice() = default;

    // The two halves of a transaction, each left out when it has no bytes. False: the device does not acknowledge.
    virtual bool Write(const Bytes& bytes) = 0;

    // Fills bytes, which come as many as the other side wants; fewer may be left.
    virtual bool Read(Bytes& bytes) = 0;
};

class CFields;

// Where a device finds itself. What stands behind the references lives as long as the device, but for the fields.
struct I2CSite
{
    int Bus;
    int Address;
    std::filesystem::path Folder;  // of the server, for what the device keeps
    CJournal& Journal;
    CFields& Description;                        // the device's object in server.json
    CFields& Faults;                             // "faults.processor.i2c"
    PowerPicDescription* pPowerPic;              // what the processor tells of the power PIC; null: there is none
    std::function<bool(int deviceID)> IsHalted;  // whether device control has stopped that device's own traffic
};

using I2CMaker = std::unique_ptr<I2CDevice> (*)(const I2CSite& site);

// Makes a class known as "type" of a device in "i2c" of a description. Called once, by an initialiser of the class's
// own file. True.
bool RegisterI2CDevice(const char* type, I2CMaker maker);

class CI2CBuses
{
  public:
    CI2CBuses(const ProcessorDescription& processor, const std::filesystem::path& folder, CJournal& journal,
              PowerPicDescription* pPowerPic, const std::function<bool(int)>& isHalted);

    // A transaction: writes, then reads as many bytes as read has. False: no device acknowledges.
    bool Transfer(int bus, int address, const I2CDevice::Bytes& write, I2CDevice::Bytes& read);

  private:
    std::map<std::pair<int, int>, std::unique_ptr<I2CDevice>> m_Devices;
    int m_Refusals;  // so many transactions are not acknowledged
};

}  // namespace sim
