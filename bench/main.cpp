// Runs every measurement and prints them as one table.
#include <stdlib.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "bench/measurements.h"
#include "support/tempfolder.h"
#include "util.h"

CStr g_InstallLocalDir;

int main(int argc, char** argv)
{
    setenv("QVFLASHLOG", "/dev/null", 1);
    if (argc == 3 && std::string(argv[1]) == "--smbios") return AskSmbios(argv[2]);

    const CTempFolder all("flashbench");
    const std::string folder = all.Path().string();
    std::printf("%-28s %-34s %12s %-14s %8s\n", sizeof(void*) == 4 ? "32-bit" : "64-bit", "", "a second", "", "ratio");
    BenchCrc32();
    BenchExpressions();
    BenchHex(folder);
    BenchSmbios(argv[0], folder);
    BenchDiscovery(folder);
    BenchUpload(folder);
    return EXIT_SUCCESS;
}
