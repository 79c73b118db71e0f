// The power controller's I2C replies during an update, behind a byte that says how it is identified.
#include "chif.h"
#include "fuzz/channel.h"
#include "pwrmicro.h"

// What is left of an update when the controller falls silent is retried up to 100 times, and a status poll as often.
const CStepBound StepBound = {100000, 1000};

namespace
{

const char szImage[] =
    ":020000040001F9\n"
    ":04000000DEADBEEFC4\n"
    ":00000001FF\n";

BOOL Identify(CPowerMicro& power, int way)
{
    if (way == 0) return power.DetermineControllerType();
    if (way == 5) return power.ReadDeviceControllerType() != ControllerType_Unknown;
    return power.SetControllerType(static_cast<PowerControllerType>(way));
}

}  // namespace

// Whatever a step says, the next one is done, as long as there are replies.
void Fuzz(CInput& input)
{
    const int way = input.Byte() % 6;
    UseReplies(input);
    CChannelInterface channel;
    CPowerMicro power(&channel);
    BOOL bootLoader = FALSE;
    int major = 0;
    int minor = 0;

    Identify(power, way);
    if (!input.IsEmpty()) power.GetVersion(&bootLoader, &major, &minor);
    if (!input.IsEmpty()) power.SaveState();
    if (!input.IsEmpty()) power.HaltDevice();
    if (!input.IsEmpty()) power.Unlock();
    if (!input.IsEmpty()) power.FlashHex(szImage, sizeof szImage - 1);
    if (!input.IsEmpty()) power.Reset();
    if (!input.IsEmpty()) power.RestoreState();
    if (!input.IsEmpty()) power.ResumeDevice();
    REQUIRE(power.GetRegisterSet() >= RegisterSet_Unknown && power.GetRegisterSet() <= RegisterSet_Unavailable);
}
