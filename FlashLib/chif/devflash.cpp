#include <cstring>

#include "exchange.h"
#include "platformids.h"

namespace
{

const int MaxDataLength = sizeof(SMIFREQ_DEVICE_FLASH::Data);

// One device flash command for a handler.
class CDeviceFlash : public CExchange<SMIFCMD_DEVICE_FLASH>
{
  public:
    CDeviceFlash(CChannelInterface& channel, const char* pszMethod, DeviceFlashOp operation, const char* pszHandler)
        : CExchange(channel, pszMethod)
    {
        request.Operation = operation;
        if (pszHandler) std::memcpy(request.Handler, pszHandler, strnlen(pszHandler, sizeof request.Handler - 1));
    }

    // The exchanges fail, too, when the reply is too short for a status.
    BOOL RunNoErr(int timeout = CChannelInterface::DefaultRecvTimeout)
    {
        return CExchange::RunNoErr(timeout) && HasStatus();
    }
    BOOL RunNoErrWithOverallTimeout(int seconds)
    {
        return CExchange::RunNoErrWithOverallTimeout(seconds) && HasStatus();
    }

    int Status() const { return static_cast<int>(response.Status); }

  private:
    BOOL HasStatus() const
    {
        const bool complete = response.Length >= sizeof(SMIFRESPONSE) + sizeof response.Status;
        return Succeeded(complete ? ZalCiSuccess : ZalCiErrPartialTransfer);
    }
};

int RunWithoutData(CChannelInterface& channel, const char* pszMethod, DeviceFlashOp operation, const char* pszHandler)
{
    if (!ChannelAvailable(channel, pszMethod)) return DeviceFlashStatus_Failed;

    CDeviceFlash flash(channel, pszMethod, operation, pszHandler);
    return flash.RunNoErr() ? flash.Status() : DeviceFlashStatus_Failed;
}

BOOL IsLengthValid(const char* pszMethod, int length, int limit = MaxDataLength)
{
    return (length >= 0 && length <= limit) || LogFailure(pszMethod, "Invalid length");
}

// Without data a negative length counts as 0. A length above the limit is refused with and without data.
BOOL IsInputValid(const char* pszMethod, const UCHAR* pData, int length)
{
    return (!pData && length < 0) || IsLengthValid(pszMethod, length);
}

// What the handler gets of a dispatch and a sub-query.
void SetInput(SMIFREQ_DEVICE_FLASH& request, ULONG value, const UCHAR* pData, int length)
{
    request.In = value;
    if (length == 0 || !pData) return;
    request.DataLength = static_cast<DWORD>(length);
    std::memcpy(request.Data, pData, static_cast<std::size_t>(length));
}

// As many bytes as the reply states, but no more than it has.
std::size_t OutputLength(const SMIFRSP_DEVICE_FLASH& response)
{
    return response.DataLength < sizeof response.Data ? response.DataLength : sizeof response.Data;
}

}  // namespace

const char CChannelInterface::DeviceHandler_TMBR[16] = PLATFORM_HANDLER_TMBR;
const char CChannelInterface::DeviceHandler_SignedImage[16] = PLATFORM_HANDLER_SIGNED_IMAGE;

int CChannelInterface::OpenDeviceFlash(const char* pszHandler)
{
    return RunWithoutData(*this, __func__, DevFlashOp_Open, pszHandler);
}

int CChannelInterface::QueryDeviceFlashStatus(const char* pszHandler)
{
    return RunWithoutData(*this, __func__, DevFlashOp_Query, pszHandler);
}

int CChannelInterface::ResetDeviceFlash(const char* pszHandler)
{
    return RunWithoutData(*this, __func__, DevFlashOp_Reset, pszHandler);
}

int CChannelInterface::UploadDeviceFlashData(const char* pszHandler, int Offset, const UCHAR* pData, int DataLength)
{
    if (!ChannelAvailable(*this, __func__)) return DeviceFlashStatus_Failed;
    if (!IsLengthValid(__func__, DataLength, pData ? MaxDataLength : 0)) return DeviceFlashStatus_Failed;

    CDeviceFlash flash(*this, __func__, DevFlashOp_Data, pszHandler);
    flash.request.Offset = static_cast<DWORD>(Offset);
    flash.request.DataLength = static_cast<DWORD>(DataLength);
    if (DataLength > 0) std::memcpy(flash.request.Data, pData, static_cast<std::size_t>(DataLength));
    return flash.RunNoErr() ? flash.Status() : DeviceFlashStatus_Failed;
}

