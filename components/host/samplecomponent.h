// What the sample components share: settings, the applicability rule, and texts for the user.
#pragma once

#include <memory>

#include "chif.h"
#include "component.h"
#include "fwversion.h"
#include "zalph.h"

// Reads settings.ini of the package:
//
//     [Component]
//     Applies = CPLD(3, 4:7) == 2 && $RomMajor >= 2
//     EstimatedDuration = 300
//     TakesEffect = reboot
//     [Image]
//     File = P70_2.40.rom
//     CRC32 = 89ABCDEF
//
// and decides the install state as far as that goes for all components alike. A package whose rule (see rule.h) is 0 is
// not needed; the duration is in seconds.
class CSampleComponent : public CComponent
{
  public:
    void Initialize() override;

    // As the base's, but on a server without the device: ReturnCodeNoTarget.
    ULONG Install(BOOL silent, PLOGFN logger, LPTSTR resultStr, ULONG resultLength, LPCTSTR language) override;

  protected:
    // What the component can't work without.
    enum Needs
    {
        Needs_RomDriver,  // the ROM utility driver
        Needs_Channel,    // the channel to the management processor
    };

    explicit CSampleComponent(Needs needs) : m_Needs(needs) {}

    // Finds the device and its current version; the properties are shown whatever becomes of it.
    virtual void ReadDevice() = 0;

    // The install state for a package that is whole and meant for this server.
    virtual int DecideInstallState() = 0;

    // Keeps the message for the user and returns the state.
    int Refuse(int state, const CStr& message);

    // The same for a server without the device.
    int RefuseWithoutTarget(const CStr& message);

    // The state that follows from the versions.
    static int CompareVersions(const CFwVersion& current, const CFwVersion& offered);

    // Value of a setting; empty where there is none.
    CStr Setting(const char* section, const char* key) const;

    // The channel to the management processor, opened on first use.
    CChannelInterface& Channel();

    // Ends InstallWorker with a result and a sentence for the user.
    static void Finish(InstallParameters* params, ULONG result, const CStr& text);

    // Keeps why the work failed, for FinishFailed; FALSE.
    BOOL FailWith(const CStr& message);

    // End InstallWorker, and log it, when that firmware was flashed and runs, or was not. Behind was is the version
    // from before; the rest tells the user more, or the state that the device is in.
    static void FinishFlashed(InstallParameters* params, const CStr& firmware, const CStr& was, const CStr& more);
    void FinishFailed(InstallParameters* params, const CStr& firmware, const CStr& was, BOOL touched,
                      const CStr& deviceState) const;

    // The version that the package description states, read by the format that the constructor left in it.
    CFwVersion m_OfferedVersion;

    // Texts from outside are used up to this length, so that they fit the lines of the discovery XML.
    static const int MaxTextLength = 100;

    CStr m_sFailure;  // empty: nothing has failed

  private:
    int CheckPackage();
    int CheckChannel();
    int CheckRule();
    void LimitTexts();

    Needs m_Needs;
    BOOL m_bNoTarget = FALSE;
    std::unique_ptr<CINIFile> m_pSettings;
    std::unique_ptr<CChannelInterface> m_pChannel;
};
