#include "powercontroller.h"

#include <algorithm>
#include <string>

#include "host/progress.h"

namespace
{

const int MaxImageSize = 1 << 20;  // of text
const int MaxDigits = 64;          // of a record: one I2C transaction carries 32 bytes
const int UploadSize = 1024;       // bytes of text between two steps of the progress bar
const char* const EndRecord = "\n:00000001FF\n";

const struct
{
    const char* pszName;
    PowerControllerType Type;
} Families[] = {
    {"Opal", ControllerType_Opal},
    {"Zephyra", ControllerType_Zephyra},
    {"Quillon", ControllerType_Quillon},
    {"Brisk", ControllerType_Brisk},
};

PowerControllerType FamilyType(const CStr& name)
{
    for (const auto& family : Families)
        if (name == family.pszName) return family.Type;
    return ControllerType_Unknown;
}

const char* FamilyName(PowerControllerType type)
{
    for (const auto& family : Families)
        if (type == family.Type) return family.pszName;
    return "unknown";
}

}  // namespace

CPowerController::CPowerController() : CFirmwareComponent(Needs_Channel, "microcode image", MaxImageSize)
{
    m_sDevice = "power controller";
    m_sFirmware = "Power controller microcode";
    SetVersionFormat("%d.%d", FALSE);
    m_Discovery.sFirmwareItemType = "power_controller";
}

CStr CPowerController::ReadSettings()
{
    m_Wanted = FamilyType(Setting("Device", "Family"));
    if (m_Wanted == ControllerType_Unknown) return "The settings name no family of power controllers.";
    if (!ReadSetting("Device", "Bus", m_Bus) || !ReadSetting("Device", "Address", m_Address))
        return "The settings do not say where the power controller is: Bus and Address must be numbers from 0 to 255.";
    return "";
}

BOOL CPowerController::FindDevice()
{
    m_pMicro = std::make_unique<CPowerMicro>(&Channel());
    m_pMicro->SetBus(m_Bus);
    m_pMicro->SetAddress(m_Address);
    if (!ReadCurrentVersion() || !Identify()) return FALSE;
    m_Discovery.sDeviceId = FamilyName(m_pMicro->GetControllerType());
    return TRUE;
}

// A controller in its boot loader need not tell what it is, and one that has lost its registers not what it acts as:
// then it is what the package is for.
BOOL CPowerController::Identify()
{
    if (m_pMicro->DetermineControllerType()) return TRUE;
    const BOOL may = m_bBootLoader || m_pMicro->ReadDeviceControllerType() == m_Wanted;
    return may && m_pMicro->SetControllerType(m_Wanted);
}

BOOL CPowerController::ReadVersion()
{
    return m_pMicro->GetVersion(&m_bBootLoader, &m_CurrentVersion.Major, &m_CurrentVersion.Minor);
}

int CPowerController::CheckDevice()
{
    if (m_pMicro->GetControllerType() == m_Wanted) return StateOpen;
    return Refuse(ZALSTATE_NOTINSTALLEDNOTNEEDED, CStr("This package is for ") + FamilyName(m_Wanted) +
                                                      " controllers; this server has a controller of family " +
                                                      FamilyName(m_pMicro->GetControllerType()) + ".");
}

int CPowerController::CheckImage()
{
    const char* const pText = static_cast<const char*>(m_Image.GetImageBuffer());
    const int size = m_Image.GetImageSize();
    if (!m_pMicro->ValidateHex(pText, size))
        return Refuse(ZALSTATE_INSTALLNOTALLOWED, "The microcode image is no valid Intel HEX text; see the debug log.");

    // A text is whole up to its end record; what stands behind that is not read.
    m_Records = CutHex(pText, size);
    const auto isOpen = [&](const HexPiece& record) { return !m_pMicro->ValidateHex(pText, record.End); };
    m_Records.erase(std::partition_point(m_Records.begin(), m_Records.end(), isOpen) + 1, m_Records.end());

    const auto isRefused = [](const HexPiece& record) { return record.Digits > MaxDigits || record.Digits % 2 != 0; };
    if (std::none_of(m_Records.begin(), m_Records.end(), isRefused)) return StateOpen;
    return Refuse(ZALSTATE_INSTALLNOTALLOWED,
                  "The microcode image has a record that the controller can't take: it wants an even number of digits, "
                  "64 at most.");
}

BOOL CPowerController::WriteDevice(PLOGFN logger)
{
    m_bStateSaved = m_bHalted = FALSE;
    if (m_bBootLoader) {
        m_sRemark = "The update that was cut off before has cost the controller's settings.";
    } else {
        if (logger) logger("  Saving the controller's registers ...\n");
        m_bStateSaved = m_pMicro->SaveState();
        if (!m_bStateSaved) return Fail("its registers can't be saved");
    }
    if (logger) logger("  Halting the traffic to the controller ...\n");
    m_bHalted = m_pMicro->HaltDevice();
    if (!m_bHalted) return Fail("the management processor can't halt its traffic to the controller");
    return Program(logger);
}

// An upload that fails is tried once more.
BOOL CPowerController::Program(PLOGFN logger)
{
    if (logger) logger("  Unlocking the controller ...\n");
    m_bTouched = TRUE;
    if (!m_pMicro->Unlock()) return Fail("it does not enter its boot loader");
    if (Upload(logger)) return TRUE;
    if (logger) logger("  The upload failed; once more ...\n");
    return Upload(logger) || Fail("it refused the microcode twice");
}

// Each piece is closed with an end record, which makes a whole text of it.
BOOL CPowerController::Upload(PLOGFN logger)
{
    const char* const pText = static_cast<const char*>(m_Image.GetImageBuffer());
    const int size = m_Records.back().End;
    CProgressBar progress(logger, "Uploading", size);
    int done = 0;
    for (const HexPiece& record : m_Records) {
        if (record.End - done < UploadSize && record.End != size) continue;
        const std::string piece = std::string(pText + done, pText + record.End) + EndRecord;
        if (!m_pMicro->FlashHex(piece.data(), static_cast<int>(piece.size()))) return FALSE;
        done = record.End;
        progress.Show(done);
    }
    return TRUE;
}

// Back into the application, as far as that is whole, with its registers and the processor's traffic, whatever became
// of the programming.
BOOL CPowerController::LeaveDevice(PLOGFN logger, BOOL written)
{
    if (!m_bHalted) return FALSE;
    if (logger) logger("  Bringing the controller back ...\n");
    const BOOL reset = m_pMicro->Reset();
    const BOOL restored = reset && (!m_bStateSaved || m_pMicro->RestoreState());
    const BOOL resumed = m_pMicro->ResumeDevice();
    if (!reset) return Fail("it does not leave its boot loader");
    if (!restored) return Fail("its registers can't be restored");
    if (!resumed) return Fail("the management processor can't resume its traffic to the controller");
    return written;
}
