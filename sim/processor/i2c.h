// The server's I2C buses and the devices on them.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "sim/base/journal.h"
#include "sim/base/state.h"

namespace sim
{

struct PowerPicDescription;

// So many events have the fault, beginning with the one of that number; the first has number 1.
struct RepeatedFault
{
    // Reads the number of the first event, or an object with that ("at") and the number of events ("times").
    static RepeatedFault Read(CFields& faults, const char* key);

    bool Has(int number) const { return First != 0 && number >= First && number - First < Times; }

    int First;  // 0: none has it
    int Times;
};

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

    // True where the last byte that is read is a checksum of the others, which a fault may then make a wrong one.
    virtual bool HasChecksum() const { return false; }
};

// Where a device finds itself. What stands behind the references lives as long as the device.
struct I2CSite
{
    int Bus;
    int Address;
    CServerFolder& Folder;  // for what the device keeps; it is locked while the device is asked for something
    CJournal& Journal;
    PowerPicDescription* pPowerPic;              // what the processor tells of the power PIC; null: there is none
    std::function<bool(int deviceID)> IsHalted;  // whether device control has stopped that device's own traffic
};

// Makes the device that a description describes; may do so for several servers.
using I2CMaker = std::function<std::unique_ptr<I2CDevice>(const I2CSite& site)>;

// Reads a device's object in server.json, and its faults in "faults.processor.i2c", into what makes the device. Throws
// std::runtime_error with a sentence for the user.
using I2CReader = I2CMaker (*)(CFields& device, CFields& faults);

// Makes a class known as "type" of a device in "i2c" of a description. Called once, by an initialiser of the class's
// own file. True.
bool RegisterI2CDevice(const char* type, I2CReader reader);

struct I2CDescription
{
    std::uint8_t Bus;
    std::uint16_t Address;
    std::string Type;
    I2CMaker Make;
};

struct I2CBusesDescription
{
    std::vector<I2CDescription> Devices;
    RepeatedFault NoAcknowledge;  // of transactions
    RepeatedFault BadChecksum;    // the same
};

// Reads "i2c" in a processor's object, with "i2c" in its faults. Throws std::runtime_error with a sentence for the
// user.
I2CBusesDescription DescribeI2CBuses(CFields& processor, CFields& faults);

class CI2CBuses
{
  public:
    // Of the site that all devices share, each gets its own bus and address.
    CI2CBuses(const I2CBusesDescription& description, I2CSite site);

    // A transaction: writes, then reads as many bytes as read has. False: no device acknowledges.
    bool Transfer(int bus, int address, const I2CDevice::Bytes& write, I2CDevice::Bytes& read);

  private:
    bool Acknowledges(I2CDevice& device, const I2CDevice::Bytes& write, I2CDevice::Bytes& read);

    const I2CBusesDescription& m_Description;
    std::map<std::pair<int, int>, std::unique_ptr<I2CDevice>> m_Devices;
    CServerFolder& m_Folder;
    CCapture& m_Capture;
    int m_Transactions;  // with devices so far
};

}  // namespace sim
