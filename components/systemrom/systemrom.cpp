#include "systemrom.h"

#include "componentxml.h"
#include "flashtable.h"
#include "romflasher.h"

void CSystemRom::ReadDevice()
{
    CSystem system;
    m_sFamily = system.GetROMFamily();
    if (m_sFamily.GetLength() > CRomImage::MaxFamilyLength) m_sFamily.Empty();
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

int CSystemRom::DecideInstallState()
{
    const int notAllowed = ZALSTATE_INSTALLNOTALLOWED;
    const CStr family = m_pXML->GetFirmwareKey();
    if (family.IsEmpty() || family.GetLength() > CRomImage::MaxFamilyLength)
        return Refuse(notAllowed, "The package description states no ROM family.");
    if (m_sFamily.IsEmpty() || !(m_bVersionKnown || m_bIncomplete))
        return Refuse(notAllowed, "The family and version of the running system ROM can't be read.");
    if (family != m_sFamily)
        return Refuse(ZALSTATE_NOTINSTALLEDNOTNEEDED, CStr("This package is for ROM family ") + family +
                                                          "; this server has a ROM of family " + m_sFamily + ".");
    return CheckImage();
}

int CSystemRom::CheckImage()
{
    const int notAllowed = ZALSTATE_INSTALLNOTALLOWED;
    m_Image.SetFile(Setting("Image", "File"), Setting("Image", "CRC32"));
    if (!m_Image.Initialize()) return Refuse(notAllowed, m_Image.GetErrorMessage());
    if (m_Image.GetId() != m_sFamily || !(m_Image.GetVersion() == m_OfferedVersion))
        return Refuse(notAllowed, CStr("The ROM image is ") + m_Image.GetId() + " " + m_Image.GetVersion().ToString() +
                                      ", not what the package description states.");
    return CheckReservedMemory();
}

int CSystemRom::CheckReservedMemory()
{
    DWORD size = 0;
    if (CSMBIOS().GetFlashBuffer(size) == 0)
        return Refuse(ZALSTATE_INSTALLNOTALLOWED, "The firmware reserves no memory for flashing.");
    if (size < static_cast<DWORD>(m_Image.GetImageSize())) {
        CStr message;
        message.Format("The firmware reserves %u bytes for flashing; the ROM image has %d.", size,
                       m_Image.GetImageSize());
        return Refuse(ZALSTATE_INSTALLNOTALLOWED, message);
    }
    return m_bIncomplete ? ZALSTATE_INSTALLEDOLDER : CompareVersions(m_CurrentVersion, m_OfferedVersion);
}

BOOL CSystemRom::PerformDiscovery()
{
    if (m_sFamily.IsEmpty()) return FALSE;
    m_Discovery.sDeviceId = m_sFamily;
    m_Discovery.sProductId = CSystem().GetPlatformID();
    m_Discovery.sFirmwareItemType = "system_rom";
    m_Discovery.sFirmwareItemId = m_sFamily;
    return TRUE;
}

void CSystemRom::InstallWorker(InstallParameters* params)
{
    CSystem system;
    const CStr rom = CStr("System ROM ") + m_sFamily + " " + m_Image.GetVersion().ToString();
    const CStr was = CStr("; was ") + m_Properties.sCurrentVersion;
    CRomFlasher flasher(params->bSilent ? nullptr : params->pfnLogger);
    const BOOL done = flasher.LoadTable() && flasher.DoFlash(&m_Image, FALSE);
    const CStr failure = flasher.GetErrorMessage();

    if (!flasher.IsWritten()) {
        if (flasher.IsTouched()) system.LogMaintenanceNoteToVRL(rom + " not flashed: " + failure + was);
        Finish(params, ReturnCodeErrorReturn, rom + " was not installed: " + failure + ". " + flasher.GetRomState());
        return;
    }

    const BOOL logged = system.LogFlashEventToVRL(rom + " flashed" + was);
    const CStr written =
        rom + (flasher.IsVerified() ? " was flashed and read back" : " was flashed, but can't be read back") +
        (logged ? ". " : "; the event could not be logged. ");
    if (done)
        Finish(params, ReturnCodeReboot, written + "It takes effect when the server is restarted.");
    else
        Finish(params, ReturnCodeErrorReturn, written + "Afterwards " + failure + ". " + flasher.GetRomState());
}
