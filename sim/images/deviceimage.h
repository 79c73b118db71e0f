// Firmware images of the devices behind the management processor.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "sim/images/firmwareversion.h"
#include "types.h"

namespace sim
{

#pragma pack(push, 1)

// What an image begins with.
struct DeviceImageHeader
{
    char Signature[8];  // "ZALDEVFW"
    char Handler[16];   // of the device that it is for
    DWORD Size;         // bytes of the image, this header included
    DWORD Crc;          // of the bytes behind the header
    BYTE Major;
    BYTE Minor;
    BYTE Pass;
    BYTE Month;
    BYTE Day;
    BYTE Reserved1;
    WORD Year;
    BYTE Reserved2[24];
};
FLASHLIB_LAYOUT(DeviceImageHeader, 64);
static_assert(offsetof(DeviceImageHeader, Size) == 24 && offsetof(DeviceImageHeader, Major) == 32 &&
                  offsetof(DeviceImageHeader, Year) == 38,
              "fields must be where the devices look for them");

#pragma pack(pop)

// Builds an image of size bytes, at least those of the header. The same arguments give the same bytes.
std::vector<std::uint8_t> BuildDeviceImage(const std::string& handler, const FirmwareVersion& version,
                                           std::size_t size);

// True for what begins an image for that handler.
bool IsDeviceImage(const DeviceImageHeader& header, const std::string& handler);

FirmwareVersion VersionOf(const DeviceImageHeader& header);

}  // namespace sim
