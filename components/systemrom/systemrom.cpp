#include "systemrom.h"

#include "componentxml.h"
#include "romimage.h"

namespace
{

const int MaxImageSize = 64 << 20;

}  // namespace

CSystemRom::CSystemRom() : CFirmwareComponent(Needs_RomDriver, "ROM image", MaxImageSize)
{
    m_sDevice = "system ROM";
}

BOOL CSystemRom::FindDevice()
{
    CSystem system;
    m_sFamily = system.GetROMFamily();
    if (m_sFamily.GetLength() > MaxRomFamilyLength) m_sFamily.Empty();
    m_sFirmware = CStr("System ROM ") + m_sFamily;
    m_Discovery.sDeviceId = m_sFamily;
    m_Discovery.sProductId = system.GetPlatformID();
    m_Discovery.sFirmwareItemType = "system_rom";
    m_Discovery.sFirmwareItemId = m_sFamily;
    return ReadCurrentVersion() && !m_sFamily.IsEmpty();
}

// What runs: a ROM that was flashed since the server was started is not seen.
BOOL CSystemRom::ReadVersion()
{
    CSystem system;
    if (m_CurrentVersion.Parse(system.GetROMVersion())) {
        m_CurrentVersion.SetDate(system.GetROMDate());
        return TRUE;
    }
    // The header of a boot block that runs alone names the family and no revision.
    CFlashTableHeader header;
    header.FindHeader();
    header.GetStrings();
    m_bBootLoader = !header.GetROMFamily().IsEmpty() && header.GetROMRevision().IsEmpty();
    return m_bBootLoader;
}

int CSystemRom::RefuseMissing()
{
    return Refuse(ZALSTATE_INSTALLNOTALLOWED, "The family and version of the running system ROM can't be read.");
}

int CSystemRom::CheckDevice()
{
    const CStr family = m_pXML->GetFirmwareKey();
    if (family.IsEmpty() || family.GetLength() > MaxRomFamilyLength)
        return Refuse(ZALSTATE_INSTALLNOTALLOWED, "The package description states no ROM family.");
    if (family != m_sFamily)
        return Refuse(ZALSTATE_NOTINSTALLEDNOTNEEDED, CStr("This package is for ROM family ") + family +
                                                          "; this server has a ROM of family " + m_sFamily + ".");
    DWORD reserved = 0;
    if (CSMBIOS().GetFlashBuffer(reserved) == 0)
        return Refuse(ZALSTATE_INSTALLNOTALLOWED, "The firmware reserves no memory for flashing.");
    if (reserved < static_cast<DWORD>(MaxImageSize)) m_Image.SetMaxSize(reserved, "the firmware reserves for flashing");
    return StateOpen;
}

int CSystemRom::CheckImage()
{
    const int notAllowed = ZALSTATE_INSTALLNOTALLOWED;
    if (m_Image.GetImageSize() % RomBlockSize != 0)
        return Refuse(notAllowed, m_Image.Subject() + " is damaged: it is not made of whole blocks.");
    CStr family;
    CFwVersion version;
    if (!ReadRomHeader(m_Image.GetImageBuffer(), m_Image.GetImageSize(), family, version))
        return Refuse(notAllowed, m_Image.Subject() + " is damaged: it has no usable flash image header.");
    if (IsRestoring()) {
        if (family != m_sFamily)
            return Refuse(notAllowed, m_Image.Subject() + " is of ROM family " + family +
                                          "; this server has a ROM of family " + m_sFamily + ".");
        m_OfferedVersion = version;
        m_Properties.sNewVersion = version.ToString();
    }
    if (family == m_sFamily && version == m_OfferedVersion) return StateOpen;
    return Refuse(notAllowed, CStr("The ROM image is ") + family + " " + version.ToString() +
                                  ", not what the package description states.");
}

// The server runs on its boot block, or an installation did not get to its end: there is no ROM to keep.
BOOL CSystemRom::IsIncomplete() const
{
    return m_bBootLoader || m_Kept.IsUnfinished(m_sFamily.GetAnsiString());
}

