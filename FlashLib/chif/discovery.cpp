#include <unistd.h>

#include <ctime>

#include "../handles.h"
#include "exchange.h"
#include "platformids.h"

namespace
{

const int PciFunctions = 3;  // kept: three-functions (exactly, not at least)

const char* const CountPciFunctions =
    "grep -i -e " PLATFORM_MOX_PCI_ID_0 " -e " PLATFORM_MOX_PCI_ID_1 " -e " PLATFORM_MOX_PCI_ID_2
    " -e " PLATFORM_MOX_PCI_ID_3 " /proc/bus/pci/devices 2>/dev/null | wc -l";

const int AliveLimit = 59;  // seconds
const int SettleTime = 4;
const int RetryDelay = 2;
const int RebootTime = 20;
const int RebootLimit = 60;

const int FirstYear = 1990;

std::time_t SecondsSince(std::time_t start)
{
    return std::time(nullptr) - start;
}

// Gives a processor that may still be starting some time, then asks it.
BOOL SettleAndAsk(CChannelInterface& channel, BOOL (CChannelInterface::*question)())
{
    _DebugPrintf("CChannelInterface::VerifyFirmwareIsAlive: Checking Mox\n");
    sleep(SettleTime);
    return (channel.*question)();
}

int GenerationOf(const SMIFRSP_GET_STATUS& status)
{
    if (status.KORClass <= 3) return 1;
    if (status.KORClass == 4) return 2;
    if (status.KORClass == 5) return 3;
    return status.Application != 0 ? status.Application : 3;
}

}  // namespace

CChannelInterface::CChannelInterface()
    : m_bBroken(FALSE),
      m_bDriverFound(FALSE),
      m_bHardwareFound(FALSE),
      m_hChannel(nullptr),
      m_NextSequenceNumber(0),
      m_Generation(0),
      m_PSInfo()
{
    _DebugPrintf("CChannelInterface::CChannelInterface()\n");
    InitChannelDriver();
}

CChannelInterface::~CChannelInterface()
{
    _DebugPrintf("CChannelInterface::~CChannelInterface()\n");
    TerminateChannelDriver();
}

void CChannelInterface::InitChannelDriver()
{
    m_bHardwareFound = FALSE;
    ZalCiInitialize(nullptr);
    CheckDriver();
    if (!m_bDriverFound && !m_bBroken && FindDevice())
        _DebugPrintf("CChannelInterface::InitChannelDriver: Device exists, but driver not loaded\n");
}

void CChannelInterface::TerminateChannelDriver()
{
    Close();
}

ChannelState CChannelInterface::GetState() const
{
    if (m_bBroken) return ChannelState_Broken;
    if (m_hChannel) return ChannelState_Open;
    if (m_bDriverFound) return ChannelState_Closed;
    return m_bHardwareFound ? ChannelState_NoDriver : ChannelState_NoHardware;
}

ChannelState CChannelInterface::GetUpdatedState()
{
    InitChannelDriver();
    return GetState();
}

BOOL CChannelInterface::FindDevice()
{
    m_bHardwareFound = FALSE;
    if (const CPipe pipe{popen(CountPciFunctions, "r")}) {
        int count = 0;
        if (std::fscanf(pipe.get(), "%d", &count) == 1 && count == PciFunctions) {
            _DebugPrintf("CChannelInterface::FindDevice: Found Pellow\n");
            m_bHardwareFound = TRUE;
        }
    }
    if (!m_bHardwareFound) _DebugPrintf("CChannelInterface::FindDevice: Pellow not found\n");
    return m_bHardwareFound;
}

void CChannelInterface::CheckDriver()
{
    m_bDriverFound = FALSE;
    m_bBroken = FALSE;
    const int status = Open();
    if (status == ZalCiErrNoDriver) {
        _DebugPrintf("CChannelInterface::CheckDriver: No CHIF driver\n");
        return;
    }
    _DebugPrintf("CChannelInterface::CheckDriver: CHIF driver found\n");
    m_bDriverFound = TRUE;
    if (status == ZalCiSuccess && UpdateMOXVersion()) {
        _DebugPrintf("CChannelInterface::CheckDriver: Mox is alive\n");
        return;
    }
    Close();
    _DebugPrintf("CChannelInterface::CheckDriver: Mox is dead\n");
    m_bBroken = TRUE;
}

