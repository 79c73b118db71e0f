// Component framework: the base class of every installer and its install protocol.
#pragma once

#include "types.h"
#include "zalph/str.h"

class CComponentXML;

// Property identifiers of CComponent::GetProperty, and what the buffer receives.
#define ZALPROP_NAME                 1  // text
#define ZALPROP_DESCRIPTION          2  // text
#define ZALPROP_VERSIONCURRENT       3  // text
#define ZALPROP_VERSIONNEW           4  // text
#define ZALPROP_INSTALLSTATE         5  // ZALINSTALLSTATE
#define ZALPROP_SUPPORTSILENTINSTALL 6  // BOOL
#define ZALPROP_SUPPORTSILENTUPDATE  7  // BOOL
#define ZALPROP_SUPPORTDOWNGRADE     8  // BOOL
#define ZALPROP_SETLOGSTRUCT         9  // nothing: ignored

// Install states. Those marked + may be installed; the discovery action is in quotes, "skip" for all others.
#define ZALSTATE_INSTALLEDSAME         1  // + "rewrite"
#define ZALSTATE_INSTALLEDOLDER        2  // + "upgrade"
#define ZALSTATE_INSTALLEDNEWER        3  // + "downgrade"
#define ZALSTATE_INSTALLEDNOTNEEDED    4
#define ZALSTATE_NOTINSTALLEDNEEDED    5  // +
#define ZALSTATE_NOTINSTALLEDNOTNEEDED 6
#define ZALSTATE_INSTALLNOTALLOWED     7
#define ZALSTATE_UNKNOWN               8

// Install results.
enum eReturnCode
{
    ReturnCodeNone = 0,
    ReturnCodeReboot = 1,
    ReturnCodeTargetCurrent = 2,
    ReturnCodeTargetNewer = 3,
    ReturnCodeNoTarget = 4,
    ReturnCodeCanceledByUser = 5,
    ReturnCodeCouldNotRun = 6,
    ReturnCodeErrorReturn = 7,
};

// What the deployment tool passes for the install-state property.
typedef struct _zalinstallstate
{
    int nState;            // ZALSTATE_..
    char szMessage[1024];  // for the user; NUL-terminated
} ZALINSTALLSTATE;
FLASHLIB_LAYOUT(_zalinstallstate, 1028);

#pragma pack(push, 1)

// What the ROM utility driver's version query fills in; little-endian.
struct _versioninfo
{
    std::uint16_t esxi_major_version;
    std::uint16_t esxi_minor_version;
    std::uint16_t cru_driver_version_num;
    std::uint16_t cru_driver_build_num;
};
FLASHLIB_LAYOUT(_versioninfo, 8);

#pragma pack(pop)

// Printf-style function of the deployment tool that shows a line to the user.
typedef void (*PLOGFN)(const char* format, ...);

// What the deployment tool reads of a component.
struct FLASHLIB_API CComponentProperties
{
    CComponentProperties();
    ~CComponentProperties();

    // Texts for the user; name and new version come from the package description.
    CStr sName;
    CStr sDescription;
    CStr sCurrentVersion;
    CStr sNewVersion;
    CStr sInstallLocation;
    // What the deployment tool may do with the component.
    BOOL bSupportsSilentInstall;
    BOOL bSupportsSilentUpdate;
    BOOL bSupportsDowngrade;
};

// Discovery settings and the values that go into the discovery XML.
struct CDiscoveryInfo
{
    BOOL bSupported;  // set by a component that can do discovery
    BOOL bEnabled;    // set by the command line
    BOOL bFailed;     // set by the discovery run
    // What is written where; WriteDiscoveryXml puts defaults for texts that are empty.
    CStr sXmlFileName;
    CStr sComponentType;
    CStr sDeviceId;
    CStr sProductId;
    CStr sFirmwareItemType;
    CStr sFirmwareItemId;
    CStr sTakesEffect;
    int EstimatedDuration;  // in the deployment tool's unit
    CStr sDefaultXmlFileName;
};

