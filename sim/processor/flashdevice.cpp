#include "sim/processor/flashdevice.h"

#include <algorithm>
#include <cstring>

#include "sim/base/clock.h"
#include "sim/images/crc.h"
#include "support/files.h"

namespace sim
{

namespace
{

bool IsWithin(std::int64_t byte, std::uint32_t offset, std::uint32_t size)
{
    return byte >= offset && byte < std::int64_t{offset} + size;
}

}  // namespace

CFlashDevice::CFlashDevice(Kind kind, const FlashDescription& device, const FirmwareVersion& shipped,
                           const ProcessorFaults& faults, CServerFolder& folder, CJournal& journal)
    : m_Device(device),
      m_Faults(faults),
      m_Shipped(shipped),
      m_Folder(folder),
      m_File(folder, device.Handler + ".fw", MaxFileSize),
      m_Journal(journal),
      m_bFailed(false),
      m_bOpen(false),
      m_Header(),
      m_Received(0),
      m_Crc(0),
      m_BusyUntil(0)
{
    if (kind == Kind_Staged) m_Staged.emplace(folder, device.Handler + ".upload", MaxFileSize);
    Load();
}

// Where another process flashed the device meanwhile, the upload of this one is cut off.
void CFlashDevice::Load()
{
    std::optional<std::string> start;
    std::optional<std::string> upload;
    const bool newFile = m_File.RefreshStart(start, sizeof m_Header);
    const bool newUpload = m_Staged && m_Staged->RefreshStart(upload, 0);
    if (newFile) {
        DeviceImageHeader header = {};
        if (start) start->copy(reinterpret_cast<char*>(&header), sizeof header);
        const bool whole = start && IsDeviceImage(header, m_Device.Handler) && m_File.GetSize() == header.Size;
        m_Firmware = !start ? std::optional(m_Shipped) : whole ? std::optional(VersionOf(header)) : std::nullopt;
    }
    if (!newFile && !newUpload) return;
    m_bOpen = false;
    m_bFailed = !m_Firmware || (m_Staged && m_Staged->Exists());
}

bool CFlashDevice::IsBusy() const
{
    return CClock::Instance().Now() < m_BusyUntil;
}

std::optional<FirmwareVersion> CFlashDevice::GetFirmware() const
{
    const bool loader = IsBusy() && !m_Staged;
    return loader ? std::nullopt : m_Firmware;
}

DeviceFlashStatus CFlashDevice::Open()
{
    Load();
    if (IsBusy()) return DeviceFlashStatus_Busy;
    m_Journal.Write("device open handler=%s", m_Device.Handler.c_str());
    m_bOpen = true;
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
    Load();
    if (IsBusy()) return DeviceFlashStatus_Busy;
    m_Journal.Write("device reset handler=%s", m_Device.Handler.c_str());
    m_bOpen = false;
    if (m_Staged) m_Staged->Remove();
    m_bFailed = !m_Firmware;
    return DeviceFlashStatus_OK;
}

std::optional<DeviceFlashStatus> CFlashDevice::Upload(std::uint32_t offset, const std::uint8_t* data,
                                                      std::uint32_t size)
{
    Load();
    if (IsBusy()) return DeviceFlashStatus_Busy;
    if (!m_bOpen) return Refuse(DeviceFlashStatus_Error, "not-open");
    if (offset != m_Received) return Refuse(DeviceFlashStatus_Error, "offset");
    if (size == 0) return DeviceFlashStatus_OK;
    if (offset == 0) {
        const DeviceFlashStatus status = Begin(data, size);
        if (status != DeviceFlashStatus_OK) return status;
    }
    if (size > m_Header.Size - m_Received) return Refuse(DeviceFlashStatus_Overflow, "too-long");

    const std::pair<std::int64_t, const char*> faulty[] = {{m_Faults.DeviceErrorAtByte, "device_error_at_byte"},
                                                           {m_Faults.DiesAtByte, "dies_at_byte"},
                                                           {m_Faults.PowerLostAtByte, "power_lost_at_byte"}};
    for (const auto& [byte, name] : faulty) {
        if (!IsWithin(byte, offset, size)) continue;
        m_Journal.GetCapture().NoteFault(std::string("processor.") + name);
        Store(data, static_cast<std::uint32_t>(byte - offset));
        if (byte == m_Faults.DeviceErrorAtByte) return Refuse(DeviceFlashStatus_Error, "device-error");
        const bool power = byte == m_Faults.PowerLostAtByte;
        m_Journal.Write("device %s handler=%s bytes=%u", power ? "power-lost" : "processor-died",
                        m_Device.Handler.c_str(), m_Received);
        if (power) m_Folder.LosePower();
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

    Uploaded().Write("");
    if (!m_Staged) m_Firmware.reset();
    m_bFailed = true;
    return DeviceFlashStatus_OK;
}

DeviceFlashStatus CFlashDevice::Refuse(DeviceFlashStatus status, const char* reason)
{
    m_Journal.Write("device refused handler=%s bytes=%u status=%d reason=%s", m_Device.Handler.c_str(), m_Received,
                    status, reason);
    m_bOpen = false;
    return status;
}

void CFlashDevice::Store(const std::uint8_t* data, std::uint32_t size)
{
    // The header is not part of the checksum.
    const std::uint32_t skipped = m_Received == 0 ? std::min<std::uint32_t>(size, sizeof m_Header) : 0;
    m_Crc = Crc32(data + skipped, size - skipped, m_Crc);
    m_Received += size;
    Uploaded().Append({reinterpret_cast<const char*>(data), size});  // any part of an image is an upload cut off
}

// The device checks its new firmware, and erases one that is damaged.
void CFlashDevice::Finish()
{
    const bool whole = m_Crc == m_Header.Crc;
    m_bOpen = false;
    m_BusyUntil = CClock::Instance().Now() + m_Device.BusySeconds * Second;
    m_bFailed = !whole;
    if (whole) {
        m_Firmware = VersionOf(m_Header);
        if (m_Staged) m_File.TakeFrom(*m_Staged);
    } else {
        Uploaded().Write("");
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
