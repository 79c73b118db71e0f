#include "bench/compare.h"

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace
{

// The host's time: the C library's is played by the simulated server.
double Seconds()
{
    timespec now = {};
    syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

}  // namespace

void Compare(const char* title, double amount, const char* unit, int rounds, const std::vector<Contestant>& contestants)
{
    std::vector<double> best(contestants.size(), 1e9);
    for (int round = 0; round < rounds; round++) {
        for (std::size_t i = 0; i < contestants.size(); i++) {
            const double start = Seconds();
            if (!contestants[i].Work()) {
                std::printf("%s: %s gives a wrong result\n", title, contestants[i].Name.c_str());
                std::exit(EXIT_FAILURE);
            }
            best[i] = std::min(best[i], Seconds() - start);
        }
    }
    for (std::size_t i = 0; i < contestants.size(); i++)
        std::printf("%-28s %-34s %12.1f %-14s %8.2f\n", i == 0 ? title : "", contestants[i].Name.c_str(),
                    amount / best[i], unit, best[0] / best[i]);
    std::fflush(stdout);
}

bool RunQuietly(const std::string& command)
{
    return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
}
