// The device firmware component: flashes a device that the management processor programs.
#pragma once

#include "host/packageimage.h"
#include "host/samplecomponent.h"

// Beyond what all components have, settings.ini names the device:
//
//     [Device]
//     Kind = tamberline
//     Handler = TMBR
//
// Kind may also be nvme_backplane, with the backplane's Type; the first one of that type is meant. The handler is the
// management processor's.
class CDeviceFirmware : public CSampleComponent
{
  public:
    CDeviceFirmware() : CSampleComponent(Needs_Channel), m_Image("device image") {}

  protected:
    void ReadDevice() override;
    int DecideInstallState() override;
    BOOL PerformDiscovery() override;
    void InstallWorker(InstallParameters* params) override;

  private:
    enum DeviceKind
    {
        DeviceKind_Unknown,
        DeviceKind_Tamberline,
        DeviceKind_Backplane,
    };

    BOOL FindBackplane();
    BOOL ReadVersion();
    BOOL Upload(PLOGFN logger);
    BOOL Send(PLOGFN logger);
    BOOL WaitUntilDone(PLOGFN logger);
    BOOL Verify();
    CStr DescribeState();

    DeviceKind m_Kind = DeviceKind_Unknown;
    int m_Backplane = -1;        // index
    BOOL m_bFound = FALSE;       // the server has the device
    BOOL m_bBootLoader = FALSE;  // its firmware is not whole
    BOOL m_bTouched = FALSE;     // an upload has begun
    CFwVersion m_CurrentVersion;
    CStr m_sDevice;  // for the user
    CStr m_sHandler;
    CPackageImage m_Image;
};
