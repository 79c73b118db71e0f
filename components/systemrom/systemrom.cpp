#include "systemrom.h"

#include <cstdio>

#include "componentxml.h"
#include "flashtable.h"
#include "romflasher.h"
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
    m_bVersionKnown = m_CurrentVersion.Parse(system.GetROMVersion());
    if (m_bVersionKnown) {
        m_CurrentVersion.SetDate(system.GetROMDate());
        m_Properties.sCurrentVersion = m_CurrentVersion.ToString();
        return;
    }
    // The header of a boot block that runs alone names the family and no revision.
    CFlashTableHeader header;
    header.FindHeader();
    header.GetStrings();
    m_bIncomplete = !header.GetROMFamily().IsEmpty() && header.GetROMRevision().IsEmpty();
    if (m_bIncomplete) m_Properties.sCurrentVersion = "Incomplete";
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
    const bool known = m_bVersionKnown || m_bIncomplete;
    if (m_sFamily.IsEmpty() || m_sFamily.GetLength() > MaxFamilyLength || !known)
        return Refuse(notAllowed, "The family and version of the running system ROM can't be read.");
    if (family != m_sFamily)
        return Refuse(ZALSTATE_NOTINSTALLEDNOTNEEDED, CStr("This package is for ROM family ") + family +
                                                          "; this server has a ROM of family " + m_sFamily + ".");

    return CheckImage(offered);
}

int CSystemRom::CheckImage(const CFwVersion& offered)
{
    const int notAllowed = ZALSTATE_INSTALLNOTALLOWED;
    if (!m_Image.Initialize()) return Refuse(notAllowed, m_Image.GetErrorMessage());
    if (m_Image.GetId() != m_sFamily || CFwVersion::Compare(&m_Image.GetVersion(), &offered) != 0)
        return Refuse(notAllowed, CStr("The ROM image is ") + m_Image.GetId() + " " + m_Image.GetVersion().ToString() +
                                      ", not what the package description states.");

    DWORD bufferSize = 0;
    if (CSMBIOS().GetFlashBuffer(bufferSize) == 0 || bufferSize < static_cast<DWORD>(m_Image.GetImageSize())) {
        CStr message;
        message.Format("The firmware reserves %u bytes for flashing; the ROM image has %d.", bufferSize,
                       m_Image.GetImageSize());
        return Refuse(notAllowed, message);
    }

    if (m_bIncomplete) return ZALSTATE_INSTALLEDOLDER;
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
    CSystem system;
    const CStr rom = CStr("System ROM ") + m_sFamily + " " + m_Image.GetVersion().ToString();
    const auto finish = [&](ULONG result, const CStr& text) {
        std::snprintf(params->pszResultStr, params->ResultStrLength, "%s", text.GetAnsiString());
        params->Result = result;
        params->bFinished = TRUE;
    };

    CRomFlasher flasher(params->bSilent ? nullptr : params->pfnLogger);
    if (!flasher.LoadTable() || !flasher.DoFlash(&m_Image, FALSE)) {
        const CStr failure = rom + " was not installed: " + flasher.GetErrorMessage() + ". ";
        if (flasher.IsTouched()) system.LogMaintenanceNoteToVRL(failure + "Was " + m_Properties.sCurrentVersion + ".");
        finish(ReturnCodeErrorReturn, failure + flasher.GetRomState());
        return;
    }
    const BOOL logged = system.LogFlashEventToVRL(rom + " flashed; was " + m_Properties.sCurrentVersion);
    finish(ReturnCodeReboot,
           rom + (flasher.IsVerified() ? " was flashed and read back." : " was flashed; it can't be read back here.") +
               (logged ? "" : " The event could not be logged.") + " It takes effect when the server is restarted.");
}
