#include "powercontroller.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>

#include "host/progress.h"
#include "host/signals.h"

namespace
{

const std::size_t PieceSize = 1024;  // bytes of HEX text between two steps of the progress bar
const char* const EndRecord = ":00000001FF\n";

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

const std::size_t MaxDataBytes = 27;  // of a record: one I2C transaction carries 32 bytes

// The lines of a HEX text that ValidateHex has accepted.
class CHexLines
{
  public:
    CHexLines(const char* text, std::size_t length) : m_pText(text), m_Length(length), m_Position(0), m_bEnded(false) {}

    // Goes on to the next line; false at the end, or behind the end record.
    bool Next()
    {
        if (m_bEnded || m_Position == m_Length) return false;
        m_pLine = m_pText + m_Position;
        const void* pEnd = std::memchr(m_pLine, '\n', m_Length - m_Position);
        const std::size_t size =
            pEnd ? static_cast<std::size_t>(static_cast<const char*>(pEnd) - m_pLine) + 1 : m_Length - m_Position;
        m_Position += size;
        m_LineSize = size;
        while (m_LineSize > 0 && std::strchr("\r\n \t", m_pLine[m_LineSize - 1])) m_LineSize--;
        m_bEnded = IsRecord() && m_LineSize >= 9 && m_pLine[7] == '0' && m_pLine[8] == '1';
        return true;
    }

    // A record that stands on a line of its own, from its start, and that one transaction takes.
    bool IsUploadable() const
    {
        const std::size_t digits = 2 * (MaxDataBytes + 5);
        const auto isDigit = [](unsigned char c) { return std::isxdigit(c) != 0; };
        return IsRecord() && std::all_of(m_pLine + 1, m_pLine + m_LineSize, isDigit) && m_LineSize - 1 <= digits;
    }

    bool IsEmptyOrComment() const { return m_LineSize == 0 || m_pLine[0] == ';'; }

    std::size_t Position() const { return m_Position; }

  private:
    bool IsRecord() const { return m_LineSize > 0 && m_pLine[0] == ':'; }

    const char* m_pText;
    std::size_t m_Length;
    std::size_t m_Position;
    bool m_bEnded;
    const char* m_pLine = nullptr;
    std::size_t m_LineSize = 0;  // without what ends it
};

// True when the controller takes every record, and the text can be cut at any line.
bool IsUploadable(const char* text, std::size_t length)
{
    CHexLines lines(text, length);
    while (lines.Next())
        if (!lines.IsEmptyOrComment() && !lines.IsUploadable()) return false;
    return true;
}

}  // namespace

CPowerController::CPowerController() : CSampleComponent(Needs_Channel), m_Image("microcode image")
{
    for (CFwVersion* pVersion : {&m_CurrentVersion, &m_OfferedVersion}) pVersion->MajorMinorFormat = "%d.%d";
}

void CPowerController::ReadDevice()
{
    m_Wanted = FamilyType(Setting("Device", "Family"));
    if (!Channel().IsOpen() || m_Wanted == ControllerType_Unknown) return;
    m_pMicro = std::make_unique<CPowerMicro>(&Channel());
    m_pMicro->SetBus(std::atoi(Setting("Device", "Bus")));
    m_pMicro->SetAddress(std::atoi(Setting("Device", "Address")));
    m_bFound = ReadVersion() && Identify();
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
    m_CurrentVersion.Clear();
    if (!m_pMicro->GetVersion(&m_bBootLoader, &m_CurrentVersion.Major, &m_CurrentVersion.Minor)) return FALSE;
    m_Properties.sCurrentVersion = m_bBootLoader ? CStr("Incomplete") : m_CurrentVersion.ToString();
    return TRUE;
}

int CPowerController::DecideInstallState()
{
    if (m_Wanted == ControllerType_Unknown)
        return Refuse(ZALSTATE_INSTALLNOTALLOWED, "The settings name no family of power controllers.");
    if (!m_bFound) return RefuseWithoutTarget("This server has no power controller that this package knows.");
    if (m_pMicro->GetControllerType() != m_Wanted)
        return Refuse(ZALSTATE_NOTINSTALLEDNOTNEEDED, CStr("This package is for ") + FamilyName(m_Wanted) +
                                                          " controllers; this server has a controller of family " +
                                                          FamilyName(m_pMicro->GetControllerType()) + ".");
    return CheckImage();
}

