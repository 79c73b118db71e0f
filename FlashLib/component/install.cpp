#include <sys/ioctl.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "../bounded.h"
#include "component.h"
#include "componentxml.h"
#include "debug.h"
#include "romdriver.h"
#include "zalftbl.h"
#include "zalph/system.h"

namespace
{

const int MinimumDriver[4] = {5, 5, 4, 1};

bool IsNewEnough(const int (&version)[4])
{
    for (int i = 0; i < 4; i++)
        if (version[i] != MinimumDriver[i]) return version[i] > MinimumDriver[i];
    return true;
}

const char* const szStateNames[] = {"ZALSTATE_UNKNOWN",
                                    "ZALSTATE_INSTALLEDSAME",
                                    "ZALSTATE_INSTALLEDOLDER",
                                    "ZALSTATE_INSTALLEDNEWER",
                                    "ZALSTATE_INSTALLEDNOTNEEDED",
                                    "ZALSTATE_NOTINSTALLEDNEEDED",
                                    "ZALSTATE_NOTINSTALLEDNOTNEEDED",
                                    "ZALSTATE_INSTALLNOTALLOWED"};

}  // namespace

CComponentProperties::CComponentProperties()
    : sName("(Name)"),
      sDescription("(Description)"),
      sCurrentVersion("Unknown"),
      sNewVersion("Unknown"),
      sInstallLocation("."),
      bSupportsSilentInstall(TRUE),
      bSupportsSilentUpdate(TRUE),
      bSupportsDowngrade(TRUE)
{
}

CComponentProperties::~CComponentProperties() = default;

CComponent::CComponent() : m_pXML(nullptr), m_bInitError(FALSE), m_InstallState(ZALSTATE_UNKNOWN), m_Discovery()
{
    _DebugPrintf("CComponent::CComponent()\n");
}

CComponent::~CComponent()
{
    _DebugPrintf("CComponent::~CComponent()\n");
    delete m_pXML;
}

CStr CComponent::GetErrorMessage() const
{
    return m_sErrorMessage;
}

void CComponent::SetErrorMessage(const CStr& text)
{
    m_sErrorMessage = text;
    if (!m_sErrorMessage.IsEmpty()) _DebugPrintf("CComponent Error: %s\n", m_sErrorMessage.GetAnsiString());
}

void CComponent::Initialize()
{
    _DebugPrintf("CComponent::Initialize()\n");
    m_bInitError = FALSE;
    m_pXML = new (std::nothrow) CComponentXML;  // kept: second-initialize (leaks the first reader)
    if (!m_pXML) {
        _DebugPrintf("CComponent::Initialize: Can't allocate CComponentXML object\n");
        m_bInitError = TRUE;
    } else if (!m_pXML->Initialize()) {
        _DebugPrintf("CComponent::Initialize: CComponentXML::Initialize failed\n");
        m_bInitError = TRUE;
    } else {
        m_Properties.sName = m_pXML->GetName("en");
        m_Properties.sDescription = m_pXML->GetName("en");  // kept: description-is-name
        m_Properties.sNewVersion = m_pXML->GetVersion();
        CSystem system;
        _DebugPrintf("CComponent::Initialize: Running on %s\n", system.GetProductName().GetAnsiString());
    }
    if (!Valid_CRUDriver()) m_bInitError = TRUE;
}

BOOL CComponent::Valid_CRUDriver()
{
    CStr outOfDate;
    outOfDate.Format("The CRU Driver is out-of-date. The driver version must be at least %1d.%1d.%1d.%1d\n",
                     MinimumDriver[0], MinimumDriver[1], MinimumDriver[2], MinimumDriver[3]);

    _versioninfo info = {};
    OpenCruDriver();
    _DebugPrintf("CComponent::Valid_CRUDriver - VALUE OF cruFd [0x%X] \n", static_cast<unsigned>(cruFd));
    if (ioctl(cruFd, RomDriverRequest_Version, &info) < 0) {
        if (errno != EINVAL && cruFd < 0)
            SetErrorMessage("CRU driver is not loaded or is not responding\n");
        else
            SetErrorMessage(outOfDate);
        return FALSE;
    }

    const int version[4] = {info.esxi_major_version, info.esxi_minor_version, info.cru_driver_version_num,
                            info.cru_driver_build_num};
    if (IsNewEnough(version)) return TRUE;

    CStr message;
    message.Format(
        "CRU Driver version %1d.%1d.%1d.%1d is out-of-date. The driver version must be at least %1d.%1d.%1d.%1d\n",
        version[0], version[1], version[2], version[3], MinimumDriver[0], MinimumDriver[1], MinimumDriver[2],
        MinimumDriver[3]);
    SetErrorMessage(message);
    return FALSE;
}

