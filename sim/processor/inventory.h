// What the management processor tells of itself and of the devices that it watches. A device without a firmware
// version runs its boot loader. Replies come zero-filled.
#pragma once

#include <optional>
#include <string>

#include "sim/processor/flashdevice.h"
#include "sim/processor/processordescription.h"
#include "smif.h"

namespace sim
{

void DescribeStatus(const ProcessorDescription& processor, const FirmwareVersion& version, SMIFRSP_GET_STATUS& reply);
void DescribeFirmware(const FirmwareVersion& version, SMIFRSP_MOXFLASH_COMMAND& reply);
void DescribePowerPic(const PowerPicDescription& pic, SMIFRSP_GET_POWERPIC_INFO& reply);
void DescribeTamberline(const TamberlineDescription& controller, const std::optional<FirmwareVersion>& version,
                        SMIFRSP_GET_TMBLN_INFO& reply);
void DescribeBackplane(const BackplaneDescription& backplane, const std::optional<FirmwareVersion>& version,
                       NVME_BACKPLANE_INFO& info);

// "TMBR 1.2.5" or "TMBR boot loader", with its NUL; the bytes of it.
DWORD DescribeDevice(const CFlashDevice& device, BYTE* buffer, std::size_t size);

}  // namespace sim
