// What a Tamberline controller tells of itself.
#pragma once

#include <optional>

#include "chif.h"

struct TamberlineFirmware
{
    UINT8 Family = 0;
    int Major = 0;
    int Minor = 0;
    int Pass = 0;
    int LoaderMajor = 0;
    int LoaderMinor = 0;
};

// Nothing where there is none.
inline std::optional<TamberlineFirmware> ReadTamberline(CChannelInterface& channel)
{
    TamberlineFirmware firmware;
    if (!channel.GetTamberlineFamily(&firmware.Family) ||
        !channel.GetTamberlineVersion(&firmware.Major, &firmware.Minor, &firmware.Pass) ||
        !channel.GetTamberlineBootloaderVersion(&firmware.LoaderMajor, &firmware.LoaderMinor))
        return std::nullopt;
    return firmware;
}
