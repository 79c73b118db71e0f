#include "samplecomponent.h"

#include <cstdio>
#include <cstdlib>
#include <initializer_list>

#include "componentxml.h"
#include "expr.h"
#include "rule.h"
#include "util.h"

namespace
{

const int MaxFolderLength = 512;
const int StateOpen = 0;  // nothing speaks against it so far

}  // namespace

void CSampleComponent::Initialize()
{
    CComponent::Initialize();
    m_pSettings = std::make_unique<CINIFile>(FileInComponentDir("settings.ini"));
    m_Discovery.bSupported = TRUE;
    m_Discovery.sTakesEffect = Setting("Component", "TakesEffect");
    m_Discovery.EstimatedDuration = std::atoi(Setting("Component", "EstimatedDuration"));

    ReadDevice();
    m_InstallState = CheckPackage();
    if (m_InstallState == StateOpen) m_InstallState = CheckChannel();
    if (m_InstallState == StateOpen) m_InstallState = CheckRule();
    if (m_InstallState == StateOpen) m_InstallState = DecideInstallState();
    LimitTexts();
}

int CSampleComponent::Refuse(int state, const CStr& message)
{
    SetErrorMessage(message);
    return state;
}

int CSampleComponent::RefuseWithoutTarget(const CStr& message)
{
    m_bNoTarget = TRUE;
    return Refuse(ZALSTATE_NOTINSTALLEDNOTNEEDED, message);
}

int CSampleComponent::CheckChannel()
{
    if (m_Needs != Needs_Channel || Channel().IsOpen()) return StateOpen;
    const BOOL broken = Channel().GetState() == ChannelState_Broken;
    return Refuse(ZALSTATE_INSTALLNOTALLOWED,
                  broken ? "The management processor does not answer; restart it, then try again."
                         : "There is no driver for the management processor.");
}

ULONG CSampleComponent::Install(BOOL silent, PLOGFN logger, LPTSTR resultStr, ULONG resultLength, LPCTSTR language)
{
    if (m_Discovery.bEnabled || !m_bNoTarget)
        return CComponent::Install(silent, logger, resultStr, resultLength, language);
    std::snprintf(resultStr, resultLength, "%s", GetErrorMessage().GetAnsiString());
    logger("%s\n", resultStr);
    return ReturnCodeNoTarget;
}

CStr CSampleComponent::Setting(const char* section, const char* key) const
{
    return m_pSettings->GetKeyValue(section, key);
}

CChannelInterface& CSampleComponent::Channel()
{
    if (!m_pChannel) m_pChannel = std::make_unique<CChannelInterface>();
    return *m_pChannel;
}

int CSampleComponent::CheckPackage()
{
    const int notAllowed = ZALSTATE_INSTALLNOTALLOWED;
    if (m_Properties.sName == "(Name)") {  // as constructed: no description was read
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

int CSampleComponent::CheckRule()
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

int CSampleComponent::CompareVersions(const CFwVersion& current, const CFwVersion& offered)
{
    const int order = CFwVersion::Compare(&current, &offered);
    return order < 0 ? ZALSTATE_INSTALLEDOLDER : order > 0 ? ZALSTATE_INSTALLEDNEWER : ZALSTATE_INSTALLEDSAME;
}

// What is too long has been refused, and must not reach the deployment tool's buffers.
void CSampleComponent::LimitTexts()
{
    for (CStr* pText : {&m_Properties.sName, &m_Properties.sDescription, &m_Properties.sCurrentVersion,
                        &m_Properties.sNewVersion, &m_Discovery.sTakesEffect})
        if (pText->GetLength() > MaxTextLength) *pText = pText->Left(MaxTextLength);
}

void CSampleComponent::Finish(InstallParameters* params, ULONG result, const CStr& text)
{
    std::snprintf(params->pszResultStr, params->ResultStrLength, "%s", text.GetAnsiString());
    params->Result = result;
    params->bFinished = TRUE;
}

BOOL CSampleComponent::FailWith(const CStr& message)
{
    m_sFailure = message;
    return FALSE;
}

void CSampleComponent::FinishFlashed(InstallParameters* params, const CStr& firmware, const CStr& was, const CStr& more)
{
    const BOOL logged = CSystem().LogFlashEventToVRL(firmware + " flashed; was " + was);
    Finish(params, ReturnCodeNone,
           firmware + " was flashed and runs." + (logged ? "" : " The event could not be logged.") + more);
}

void CSampleComponent::FinishFailed(InstallParameters* params, const CStr& firmware, const CStr& was, BOOL touched,
                                    const CStr& deviceState) const
{
    if (touched) CSystem().LogMaintenanceNoteToVRL(firmware + " not flashed: " + m_sFailure + "; was " + was);
    Finish(params, ReturnCodeErrorReturn, firmware + " was not installed: " + m_sFailure + ". " + deviceState);
}
