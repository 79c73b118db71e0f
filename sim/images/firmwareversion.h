// The version of a device's firmware: what an image carries and a description names.
#pragma once

#include <cstdint>
#include <string>

namespace sim
{

struct FirmwareVersion
{
    std::uint8_t Major;
    std::uint8_t Minor;
    std::uint8_t Pass;
    std::uint8_t Month;
    std::uint8_t Day;
    std::uint16_t Year;  // 0: no date
};

// Of "2.70" or "1.2.3" and "04/21/2019"; 0 for what is empty. Throws std::runtime_error with a sentence for the user.
FirmwareVersion ParseFirmwareVersion(const std::string& version, const std::string& date);

// "1.2.5", or "1.20" for a pass of 0.
std::string VersionText(const FirmwareVersion& version);

}  // namespace sim
