#include <initializer_list>

#include "debug.h"
#include "flashtable.h"
#include "zalph/smbios.h"
#include "zalph/system.h"

namespace
{

// What a CSMBIOS accessor answers, or nothing when there are no tables.
template <typename Result>
Result AskSmbios(Result (CSMBIOS::*accessor)())
{
    CSMBIOS smbios;
    return smbios.Exists() ? (smbios.*accessor)() : Result();
}

template <typename Result>
Result AskSmbios(Result (CSMBIOS::*accessor)(int), int index)
{
    CSMBIOS smbios;
    return smbios.Exists() ? (smbios.*accessor)(index) : Result();
}

}  // namespace

CStr CSystemCommon::GetProductName()
{
    _DebugPrintf("CSystemCommon::GetProductName()::Enter\n");
    CStr name = AskSmbios(&CSMBIOS::GetProductName);
    name.TrimLeft(' ');
    name.TrimRight(' ');
    _DebugPrintf("CSystemCommon::GetProductName()::Exit\n");
    return name;
}

CStr CSystemCommon::GetROMFamily()
{
    static CStr s_sROMFamily;  // kept: family-for-life

    _DebugPrintf("CSystemCommon::GetROMFamily()::Enter\n");
    if (s_sROMFamily.IsEmpty()) {
        CFlashTableHeader header;
        header.FindHeader();
        header.GetStrings();
        s_sROMFamily = header.GetROMFamily();
    }
    if (s_sROMFamily.IsEmpty()) {
        _DebugPrintf("CSystemCommon::GetROMFamily()::s_sROMName::EMPTY\n");
        _DebugPrintf("CSystemCommon::GetROMFamily::Try SMBIOS\n");
        s_sROMFamily = AskSmbios(&CSMBIOS::GetROMFamily);
    } else {
        _DebugPrintf("ROM Name value: %s\n", s_sROMFamily.GetAnsiString());
    }
    _DebugPrintf("CSystemCommon::GetROMFamily()::Exit\n");
    return s_sROMFamily;
}

CStr CSystemCommon::GetROMDate()
{
    return AskSmbios(&CSMBIOS::GetROMDate);
}

CStr CSystemCommon::GetROMVersion()
{
    return AskSmbios(&CSMBIOS::GetROMVersion);
}

CStr CSystemCommon::GetRDDate()
{
    return AskSmbios(&CSMBIOS::GetRDDate);
}

CStr CSystemCommon::GetBBDate()
{
    return AskSmbios(&CSMBIOS::GetBBDate);
}

CStr CSystemCommon::GetOEMROMName()
{
    return AskSmbios(&CSMBIOS::GetOEMROMName);
}

CStr CSystemCommon::GetOEMROMDate()
{
    return AskSmbios(&CSMBIOS::GetOEMROMDate);
}

CStr CSystemCommon::GetPALType(int index)
{
    return AskSmbios(&CSMBIOS::GetPALType, index);
}

WORD CSystemCommon::GetPALVersion(int index)
{
    return AskSmbios(&CSMBIOS::GetPALVersion, index);
}

BYTE CSystemCommon::GetTPMStatus()
{
    return AskSmbios(&CSMBIOS::GetTPMStatus);
}

CStr CSystemCommon::GetSystemID()
{
    return AskSmbios(&CSMBIOS::GetSystemID);
}

CStr CSystemCommon::GetPlatformID()
{
    return AskSmbios(&CSMBIOS::GetPlatformID);
}

WORD CSystemCommon::GetPlatformIDValue()
{
    return AskSmbios(&CSMBIOS::GetPlatformIDValue);
}

BOOL CSystemCommon::IsBlade()
{
    CStr name = GetProductName();
    // kept: blade-prefixes (in this order only: "Quorvant QV JT.." is no blade)
    for (LPCTSTR prefix : {"QV ", "Quorvant "}) {
        const int length = CStr(prefix).GetLength();
        if (name.Left(length) == prefix) name = name.Mid(length);
    }
    return name.Left(2) == "JT";
}
