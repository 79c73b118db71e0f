// Replies of the management processor: bytes that choose operations of the channel, each with its replies behind it.
#include <algorithm>
#include <cstring>

#include "chif.h"
#include "fuzz/channel.h"

// An operation that waits for the processor asks it every two seconds for a minute.
const CStepBound StepBound = {10000, 1000};

namespace
{

using OPERATION = void (*)(CChannelInterface& channel);

UCHAR g_Data[1024];
int g_Number;
ULONG g_Word;

void ReadPowerSupplies(CChannelInterface& channel)
{
    UINT32 data1[8] = {};
    UINT16 data2[8] = {};
    UINT16 data3[8] = {};
    UINT8* data4[8] = {};
    int count = 0;
    if (!channel.ReadPSInfo(data1, data2, data3, data4, &count)) return;
    REQUIRE(count >= 0 && count <= 8);
    for (int i = 0; i < count; i++) std::memcpy(g_Data, data4[i], 8);
}

void Dispatch(CChannelInterface& channel)
{
    std::vector<UCHAR> output(1024);
    channel.DeviceFlashDispatch("TMBR", 1, &g_Word, g_Data, sizeof g_Data, output.data(), &g_Number);
}

void Query(CChannelInterface& channel)
{
    std::vector<UCHAR> output(1024);
    channel.QueryDeviceFlashHandler("TMBR", 1, &g_Word, g_Data, 3, output.data(), &g_Number);
}

void Transact(CChannelInterface& channel)
{
    std::vector<UCHAR> output(32);
    for (int length : {0, 1, 3, 32}) channel.I2CTransaction(1, 0x30, g_Data, 32, output.data(), length);
}

void ReadStatus(CChannelInterface& channel)
{
    std::vector<UCHAR> status(48);
    channel.GetDeviceStatus(DeviceID_PowerPIC, &g_Word, status.data());
}

void ReadBackplanes(CChannelInterface& channel)
{
    std::vector<UINT8> id(16);
    for (int i = -1; i < 5; i++) {
        channel.GetNVMeBackplaneInfo(i, g_Data, id.data());
        channel.GetNVMeBackplaneVersion(i, &g_Number, &g_Number, &g_Number);
    }
}

const OPERATION Operations[] = {
    [](CChannelInterface& c) { c.GetUpdatedState(); },
    [](CChannelInterface& c) { c.VerifySMIF(); },
    [](CChannelInterface& c) { c.VerifyFirmwareIsAlive(); },
    [](CChannelInterface& c) { c.UpdateMOXVersion(); },
    [](CChannelInterface& c) { c.RebootMOX(); },
    [](CChannelInterface& c) { c.WaitForReboot(); },
    [](CChannelInterface& c) { c.ReadMEMID(1, g_Data); },
    [](CChannelInterface& c) { c.ReadGPI(1, g_Data); },
    [](CChannelInterface& c) { c.ReadGPO(1, g_Data); },
    [](CChannelInterface& c) { c.ReadCPLD(1, g_Data); },
    [](CChannelInterface& c) { c.ReadXPLD(1, g_Data); },
    [](CChannelInterface& c) { c.WriteGPO(1, 2); },
    [](CChannelInterface& c) { c.WriteCPLD(1, 2); },
    [](CChannelInterface& c) { c.WriteXPLD(1, 2); },
    Transact,
    ReadStatus,
    [](CChannelInterface& c) { c.HaltDevice(DeviceID_PowerPIC, 5); },
    [](CChannelInterface& c) { c.ResumeDevice(DeviceID_PowerPIC); },
    [](CChannelInterface& c) { c.SetHostResetMode(HostResetMode_ColdBoot); },
    [](CChannelInterface& c) { c.OpenDeviceFlash("TMBR"); },
    [](CChannelInterface& c) { c.QueryDeviceFlashStatus("TMBR"); },
    [](CChannelInterface& c) { c.ResetDeviceFlash(nullptr); },
    [](CChannelInterface& c) { c.UploadDeviceFlashData("TMBR", g_Data, sizeof g_Data); },
    Dispatch,
    Query,
    [](CChannelInterface& c) { c.ResetDeviceFlashHandler("TMBR", &g_Word); },
    [](CChannelInterface& c) { c.GetPowerPICType(g_Data); },
    [](CChannelInterface& c) { c.GetPowerPICVersion(&g_Number, &g_Number, &g_Number, &g_Number); },
    [](CChannelInterface& c) { c.GetTamberlineFamily(g_Data); },
    [](CChannelInterface& c) { c.GetTamberlineVersion(&g_Number, &g_Number, &g_Number); },
    [](CChannelInterface& c) { c.GetTamberlineBootloaderVersion(&g_Number, &g_Number); },
    [](CChannelInterface& c) { c.GetNVMeBackplaneCount(); },
    ReadBackplanes,
    ReadPowerSupplies,
};

}  // namespace

void Fuzz(CInput& input)
{
    UseReplies(input);
    CChannelInterface channel;
    while (!input.IsEmpty()) Operations[input.Byte() % std::size(Operations)](channel);
    REQUIRE(channel.GetState() >= ChannelState_NoHardware && channel.GetState() <= ChannelState_Closed);
}