int CChannelInterface::UploadDeviceFlashData(const char* pszHandler, const UCHAR* pData, int DataLength)
{
    if (!ChannelAvailable(*this, __func__)) return DeviceFlashStatus_Failed;

    _DebugPrintf("CChannelInterface::UploadDeviceFlashData: Uploading %d bytes\n", DataLength);
    for (int offset = 0; offset < DataLength;) {
        const int remaining = DataLength - offset;
        const int length = remaining < MaxDataLength ? remaining : MaxDataLength;
        const int status = UploadDeviceFlashData(pszHandler, offset, pData + offset, length);
        if (status != DeviceFlashStatus_OK) {
            _DebugPrintf("CChannelInterface::UploadDeviceFlashData: Error %d at offset %d\n", status, offset);
            return status;
        }
        offset += length;
    }
    _DebugPrintf("CChannelInterface::UploadDeviceFlashData: Upload complete\n");
    return DeviceFlashStatus_OK;
}

int CChannelInterface::UploadDeviceFlashData(int Offset, const UCHAR* pData, int DataLength)
{
    return UploadDeviceFlashData(nullptr, Offset, pData, DataLength);
}

int CChannelInterface::UploadDeviceFlashData(const UCHAR* pData, int DataLength)
{
    return UploadDeviceFlashData(nullptr, pData, DataLength);
}

int CChannelInterface::DeviceFlashDispatch(const char* pszHandler, ULONG InputValue, ULONG* pOutputValue,
                                           const UCHAR* pInputData, int InputDataLength, UCHAR* pOutputData,
                                           int* pOutputDataLength)
{
    if (!ChannelAvailable(*this, __func__)) return DeviceFlashStatus_Failed;
    if (!IsInputValid(__func__, pInputData, InputDataLength)) return DeviceFlashStatus_Failed;

    CDeviceFlash flash(*this, __func__, DevFlashOp_Dispatch, pszHandler);
    SetInput(flash.request, InputValue, pInputData, InputDataLength);
    if (!flash.RunNoErr(DeviceFlashDispatchRecvTimeout)) return DeviceFlashStatus_Failed;

    HandOut(pOutputValue, flash.response.Out);
    if (pOutputData) std::memcpy(pOutputData, flash.response.Data, OutputLength(flash.response));
    HandOut(pOutputDataLength, flash.response.DataLength);
    return flash.Status();
}

int CChannelInterface::QueryDeviceFlashHandler(const char* pszHandler, ULONG InputValue, ULONG* pOutputValue,
                                               const UCHAR* pInputData, int InputDataLength, UCHAR* pOutputData,
                                               int* pOutputDataLength)
{
    if (!ChannelAvailable(*this, __func__)) return DeviceFlashStatus_Failed;
    if (!IsInputValid(__func__, pInputData, InputDataLength)) return DeviceFlashStatus_Failed;

    CDeviceFlash flash(*this, __func__, DevFlashOp_SubQuery, pszHandler);
    SetInput(flash.request, InputValue, pInputData, InputDataLength);
    if (!flash.RunNoErrWithOverallTimeout(OverallTimeoutInSeconds)) return DeviceFlashStatus_Failed;

    HandOut(pOutputValue, flash.response.Out);
    // kept: sub-query-output (all 1024 bytes, whatever length the reply states)
    if (pOutputData) std::memcpy(pOutputData, flash.response.Data, sizeof flash.response.Data);
    HandOut(pOutputDataLength, flash.response.DataLength);
    return flash.Status();
}

int CChannelInterface::ResetDeviceFlashHandler(const char* pszHandler, ULONG* pOutputValue)
{
    if (!ChannelAvailable(*this, __func__)) return DeviceFlashStatus_Failed;

    CDeviceFlash flash(*this, __func__, DevFlashOp_SubReset, pszHandler);
    if (!flash.RunNoErr()) return DeviceFlashStatus_Failed;

    HandOut(pOutputValue, flash.response.Out);
    return flash.Status();
}
