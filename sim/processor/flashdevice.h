// A device whose firmware is flashed through the management processor.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "sim/base/journal.h"
#include "sim/base/state.h"
#include "sim/images/deviceimage.h"
#include "sim/processor/processordescription.h"
#include "smif.h"

namespace sim
{

class CFlashDevice
{
  public:
    enum Kind
    {
        Kind_InPlace,  // loses its firmware when an upload begins; its boot loader runs until the new one is whole
        Kind_Staged,   // keeps its firmware until the new one is whole
    };

    // Its firmware stands in HANDLER.fw in the folder once something was flashed; until then it is the shipped one.
    CFlashDevice(Kind kind, const FlashDescription& device, const FirmwareVersion& shipped,
                 const ProcessorFaults& faults, CServerFolder& folder, CJournal& journal);

    const FlashDescription& GetDescription() const { return m_Device; }

    // Nothing while the boot loader runs alone.
    std::optional<FirmwareVersion> GetFirmware() const;

    // The operations of a device flash. An upload is in order and without gaps; after the last byte the device is busy
    // for a while. Nothing from Upload: it took the processor down.
    DeviceFlashStatus Open();
    DeviceFlashStatus Query() const;
    DeviceFlashStatus Reset();
    std::optional<DeviceFlashStatus> Upload(std::uint32_t offset, const std::uint8_t* data, std::uint32_t size);

    // Percent of the upload that have come.
    int GetProgress() const;

  private:
    void Load();
    CStateFile& Uploaded() { return m_Staged ? *m_Staged : m_File; }
    bool IsBusy() const;
    DeviceFlashStatus Begin(const std::uint8_t* data, std::uint32_t size);
    DeviceFlashStatus Refuse(DeviceFlashStatus status, const char* reason);
    void Store(const std::uint8_t* data, std::uint32_t size);
    void Finish();

    const FlashDescription& m_Device;
    const ProcessorFaults& m_Faults;
    const FirmwareVersion m_Shipped;
    CServerFolder& m_Folder;
    CStateFile m_File;
    std::optional<CStateFile> m_Staged;  // where an upload goes until it is whole; nothing: into the file
    CJournal& m_Journal;

    std::optional<FirmwareVersion> m_Firmware;
    bool m_bFailed;  // the last upload is not whole
    bool m_bOpen;
    DeviceImageHeader m_Header;  // of the upload
    std::uint32_t m_Received;    // bytes of it
    std::uint32_t m_Crc;
    std::int64_t m_BusyUntil;
};

}  // namespace sim
