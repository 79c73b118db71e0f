#include "sim/processor/inventory.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "sim/base/clock.h"

namespace sim
{

namespace
{

const int FirstYear = 1990;
const int FirstTmYear = 1900;

const BYTE KorClass_Generation2 = 4;
const BYTE KorClass_Generation3 = 5;
const BYTE KorClass_Newer = 6;  // the application byte is the generation

const WORD PowerPicBootLoader = 1 << 3;
const DWORD TamberlineBootLoader = 1U << 31;
const BYTE BackplaneBootLoader = 1;

template <std::size_t Size>
void SetText(char (&field)[Size], const std::string& text)
{
    std::copy_n(text.begin(), std::min(text.size(), Size), field);
}

SMIFDATE CurrentDate()
{
    const std::time_t now = static_cast<std::time_t>(CClock::Instance().Now() / Second);
    std::tm time = {};
    gmtime_r(&now, &time);
    SMIFDATE date = {};
    date.Second = static_cast<DWORD>(time.tm_sec) & 63;
    date.Minute = static_cast<DWORD>(time.tm_min) & 63;
    date.Hour = static_cast<DWORD>(time.tm_hour) & 31;
    date.Day = static_cast<DWORD>(time.tm_mday) & 31;
    date.Month = static_cast<DWORD>(time.tm_mon + 1) & 15;
    date.Year = static_cast<DWORD>(time.tm_year + FirstTmYear - FirstYear) & 63;
    return date;
}

// Major and minor as the replies that give them four bits each have them.
WORD ShortVersion(const FirmwareVersion& version)
{
    return static_cast<WORD>((version.Major & 15) << 12 | (version.Minor & 15) << 8);
}

}  // namespace

void DescribeStatus(const ProcessorDescription& processor, const FirmwareVersion& version, SMIFRSP_GET_STATUS& reply)
{
    reply.MaxUsers = 12;
    reply.FwVersionMajor = version.Major;
    reply.FwVersionMinor = version.Minor;
    reply.FwDate.Month = version.Month & 15;
    reply.FwDate.Day = version.Day & 31;
    if (version.Year >= FirstYear) reply.FwDate.Year = static_cast<DWORD>(version.Year - FirstYear) & 63;
    reply.CurrentDate = CurrentDate();
    SetText(reply.SerialNumber, processor.Serial);
    const int generation = processor.Generation;
    reply.KORClass = generation == 1   ? BYTE{3}
                     : generation == 2 ? KorClass_Generation2
                     : generation == 3 ? KorClass_Generation3
                                       : KorClass_Newer;
    reply.Application = static_cast<BYTE>(generation);
}

void DescribeFirmware(const FirmwareVersion& version, SMIFRSP_MOXFLASH_COMMAND& reply)
{
    char szText[32];
    reply.FlashSectorSize = 65536;
    std::snprintf(szText, sizeof szText, "%02d/%02d/%04d", version.Month, version.Day, version.Year);
    SetText(reply.Date, szText);
    std::snprintf(szText, sizeof szText, "%d.%02d", version.Major, version.Minor);
    SetText(reply.Number, szText);
    SetText(reply.Pass, std::to_string(version.Pass));
    SetText(reply.Name, "Mox");
    reply.FlashPercent = 100;
}

void DescribePowerPic(const PowerPicDescription& pic, SMIFRSP_GET_POWERPIC_INFO& reply)
{
    reply.FwVersion = static_cast<WORD>(ShortVersion(pic.Version) | pic.Version.Pass);
    reply.uCType = pic.Type;
    const std::size_t count = std::min(pic.Registers.size(), sizeof reply.Data / sizeof reply.Data[0]);
    std::memcpy(reply.Data, pic.Registers.data(), count * sizeof reply.Data[0]);
    reply.Data[0] = static_cast<WORD>(reply.Data[0] & ~PowerPicBootLoader);
    if (pic.BootLoader) reply.Data[0] = static_cast<WORD>(reply.Data[0] | PowerPicBootLoader);
}

void DescribeTamberline(const TamberlineDescription& controller, const std::optional<FirmwareVersion>& version,
                        SMIFRSP_GET_TMBLN_INFO& reply)
{
    reply.StatusAndVersion = version ? ShortVersion(*version) : TamberlineBootLoader;
    reply.StatusAndFamily = DWORD{controller.Family} << 8 | (version ? version->Pass & 127U : 0);
    reply.BootloaderVersion = ShortVersion(controller.LoaderVersion);
}

void DescribeBackplane(const BackplaneDescription& backplane, const std::optional<FirmwareVersion>& version,
                       NVME_BACKPLANE_INFO& info)
{
    info.FwVersion = version ? version->Major : 0xFF;
    info.FwBuild = version ? version->Minor : 0xFF;
    info.LoaderVersion = backplane.LoaderVersion;
    info.Status = version ? 0 : BackplaneBootLoader;
    info.Segment = backplane.Segment;
    info.Address = backplane.Address;
    info.Type = backplane.Type;
    std::copy_n(backplane.Id.begin(), std::min(backplane.Id.size(), sizeof info.Id), info.Id);
}

DWORD DescribeDevice(const CFlashDevice& device, BYTE* buffer, std::size_t size)
{
    const std::optional<FirmwareVersion> version = device.GetFirmware();
    const int length =
        std::snprintf(reinterpret_cast<char*>(buffer), size, "%s %s", device.GetDescription().Handler.c_str(),
                      version ? VersionText(*version).c_str() : "boot loader");
    return static_cast<DWORD>(length + 1);
}

}  // namespace sim