BOOL CComponent::GetProperty(ULONG id, PVOID buffer, ULONG, LPCTSTR)
{
    const auto text = [buffer](const char* name, const CStr& value) {
        std::strcpy(static_cast<char*>(buffer), value.GetAnsiString());  // kept: property-length
        _DebugPrintf("CComponent::GetProperty: %s = \"%s\"\n", name, value.GetAnsiString());
        return TRUE;
    };
    const auto flag = [buffer](const char* name, BOOL value) {
        *static_cast<BOOL*>(buffer) = value;
        _DebugPrintf("CComponent::GetProperty: %s = %s\n", name, value ? "TRUE" : "FALSE");
        return TRUE;
    };

    switch (id) {
        case ZALPROP_NAME:
            return text("ZALPROP_NAME", m_Properties.sName);
        case ZALPROP_DESCRIPTION:
            return text("ZALPROP_DESCRIPTION", m_Properties.sDescription);
        case ZALPROP_VERSIONCURRENT:
            return text("ZALPROP_VERSIONCURRENT", m_Properties.sCurrentVersion);
        case ZALPROP_VERSIONNEW:
            return text("ZALPROP_VERSIONNEW", m_Properties.sNewVersion);
        case ZALPROP_INSTALLSTATE: {
            ZALINSTALLSTATE* pState = static_cast<ZALINSTALLSTATE*>(buffer);
            const BOOL result = GetInstallState(pState);
            _DebugPrintf("CComponent::GetProperty: ZALPROP_INSTALLSTATE: State = %d\n", pState->nState);
            _DebugPrintf("CComponent::GetProperty: ZALPROP_INSTALLSTATE: Message = \"%s\"\n", pState->szMessage);
            return result;
        }
        case ZALPROP_SUPPORTSILENTINSTALL:
            return flag("ZALPROP_SUPPORTSILENTINSTALL", m_Properties.bSupportsSilentInstall);
        case ZALPROP_SUPPORTSILENTUPDATE:
            return flag("ZALPROP_SUPPORTSILENTUPDATE", m_Properties.bSupportsSilentUpdate);
        case ZALPROP_SUPPORTDOWNGRADE:
            return flag("ZALPROP_SUPPORTDOWNGRADE", m_Properties.bSupportsDowngrade);
        case ZALPROP_SETLOGSTRUCT:
            _DebugPrintf("CComponent::GetProperty: ZALPROP_SETLOGSTRUCT (ignored)\n");
            return FALSE;
        default:
            _DebugPrintf("CComponent::GetProperty: Unknown property %lu\n", static_cast<unsigned long>(id));
            return FALSE;
    }
}

BOOL CComponent::GetInstallState(ZALINSTALLSTATE* state)
{
    const bool known = m_InstallState >= ZALSTATE_INSTALLEDSAME && m_InstallState <= ZALSTATE_INSTALLNOTALLOWED;
    state->nState = known ? m_InstallState : ZALSTATE_UNKNOWN;
    _DebugPrintf("CComponent::GetInstallState: %s\n", szStateNames[known ? m_InstallState : 0]);

    CStr message;
    const bool explains =
        state->nState == ZALSTATE_NOTINSTALLEDNOTNEEDED || state->nState == ZALSTATE_INSTALLNOTALLOWED;
    if (explains && !m_sErrorMessage.IsEmpty()) message = m_sErrorMessage;
    if (state->nState == ZALSTATE_INSTALLNOTALLOWED && message.IsEmpty())
        message = "The component is incomplete or damaged.";
    if (state->nState == ZALSTATE_UNKNOWN) message = "Internal component error!";
    BoundedCopy("the install state's message", state->szMessage, sizeof state->szMessage, message);
    return TRUE;
}

BOOL CComponent::OkToInstall()
{
    switch (m_InstallState) {
        case ZALSTATE_INSTALLEDSAME:
        case ZALSTATE_INSTALLEDOLDER:
        case ZALSTATE_INSTALLEDNEWER:
        case ZALSTATE_NOTINSTALLEDNEEDED:
            return TRUE;
        default:
            return FALSE;
    }
}

void CComponent::InstallWorker(InstallParameters* params)
{
    params->Result = ReturnCodeErrorReturn;
}

void CComponent::PostInstall(BOOL, ULONG) {}

void CComponent::SwizzleLinuxReturnCode(ULONG&) {}

// Tells how the discovery went that SelfDiscovery ran.
// kept: result-length (the texts are written whole, whatever the buffer's length)
ULONG CComponent::ReportDiscovery(PLOGFN logger, LPTSTR resultStr)
{
    if (!m_Discovery.bSupported) {
        _DebugPrintf("CComponent::Install: Discovery requested, but component doesn't support it!\n");
        std::strcpy(resultStr, "This component does not support discovery!");
        m_Discovery.bFailed = TRUE;
    } else if (m_Discovery.bFailed) {
        _DebugPrintf("CComponent::Install: Discovery failed!\n");
        std::strcpy(resultStr, "Discovery failed!");
    } else {
        _DebugPrintf("CComponent::Install: Discovery complete\n");
        std::strcpy(resultStr, "Discovery complete.");
    }
    logger("%s\n", resultStr);
    return m_Discovery.bFailed ? ReturnCodeErrorReturn : ReturnCodeNone;
}

ULONG CComponent::Install(BOOL silent, PLOGFN logger, LPTSTR resultStr, ULONG resultLength, LPCTSTR language)
{
    if (m_Discovery.bEnabled) return ReportDiscovery(logger, resultStr);
    if (!OkToInstall()) return ReturnCodeErrorReturn;

    _DebugPrintf("CComponent::Install: Entry\n");
    resultStr[0] = '\0';
    InstallParameters params = {this, silent, logger, resultStr, resultLength, language, ReturnCodeErrorReturn, FALSE};
    InstallWorker(&params);
    if (resultStr[0] != '\0') logger("%s\n", resultStr);
    _DebugPrintf("CComponent::Install: Exit (Result = %lu)\n", static_cast<unsigned long>(params.Result));
    return params.Result;
}
