#include "sim/entry/exit.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "sim/base/conduct.h"
#include "sim/base/runoptions.h"
#include "zalftbl.h"

namespace sim
{

namespace
{

const int LastGoodStatus = 2;  // of an installer

void TellComplaints(int status, void* process)
{
    if (getpid() != *static_cast<const pid_t*>(process)) return;  // forked off
    const std::vector<std::string> complaints = TakeComplaints();
    if (complaints.empty()) return;
    std::fprintf(stderr, "zalsim: The server was used as no server should be:\n");
    for (const std::string& complaint : complaints) std::fprintf(stderr, "zalsim: %s\n", complaint.c_str());
    const int told = status & 0xFF;
    if (told > LastGoodStatus) return;
    std::fprintf(stderr, "zalsim: So the exit status, %d, becomes %d.\n", told, CouldNotRun);
    std::fflush(nullptr);
    _exit(CouldNotRun);
}

// Called when the program's own objects are gone: they were made later.
__attribute__((constructor)) void WatchExit()
{
    static pid_t s_Process = getpid();
    on_exit(TellComplaints, &s_Process);
}

}  // namespace

std::vector<std::string> TakeComplaints()
{
    if (cruFd >= 0) CConduct::Instance().GiveBack(Held_Descriptor, cruFd);
    return CConduct::Instance().Finish();
}

}  // namespace sim
