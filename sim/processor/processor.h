// The management processor: answers SMIF packets.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "sim/base/journal.h"
#include "sim/base/state.h"
#include "sim/processor/flashdevice.h"
#include "sim/processor/i2c.h"
#include "sim/processor/processordescription.h"
#include "sim/processor/registers.h"
#include "smif.h"

namespace sim
{

// Error codes of replies.
enum SmifError : DWORD
{
    SmifError_OK = 0,
    SmifError_UnknownCommand = 1,
    SmifError_BadLength = 2,
    SmifError_BadParameter = 3,
    SmifError_NoDevice = 4,
    SmifError_NoAcknowledge = 5,
    SmifError_Halted = 6,  // the processor does not talk to that device now
};

class CProcessor
{
  public:
    using Bytes = std::vector<std::uint8_t>;

    struct Answer
    {
        Bytes Packet;               // empty: none comes
        std::int64_t Milliseconds;  // that the command takes
    };

    // What the host chose for its next reset and which devices are halted stand in processor.json in the folder.
    CProcessor(const ProcessorDescription& processor, CServerFolder& folder, CJournal& journal);
    CProcessor(const CProcessor&) = delete;
    CProcessor& operator=(const CProcessor&) = delete;

    // Executes a request. With an error code other than 0 it does nothing, and answers with that.
    Answer Execute(const Bytes& request, DWORD errorCode);

    // False while it answers nothing: for ever, or during a reset.
    bool IsAlive();
    bool IsAway();

    // Goes up with each reset, which cuts all channels.
    int GetBootNumber();

    const FirmwareVersion& GetVersion() const { return m_Version; }
    const std::deque<CFlashDevice>& GetFlashDevices() const { return m_FlashDevices; }

    // Null without one.
    const PowerPicDescription* GetPowerPicDescription() const { return m_PowerPic ? &*m_PowerPic : nullptr; }

  private:
    // What answers a command fills in its reply, and returns an error code.
    template <typename Request, typename Reply>
    Answer Run(const Bytes& bytes, DWORD errorCode, DWORD (CProcessor::*command)(const Request&, Reply&));

    DWORD GetStatus(const SMIFREQ_GET_STATUS& request, SMIFRSP_GET_STATUS& reply);
    DWORD CommandFirmware(const SMIFREQ_MOXFLASH_COMMAND& request, SMIFRSP_MOXFLASH_COMMAND& reply);
    DWORD TransferI2C(const SMIFREQ_I2C_TRANSACTION& request, SMIFRSP_I2C_TRANSACTION& reply);
    DWORD AccessIo(const SMIFREQ_IO_ACCESS& request, SMIFRSP_IO_ACCESS& reply);
    DWORD FlashDevice(const SMIFREQ_DEVICE_FLASH& request, SMIFRSP_DEVICE_FLASH& reply);
    DWORD ControlDevice(const SMIFREQ_DEVICE_CONTROL& request, SMIFRSP_DEVICE_CONTROL& reply);
    DWORD ControlDeviceEx(const SMIFREQ_DEVICE_CONTROL_EX& request, SMIFRSP_DEVICE_CONTROL_EX& reply);
    DWORD ResetHost(const SMIFREQ_HOST_RESET& request, SMIFRSP_HOST_RESET& reply);
    DWORD GetTamberline(const SMIFREQ_GET_TMBLN_INFO& request, SMIFRSP_GET_TMBLN_INFO& reply);
    DWORD GetPowerSupplies(const SMIFREQ_PS_INFO& request, SMIFRSP_PS_INFO& reply);
    DWORD GetPowerPic(const SMIFREQ_GET_POWERPIC_INFO& request, SMIFRSP_GET_POWERPIC_INFO& reply);
    DWORD GetBackplanes(const SMIFREQ_GET_NVME_BACKPLANE_INFO& request, SMIFRSP_GET_NVME_BACKPLANE_INFO& reply);

    CFlashDevice* FindFlashDevice(const std::string& handler);
    std::optional<FirmwareVersion> GetFirmware(const FlashDescription& device, const FirmwareVersion& fixed);
    bool HasDevice(int deviceID) const;
    bool IsHalted(int deviceID);
    DWORD Control(int deviceID, int operation, DWORD seconds);
    void Load();
    void Save();
    void Advance();

    const ProcessorDescription& m_Description;
    CServerFolder& m_Folder;
    CStateFile m_State;
    CJournal& m_Journal;
    std::optional<PowerPicDescription> m_PowerPic;
    CRegisters m_Registers;
    CI2CBuses m_Buses;
    std::deque<CFlashDevice> m_FlashDevices;
    FirmwareVersion m_Version;  // of what it runs

    int m_HostResetMode;
    std::map<int, std::int64_t> m_Halted;       // devices and when they go on by themselves; 0: they do not
    std::map<std::string, DWORD> m_Dispatches;  // that a handler got
    bool m_bDead;
    int m_BootNumber;
    std::int64_t m_GoesAway;  // 0: no reset is under way
    std::int64_t m_ComesBack;
    std::int64_t m_Extra;  // milliseconds that the command takes
};

}  // namespace sim
