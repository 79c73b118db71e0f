#include "sim/processor/processor.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <limits>

#include "sim/base/clock.h"
#include "sim/processor/inventory.h"
#include "sim/processor/requests.h"

namespace sim
{

namespace
{

const std::int64_t Never = std::numeric_limits<std::int64_t>::max();

const DWORD Flag_Halted = 1;
const std::size_t MaxState = 65536;  // bytes of processor.json

// Replies that tell a status of their own beside the error code.
template <typename Reply>
auto RefuseStatus(Reply& reply, int) -> decltype(static_cast<void>(reply.Status))
{
    if (reply.Status == 0) reply.Status = DeviceFlashStatus_Error;
}

template <typename Reply>
void RefuseStatus(Reply&, long)
{
}

CProcessor::Bytes Packet(SMIFRESPONSE& reply, std::size_t size, const SMIFHDR& request)
{
    reply.Length = static_cast<WORD>(size);
    reply.Sequence = request.Sequence;
    reply.Command = request.Command;
    const auto* pBytes = reinterpret_cast<const std::uint8_t*>(&reply);
    return {pBytes, pBytes + size};
}

}  // namespace

CProcessor::CProcessor(const ProcessorDescription& processor, CServerFolder& folder, CJournal& journal)
    : m_Description(processor),
      m_Folder(folder),
      m_State(folder, "processor.json", MaxState),
      m_Journal(journal),
      m_PowerPic(processor.PowerPic),
      m_Registers(processor.Registers, folder, journal),
      m_Buses(processor.I2C, {0, 0, folder, journal, m_PowerPic ? &*m_PowerPic : nullptr,
                              [this](int deviceID) { return IsHalted(deviceID); }}),
      m_HostResetMode(HostResetMode_Default),
      m_bDead(processor.Faults.Dead),
      m_BootNumber(0),
      m_GoesAway(0),
      m_ComesBack(0),
      m_Extra(0)
{
    const auto add = [&](CFlashDevice::Kind kind, const FlashDescription& device, const FirmwareVersion& version) {
        if (!device.Handler.empty())
            m_FlashDevices.emplace_back(kind, device, version, processor.Faults, folder, journal);
    };
    add(CFlashDevice::Kind_Staged, processor.Flash, processor.Version);
    if (processor.Tamberline)
        add(CFlashDevice::Kind_InPlace, processor.Tamberline->Flash, processor.Tamberline->Version);
    for (const BackplaneDescription& backplane : processor.Backplanes)
        add(CFlashDevice::Kind_InPlace, backplane.Flash, backplane.Version);
    m_Version = GetFirmware(processor.Flash, processor.Version).value_or(processor.Version);
    Load();
}

CProcessor::Answer CProcessor::Execute(const Bytes& bytes, DWORD errorCode)
{
    const CServerFolder::Lock lock(m_Folder);
    Load();
    SMIFHDR header = {};
    if (bytes.size() < sizeof header) return {};
    std::memcpy(&header, bytes.data(), sizeof header);
    switch (header.Command) {
        case SMIFCMD_GET_STATUS:
            return Run(bytes, errorCode, &CProcessor::GetStatus);
        case SMIFCMD_MOXFLASH_COMMAND:
            return Run(bytes, errorCode, &CProcessor::CommandFirmware);
        case SMIFCMD_I2C_TRANSACTION:
            return Run(bytes, errorCode, &CProcessor::TransferI2C);
        case SMIFCMD_IO_ACCESS:
            return Run(bytes, errorCode, &CProcessor::AccessIo);
        case SMIFCMD_DEVICE_FLASH:
            return Run(bytes, errorCode, &CProcessor::FlashDevice);
        case SMIFCMD_DEVICE_CONTROL:
            return Run(bytes, errorCode, &CProcessor::ControlDevice);
        case SMIFCMD_DEVICE_CONTROL_EX:
            if (!m_Description.DeviceControlEx) break;
            return Run(bytes, errorCode, &CProcessor::ControlDeviceEx);
        case SMIFCMD_HOST_RESET:
            return Run(bytes, errorCode, &CProcessor::ResetHost);
        case SMIFCMD_GET_TMBLN_INFO:
            return Run(bytes, errorCode, &CProcessor::GetTamberline);
        case SMIFCMD_PS_INFO:
            return Run(bytes, errorCode, &CProcessor::GetPowerSupplies);
        case SMIFCMD_GET_POWERPIC_INFO:
            return Run(bytes, errorCode, &CProcessor::GetPowerPic);
        case SMIFCMD_GET_NVME_BACKPLANE_INFO:
            return Run(bytes, errorCode, &CProcessor::GetBackplanes);
        default:
            break;
    }
    SMIFRESPONSE reply = {};
    reply.ErrorCode = SmifError_UnknownCommand;
    return {Packet(reply, sizeof reply, header), 0};
}

template <typename Request, typename Reply>
CProcessor::Answer CProcessor::Run(const Bytes& bytes, DWORD errorCode,
                                   DWORD (CProcessor::*command)(const Request&, Reply&))
{
    Request request = {};
    Reply reply = {};
    std::memcpy(&request, bytes.data(), std::min(bytes.size(), sizeof request));
    if (errorCode == 0 && (bytes.size() != sizeof request || request.Length != sizeof request))
        errorCode = SmifError_BadLength;
    if (errorCode == 0 && !IsTaken(request)) errorCode = SmifError_BadParameter;
    m_Extra = 0;
    if (errorCode == 0) errorCode = (this->*command)(request, reply);
    if (m_bDead) return {};
    if (errorCode != 0) RefuseStatus(reply, 0);
    reply.ErrorCode = errorCode;
    return {Packet(reply, sizeof reply, request), m_Extra};
}

// A reset begins a second after its reply.
void CProcessor::Advance()
{
    const std::int64_t now = CClock::Instance().Now();
    if (m_GoesAway == 0 || now < m_GoesAway) return;
    m_ComesBack = m_Description.Faults.StaysAway ? Never : m_GoesAway + m_Description.ResetSeconds * Second;
    m_GoesAway = 0;
    m_BootNumber++;
    m_Halted.clear();
    const CServerFolder::Lock lock(m_Folder);
    Save();
    m_Version = GetFirmware(m_Description.Flash, m_Version).value_or(m_Version);
    if (m_Description.Faults.StaysAway) m_Journal.GetCapture().NoteFault("processor.stays_away");
    m_Journal.Write("processor reset version=%d.%02d", m_Version.Major, m_Version.Minor);
}

bool CProcessor::IsAway()
{
    Advance();
    return CClock::Instance().Now() < m_ComesBack;
}

bool CProcessor::IsAlive()
{
    return !m_bDead && !IsAway();
}

int CProcessor::GetBootNumber()
{
    Advance();
    return m_BootNumber;
}

DWORD CProcessor::GetStatus(const SMIFREQ_GET_STATUS&, SMIFRSP_GET_STATUS& reply)
{
    DescribeStatus(m_Description, m_Version, reply);
    return SmifError_OK;
}

DWORD CProcessor::CommandFirmware(const SMIFREQ_MOXFLASH_COMMAND& request, SMIFRSP_MOXFLASH_COMMAND& reply)
{
    if (request.Operation != MOXFlashOp_Reset && request.Operation != MOXFlashOp_NOP &&
        request.Operation != MOXFlashOp_Query)
        return SmifError_BadParameter;
    DescribeFirmware(m_Version, reply);
    if (request.Operation == MOXFlashOp_Reset && m_GoesAway == 0) m_GoesAway = CClock::Instance().Now() + Second;
    return SmifError_OK;
}

DWORD CProcessor::TransferI2C(const SMIFREQ_I2C_TRANSACTION& request, SMIFRSP_I2C_TRANSACTION& reply)
{
    reply.Address = request.Address;
    reply.Bus = request.Bus;
    Bytes read(request.ReadLength);
    if (!m_Buses.Transfer(request.Bus, request.Address, {request.Data, request.Data + request.WriteLength}, read))
        return SmifError_NoAcknowledge;
    reply.ReadLength = static_cast<BYTE>(read.size());
    std::copy(read.begin(), read.end(), reply.Data);
    return SmifError_OK;
}

DWORD CProcessor::AccessIo(const SMIFREQ_IO_ACCESS& request, SMIFRSP_IO_ACCESS& reply)
{
    reply._Index = request.Index;
    reply.Value = request.Value;
    return m_Registers.Access(request.Operation, request.Index, reply.Value) ? SmifError_OK : SmifError_NoDevice;
}

CFlashDevice* CProcessor::FindFlashDevice(const std::string& handler)
{
    const auto device = std::find_if(m_FlashDevices.begin(), m_FlashDevices.end(), [&](const CFlashDevice& candidate) {
        return candidate.GetDescription().Handler == handler;
    });
    return device == m_FlashDevices.end() ? nullptr : &*device;
}

// What a device runs, be it flashable or not.
std::optional<FirmwareVersion> CProcessor::GetFirmware(const FlashDescription& device, const FirmwareVersion& fixed)
{
    const CFlashDevice* pDevice = FindFlashDevice(device.Handler);
    return pDevice ? pDevice->GetFirmware() : fixed;
}

DWORD CProcessor::FlashDevice(const SMIFREQ_DEVICE_FLASH& request, SMIFRSP_DEVICE_FLASH& reply)
{
    reply._Operation = request.Operation;
    reply._Offset = request.Offset;
    reply._In = request.In;
    std::memcpy(reply._Handler, request.Handler, sizeof reply._Handler);
    const std::string handler = request.Handler;
    CFlashDevice* pDevice = FindFlashDevice(handler);
    if (!pDevice) return SmifError_NoDevice;

    std::optional<DeviceFlashStatus> status = DeviceFlashStatus_OK;
    switch (request.Operation) {
        case DevFlashOp_Query:
            status = pDevice->Query();
            break;
        case DevFlashOp_Open:
            status = pDevice->Open();
            break;
        case DevFlashOp_Reset:
            status = pDevice->Reset();
            break;
        case DevFlashOp_Data:
            status = pDevice->Upload(request.Offset, request.Data, request.DataLength);
            break;
        case DevFlashOp_Dispatch:  // the handler gives back what it gets
            m_Dispatches[handler]++;
            reply.Out = request.In;
            reply.DataLength = request.DataLength;
            std::memcpy(reply.Data, request.Data, sizeof reply.Data);
            break;
        case DevFlashOp_SubQuery:  // ... tells what it drives
            m_Extra = pDevice->GetDescription().QuerySeconds * std::int64_t{1000};
            reply.Out = static_cast<DWORD>(pDevice->GetProgress());
            reply.DataLength = DescribeDevice(*pDevice, reply.Data, sizeof reply.Data);
            break;
        case DevFlashOp_SubReset:  // ... and forgets what it got
            reply.Out = m_Dispatches[handler];
            m_Dispatches[handler] = 0;
            break;
        default:
            return SmifError_BadParameter;
    }
    if (!status) m_bDead = true;
    reply.Status = static_cast<DWORD>(status.value_or(DeviceFlashStatus_Failed));
    return SmifError_OK;
}

bool CProcessor::HasDevice(int deviceID) const
{
    return deviceID == DeviceID_PowerPIC ? m_PowerPic.has_value()
                                         : deviceID == DeviceID_DriveBackplane && !m_Description.Backplanes.empty();
}

bool CProcessor::IsHalted(int deviceID)
{
    const auto halted = m_Halted.find(deviceID);
    return halted != m_Halted.end() && (halted->second == 0 || CClock::Instance().Now() < halted->second);
}

DWORD CProcessor::Control(int deviceID, int operation, DWORD seconds)
{
    if (!HasDevice(deviceID)) return SmifError_NoDevice;
    if (operation == DevCtlOp_GetStatus) return SmifError_OK;
    if (operation != DevCtlOp_Halt && operation != DevCtlOp_Resume) return SmifError_BadParameter;
    m_Halted.erase(deviceID);
    if (operation == DevCtlOp_Halt) m_Halted[deviceID] = seconds == 0 ? 0 : CClock::Instance().Now() + seconds * Second;
    m_Journal.Write("processor %s device=%d seconds=%u", operation == DevCtlOp_Halt ? "halt" : "resume", deviceID,
                    seconds);
    Save();
    return SmifError_OK;
}

DWORD CProcessor::ControlDevice(const SMIFREQ_DEVICE_CONTROL& request, SMIFRSP_DEVICE_CONTROL& reply)
{
    const DWORD error = Control(request.DeviceID, request.Operation, 0);
    if (IsHalted(request.DeviceID)) reply.FlagBits = Flag_Halted;
    reply.StatusData[0] = static_cast<BYTE>(request.DeviceID);
    return error;
}

DWORD CProcessor::ControlDeviceEx(const SMIFREQ_DEVICE_CONTROL_EX& request, SMIFRSP_DEVICE_CONTROL_EX& reply)
{
    const DWORD error = Control(request.DeviceID, request.Operation, request.Timeout);
    if (IsHalted(request.DeviceID)) reply.FlagBits = Flag_Halted;
    reply.Timeout = request.Timeout;
    reply.StatusData[0] = static_cast<BYTE>(request.DeviceID);
    return error;
}

DWORD CProcessor::ResetHost(const SMIFREQ_HOST_RESET& request, SMIFRSP_HOST_RESET& reply)
{
    reply.Mode = request.Mode;
    m_HostResetMode = request.Mode;
    m_Journal.Write("processor host-reset mode=%d", m_HostResetMode);
    Save();
    return SmifError_OK;
}

DWORD CProcessor::GetTamberline(const SMIFREQ_GET_TMBLN_INFO&, SMIFRSP_GET_TMBLN_INFO& reply)
{
    const auto& controller = m_Description.Tamberline;
    if (!controller) return SmifError_NoDevice;
    DescribeTamberline(*controller, GetFirmware(controller->Flash, controller->Version), reply);
    return SmifError_OK;
}

DWORD CProcessor::GetPowerSupplies(const SMIFREQ_PS_INFO&, SMIFRSP_PS_INFO& reply)
{
    std::copy(m_Description.PowerSupplies.begin(), m_Description.PowerSupplies.end(), reply.ps_data);
    return SmifError_OK;
}

DWORD CProcessor::GetPowerPic(const SMIFREQ_GET_POWERPIC_INFO&, SMIFRSP_GET_POWERPIC_INFO& reply)
{
    if (!m_PowerPic) return SmifError_NoDevice;
    if (IsHalted(DeviceID_PowerPIC)) return SmifError_Halted;
    DescribePowerPic(*m_PowerPic, reply);
    return SmifError_OK;
}

DWORD CProcessor::GetBackplanes(const SMIFREQ_GET_NVME_BACKPLANE_INFO&, SMIFRSP_GET_NVME_BACKPLANE_INFO& reply)
{
    if (IsHalted(DeviceID_DriveBackplane)) return SmifError_Halted;
    for (const BackplaneDescription& backplane : m_Description.Backplanes)
        DescribeBackplane(backplane, GetFirmware(backplane.Flash, backplane.Version),
                          reply.BackplaneInfo[reply.Count++]);
    return SmifError_OK;
}

// What another process chose or halted meanwhile holds here, too.
void CProcessor::Load()
{
    m_State.RefreshFields([this](CFields& fields) {
        m_HostResetMode = fields.Numeric<int>("host_reset_mode", HostResetMode_Default);
        for (auto halted = m_Halted.begin(); halted != m_Halted.end();)
            halted = halted->second == 0 ? m_Halted.erase(halted) : std::next(halted);
        for (const int deviceID : fields.Numbers<int>("halted")) m_Halted[deviceID] = 0;
    });
}

// A halt that ends by itself does so before the next start.
void CProcessor::Save()
{
    Json state = {{"host_reset_mode", m_HostResetMode}, {"halted", Json::array()}};
    for (const auto& [deviceID, until] : m_Halted)
        if (until == 0) state["halted"].push_back(deviceID);
    m_State.WriteObject(state);
}

}  // namespace sim
