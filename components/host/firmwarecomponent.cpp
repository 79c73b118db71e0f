#include "firmwarecomponent.h"

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <new>

#include "componentxml.h"
#include "expr.h"
#include "packagefile.h"
#include "rule.h"
#include "signals.h"
#include "util.h"

namespace
{

const int MaxFolderLength = 512;
const int MaxDescriptionSize = 1 << 20;  // bytes
const int MaxSettingsSize = 64 << 10;

// A request that fails may have come through, or come through later.
const char* const szNotLogged = " Whether the event was logged can't be told.";

// What stands behind the last '/'.
CStr FileName(const CStr& path)
{
    return path.Mid(path.ReverseFind("/") + 1);
}

void Finish(CComponent::InstallParameters* params, ULONG result, const CStr& text)
{
    params->Result = result;
    params->bFinished = TRUE;
    std::snprintf(params->pszResultStr, params->ResultStrLength, "%s", text.GetAnsiString());
}

}  // namespace

CFirmwareComponent::CFirmwareComponent(Needs needs, const char* image, int maxImageSize)
    : m_Image(image, maxImageSize), m_Needs(needs)
{
}

void CFirmwareComponent::Initialize()
{
    m_Discovery.bSupported = TRUE;
    const CStr problem = CheckFiles();
    if (!problem.IsEmpty()) {
        m_InstallState = Refuse(ZALSTATE_INSTALLNOTALLOWED, problem);
        return;
    }

    CComponent::Initialize();
    m_pSettings = std::make_unique<CINIFile>(FileInComponentDir("settings.ini"));
    m_Discovery.sTakesEffect = Setting("Component", "TakesEffect");
    m_Discovery.EstimatedDuration = std::atoi(Setting("Component", "EstimatedDuration"));

    // The device is shown whatever speaks against the installation.
    m_sSettingsProblem = ReadSettings();
    const BOOL reachable = m_Needs != Needs_Channel || Channel().IsOpen();
    m_bFound = m_sSettingsProblem.IsEmpty() && reachable && FindDevice();
    m_InstallState = DecideInstallState();
    LimitTexts();
}

// The library reads both without a bound. It picks the same description, by the same patterns.
CStr CFirmwareComponent::CheckFiles() const
{
    CStr path;
    if (FindFileInComponentDir("qx*.xml", path) || FindFileInComponentDir("*.xml", path)) {
        const CStr problem = CheckPackageFile(path, MaxDescriptionSize, "a package description may have");
        if (!problem.IsEmpty()) return CStr("The package description ") + FileName(path) + problem;
    }
    const CStr problem = CheckPackageFile(FileInComponentDir("settings.ini"), MaxSettingsSize, "settings may have");
    return problem.IsEmpty() ? problem : CStr("The file settings.ini") + problem;
}

int CFirmwareComponent::DecideInstallState()
{
    using Check = int (CFirmwareComponent::*)();
    for (const Check check :
         {&CFirmwareComponent::CheckPackage, &CFirmwareComponent::CheckChannel, &CFirmwareComponent::CheckRule,
          &CFirmwareComponent::CheckSettings, &CFirmwareComponent::CheckDevice, &CFirmwareComponent::LoadImage,
          &CFirmwareComponent::CheckImage}) {
        const int state = (this->*check)();
        if (state != StateOpen) return state;
    }
    const int order = m_bBootLoader ? -1 : CFwVersion::Compare(&m_CurrentVersion, &m_OfferedVersion);
    return order < 0 ? ZALSTATE_INSTALLEDOLDER : order > 0 ? ZALSTATE_INSTALLEDNEWER : ZALSTATE_INSTALLEDSAME;
}

int CFirmwareComponent::CheckPackage()
{
    const int notAllowed = ZALSTATE_INSTALLNOTALLOWED;
    if (m_Properties.sName == NoName) {
        const CStr folder = g_InstallLocalDir.GetLength() <= MaxFolderLength ? g_InstallLocalDir : "the package folder";
        return Refuse(notAllowed, CStr("There is no readable package description (qx*.xml) in ") + folder + ".");
    }
    // What is left in the message is the driver check's.
    if (m_Needs == Needs_RomDriver && m_bInitError) return notAllowed;
    m_sErrorMessage = "";

    if (m_Properties.sName.IsEmpty() || m_Properties.sName.GetLength() > MaxTextLength)
        return Refuse(notAllowed, "The package description has no usable name.");
    if (m_Properties.sNewVersion.GetLength() > MaxTextLength || !m_OfferedVersion.Parse(m_Properties.sNewVersion))
        return Refuse(notAllowed, "The package description states no usable version.");
    if (CStr(m_pXML->GetFirmwareType()).GetLength() > MaxTextLength)
        return Refuse(notAllowed, "The package description states no usable firmware type.");
    if (!m_pSettings->IsValid() || m_Discovery.sTakesEffect.GetLength() > MaxTextLength)
        return Refuse(notAllowed, "The package has no usable settings.ini.");
    return StateOpen;
}

