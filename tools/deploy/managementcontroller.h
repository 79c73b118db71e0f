// The server's management controller, which keeps the event log.
#pragma once

#include "zalph/system.h"

// True where it answers a request that changes nothing: IPMI's Get Device ID.
inline bool ControllerAnswers()
{
    const int application = 6;  // network function
    const int getDeviceId = 1;
    BYTE response[64] = {};
    int length = 0;
    int code = 0;
    return CSystem().IpmiCommand(application, getDeviceId, nullptr, 0, response, sizeof response, &length, &code) &&
           code == 0;
}
