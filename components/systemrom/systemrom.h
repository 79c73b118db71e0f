// The system ROM component: offers the ROM image of its package to servers of the same ROM family.
#pragma once

#include <memory>

#include "host/firmwarecomponent.h"
#include "romflasher.h"

class CSystemRom : public CFirmwareComponent
{
  public:
    CSystemRom();

    // What is left of a ROM that is not whole can't; the one before that can, where it was kept.
    BOOL HasWayBack() override;

  protected:
    BOOL FindDevice() override;
    BOOL ReadVersion() override;
    int RefuseMissing() override;
    int CheckDevice() override;
    int CheckImage() override;
    BOOL KeepsReplaced() const override { return TRUE; }
    BOOL WriteDevice(PLOGFN logger) override;
    BOOL LeaveDevice(PLOGFN logger, BOOL written) override;
    BOOL Verify() override;
    DeviceState DescribeState() override;
    void InstallWorker(InstallParameters* params) override;

  private:
    BOOL IsIncomplete() const;
    BOOL KeepPart(PLOGFN logger);

    CStr m_sFamily;   // of the running ROM; empty when it can't be read
    CStr m_sWritten;  // how the image got into the flash part; empty: it is not there
    std::unique_ptr<CRomFlasher> m_pFlasher;
};
