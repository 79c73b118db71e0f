#include "host/host.h"
#include "systemrom.h"

int main(int argc, char** argv)
{
    CSystemRom component;
    return RunComponent(component, argc, argv);
}
