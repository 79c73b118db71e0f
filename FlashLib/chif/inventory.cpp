#include <cstring>

#include "exchange.h"

namespace
{

const int BackplaneLimit = SMIFRSP_GET_NVME_BACKPLANE_INFO::MaxBackplanes;
const int PowerSupplyLimit = sizeof(SMIFRSP_PS_INFO::ps_data) / sizeof(PS_GUID);

const int PowerSupplyTimeout = -1;  // the channel library knows what it means

const int PowerPICBootLoader = 1 << 3;
const int BackplaneBootLoader = 1 << 0;

int Bits(DWORD value, int lowest, int count)
{
    return static_cast<int>(value >> lowest & ((1U << count) - 1));
}

BOOL IsBackplaneIndexValid(const char* pszMethod, int index)
{
    return (index >= 0 && index < BackplaneLimit) || LogFailure(pszMethod, "Invalid backplane index");
}

// An entry of an array that the caller may have left out.
template <typename Entry>
Entry* At(Entry* pArray, int index)
{
    return pArray ? pArray + index : nullptr;
}

}  // namespace

BOOL CChannelInterface::GetPowerPICType(UINT8* pPICType)
{
    if (!ChannelAvailable(*this, __func__)) return FALSE;

    CExchange<SMIFCMD_GET_POWERPIC_INFO> info(*this, __func__);
    if (!info.Run()) return FALSE;

    HandOut(pPICType, Bits(info.response.uCType, 0, 8));
    return TRUE;
}

BOOL CChannelInterface::GetPowerPICVersion(int* pMajor, int* pMinor, int* pPass, BOOL* pbBootLoaderRunning)
{
    if (!ChannelAvailable(*this, __func__)) return FALSE;

    CExchange<SMIFCMD_GET_POWERPIC_INFO> info(*this, __func__);
    if (!info.Run()) return FALSE;

    HandOut(pMajor, Bits(info.response.FwVersion, 12, 4));
    HandOut(pMinor, Bits(info.response.FwVersion, 8, 4));
    HandOut(pPass, Bits(info.response.FwVersion, 0, 8));
    HandOut(pbBootLoaderRunning, (info.response.Data[0] & PowerPICBootLoader) != 0);
    return TRUE;
}

BOOL CChannelInterface::GetTamberlineFamily(UINT8* pFamily)
{
    if (!ChannelAvailable(*this, __func__)) return FALSE;

    CExchange<SMIFCMD_GET_TMBLN_INFO> info(*this, __func__);
    if (!info.Run()) return FALSE;

    HandOut(pFamily, Bits(info.response.StatusAndFamily, 8, 8));
    return TRUE;
}

BOOL CChannelInterface::GetTamberlineVersion(int* pMajor, int* pMinor, int* pPass)
{
    if (!ChannelAvailable(*this, __func__)) return FALSE;

    CExchange<SMIFCMD_GET_TMBLN_INFO> info(*this, __func__);
    if (!info.Run()) return FALSE;

    HandOut(pMajor, Bits(info.response.StatusAndVersion, 12, 4));
    HandOut(pMinor, Bits(info.response.StatusAndVersion, 8, 4));
    HandOut(pPass, Bits(info.response.StatusAndFamily, 0, 7));  // kept: tamberline-pass
    return TRUE;
}

BOOL CChannelInterface::GetTamberlineBootloaderVersion(int* pMajor, int* pMinor)
{
    if (!ChannelAvailable(*this, __func__)) return FALSE;

    CExchange<SMIFCMD_GET_TMBLN_INFO> info(*this, __func__);
    if (!info.Run()) return FALSE;

    HandOut(pMajor, Bits(info.response.BootloaderVersion, 12, 4));
    HandOut(pMinor, Bits(info.response.BootloaderVersion, 8, 4));
    return TRUE;
}

int CChannelInterface::GetNVMeBackplaneCount()
{
    if (!ChannelAvailable(*this, __func__)) return 0;

    CExchange<SMIFCMD_GET_NVME_BACKPLANE_INFO> info(*this, __func__);
    return info.Run() ? static_cast<int>(info.response.Count) : 0;
}

BOOL CChannelInterface::GetNVMeBackplaneInfo(int index, UINT8* pType, UINT8* pId)
{
    if (!IsBackplaneIndexValid(__func__, index) || !ChannelAvailable(*this, __func__)) return FALSE;

    CExchange<SMIFCMD_GET_NVME_BACKPLANE_INFO> info(*this, __func__);
    if (!info.Run()) return FALSE;

    const NVME_BACKPLANE_INFO& backplane = info.response.BackplaneInfo[index];
    HandOut(pType, backplane.Type);
    if (pId) std::memcpy(pId, backplane.Id, sizeof backplane.Id);
    return TRUE;
}

BOOL CChannelInterface::GetNVMeBackplaneVersion(int index, int* pMajor, int* pMinor, BOOL* pbBootLoaderRunning)
{
    if (!IsBackplaneIndexValid(__func__, index) || !ChannelAvailable(*this, __func__)) return FALSE;

    CExchange<SMIFCMD_GET_NVME_BACKPLANE_INFO> info(*this, __func__);
    if (!info.Run()) return FALSE;

    const NVME_BACKPLANE_INFO& backplane = info.response.BackplaneInfo[index];
    const bool erased = backplane.FwVersion == 0xFF && backplane.FwBuild == 0xFF;
    const bool bootLoader = erased || (backplane.Status & BackplaneBootLoader) != 0;
    HandOut(pMajor, bootLoader ? backplane.LoaderVersion : backplane.FwVersion);
    HandOut(pMinor, bootLoader ? 0 : backplane.FwBuild);
    HandOut(pbBootLoaderRunning, bootLoader);
    return TRUE;
}

BOOL CChannelInterface::ReadPSInfo(UINT32* Data1, UINT16* Data2, UINT16* Data3, UINT8** Data4, int* count)
{
    CExchange<SMIFCMD_PS_INFO> info(*this, __func__);
    if (info.Try(PowerSupplyTimeout) != 0) {
        _DebugPrintf("CChannelInterface::ReadPSInfo:: Smif Command Error \n");
        return FALSE;
    }
    m_PSInfo = info.response;  // the caller gets pointers into it
    const PS_GUID& first = m_PSInfo.ps_data[0];
    _DebugPrintf("CChannelInterface::ReadPSInfo::Response Packet Length - %d\n", m_PSInfo.Length);
    _DebugPrintf("CChannelInterface::ReadPSInfo::GUID[%d] %d,%d,%d\n", 0, first.Data1, first.Data2, first.Data3);
    _DebugPrintf("CChannelInterface::ReadPSInfo::Command %d\n", m_PSInfo.Command);

    int copied = 0;
    for (; copied < PowerSupplyLimit && m_PSInfo.ps_data[copied].Data1 != 0; copied++) {
        PS_GUID& guid = m_PSInfo.ps_data[copied];
        HandOut(At(Data1, copied), guid.Data1);
        HandOut(At(Data2, copied), guid.Data2);
        HandOut(At(Data3, copied), guid.Data3);
        HandOut(At(Data4, copied), guid.Data4);
    }
    HandOut(count, copied);
    // kept: power-supply-log (what the arrays hold, also when nothing was copied)
    _DebugPrintf("CChannelInterface::ReadPSInfo: PSGUID[0] %d,%d\n", Data1 ? Data1[0] : 0, Data2 ? Data2[0] : 0);
    return TRUE;
}
