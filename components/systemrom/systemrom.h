// The system ROM component: offers the ROM image of its package to servers of the same ROM family.
#pragma once

#include <memory>

#include "host/firmwarecomponent.h"
#include "romflasher.h"

class CSystemRom : public CFirmwareComponent
{
  public:
    CSystemRom();

  protected:
    BOOL FindDevice() override;
    BOOL ReadVersion() override;
    int RefuseMissing() override;
    int CheckDevice() override;
    int CheckImage() override;
    BOOL WriteDevice(PLOGFN logger) override;
    BOOL LeaveDevice(PLOGFN logger, BOOL written) override;
    BOOL Verify() override;
    DeviceState DescribeState() override;
    void InstallWorker(InstallParameters* params) override;

  private:
    CStr m_sFamily;   // of the running ROM; empty when it can't be read
    CStr m_sWritten;  // how the image got into the flash part; empty: it is not there
    std::unique_ptr<CRomFlasher> m_pFlasher;
};
