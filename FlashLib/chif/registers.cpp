#include <cstring>

#include "exchange.h"
#include "platformids.h"

namespace
{

// One access to a register.
class CIoAccess : public CExchange<SMIFCMD_IO_ACCESS>
{
  public:
    CIoAccess(CChannelInterface& channel, const char* pszMethod, int operation, int index)
        : CExchange(channel, pszMethod)
    {
        request.Operation = static_cast<DWORD>(operation);
        request.Index = static_cast<DWORD>(index);
        response.Status = ~0U;  // stays where the reply is too short for a status: not done
    }

    BOOL Access()
    {
        if (!RunNoErr()) return FALSE;
        return response.Status == 0 || LogFailure(m_pszMethod, "SMIFCMD_IO_ACCESS command failed");
    }
};

// Reads and writes one register of the file with that name, and logs the outcome under the method for the file.

BOOL ReadRegister(CChannelInterface& channel, const char* pszFile, int operation, int index, UCHAR* pValue)
{
    UCHAR value = 0;
    if (!channel.ReadIoByte(operation, index, &value)) {
        _DebugPrintf("CChannelInterface::Read%s: Read failed: %s[%d]\n", pszFile, pszFile, index);
        return FALSE;
    }
    _DebugPrintf("CChannelInterface::Read%s: %s[%d] = 0x%02X\n", pszFile, pszFile, index, value);
    HandOut(pValue, value);
    return TRUE;
}

BOOL WriteRegister(CChannelInterface& channel, const char* pszFile, int operation, int index, UCHAR value)
{
    const BOOL written = channel.WriteIoByte(operation, index, value);
    _DebugPrintf("CChannelInterface::Write%s: %s%s[%d] = 0x%02X\n", pszFile, written ? "" : "Write failed: ", pszFile,
                 index, value);
    return written;
}

// Firmware that does not know the long form is asked with the short one.
BOOL ControlDevice(CChannelInterface& channel, const char* pszMethod, int deviceID, DeviceControlOp operation,
                   DWORD timeout)
{
    if (!ChannelAvailable(channel, pszMethod)) return FALSE;

    CExchange<SMIFCMD_DEVICE_CONTROL_EX> extended(channel, pszMethod);
    extended.request.DeviceID = static_cast<WORD>(deviceID);
    extended.request.Operation = static_cast<WORD>(operation);
    extended.request.Timeout = timeout;
    if (extended.Try() == 0) return TRUE;

    CExchange<SMIFCMD_DEVICE_CONTROL> control(channel, pszMethod);
    control.request.DeviceID = static_cast<WORD>(deviceID);
    control.request.Operation = static_cast<WORD>(operation);
    return control.Run();
}

}  // namespace

BOOL CChannelInterface::ReadIoByte(int Operation, int Index, UCHAR* pValue)
{
    if (!ChannelAvailable(*this, __func__)) return FALSE;

    CIoAccess io(*this, __func__, Operation, Index);
    // kept: gpo-index (the processor expects it there, too)
    if (Operation == IoAccessOp_GetGPO) io.request.Value = static_cast<BYTE>(Index);
    if (!io.Access()) return FALSE;

    HandOut(pValue, io.response.Value);
    return TRUE;
}

BOOL CChannelInterface::WriteIoByte(int Operation, int Index, UCHAR Value)
{
    if (!ChannelAvailable(*this, __func__)) return FALSE;

    CIoAccess io(*this, __func__, Operation, Index);
    io.request.Value = Value;
    return io.Access();
}

BOOL CChannelInterface::ReadMEMID(int Index, UCHAR* pValue)
{
    return ReadRegister(*this, "MEMID", IoAccessOp_GetMEMID, Index, pValue);
}

BOOL CChannelInterface::ReadGPI(int Index, UCHAR* pValue)
{
    return ReadRegister(*this, "GPI", IoAccessOp_GetGPI, Index, pValue);
}

BOOL CChannelInterface::ReadGPO(int Index, UCHAR* pValue)
{
    return ReadRegister(*this, "GPO", IoAccessOp_GetGPO, Index, pValue);
}

BOOL CChannelInterface::ReadCPLD(int Index, UCHAR* pValue)
{
    return ReadRegister(*this, "CPLD", IoAccessOp_GetCPLD, Index, pValue);
}

