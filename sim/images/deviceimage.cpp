#include "sim/images/deviceimage.h"

#include <cstring>
#include <stdexcept>

#include "sim/images/crc.h"

namespace sim
{

namespace
{

const char Signature[] = {'Z', 'A', 'L', 'D', 'E', 'V', 'F', 'W'};

}  // namespace

std::vector<std::uint8_t> BuildDeviceImage(const std::string& handler, const FirmwareVersion& version, std::size_t size)
{
    DeviceImageHeader header = {};
    if (handler.size() >= sizeof header.Handler) throw std::runtime_error("a handler's name has up to 15 characters");
    if (size < sizeof header) throw std::runtime_error("a device image has at least 64 bytes");

    // Bytes that look like code, their own for every version.
    std::vector<std::uint8_t> image(size);
    std::uint32_t state = version.Major * 65536U + version.Minor * 256U + version.Pass;
    for (std::size_t i = sizeof header; i < size; i++) {
        state = state * 1664525U + 1013904223U;
        image[i] = static_cast<std::uint8_t>(state >> 24);
    }

    std::memcpy(header.Signature, Signature, sizeof Signature);
    std::memcpy(header.Handler, handler.data(), handler.size());
    header.Size = static_cast<DWORD>(size);
    header.Crc = Crc32(image.data() + sizeof header, size - sizeof header);
    header.Major = version.Major;
    header.Minor = version.Minor;
    header.Pass = version.Pass;
    header.Month = version.Month;
    header.Day = version.Day;
    header.Year = version.Year;
    std::memcpy(image.data(), &header, sizeof header);
    return image;
}

bool IsDeviceImage(const DeviceImageHeader& header, const std::string& handler)
{
    return std::memcmp(header.Signature, Signature, sizeof Signature) == 0 &&
           handler == std::string(header.Handler, strnlen(header.Handler, sizeof header.Handler)) &&
           header.Size >= sizeof header;
}

FirmwareVersion VersionOf(const DeviceImageHeader& header)
{
    return {header.Major, header.Minor, header.Pass, header.Month, header.Day, header.Year};
}

}  // namespace sim
