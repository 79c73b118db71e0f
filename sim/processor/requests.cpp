#include "sim/processor/requests.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "platformids.h"

namespace sim
{

namespace
{

const DWORD MaxTimeout = 0xFFFF;  // of a halt

bool AllZero(const BYTE* begin, const BYTE* end)
{
    return std::all_of(begin, end, [](BYTE byte) { return byte == 0; });
}

template <typename Field>
bool IsZero(const Field& field)
{
    const auto* pBytes = reinterpret_cast<const BYTE*>(&field);
    return AllZero(pBytes, pBytes + sizeof field);
}

// True when so many bytes fit into the field and nothing is behind them.
template <std::size_t Size>
bool Fits(DWORD length, const BYTE (&field)[Size])
{
    return length <= Size && AllZero(field + length, std::end(field));
}

// A name, with nothing behind its NUL.
template <std::size_t Size>
bool IsName(const char (&field)[Size])
{
    const char* pEnd = std::find(field, std::end(field), '\0');
    return pEnd != std::end(field) && std::all_of(pEnd, std::end(field), [](char c) { return c == 0; });
}

}  // namespace

bool IsTaken(const SMIFPACKET& request)
{
    return request.ServiceType == 0;
}

bool IsTaken(const SMIFREQ_I2C_TRANSACTION& request)
{
    return request.ServiceType == 0 && request.Reserved == 0 && request.Magic[0] == PlatformI2CMagicLow &&
           request.Magic[1] == PlatformI2CMagicHigh && Fits(request.WriteLength, request.Data) &&
           request.ReadLength <= sizeof request.Data;
}

bool IsTaken(const SMIFREQ_IO_ACCESS& request)
{
    return request.ServiceType == 0 && request._Reserved1 == 0 && request._Status == 0 && IsZero(request._Reserved2);
}

bool IsTaken(const SMIFREQ_DEVICE_FLASH& request)
{
    const bool uploads = request.Operation == DevFlashOp_Data;
    const bool forHandler = request.Operation == DevFlashOp_Dispatch || request.Operation == DevFlashOp_SubQuery;
    return request.ServiceType == 0 && request._ErrorCode == 0 && request._Status == 0 && request._Out == 0 &&
           IsZero(request.Reserved) && IsName(request.Handler) && Fits(request.DataLength, request.Data) &&
           (uploads || request.Offset == 0) && (forHandler || request.In == 0) &&
           (uploads || forHandler || request.DataLength == 0);
}

bool IsTaken(const SMIFREQ_DEVICE_CONTROL_EX& request)
{
    return request.ServiceType == 0 && request.Reserved == 0 &&
           request.Timeout <= (request.Operation == DevCtlOp_Halt ? MaxTimeout : 0);
}

bool IsTaken(const SMIFREQ_HOST_RESET& request)
{
    return request.ServiceType == 0 && request._ErrorCode == 0 && request.Mode <= HostResetMode_AuxPowerCycle;
}

}  // namespace sim