int CPowerController::CheckImage()
{
    m_Image.SetFile(Setting("Image", "File"), Setting("Image", "CRC32"));
    if (!m_Image.Initialize()) return Refuse(ZALSTATE_INSTALLNOTALLOWED, m_Image.GetErrorMessage());
    const char* pText = static_cast<const char*>(m_Image.GetImageBuffer());
    if (!m_pMicro->ValidateHex(pText, m_Image.GetImageSize()))
        return Refuse(ZALSTATE_INSTALLNOTALLOWED, "The microcode image is no valid Intel HEX text; see the debug log.");
    if (!IsUploadable(pText, static_cast<std::size_t>(m_Image.GetImageSize())))
        return Refuse(ZALSTATE_INSTALLNOTALLOWED,
                      "The microcode image has records that the controller can't take: it wants one of up to 27 data "
                      "bytes on each line.");
    return m_bBootLoader ? ZALSTATE_INSTALLEDOLDER : CompareVersions(m_CurrentVersion, m_OfferedVersion);
}

BOOL CPowerController::PerformDiscovery()
{
    if (!m_bFound) return FALSE;
    m_Discovery.sDeviceId = FamilyName(m_pMicro->GetControllerType());
    m_Discovery.sFirmwareItemType = "power_controller";
    return TRUE;
}

void CPowerController::InstallWorker(InstallParameters* params)
{
    const CStr microcode = CStr("Power controller microcode ") + m_OfferedVersion.ToString();
    const CStr was = m_Properties.sCurrentVersion;
    if (Update(params->bSilent ? nullptr : params->pfnLogger))
        FinishFlashed(params, microcode, was,
                      m_bStateSaved ? "" : " The update that was cut off before has cost the controller's settings.");
    else
        FinishFailed(params, microcode, was, m_bTouched, DescribeState());
}

CStr CPowerController::DescribeState()
{
    if (!m_bTouched) return "The controller was not touched and runs as before.";
    if (!ReadVersion()) return "The controller does not answer: run this installer again.";
    if (m_bBootLoader) return "The controller waits in its boot loader: running this installer again will finish.";
    return CStr("The controller runs version ") + m_CurrentVersion.ToString() + ": run this installer again.";
}

// Registers are restored and the device resumed whatever became of the programming.
BOOL CPowerController::Update(PLOGFN logger)
{
    const CIgnoreSignals ignore;
    if (!m_bBootLoader) {
        if (logger) logger("  Saving the controller's registers ...\n");
        m_bStateSaved = m_pMicro->SaveState();
        if (!m_bStateSaved) return FailWith("its registers can't be saved");
    }
    if (logger) logger("  Halting the traffic to the controller ...\n");
    if (!m_pMicro->HaltDevice()) return FailWith("the management processor can't halt its traffic to the controller");

    const BOOL programmed = Program(logger);
    if (logger) logger("  Bringing the controller back ...\n");
    const BOOL back = BringBack();
    const BOOL resumed = m_pMicro->ResumeDevice();
    if (!programmed || !back) return FALSE;
    if (!resumed) return FailWith("the management processor can't resume its traffic to the controller");
    return Verify();
}

// An upload that fails is tried once more.
BOOL CPowerController::Program(PLOGFN logger)
{
    if (logger) logger("  Unlocking the controller ...\n");
    m_bTouched = TRUE;
    if (!m_pMicro->Unlock()) return FailWith("it does not enter its boot loader");
    if (Upload(logger)) return TRUE;
    if (logger) logger("  The upload failed; once more ...\n");
    return Upload(logger) || FailWith("it refused the microcode twice");
}

BOOL CPowerController::Upload(PLOGFN logger)
{
    const char* pText = static_cast<const char*>(m_Image.GetImageBuffer());
    CHexLines lines(pText, static_cast<std::size_t>(m_Image.GetImageSize()));
    CProgressBar progress(logger, "Uploading", m_Image.GetImageSize());
    std::size_t done = 0;
    for (bool more = true; more;) {
        while ((more = lines.Next()) && lines.Position() - done < PieceSize) continue;
        const std::string piece = std::string(pText + done, lines.Position() - done) + "\n" + EndRecord;
        if (!m_pMicro->FlashHex(piece.data(), static_cast<int>(piece.size()))) return FALSE;
        done = lines.Position();
        progress.Show(more ? static_cast<int>(done) : m_Image.GetImageSize());
    }
    return TRUE;
}

// Back into the application, as far as that is whole, and its registers restored.
BOOL CPowerController::BringBack()
{
    if (!m_pMicro->Reset()) return m_sFailure.IsEmpty() ? FailWith("it does not leave its boot loader") : FALSE;
    if (m_bStateSaved && !m_pMicro->RestoreState()) return FailWith("its registers can't be restored");
    return TRUE;
}

BOOL CPowerController::Verify()
{
    if (!ReadVersion()) return FailWith("it does not answer after the update");
    if (m_bBootLoader || !(m_CurrentVersion == m_OfferedVersion))
        return FailWith(CStr("it runs ") + m_Properties.sCurrentVersion + " after the update");
    return TRUE;
}
