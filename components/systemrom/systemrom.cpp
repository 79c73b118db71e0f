#include "systemrom.h"

#include <cstdio>

#include "componentxml.h"
#include "util.h"
#include "zalph.h"

namespace
{

const int MaxNameLength = 100;  // leaves the discovery XML's lines room
const int MaxFolderLength = 512;
const int MaxFamilyLength = 16;
const int EstimatedSeconds = 300;

}  // namespace

void CSystemRom::Initialize()
{
    CComponent::Initialize();
    m_Discovery.bSupported = TRUE;
    ReadRunningRom();
    m_InstallState = DecideInstallState();
    // What is too long to be shown is refused above, and must not reach the deployment tool's buffers.
    if (m_Properties.sName.GetLength() > MaxNameLength) {
        m_Properties.sName = m_Properties.sName.Left(MaxNameLength);
        m_Properties.sDescription = m_Properties.sName;
    }
    if (m_Properties.sNewVersion.GetLength() > MaxNameLength) m_Properties.sNewVersion = "Unknown";
}

void CSystemRom::ReadRunningRom()
{
    CSystem system;
    m_sFamily = system.GetROMFamily();
    if (m_CurrentVersion.Parse(system.GetROMVersion())) {
        m_CurrentVersion.SetDate(system.GetROMDate());
        m_Properties.sCurrentVersion = m_CurrentVersion.ToString();
    }
}

int CSystemRom::Refuse(int state, const CStr& message)
{
    SetErrorMessage(message);
    return state;
}

int CSystemRom::DecideInstallState()
{
    const int notAllowed = ZALSTATE_INSTALLNOTALLOWED;
    if (m_bInitError) {
        // The driver check has left its message; without one it is the package.
        if (!GetErrorMessage().IsEmpty()) return notAllowed;
        const CStr folder = g_InstallLocalDir.GetLength() <= MaxFolderLength ? g_InstallLocalDir : "the package folder";
        return Refuse(notAllowed, CStr("There is no readable package description (qx*.xml) in ") + folder + ".");
    }
    const int nameLength = m_Properties.sName.GetLength();
    if (nameLength == 0 || nameLength > MaxNameLength)
        return Refuse(notAllowed, "The package description has no usable name.");

    CFwVersion offered;
    if (!offered.Parse(m_Properties.sNewVersion))
        return Refuse(notAllowed, "The package description states no usable version.");

    const CStr family = m_pXML->GetFirmwareKey();
    if (family.IsEmpty() || family.GetLength() > MaxFamilyLength)
        return Refuse(notAllowed, "The package description states no ROM family.");
    if (m_sFamily.IsEmpty() || m_sFamily.GetLength() > MaxFamilyLength || m_CurrentVersion == CFwVersion::NullVersion)
        return Refuse(notAllowed, "The family and version of the running system ROM can't be read.");
    if (family != m_sFamily)
        return Refuse(ZALSTATE_NOTINSTALLEDNOTNEEDED, CStr("This package is for ROM family ") + family +
                                                          "; this server has a ROM of family " + m_sFamily + ".");

    if (!m_Image.Initialize()) return Refuse(notAllowed, m_Image.GetErrorMessage());
    if (m_Image.GetId() != family || CFwVersion::Compare(&m_Image.GetVersion(), &offered) != 0)
        return Refuse(notAllowed, CStr("The ROM image is ") + m_Image.GetId() + " " + m_Image.GetVersion().ToString() +
                                      ", not what the package description states.");

    const int order = CFwVersion::Compare(&m_CurrentVersion, &offered);
    return order < 0 ? ZALSTATE_INSTALLEDOLDER : order > 0 ? ZALSTATE_INSTALLEDNEWER : ZALSTATE_INSTALLEDSAME;
}

BOOL CSystemRom::PerformDiscovery()
{
    if (m_sFamily.IsEmpty()) return FALSE;
    CSystem system;
    m_Discovery.sDeviceId = m_sFamily;
    m_Discovery.sProductId = system.GetPlatformID();
    m_Discovery.sFirmwareItemType = "system_rom";
    m_Discovery.sFirmwareItemId = m_sFamily;
    m_Discovery.EstimatedDuration = EstimatedSeconds;
    return TRUE;
}

void CSystemRom::InstallWorker(InstallParameters* params)
{
    std::snprintf(params->pszResultStr, params->ResultStrLength, "%s",
                  "This installer can't flash the system ROM yet. The ROM was not touched and runs as before.");
    params->Result = ReturnCodeErrorReturn;
}