int CFirmwareComponent::CheckChannel()
{
    if (m_Needs != Needs_Channel || Channel().IsOpen()) return StateOpen;
    const BOOL broken = Channel().GetState() == ChannelState_Broken;
    return Refuse(ZALSTATE_INSTALLNOTALLOWED,
                  broken ? "The management processor does not answer; restart it, then try again."
                         : "There is no driver for the management processor.");
}

int CFirmwareComponent::CheckRule()
{
    const CStr rule = Setting("Component", "Applies");
    if (rule.IsEmpty()) return StateOpen;
    CSymbolTable symbols;
    DefineServerSymbols(symbols, Channel());
    const RuleResult result = EvaluateRule(rule, &symbols, &Channel());
    if (result.Error != ExprError_None)
        return Refuse(ZALSTATE_INSTALLNOTALLOWED, DescribeRuleError("The applicability rule", rule, result));
    if (result.Value != 0) return StateOpen;
    return Refuse(ZALSTATE_NOTINSTALLEDNOTNEEDED, CStr("This package is not meant for this server: its rule \"") +
                                                      ShownRule(rule) + "\" does not hold.");
}

int CFirmwareComponent::CheckSettings()
{
    if (!m_sSettingsProblem.IsEmpty()) return Refuse(ZALSTATE_INSTALLNOTALLOWED, m_sSettingsProblem);
    return m_bFound ? StateOpen : RefuseMissing();
}

int CFirmwareComponent::RefuseMissing()
{
    m_bNoTarget = TRUE;
    return Refuse(ZALSTATE_NOTINSTALLEDNOTNEEDED, CStr("This server has no ") + m_sDevice + " of this kind.");
}

int CFirmwareComponent::LoadImage()
{
    if (!IsRestoring())
        m_Image.SetFile(Setting("Image", "File"), Setting("Image", "CRC32"));
    else if (KeepsReplaced())
        m_Image.SetKept(m_sRestored);
    else
        return Refuse(ZALSTATE_INSTALLNOTALLOWED,
                      CStr("The firmware of a ") + m_sDevice + " can't be read, so that none is kept to be put back.");
    return m_Image.Initialize() ? StateOpen : Refuse(ZALSTATE_INSTALLNOTALLOWED, m_Image.GetErrorMessage());
}

// What is too long has been refused, and must not reach the deployment tool's buffers.
void CFirmwareComponent::LimitTexts()
{
    for (CStr* pText : {&m_Properties.sName, &m_Properties.sDescription, &m_Properties.sCurrentVersion,
                        &m_Properties.sNewVersion, &m_Discovery.sTakesEffect})
        if (pText->GetLength() > MaxTextLength) *pText = pText->Left(MaxTextLength);
}

int CFirmwareComponent::Refuse(int state, const CStr& message)
{
    SetErrorMessage(message);
    return state;
}

BOOL CFirmwareComponent::Fail(const CStr& reason)
{
    if (m_sFailure.IsEmpty()) m_sFailure = reason;
    return FALSE;
}

BOOL CFirmwareComponent::KeepReplaced(const CStr& version, const void* bytes, int size)
{
    if (!m_Kept.Begin(m_Discovery.sDeviceId.GetAnsiString(), version.GetAnsiString(), bytes, size))
        return Fail(m_Kept.GetErrorMessage().c_str());
    if (!m_Kept.Image().empty()) ReportBackup(m_Kept.Path(m_Kept.Image()).c_str());
    return TRUE;
}

BOOL CFirmwareComponent::ReadCurrentVersion()
{
    m_CurrentVersion.Clear();
    m_bBootLoader = FALSE;
    if (!ReadVersion()) return FALSE;
    m_Properties.sCurrentVersion = m_bBootLoader ? CStr(IncompleteVersion) : m_CurrentVersion.ToString();
    return TRUE;
}

void CFirmwareComponent::SetVersionFormat(const char* format, BOOL usesRevision)
{
    for (CFwVersion* pVersion : {&m_CurrentVersion, &m_OfferedVersion}) {
        pVersion->MajorMinorFormat = format;
        pVersion->UseRevision = usesRevision;
    }
}

CStr CFirmwareComponent::Setting(const char* section, const char* key) const
{
    return m_pSettings->GetKeyValue(section, key);
}

BOOL CFirmwareComponent::ReadSetting(const char* section, const char* key, UINT8& value) const
{
    const CStr text = Setting(section, key);
    const char* pEnd = text.GetAnsiString() + text.GetLength();
    const std::from_chars_result parsed = std::from_chars(text.GetAnsiString(), pEnd, value);
    return parsed.ec == std::errc() && parsed.ptr == pEnd;
}

CChannelInterface& CFirmwareComponent::Channel()
{
    if (!m_pChannel) m_pChannel = std::make_unique<CChannelInterface>();
    return *m_pChannel;
}