// Base class of every installer. The host constructs its derived object, calls ParseCmdLine and Initialize, serves the
// deployment tool's GetProperty calls, then calls SelfDiscovery and Install. The derived class decides the install
// state (in Initialize, after the base's) and does the work (InstallWorker, PerformDiscovery).
class FLASHLIB_API CComponent
{
  public:
    // What Install hands to InstallWorker.
    struct InstallParameters
    {
        CComponent* pObject;      // the one that installs
        BOOL bSilent;             // no progress is wanted
        PLOGFN pfnLogger;         // shows progress to the user
        char* pszResultStr;       // takes the text for the user
        ULONG ResultStrLength;    // its room in bytes
        const char* pszLanguage;  // of the user: "en"
        ULONG Result;             // eReturnCode
        BOOL bFinished;           // set when the work is over
    };

    CComponent();
    virtual ~CComponent();
    CComponent(const CComponent&) = delete;
    CComponent& operator=(const CComponent&) = delete;

    // Reads the package description in the component directory into name, description and new version, and checks the
    // ROM utility driver. A failure is kept in m_bInitError.
    virtual void Initialize();

    // Runs PerformDiscovery and WriteDiscoveryXml when discovery is both supported and requested.
    virtual void SelfDiscovery();

    // Stores the property in buffer, which must have room for it whole: length and language are ignored. FALSE when
    // there is nothing to store; for the install state what GetInstallState returned.
    virtual BOOL GetProperty(ULONG id, PVOID buffer, ULONG length, LPCTSTR language);

    // Reports the outcome of discovery when that was requested, else installs. Returns an eReturnCode. A text for the
    // user is left in resultStr (at least 43 bytes) and passed to logger; a component that may not be installed gives
    // neither.
    virtual ULONG Install(BOOL silent, PLOGFN logger, LPTSTR resultStr, ULONG resultLength, LPCTSTR language);

    // Hooks after the install; the base does nothing.
    virtual void PostInstall(BOOL silent, ULONG result);
    virtual void SwizzleLinuxReturnCode(ULONG& result);

    // TRUE when the ROM utility driver answers and is new enough; else sets the error message.
    BOOL Valid_CRUDriver();

    // Reads the installer's command line: "/d" or "-d" [discovery file], "/y" or "-y" [component directory]. Replaces
    // tabs in the arguments by spaces.
    void ParseCmdLine(int argc, TCHAR** argv);

  protected:
    // The same for the joined line; override to read further switches, and call the base.
    virtual void ParseCmdLine(const CStr& commandLine);

    // Fills in m_InstallState and, for states 6, 7 and 8, the message. Returns TRUE.
    virtual BOOL GetInstallState(ZALINSTALLSTATE* state);

    // TRUE for the install states that may be installed.
    virtual BOOL OkToInstall();

    // Does the install and sets params->Result; may write a text for the user to params->pszResultStr.
    virtual void InstallWorker(InstallParameters* params);

    // Fills in the discovery values and the install state; FALSE when that fails.
    virtual BOOL PerformDiscovery();

    // Writes m_Discovery.sXmlFileName; values are inserted as they are, without XML escaping. FALSE when the file can't
    // be written; what was written of it stays. A line of 256 bytes or more ends the process.
    virtual BOOL WriteDiscoveryXml();

    // The message for the user that goes with the install state.
    CStr GetErrorMessage() const;
    void SetErrorMessage(const CStr& text);

    // The state of the component, which derived classes fill in.
    CComponentProperties m_Properties;
    CComponentXML* m_pXML;  // owned; made by Initialize
    BOOL m_bInitError;
    int m_InstallState;
    CDiscoveryInfo m_Discovery;
    CStr m_sErrorMessage;

  private:
    ULONG ReportDiscovery(PLOGFN logger, LPTSTR resultStr);
    void FillDiscoveryDefaults();
};

// Returns the first token of text: quoted, or up to the next space.
FLASHLIB_API CStr GetCmdLineToken(const char* text);
