#include "host/host.h"
#include "powercontroller.h"

int main(int argc, char** argv)
{
    CPowerController component;
    return RunComponent(component, argc, argv);
}
