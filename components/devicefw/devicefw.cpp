#include "devicefw.h"

#include <unistd.h>

#include "host/progress.h"

namespace
{

const int ChunkSize = 1024;  // bytes that one request carries
const int MaxHandlerLength = 15;
const int PollSeconds = 1;
const int MaxLostReplies = 3;
const int BusyLimitSeconds = 600;

}  // namespace

CStr CDeviceFirmware::ReadSettings()
{
    const CStr kind = Setting("Device", "Kind");
    m_bBackplane = kind == "nvme_backplane";
    m_sDevice = m_bBackplane ? "NVMe backplane" : "Tamberline controller";
    m_sFirmware = m_sDevice + " firmware";
    SetVersionFormat(m_bBackplane ? "%d.%d" : "%d.%d.%d", !m_bBackplane);

    m_sHandler = Setting("Device", "Handler");
    m_Discovery.sDeviceId = m_sHandler;
    m_Discovery.sFirmwareItemType = "device_firmware";
    if (!m_bBackplane && kind != "tamberline")
        return "The settings name no device that this installer knows: Kind must be tamberline or nvme_backplane.";
    if (m_sHandler.IsEmpty() || m_sHandler.GetLength() > MaxHandlerLength)
        return "The settings name no usable handler: Handler must have 1 to 15 characters.";
    if (m_bBackplane && !ReadSetting("Device", "Type", m_Type))
        return "The settings name no type of NVMe backplane: Type must be a number from 0 to 255.";
    return "";
}

BOOL CDeviceFirmware::FindDevice()
{
    // A reply may be lost.
    return (!m_bBackplane || FindBackplane() || FindBackplane()) && (ReadCurrentVersion() || ReadCurrentVersion());
}

BOOL CDeviceFirmware::FindBackplane()
{
    const int count = Channel().GetNVMeBackplaneCount();
    for (int i = 0; i < count && i < SMIFRSP_GET_NVME_BACKPLANE_INFO::MaxBackplanes; i++) {
        UINT8 type = 0;
        if (!Channel().GetNVMeBackplaneInfo(i, &type, nullptr) || type != m_Type) continue;
        m_Backplane = i;
        return TRUE;
    }
    return FALSE;
}

BOOL CDeviceFirmware::ReadVersion()
{
    CFwVersion& version = m_CurrentVersion;
    if (m_bBackplane)
        return Channel().GetNVMeBackplaneVersion(m_Backplane, &version.Major, &version.Minor, &m_bBootLoader);
    const BOOL read = Channel().GetTamberlineVersion(&version.Major, &version.Minor, &version.Revision);
    m_bBootLoader = read && version.Major == 0 && version.Minor == 0;
    return read;
}

BOOL CDeviceFirmware::WriteDevice(PLOGFN logger)
{
    const int status = Channel().OpenDeviceFlash(m_sHandler);
    if (status == DeviceFlashStatus_Busy) return Fail("the device is busy");
    if (status == DeviceFlashStatus_Failed) return Fail("the management processor gave no usable answer");
    if (status != DeviceFlashStatus_OK)
        return Fail(CStr("the management processor refused the handler ") + m_sHandler + " that the settings name");
    return Send(logger) && WaitUntilDone(logger);
}

// An upload that has failed is abandoned.
BOOL CDeviceFirmware::LeaveDevice(PLOGFN, BOOL written)
{
    if (m_bTouched && !written) Channel().ResetDeviceFlash(m_sHandler);
    return written;
}

BOOL CDeviceFirmware::Send(PLOGFN logger)
{
    const UCHAR* pData = static_cast<const UCHAR*>(m_Image.GetImageBuffer());
    const int size = m_Image.GetImageSize();
    CProgressBar progress(logger, "Uploading", size);
    for (int offset = 0; offset < size; offset += ChunkSize) {
        const int length = size - offset < ChunkSize ? size - offset : ChunkSize;
        m_bTouched = TRUE;
        const int status = Channel().UploadDeviceFlashData(m_sHandler, offset, pData + offset, length);
        // Whether the last piece came the device tells when it is asked for its status.
        const bool unsure = status == DeviceFlashStatus_Failed && offset + length == size;
        if (status != DeviceFlashStatus_OK && !unsure) {
            CStr message;
            message.Format(status == DeviceFlashStatus_Failed ? "the management processor stopped answering at byte %d"
                                                              : "the device refused the image at byte %d",
                           offset);
            return Fail(message);
        }
        progress.Show(offset + length);
    }
    return TRUE;
}

BOOL CDeviceFirmware::WaitUntilDone(PLOGFN logger)
{
    if (logger) logger("  Waiting for the device to program itself ...\n");
    int lost = 0;  // replies, or such that tell of an error; the device goes on all the same
    for (int waited = 0; waited <= BusyLimitSeconds; waited += PollSeconds) {
        const int status = Channel().QueryDeviceFlashStatus(m_sHandler);
        if (status == DeviceFlashStatus_OK) return TRUE;
        if (status != DeviceFlashStatus_Busy && ++lost > MaxLostReplies)
            return Fail(status == DeviceFlashStatus_Failed ? "the management processor stopped answering"
                                                           : "the device did not take the image");
        sleep(PollSeconds);
    }
    return Fail("the device is busy without an end");
}