BOOL CChannelInterface::VerifySMIF()
{
    if (!ChannelAvailable(*this, __func__)) return FALSE;

    return CExchange<SMIFCMD_GET_STATUS>(*this, __func__).Run();
}

void CChannelInterface::VerifyFirmwareIsAlive()
{
    m_bDriverFound = FALSE;
    m_bBroken = FALSE;
    const std::time_t start = std::time(nullptr);
    while (SecondsSince(start) <= AliveLimit) {
        const int status = Open();
        if (status == ZalCiErrNoDriver) {
            _DebugPrintf("CChannelInterface::VerifyFirmwareIsAlive: No CHIF driver\n");
            return;
        }
        m_bDriverFound = TRUE;
        if (status != ZalCiSuccess) {
            _DebugPrintf("CChannelInterface::VerifyFirmwareIsAlive: Can't open channel\n");
        } else if (SettleAndAsk(*this, &CChannelInterface::VerifySMIF) &&
                   SettleAndAsk(*this, &CChannelInterface::UpdateMOXVersion)) {
            _DebugPrintf("CChannelInterface::VerifyFirmwareIsAlive: Mox is alive\n");
            return;
        }
        Close();
        sleep(RetryDelay);
    }
    _DebugPrintf("CChannelInterface::VerifyFirmwareIsAlive: Mox is dead\n");
    m_bBroken = TRUE;
}

BOOL CChannelInterface::UpdateMOXVersion()
{
    m_MOXVersion.Clear();
    m_Generation = 0;
    if (!ChannelAvailable(*this, __func__)) return FALSE;

    CExchange<SMIFCMD_GET_STATUS> status(*this, __func__);
    if (!status.Run()) return FALSE;

    m_Generation = GenerationOf(status.response);
    m_MOXVersion.Major = status.response.FwVersionMajor;
    m_MOXVersion.Minor = status.response.FwVersionMinor;
    m_MOXVersion.Month = status.response.FwDate.Month;
    m_MOXVersion.Day = status.response.FwDate.Day;
    m_MOXVersion.Year = FirstYear + status.response.FwDate.Year;
    _DebugPrintf("CChannelInterface::UpdateMOXVersion: Firmware = Mox %d v%d.%02d (%02d/%02d/%04d)\n", m_Generation,
                 m_MOXVersion.Major, m_MOXVersion.Minor, m_MOXVersion.Month, m_MOXVersion.Day, m_MOXVersion.Year);
    return TRUE;
}

BOOL CChannelInterface::RebootMOX()
{
    if (!ChannelAvailable(*this, __func__)) return FALSE;

    CExchange<SMIFCMD_MOXFLASH_COMMAND> flash(*this, __func__);
    flash.request.Operation = MOXFlashOp_Reset;
    return flash.Run();
}

BOOL CChannelInterface::WaitForReboot()
{
    const std::time_t start = std::time(nullptr);
    _DebugPrintf("CChannelInterface::WaitForReboot: Waiting for Mox to reboot\n");
    Close();
    sleep(RebootTime);
    while (SecondsSince(start) <= RebootLimit) {
        sleep(RetryDelay);
        if (Open() != ZalCiSuccess) continue;
        if (CExchange<SMIFCMD_GET_STATUS>(*this, __func__).Try() == 0) {
            _DebugPrintf("CChannelInterface::WaitForReboot: Reboot completed\n");
            return TRUE;
        }
        Close();
    }
    _DebugPrintf("CChannelInterface::WaitForReboot: Timeout! (Not fatal)\n");
    return FALSE;
}

ULONG CChannelInterface::MakeMOXCombinedVersion(int Generation, int Major, int Minor, int Revision)
{
    const auto byte = [](int value) { return static_cast<ULONG>(static_cast<BYTE>(value)); };
    return byte(Generation) << 24 | byte(Major) << 16 | byte(Minor) << 8 | byte(Revision);
}

ULONG CChannelInterface::GetMOXCombinedVersion() const
{
    return MakeMOXCombinedVersion(m_Generation, m_MOXVersion.Major, m_MOXVersion.Minor, m_MOXVersion.Revision);
}
