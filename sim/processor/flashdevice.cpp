#include "sim/processor/flashdevice.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "sim/base/clock.h"
#include "sim/images/crc.h"

namespace sim
{

namespace
{

namespace fs = std::filesystem;

// What a file holds: the version of an image for that handler, nothing when it is not whole.
std::optional<FirmwareVersion> ReadFirmware(const fs::path& path, const std::string& handler)
{
    DeviceImageHeader header = {};
    std::ifstream file(path, std::ios::binary);
    if (!file.read(reinterpret_cast<char*>(&header), sizeof header) || !IsDeviceImage(header, handler) ||
        fs::file_size(path) != header.Size)
        return std::nullopt;
    return VersionOf(header);
}

bool IsWithin(std::int64_t byte, std::uint32_t offset, std::uint32_t size)
{
    return byte >= offset && byte < std::int64_t{offset} + size;
}

}  // namespace

CFlashDevice::CFlashDevice(Kind kind, const FlashDescription& device, const FirmwareVersion& shipped,
                           const ProcessorFaults& faults, const fs::path& folder, CJournal& journal)
    : m_Device(device),
      m_Faults(faults),
      m_File(folder / (device.Handler + ".fw")),
      m_Upload(kind == Kind_Staged ? folder / (device.Handler + ".upload") : m_File),
      m_Journal(journal),
      m_Firmware(fs::exists(m_File) ? ReadFirmware(m_File, device.Handler) : shipped),
      m_bFailed(!m_Firmware || (kind == Kind_Staged && fs::exists(m_Upload))),
      m_bOpen(false),
      m_Header(),
      m_Received(0),
      m_Crc(0),
      m_BusyUntil(0)
{
}

bool CFlashDevice::IsBusy() const
{
    return CClock::Instance().Now() < m_BusyUntil;
}

std::optional<FirmwareVersion> CFlashDevice::GetFirmware() const
{
    const bool loader = IsBusy() && m_Upload == m_File;
    return loader ? std::nullopt : m_Firmware;
}

DeviceFlashStatus CFlashDevice::Open()
{
    if (IsBusy()) return DeviceFlashStatus_Busy;
    m_Journal.Write("device open handler=%s", m_Device.Handler.c_str());
    m_bOpen = true;
    m_Stream.close();
    m_Received = 0;
    m_Crc = 0;
    return DeviceFlashStatus_OK;
}

DeviceFlashStatus CFlashDevice::Query() const
{
    if (IsBusy()) return DeviceFlashStatus_Busy;
    if (m_bOpen) return DeviceFlashStatus_Data;
    return m_bFailed ? DeviceFlashStatus_Error : DeviceFlashStatus_OK;
}

DeviceFlashStatus CFlashDevice::Reset()
{
    if (IsBusy()) return DeviceFlashStatus_Busy;
    m_Journal.Write("device reset handler=%s", m_Device.Handler.c_str());
    m_bOpen = false;
    m_Stream.close();
    if (m_Upload != m_File) fs::remove(m_Upload);
    m_bFailed = !m_Firmware;
    return DeviceFlashStatus_OK;
}

std::optional<DeviceFlashStatus> CFlashDevice::Upload(std::uint32_t offset, const std::uint8_t* data,
                                                      std::uint32_t size)
{
    if (IsBusy()) return DeviceFlashStatus_Busy;
    if (!m_bOpen) return Refuse(DeviceFlashStatus_Error, "not-open");
    if (offset != m_Received) return Refuse(DeviceFlashStatus_Error, "offset");
    if (size == 0) return DeviceFlashStatus_OK;
    if (offset == 0) {
        const DeviceFlashStatus status = Begin(data, size);
        if (status != DeviceFlashStatus_OK) return status;
    }
    if (size > m_Header.Size - m_Received) return Refuse(DeviceFlashStatus_Overflow, "too-long");

    const std::int64_t faulty[] = {m_Faults.DeviceErrorAtByte, m_Faults.DiesAtByte, m_Faults.PowerLostAtByte};
    for (const std::int64_t byte : faulty) {
        if (!IsWithin(byte, offset, size)) continue;
        Store(data, static_cast<std::uint32_t>(byte - offset));
        m_Stream.flush();
        if (byte == m_Faults.DeviceErrorAtByte) return Refuse(DeviceFlashStatus_Error, "device-error");
        const bool power = byte == m_Faults.PowerLostAtByte;
        m_Journal.Write("device %s handler=%s bytes=%u", power ? "power-lost" : "processor-died",
                        m_Device.Handler.c_str(), m_Received);
        if (power) kill(getpid(), SIGKILL);
        return std::nullopt;
    }
    Store(data, size);
    if (m_Received == m_Header.Size) Finish();
    return DeviceFlashStatus_OK;
}

// An image for another device, or one that it has no room for, leaves the device as it is.
DeviceFlashStatus CFlashDevice::Begin(const std::uint8_t* data, std::uint32_t size)
{
    m_Header = {};
    std::memcpy(&m_Header, data, std::min<std::size_t>(size, sizeof m_Header));
    if (size < sizeof m_Header || !IsDeviceImage(m_Header, m_Device.Handler))
        return Refuse(DeviceFlashStatus_Error, "no-image");
    if (m_Header.Size > m_Device.Size) return Refuse(DeviceFlashStatus_Overflow, "too-large");

    if (m_Upload == m_File) m_Firmware.reset();
    m_bFailed = true;
    m_Stream.open(m_Upload, std::ios::binary | std::ios::trunc);
    return DeviceFlashStatus_OK;
}

DeviceFlashStatus CFlashDevice::Refuse(DeviceFlashStatus status, const char* reason)
{
    m_Journal.Write("device refused handler=%s bytes=%u status=%d reason=%s", m_Device.Handler.c_str(), m_Received,
                    status, reason);
    m_bOpen = false;
    m_Stream.close();
    return status;
}

void CFlashDevice::Store(const std::uint8_t* data, std::uint32_t size)
{
    // The header is not part of the checksum.
    const std::uint32_t skipped = m_Received == 0 ? std::min<std::uint32_t>(size, sizeof m_Header) : 0;
    m_Crc = Crc32(data + skipped, size - skipped, m_Crc);
    m_Received += size;
    if (!m_Stream.write(reinterpret_cast<const char*>(data), size))
        throw std::runtime_error("Can't write " + m_Upload.string());
}

// The device checks its new firmware, and erases one that is damaged.
void CFlashDevice::Finish()
{
    const bool whole = m_Crc == m_Header.Crc;
    m_bOpen = false;
    m_Stream.close();
    m_BusyUntil = CClock::Instance().Now() + m_Device.BusySeconds * Second;
    m_bFailed = !whole;
    if (whole) {
        m_Firmware = VersionOf(m_Header);
        if (m_Upload != m_File) fs::rename(m_Upload, m_File);
    } else {
        fs::resize_file(m_Upload, 0);
    }
    m_Journal.Write("device end handler=%s bytes=%u whole=%s", m_Device.Handler.c_str(), m_Received,
                    whole ? "yes" : "no");
}

int CFlashDevice::GetProgress() const
{
    if (!m_bOpen) return m_bFailed ? 0 : 100;
    return m_Received == 0 ? 0 : static_cast<int>(std::uint64_t{m_Received} * 100 / m_Header.Size);
}

}  // namespace sim
