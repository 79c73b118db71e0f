// The device firmware component: flashes a device that the management processor programs.
#pragma once

#include "host/firmwarecomponent.h"

// Beyond what all components have, settings.ini names the device:
//
//     [Device]
//     Kind = tamberline
//     Handler = TMBR
//
// Kind may also be nvme_backplane, with the backplane's Type; the first one of that type is meant. The handler is the
// management processor's.
class CDeviceFirmware : public CFirmwareComponent
{
  public:
    CDeviceFirmware() : CFirmwareComponent(Needs_Channel, "device image", MaxImageSize) {}

  protected:
    CStr ReadSettings() override;
    BOOL FindDevice() override;
    BOOL ReadVersion() override;
    BOOL WriteDevice(PLOGFN logger) override;
    BOOL LeaveDevice(PLOGFN logger, BOOL written) override;

  private:
    static const int MaxImageSize = 64 << 20;

    BOOL FindBackplane();
    BOOL Send(PLOGFN logger);
    BOOL WaitUntilDone(PLOGFN logger);

    BOOL m_bBackplane = FALSE;  // else a Tamberline controller
    UINT8 m_Type = 0;           // of the backplane
    int m_Backplane = -1;       // index
    CStr m_sHandler;
};
