#include "devicefw.h"
#include "host/host.h"

int main(int argc, char** argv)
{
    CDeviceFirmware component;
    return RunComponent(component, argc, argv);
}
