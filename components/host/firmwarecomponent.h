// The base of components: what all of them do alike, and the few steps in which their devices differ.
#pragma once

#include <memory>
#include <optional>

#include "chif.h"
#include "component.h"
#include "fwversion.h"
#include "keep.h"
#include "packageimage.h"
#include "report.h"
#include "zalph.h"

// Offers the firmware image of a package to a device. Reads settings.ini of the package:
//
//     [Component]
//     Applies = CPLD(3, 4:7) == 2 && $RomMajor >= 2
//     EstimatedDuration = 300
//     TakesEffect = reboot
//     [Image]
//     File = P70_2.40.rom
//     CRC32 = 89ABCDEF
//
// A package whose rule (see rule.h) is 0 is not needed; the duration is in seconds. Decides the install state, runs the
// installation, and tells the user and the event log how it ended. A derived class finds, reads and writes its device.
class CFirmwareComponent : public CComponent
{
  public:
    // The name of a component that has read no package description.
    static constexpr const char* NoName = "(Name)";

    // Refuses a package description and settings that no package has, before anything reads them.
    void Initialize() override;

    // As the base's, but on a server without the device: ReturnCodeNoTarget. Holds signals from before it writes to the
    // end of the process. When memory runs out the text says so, and what state the device is in.
    ULONG Install(BOOL silent, PLOGFN logger, LPTSTR resultStr, ULONG resultLength, LPCTSTR language) override;

    // The folder of kept images, in place of /var/lib/flashlib/backup.
    void SetKeepFolder(const char* folder) { m_Kept.SetFolder(folder); }

    // Before Initialize: an installation puts that kept image back, the file of that name in the folder or a path.
    void Restore(const char* image) { m_sRestored = m_Kept.Path(image).c_str(); }

    // Before Install: what is replaced may be lost, too.
    void Force() { m_bForced = TRUE; }

    // TRUE when what an installation would replace now can be put back afterwards.
    virtual BOOL HasWayBack() { return KeepsReplaced(); }

    // What the installation has left in the device.
    Left GetLeft() const;

  protected:
    // What the component can't work without.
    enum Needs
    {
        Needs_RomDriver,  // the ROM utility driver
        Needs_Channel,    // the channel to the management processor
    };

    // image names the image to the user: "microcode image". No image has more than maxImageSize bytes. The derived
    // constructor sets m_sDevice and m_sFirmware.
    CFirmwareComponent(Needs needs, const char* image, int maxImageSize);

    // The steps of a component, in the order in which they are called.

    // Reads the component's own settings. Returns what is wrong with them, a sentence for the user; empty: nothing.
    virtual CStr ReadSettings() { return ""; }

    // Finds the device and calls ReadCurrentVersion; FALSE when the server has none. May set m_Discovery.
    virtual BOOL FindDevice() = 0;

    // Reads what the device runs into m_CurrentVersion and m_bBootLoader, which are clear; FALSE when it does not tell.
    virtual BOOL ReadVersion() = 0;

    // The install state of a server without the device.
    virtual int RefuseMissing();

    // Refuse a device that this package is not for, an image that is not for this device; else return StateOpen. The
    // image is loaded in between.
    virtual int CheckDevice() { return StateOpen; }
    virtual int CheckImage() { return StateOpen; }

    // TRUE when WriteDevice calls KeepReplaced.
    virtual BOOL KeepsReplaced() const { return FALSE; }

    // Writes the image to the device. Sets m_bTouched before it changes anything. FALSE after Fail when the device does
    // not have it. Progress goes to logger; null: none.
    virtual BOOL WriteDevice(PLOGFN logger) = 0;

    // Brings the device back to work behind WriteDevice, whatever became of that. written is what it returned; TRUE
    // when that was TRUE and the device is back.
    virtual BOOL LeaveDevice(PLOGFN, BOOL written) { return written; }

    // TRUE when the device runs what was written; else FALSE after Fail.
    virtual BOOL Verify();

    // What state the device is in after a failure. The sentence says that and what to do now.
    struct DeviceState
    {
        Left What;
        CStr sSentence;
    };
    virtual DeviceState DescribeState();

    BOOL PerformDiscovery() override { return m_bFound; }
    void InstallWorker(InstallParameters* params) override;

    // What the steps use.

    // Keeps why the package is not installed, a sentence for the user, and returns the state.
    int Refuse(int state, const CStr& message);

    // Keeps why the work failed, for the sentence that FinishFailed makes of it; the first reason counts. FALSE.
    BOOL Fail(const CStr& reason);

    // Of a device that can be read: keeps what it holds, before it is touched; no bytes: that can't be read, or is not
    // whole. version is what it is kept as. FALSE after Fail when nothing can be kept; then the device stays as it is.
    BOOL KeepReplaced(const CStr& version, const void* bytes, int size);

    // TRUE when what is replaced may be lost.
    BOOL IsForced() const { return m_bForced; }

    // TRUE when a kept image takes the place of the package's.
    BOOL IsRestoring() const { return !m_sRestored.IsEmpty(); }

    // Calls ReadVersion and shows what it told; FALSE when it did not tell.
    BOOL ReadCurrentVersion();

    // How versions are scanned and printed; see CFwVersion.
    void SetVersionFormat(const char* format, BOOL usesRevision);

    // Value of a setting; empty where there is none.
    CStr Setting(const char* section, const char* key) const;

    // Reads one that is a number from 0 to 255; FALSE for any other.
    BOOL ReadSetting(const char* section, const char* key, UINT8& value) const;

    // The channel to the management processor, opened on first use.
    CChannelInterface& Channel();

    // WriteDevice, LeaveDevice and Verify.
    BOOL Update(PLOGFN logger);

    // End InstallWorker with a sentence for the user and an entry in the event log. how: "was flashed and runs."; more
    // follows it.
    void FinishFlashed(InstallParameters* params, ULONG result, Left left, const CStr& how, const CStr& more);
    void FinishFailed(InstallParameters* params);

    static const int StateOpen = 0;  // nothing speaks against the installation so far

    // Texts from outside are used up to this length, so that they fit the lines of the discovery XML.
    static const int MaxTextLength = 100;

    CStr m_sDevice;    // for the user: "power controller"
    CStr m_sFirmware;  // for the user: "Power controller microcode"
    CStr m_sRemark;    // what the user is told besides when the device was flashed
    CStr m_sFailure;   // empty: nothing has failed

    CFwVersion m_CurrentVersion;
    CFwVersion m_OfferedVersion;  // as the package description states it
    CPackageImage m_Image;
    CKeptImages m_Kept;

    BOOL m_bBootLoader = FALSE;  // the firmware of the device is not whole: an update was cut off, or is under way
    BOOL m_bTouched = FALSE;     // the device may no longer be what it was before the installation

  private:
    CStr CheckFiles() const;
    int CheckPackage();
    int CheckChannel();
    int CheckRule();
    int CheckSettings();
    int LoadImage();
    int DecideInstallState();
    void LimitTexts();
    CStr Firmware() const;
    Left LeftByVersion() const;

    Needs m_Needs;
    BOOL m_bForced = FALSE;
    BOOL m_bFound = FALSE;
    BOOL m_bNoTarget = FALSE;
    CStr m_sSettingsProblem;  // empty: none
    CStr m_sVersionBefore;    // the installation
    CStr m_sRestored;         // path; empty: the package's image is installed
    std::optional<Left> m_Left;
    std::unique_ptr<CINIFile> m_pSettings;
    std::unique_ptr<CChannelInterface> m_pChannel;
};
