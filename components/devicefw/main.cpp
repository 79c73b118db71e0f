#include "devicefw.h"
#include "host/host.h"

int main(int argc, char** argv)
{
    return RunComponent<CDeviceFirmware>(argc, argv);
}
