#include "host/host.h"
#include "powercontroller.h"

int main(int argc, char** argv)
{
    return RunComponent<CPowerController>(argc, argv);
}
