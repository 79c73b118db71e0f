#include "devicefw.h"

#include <unistd.h>

#include <cstdlib>
#include <initializer_list>

#include "host/progress.h"
#include "host/signals.h"

namespace
{

const int ChunkSize = 1024;  // bytes that one request carries
const int MaxHandlerLength = 15;
const int PollSeconds = 1;
const int MaxLostReplies = 3;
const int BusyLimitSeconds = 600;

}  // namespace

void CDeviceFirmware::ReadDevice()
{
    m_sHandler = Setting("Device", "Handler");
    const CStr kind = Setting("Device", "Kind");
    if (kind == "tamberline") m_Kind = DeviceKind_Tamberline;
    if (kind == "nvme_backplane") m_Kind = DeviceKind_Backplane;
    m_sDevice = m_Kind == DeviceKind_Tamberline ? "Tamberline controller" : "NVMe backplane";
    for (CFwVersion* pVersion : {&m_CurrentVersion, &m_OfferedVersion}) {
        pVersion->MajorMinorFormat = m_Kind == DeviceKind_Tamberline ? "%d.%d.%d" : "%d.%d";
        pVersion->UseRevision = m_Kind == DeviceKind_Tamberline;
    }
    if (!Channel().IsOpen()) return;
    m_bFound = m_Kind == DeviceKind_Backplane ? FindBackplane() : m_Kind == DeviceKind_Tamberline;
    m_bFound = m_bFound && ReadVersion();
}

BOOL CDeviceFirmware::FindBackplane()
{
    const int wanted = std::atoi(Setting("Device", "Type"));
    const int count = Channel().GetNVMeBackplaneCount();
    for (int i = 0; i < count && i < SMIFRSP_GET_NVME_BACKPLANE_INFO::MaxBackplanes; i++) {
        UINT8 type = 0;
        if (!Channel().GetNVMeBackplaneInfo(i, &type, nullptr) || type != wanted) continue;
        m_Backplane = i;
        return TRUE;
    }
    return FALSE;
}

// FALSE when the device does not answer.
BOOL CDeviceFirmware::ReadVersion()
{
    m_CurrentVersion.Clear();
    m_bBootLoader = FALSE;
    BOOL read = FALSE;
    if (m_Kind == DeviceKind_Tamberline) {
        read = Channel().GetTamberlineVersion(&m_CurrentVersion.Major, &m_CurrentVersion.Minor,
                                              &m_CurrentVersion.Revision);
        m_bBootLoader = read && m_CurrentVersion.Major == 0 && m_CurrentVersion.Minor == 0;
    } else {
        read = Channel().GetNVMeBackplaneVersion(m_Backplane, &m_CurrentVersion.Major, &m_CurrentVersion.Minor,
                                                 &m_bBootLoader);
    }
    m_Properties.sCurrentVersion = m_bBootLoader ? CStr("Incomplete") : m_CurrentVersion.ToString();
    return read;
}

int CDeviceFirmware::DecideInstallState()
{
    const int notAllowed = ZALSTATE_INSTALLNOTALLOWED;
    if (m_Kind == DeviceKind_Unknown || m_sHandler.IsEmpty() || m_sHandler.GetLength() > MaxHandlerLength)
        return Refuse(notAllowed, "The settings name no device with its handler.");
    if (!m_bFound) return RefuseWithoutTarget(CStr("This server has no ") + m_sDevice + " of this kind.");

    m_Image.SetFile(Setting("Image", "File"), Setting("Image", "CRC32"));
    if (!m_Image.Initialize()) return Refuse(notAllowed, m_Image.GetErrorMessage());
    return m_bBootLoader ? ZALSTATE_INSTALLEDOLDER : CompareVersions(m_CurrentVersion, m_OfferedVersion);
}

BOOL CDeviceFirmware::PerformDiscovery()
{
    if (!m_bFound) return FALSE;
    m_Discovery.sDeviceId = m_sHandler;
    m_Discovery.sFirmwareItemType = "device_firmware";
    return TRUE;
}

void CDeviceFirmware::InstallWorker(InstallParameters* params)
{
    const CStr firmware = m_sDevice + " firmware " + m_OfferedVersion.ToString();
    const CStr was = m_Properties.sCurrentVersion;
    if (Upload(params->bSilent ? nullptr : params->pfnLogger))
        FinishFlashed(params, firmware, was, "");
    else
        FinishFailed(params, firmware, was, m_bTouched, DescribeState());
}

CStr CDeviceFirmware::DescribeState()
{
    if (!m_bTouched) return "The device was not touched and runs as before.";
    if (!ReadVersion())
        return "What the device runs can't be told: restart the management processor, then run this installer again.";
    if (m_bBootLoader) return "The device waits in its boot loader: run this installer again.";
    return CStr("The device runs version ") + m_Properties.sCurrentVersion + ": run this installer again.";
}

// Flashes the device and sees that it runs the new firmware; an upload that fails is abandoned.
BOOL CDeviceFirmware::Upload(PLOGFN logger)
{
    const CIgnoreSignals ignore;
    const int status = Channel().OpenDeviceFlash(m_sHandler);
    if (status == DeviceFlashStatus_Busy) return FailWith("the device is busy");
    if (status != DeviceFlashStatus_OK) return FailWith("the management processor can't flash this device");
    if (Send(logger) && WaitUntilDone(logger)) return Verify();
    Channel().ResetDeviceFlash(m_sHandler);
    return FALSE;
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
        if (status != DeviceFlashStatus_OK) {
            CStr message;
            message.Format(status == DeviceFlashStatus_Failed ? "the management processor stopped answering at byte %d"
                                                              : "the device refused the image at byte %d",
                           offset);
            return FailWith(message);
        }
        progress.Show(offset + length);
    }
    return TRUE;
}

BOOL CDeviceFirmware::WaitUntilDone(PLOGFN logger)
{
    if (logger) logger("  Waiting for the device to program itself ...\n");
    int lost = 0;  // replies; without one the device goes on all the same
    for (int waited = 0; waited <= BusyLimitSeconds; waited += PollSeconds) {
        const int status = Channel().QueryDeviceFlashStatus(m_sHandler);
        if (status == DeviceFlashStatus_OK) return TRUE;
        if (status == DeviceFlashStatus_Failed) {
            if (++lost > MaxLostReplies) return FailWith("the management processor stopped answering");
        } else if (status != DeviceFlashStatus_Busy) {
            return FailWith("the device did not take the image");
        }
        sleep(PollSeconds);
    }
    return FailWith("the device is busy without an end");
}

BOOL CDeviceFirmware::Verify()
{
    if (!ReadVersion()) return FailWith("the device does not answer after the update");
    if (m_bBootLoader || !(m_CurrentVersion == m_OfferedVersion))
        return FailWith(CStr("the device runs ") + m_Properties.sCurrentVersion + " after the update");
    return TRUE;
}
