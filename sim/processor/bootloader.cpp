#include "sim/processor/bootloader.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <limits>
#include <numeric>

#include "sim/base/clock.h"
#include "sim/images/crc.h"
#include "sim/images/deviceimage.h"
#include "support/files.h"

namespace sim
{

namespace
{

const std::int64_t ProgrammingTime = 30 * Millisecond;
const std::int64_t ErasureTime = 300 * Millisecond;
const std::int64_t Never = std::numeric_limits<std::int64_t>::max();

// A record is its count, address high and low, type, data, checksum.
const std::size_t DataOffset = 4;
const std::size_t RecordOverhead = 5;
const std::uint8_t RecordType_Data = 0;
const std::uint8_t RecordType_ExtendedLinearAddress = 4;

}  // namespace

CBootLoader::CBootLoader(const std::string& family, const FirmwareVersion& shipped, const BootLoaderFaults& faults,
                         CServerFolder& folder, CJournal& journal)
    : m_Family(family),
      m_Faults(faults),
      m_Shipped(shipped),
      m_Folder(folder),
      m_State(folder, "powercontroller.bin", MemorySize),
      m_Journal(journal),
      m_Records(0),
      m_LinearAddress(0),
      m_End(0),
      m_Status(ProgrammingStatus_Done),
      m_BusyUntil(0)
{
    Load();
}

// Where another process programmed the memory meanwhile, the records of this one no longer follow what is there.
void CBootLoader::Load()
{
    std::optional<std::string> bytes;
    if (!m_State.Refresh(bytes)) return;
    m_End = 0;
    m_Last.clear();
    m_Version = m_Shipped;
    if (!bytes) return;
    m_Memory.assign(bytes->begin(), bytes->end());
    m_Memory.resize(MemorySize, 0xFF);
    m_Version = ReadVersion(MemorySize);
}

std::optional<FirmwareVersion> CBootLoader::ReadVersion(std::uint32_t end) const
{
    DeviceImageHeader header = {};
    std::memcpy(&header, m_Memory.data() + MicrocodeAddress, sizeof header);
    if (!IsDeviceImage(header, m_Family) || header.Size > end - MicrocodeAddress) return std::nullopt;
    const std::uint8_t* pCode = m_Memory.data() + MicrocodeAddress + sizeof header;
    if (Crc32(pCode, header.Size - sizeof header) != header.Crc) return std::nullopt;
    return VersionOf(header);
}

ProgrammingStatus CBootLoader::GetStatus() const
{
    return CClock::Instance().Now() < m_BusyUntil ? ProgrammingStatus_Busy : m_Status;
}

bool CBootLoader::Take(const Bytes& record)
{
    if (GetStatus() == ProgrammingStatus_Busy) return false;
    Load();
    m_Records++;
    m_BusyUntil = CClock::Instance().Now() + ProgrammingTime;
    if (m_Records == m_Faults.BusyAtRecord) {
        m_Journal.GetCapture().NoteFault("processor.i2c.power_controller.busy_at_record");
        m_Journal.Write("power-controller stuck record=%d", m_Records);
        m_BusyUntil = Never;
        return true;
    }
    if (m_Faults.Error.Has(m_Records)) m_Journal.GetCapture().NoteFault("processor.i2c.power_controller.error");
    m_Status = m_Faults.Error.Has(m_Records) ? ProgrammingStatus_DeviceError : Execute(record);
    if (m_Status == ProgrammingStatus_Done)
        m_Last = record;
    else
        m_Journal.Write("power-controller refused record=%d status=%d", m_Records, m_Status);
    return true;
}

ProgrammingStatus CBootLoader::Execute(const Bytes& record)
{
    if (record.size() < RecordOverhead || record[0] != record.size() - RecordOverhead)
        return ProgrammingStatus_BadCount;
    if (std::accumulate(record.begin(), record.end(), 0) % 256 != 0) return ProgrammingStatus_BadChecksum;
    // It comes again when the other side did not hear that it was taken.
    if (record == m_Last) return ProgrammingStatus_Done;

    const std::uint8_t* pData = record.data() + DataOffset;
    const std::uint32_t address = static_cast<std::uint32_t>(record[1] << 8 | record[2]);
    switch (record[3]) {
        case RecordType_Data:
            return Program(m_LinearAddress + address, pData, record[0]);
        case RecordType_ExtendedLinearAddress:
            if (record[0] != 2) return ProgrammingStatus_BadCount;
            m_LinearAddress = static_cast<std::uint32_t>(pData[0]) << 24 | static_cast<std::uint32_t>(pData[1]) << 16;
            return ProgrammingStatus_Done;
        default:
            return ProgrammingStatus_BadType;
    }
}

ProgrammingStatus CBootLoader::Program(std::uint32_t address, const std::uint8_t* data, std::size_t size)
{
    if (address < MicrocodeAddress || address > MemorySize || size > MemorySize - address)
        return ProgrammingStatus_BadAddress;
    if (address == MicrocodeAddress)
        Erase();
    else if (m_End == 0 || address < m_End)
        return ProgrammingStatus_BadOrder;

    if (m_Records == m_Faults.PowerLostAtRecord) {
        Store(address, data, size / 2);
        m_Journal.GetCapture().NoteFault("processor.i2c.power_controller.power_lost_at_record");
        m_Journal.Write("power-controller power-lost record=%d", m_Records);
        m_Folder.LosePower();
    }
    Store(address, data, size);
    const bool was = m_Version.has_value();
    m_Version = ReadVersion(m_End);
    if (m_Version && !was)
        m_Journal.Write("power-controller programming-end records=%d bytes=%u version=%d.%d.%d", m_Records,
                        m_End - MicrocodeAddress, m_Version->Major, m_Version->Minor, m_Version->Pass);
    return ProgrammingStatus_Done;
}

void CBootLoader::Erase()
{
    m_Journal.Write("power-controller programming-start record=%d", m_Records);
    m_BusyUntil += ErasureTime;
    m_Memory.assign(MemorySize, 0xFF);
    m_State.Write("");
}

// The records come in the order of their addresses, so the file is the memory up to where the last one ends. Any part
// of it is programming that was cut off.
void CBootLoader::Store(std::uint32_t address, const std::uint8_t* data, std::size_t size)
{
    std::copy_n(data, size, m_Memory.data() + address);
    m_End = address + static_cast<std::uint32_t>(size);
    m_State.Append(AsText(m_Memory).substr(m_State.GetSize(), m_End - m_State.GetSize()));
}

}  // namespace sim
