#include "support/output.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace
{

int g_Error = 0;  // why something could not be written

}  // namespace

void FlushOutput()
{
    if (g_Error != 0) return;
    if (std::fflush(stdout) == 0 && !std::ferror(stdout)) return;
    // Whoever flushed before has the reason, or this has it now.
    std::clearerr(stdout);
    if (std::putchar('\n') != EOF && std::fflush(stdout) == 0) errno = EIO;
    g_Error = errno;
}

int EndOutput(const char* program, int status, int failure)
{
    FlushOutput();
    if (g_Error == 0) return status;
    std::fprintf(stderr, "%s: what it found can't be printed: %s.\n", program, std::strerror(g_Error));
    return failure;
}