BOOL CSystemRom::HasWayBack()
{
    return !IsIncomplete() || !m_Kept.Interrupted(m_sFamily.GetAnsiString()).empty();
}

// A part that can be read and has no header of its family holds no ROM to keep either. One that can't be read may hold
// the only copy of what runs.
BOOL CSystemRom::KeepPart(PLOGFN logger)
{
    const BOOL incomplete = IsIncomplete();
    // An earlier installation did get to its end if the server was started since, and runs.
    if (!incomplete && !m_Kept.End(m_sFamily.GetAnsiString())) return Fail(m_Kept.GetErrorMessage().c_str());
    CStr family;
    CFwVersion version;
    const void* pPart = m_pFlasher->GetPart();
    const int size = m_pFlasher->GetPartSize();
    if (!incomplete && size == 0 && !IsForced())
        return Fail(
            "the old ROM can't be read, so that there is no way back; /f (zaldeploy install --force) goes "
            "without");
    const bool whole =
        !incomplete && size >= RomBlockSize && ReadRomHeader(pPart, size, family, version) && family == m_sFamily;
    if (logger && whole) logger("  Keeping the old ROM ...\n");
    version.ClearDate();
    return KeepReplaced(version.ToString(), whole ? pPart : nullptr, size);
}

BOOL CSystemRom::WriteDevice(PLOGFN logger)
{
    m_sWritten.Empty();
    m_pFlasher = std::make_unique<CRomFlasher>(logger);
    if (!m_pFlasher->Prepare(m_Image)) return Fail(m_pFlasher->GetErrorMessage());
    if (m_pFlasher->Holds(m_Image)) {
        m_sWritten = "is in the flash part already.";
        m_Kept.End(m_sFamily.GetAnsiString());
        return TRUE;
    }
    if (!KeepPart(logger)) {
        m_pFlasher->CleanUp();
        return FALSE;
    }
    m_bTouched = TRUE;
    if (!m_pFlasher->Program(m_Image)) return Fail(m_pFlasher->GetErrorMessage());
    m_sWritten = "was flashed, but can't be read back.";
    if (m_pFlasher->GetPartSize() > 0) {
        m_sWritten = "was flashed and read back.";
        m_Kept.End(m_sFamily.GetAnsiString());
    }
    return TRUE;
}

BOOL CSystemRom::LeaveDevice(PLOGFN, BOOL written)
{
    return written && (m_pFlasher->CleanUp() || Fail(m_pFlasher->GetErrorMessage()));
}

// The part was read back; the server runs the old ROM until it is restarted.
BOOL CSystemRom::Verify()
{
    return TRUE;
}

CSystemRom::DeviceState CSystemRom::DescribeState()
{
    if (!m_bTouched) return CFirmwareComponent::DescribeState();
    CStr sentence = "The flash part may hold no whole ROM: do not restart the server, run this installer again";
    if (!m_Kept.Image().empty())
        sentence += CStr(", or put the old ROM back: zaldeploy restore ") + m_sFamily + ", or this installer with /r " +
                    m_Kept.Image().c_str();
    return {Left_Incomplete, sentence + "."};
}

void CSystemRom::InstallWorker(InstallParameters* params)
{
    const BOOL done = Update(params->bSilent ? nullptr : params->pfnLogger);
    const Left left = m_pFlasher->GetPartSize() > 0 ? Left_RunsNew : Left_Unknown;
    if (!m_sWritten.IsEmpty() && m_bTouched && m_Kept.Image().empty()) m_sWritten += " No old ROM was kept.";
    if (m_sWritten.IsEmpty())
        FinishFailed(params);
    else if (done)
        FinishFlashed(params, ReturnCodeReboot, left, m_sWritten, "It takes effect when the server is restarted.");
    else
        FinishFlashed(params, ReturnCodeErrorReturn, left, m_sWritten,
                      CStr("Afterwards ") + m_sFailure +
                          ". Run this installer with /f once more before the server is restarted.");
}