ULONG CFirmwareComponent::Install(BOOL silent, PLOGFN logger, LPTSTR resultStr, ULONG resultLength, LPCTSTR language)
{
    if (m_bNoTarget && !m_Discovery.bEnabled) {
        std::snprintf(resultStr, resultLength, "%s", m_sErrorMessage.GetAnsiString());
        logger("%s\n", resultStr);
        return ReturnCodeNoTarget;
    }
    HoldSignals();
    try {
        return CComponent::Install(silent, logger, resultStr, resultLength, language);
    } catch (const std::bad_alloc&) {
        // From here on nothing asks for memory.
        std::snprintf(resultStr, resultLength, "There is not enough memory. The %s %s.", m_sDevice.GetAnsiString(),
                      m_bTouched ? "may hold no whole firmware: run this installer again before the server is restarted"
                                 : "was not touched and runs as before: run this installer again");
        logger("%s\n", resultStr);
        return ReturnCodeErrorReturn;
    }
}

void CFirmwareComponent::InstallWorker(InstallParameters* params)
{
    if (Update(params->bSilent ? nullptr : params->pfnLogger))
        FinishFlashed(params, ReturnCodeNone, Left_RunsNew, "was flashed and runs.", m_sRemark);
    else
        FinishFailed(params);
}

// Whoever has not got to an end has left what can't be told.
Left CFirmwareComponent::GetLeft() const
{
    return m_Left.value_or(m_bTouched ? Left_Unknown : Left_Untouched);
}

BOOL CFirmwareComponent::Update(PLOGFN logger)
{
    m_sVersionBefore = m_Properties.sCurrentVersion;
    m_sFailure = "";
    m_bTouched = FALSE;
    m_Left.reset();
    BOOL written = FALSE;
    try {
        written = WriteDevice(logger);
    } catch (const std::bad_alloc&) {
        LeaveDevice(logger, FALSE);
        throw;
    }
    return LeaveDevice(logger, written) && Verify();
}

BOOL CFirmwareComponent::Verify()
{
    // A reply may be lost, here and below.
    if (!ReadCurrentVersion() && !ReadCurrentVersion())
        return Fail(CStr("the ") + m_sDevice + " does not answer after the update");
    if (m_bBootLoader || !(m_CurrentVersion == m_OfferedVersion))
        return Fail(CStr("the ") + m_sDevice + " runs " + m_Properties.sCurrentVersion + " after the update");
    return TRUE;
}

Left CFirmwareComponent::LeftByVersion() const
{
    if (m_CurrentVersion == m_OfferedVersion) return Left_RunsNew;
    return m_Properties.sCurrentVersion == m_sVersionBefore ? Left_RunsOld : Left_Unknown;
}

CFirmwareComponent::DeviceState CFirmwareComponent::DescribeState()
{
    const CStr device = CStr("The ") + m_sDevice;
    if (!m_bTouched) return {Left_Untouched, device + " was not touched and runs as before."};
    if (!ReadCurrentVersion() && !ReadCurrentVersion())
        return {Left_Unknown,
                device + " does not answer: restart the management processor, then run this installer again."};
    if (m_bBootLoader) return {Left_Incomplete, device + " waits in its boot loader: run this installer again."};
    return {LeftByVersion(), device + " runs version " + m_Properties.sCurrentVersion + ": run this installer again."};
}

// "Power controller microcode 2.1".
CStr CFirmwareComponent::Firmware() const
{
    return m_sFirmware + " " + m_OfferedVersion.ToString();
}

void CFirmwareComponent::FinishFlashed(InstallParameters* params, ULONG result, Left left, const CStr& how,
                                       const CStr& more)
{
    // What was not touched was not flashed.
    const BOOL logged = !m_bTouched || CSystem().LogFlashEventToVRL(Firmware() + " flashed; was " + m_sVersionBefore);
    CStr text = Firmware() + " " + how;
    if (!logged) text += szNotLogged;
    if (!more.IsEmpty()) text += CStr(" ") + more;
    Finish(params, result, text);
    m_Left = left;
}

void CFirmwareComponent::FinishFailed(InstallParameters* params)
{
    const DeviceState state = DescribeState();
    if (m_bTouched && state.What == Left_RunsNew && m_Properties.sCurrentVersion != m_sVersionBefore)
        return FinishFlashed(
            params, ReturnCodeErrorReturn, Left_RunsNew, "was flashed and runs.",
            CStr("On the way something failed: ") + m_sFailure + ". Run this installer with /f once more.");
    const char* pszFate = state.What == Left_Unknown ? " may be flashed or not: " : " not flashed: ";
    const BOOL logged = !m_bTouched || CSystem().LogMaintenanceNoteToVRL(Firmware() + pszFate + m_sFailure + "; was " +
                                                                         m_sVersionBefore);
    CStr text = Firmware() + " was not installed: " + m_sFailure + ".";
    if (!logged) text += szNotLogged;
    Finish(params, ReturnCodeErrorReturn, text + " " + state.sSentence);
    m_Left = state.What;
}
