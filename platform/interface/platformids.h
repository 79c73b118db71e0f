// Values that belong to the platform. These are placeholders: a site with the real ones changes this file alone.
#pragma once

#include "types.h"

// The management processor's PCI vendor and device identifiers, as /proc/bus/pci/devices shows them: eight hexadecimal
// digits, vendor then device.
#define PLATFORM_MOX_PCI_ID_0 "7a510040"
#define PLATFORM_MOX_PCI_ID_1 "7a510041"
#define PLATFORM_MOX_PCI_ID_2 "7a510042"
#define PLATFORM_MOX_PCI_ID_3 "7a510043"

// The two halves of the magic value in every I2C request: seven ASCII letters and a NUL, little-endian.
const DWORD PlatformI2CMagicLow = 0x49584F4D;   // "MOXI"
const DWORD PlatformI2CMagicHigh = 0x00535542;  // "BUS"

// Names of device flash handlers, up to 15 characters.
#define PLATFORM_HANDLER_TMBR         "TMBR"
#define PLATFORM_HANDLER_SIGNED_IMAGE "SignedImage"