BOOL CChannelInterface::ReadXPLD(int Index, UCHAR* pValue)
{
    return ReadRegister(*this, "XPLD", IoAccessOp_GetXPLD, Index, pValue);
}

BOOL CChannelInterface::WriteGPO(int Index, UCHAR Value)
{
    return WriteRegister(*this, "GPO", IoAccessOp_PutGPO, Index, Value);
}

BOOL CChannelInterface::WriteCPLD(int Index, UCHAR Value)
{
    return WriteRegister(*this, "CPLD", IoAccessOp_PutCPLD, Index, Value);
}

BOOL CChannelInterface::WriteXPLD(int Index, UCHAR Value)
{
    return WriteRegister(*this, "XPLD", IoAccessOp_PutXPLD, Index, Value);
}

BOOL CChannelInterface::I2CTransaction(int Bus, int Address, const UCHAR* pRequestData, int RequestDataLength,
                                       UCHAR* pResponseData, int ResponseDataLength)
{
    if (!ChannelAvailable(*this, __func__)) return FALSE;

    CExchange<SMIFCMD_I2C_TRANSACTION> i2c(*this, __func__);
    // The caller is mistaken, and nothing is sent.
    if (RequestDataLength < 0 || RequestDataLength > static_cast<int>(sizeof i2c.request.Data) ||
        (RequestDataLength > 0 && !pRequestData))
        return LogFailure(__func__, "SMIFCMD_I2C_TRANSACTION failed");
    i2c.request.Magic[0] = PlatformI2CMagicLow;
    i2c.request.Magic[1] = PlatformI2CMagicHigh;
    i2c.request.Address = static_cast<WORD>(Address);
    i2c.request.Bus = static_cast<BYTE>(Bus);
    i2c.request.WriteLength = static_cast<BYTE>(RequestDataLength);
    i2c.request.ReadLength = static_cast<BYTE>(ResponseDataLength);
    if (RequestDataLength > 0) std::memcpy(i2c.request.Data, pRequestData, static_cast<std::size_t>(RequestDataLength));
    if (!i2c.Run(I2CRecvTimeout)) return FALSE;

    if (ResponseDataLength == 0 || !pResponseData) return TRUE;
    const int received = i2c.response.ReadLength;
    if (received != ResponseDataLength || received > static_cast<int>(sizeof i2c.response.Data)) {
        _DebugPrintf("CChannelInterface::I2CTransaction: Unexpected response length (%d/%d)\n", received,
                     ResponseDataLength);
        return FALSE;
    }
    std::memcpy(pResponseData, i2c.response.Data, static_cast<std::size_t>(received));
    return TRUE;
}

BOOL CChannelInterface::GetDeviceStatus(int DeviceID, ULONG* pFlagBits, UCHAR* pStatusData)
{
    if (!ChannelAvailable(*this, __func__)) return FALSE;

    CExchange<SMIFCMD_DEVICE_CONTROL> control(*this, __func__);
    control.request.DeviceID = static_cast<WORD>(DeviceID);
    control.request.Operation = DevCtlOp_GetStatus;
    if (!control.Run()) return FALSE;

    HandOut(pFlagBits, control.response.FlagBits);
    if (pStatusData) std::memcpy(pStatusData, control.response.StatusData, sizeof control.response.StatusData);
    return TRUE;
}

BOOL CChannelInterface::HaltDevice(int DeviceID, int Timeout)
{
    return ControlDevice(*this, __func__, DeviceID, DevCtlOp_Halt, static_cast<WORD>(Timeout));  // kept: halt-timeout
}

BOOL CChannelInterface::ResumeDevice(int DeviceID)
{
    return ControlDevice(*this, __func__, DeviceID, DevCtlOp_Resume, 0);
}

BOOL CChannelInterface::SetHostResetMode(int Mode)
{
    if (!ChannelAvailable(*this, __func__)) return FALSE;

    CExchange<SMIFCMD_HOST_RESET> reset(*this, __func__);
    reset.request.Mode = static_cast<WORD>(Mode);
    // kept: host-reset-in-place (any reply counts as the one to this request)
    return reset.RunInPlace();
}

BOOL CChannelInterface::ScheduleColdBoot()
{
    return SetHostResetMode(HostResetMode_ColdBoot);
}

BOOL CChannelInterface::ScheduleAuxPowerCycle()
{
    return SetHostResetMode(HostResetMode_AuxPowerCycle);
}
