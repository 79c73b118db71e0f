// Uses a server as no program should, and ends with the status that is its argument.
#include <fcntl.h>
#include <poll.h>

#include <cstdio>
#include <cstdlib>

#include "util.h"
#include "zalci.h"
#include "zalftbl.h"

CStr g_InstallLocalDir;

int main(int argc, char** argv)
{
    OpenCruDriver();  // which may stay open
    pollfd waiting = {open("/dev/ipmi0", O_RDWR), POLLIN, 0};
    poll(&waiting, 1, 1000);
    if (!popen("true", "r")) return 99;
    ZALCIHANDLE handle = nullptr;
    ZalCiInitialize(nullptr);
    ZalCiCreate(nullptr, &handle, 2, 4096, 2, 4096, ZalCiNormalPriority, nullptr);
    return argc > 1 ? std::atoi(argv[1]) : 0;
}
