#include "../host/host.h"
#include "devicefw.h"

int main(int argc, char** argv)
{
    CDeviceFirmware component;
    return RunComponent(component, argc, argv);
}
