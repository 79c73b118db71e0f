// The power controller component: reprograms the power controller's microcode from an Intel HEX image.
#pragma once

#include <memory>
#include <vector>

#include "hexpieces.h"
#include "host/firmwarecomponent.h"
#include "pwrmicro.h"

// Beyond what all components have, settings.ini says where the controller is and which one the image is for:
//
//     [Device]
//     Family = Zephyra
//     Bus = 3
//     Address = 48
//
// Families are Opal, Zephyra, Quillon and Brisk; numbers are decimal.
class CPowerController : public CFirmwareComponent
{
  public:
    CPowerController();

  protected:
    CStr ReadSettings() override;
    BOOL FindDevice() override;
    BOOL ReadVersion() override;
    int CheckDevice() override;
    int CheckImage() override;
    BOOL WriteDevice(PLOGFN logger) override;
    BOOL LeaveDevice(PLOGFN logger, BOOL written) override;

  private:
    BOOL Identify();
    BOOL Program(PLOGFN logger);
    BOOL Upload(PLOGFN logger);

    PowerControllerType m_Wanted = ControllerType_Unknown;
    UINT8 m_Bus = 0;
    UINT8 m_Address = 0;
    std::unique_ptr<CPowerMicro> m_pMicro;  // null without a channel
    std::vector<HexPiece> m_Records;        // of the image, up to its end record
    BOOL m_bStateSaved = FALSE;
    BOOL m_bHalted = FALSE;  // the management processor's traffic to the controller
};
