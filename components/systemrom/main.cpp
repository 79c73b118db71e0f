#include "host/host.h"
#include "systemrom.h"

int main(int argc, char** argv)
{
    return RunComponent<CSystemRom>(argc, argv);
}
