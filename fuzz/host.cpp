#include "fuzz/host.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <time.h>
#include <unistd.h>

#include <cstdarg>
#include <cstring>
#include <initializer_list>

#include "romdriver.h"

#define ENTRY_POINT extern "C" __attribute__((visibility("default")))

namespace
{

const int NodeFd = 1000000;  // no descriptor of the process
const std::int64_t Second = 1000000;
const std::int64_t Start = 1600000000 * Second;

thread_local bool t_bOnHost = false;  // the fuzzer's own threads are not
sim::IDevice* g_pNode;
std::int64_t g_Now;  // microseconds

bool IsNode(const char* path)
{
    for (const char* node : {"/vmfs/devices/char/mem/smbios", "/dev/qvrcru", "/dev/ipmi0"})
        if (std::strcmp(path, node) == 0) return true;
    return false;
}

}  // namespace

CHost::CHost()
{
    g_pNode = nullptr;
    g_Now = Start;
    t_bOnHost = true;
}

CHost::~CHost()
{
    t_bOnHost = false;
}

void PlayNode(sim::IDevice* pNode)
{
    g_pNode = pNode;
}

int CMemoryNode::Ioctl(unsigned long request, void* argument)
{
    if (request != RomDriverRequest_ReadMemory) return Errno(EINVAL);
    const _pmemRead* pRead = static_cast<const _pmemRead*>(argument);
    auto* pBuffer = reinterpret_cast<std::uint8_t*>(pRead->userBuffer);
    return ReadMemory(pRead->startPhysicalMemAddress, pBuffer, pRead->readSize) ? 0 : Errno(EFAULT);
}

#define NEXT(function) static auto* const next = reinterpret_cast<decltype(&(function))>(dlsym(RTLD_NEXT, #function))

// Defines open or open64, whichever of the two the library was built to call.
#define DEFINE_OPEN(name)                                                      \
    ENTRY_POINT int name(const char* path, int flags, ...)                     \
    {                                                                          \
        NEXT(name);                                                            \
        if (t_bOnHost && IsNode(path)) return g_pNode ? NodeFd : -1;           \
        va_list arguments;                                                     \
        va_start(arguments, flags);                                            \
        const mode_t mode = (flags & O_CREAT) ? va_arg(arguments, mode_t) : 0; \
        va_end(arguments);                                                     \
        return next(path, flags, mode);                                        \
    }

DEFINE_OPEN(open)
DEFINE_OPEN(open64)

ENTRY_POINT int close(int fd)
{
    NEXT(close);
    return fd == NodeFd ? 0 : next(fd);
}

ENTRY_POINT ssize_t read(int fd, void* buffer, size_t size)
{
    NEXT(read);
    return fd == NodeFd ? g_pNode->Read(buffer, size) : next(fd, buffer, size);
}

ENTRY_POINT int ioctl(int fd, unsigned long request, ...)
{
    NEXT(ioctl);
    va_list arguments;
    va_start(arguments, request);
    void* pArgument = va_arg(arguments, void*);
    va_end(arguments);
    return fd == NodeFd ? g_pNode->Ioctl(request, pArgument) : next(fd, request, pArgument);
}

ENTRY_POINT int poll(pollfd* descriptors, nfds_t count, int timeout)
{
    NEXT(poll);
    if (count != 1 || descriptors[0].fd != NodeFd) return next(descriptors, count, timeout);
    return g_pNode->Poll(descriptors[0].events, timeout, descriptors[0].revents);
}

ENTRY_POINT time_t time(time_t* result) noexcept
{
    NEXT(time);
    if (!t_bOnHost) return next(result);
    const time_t now = static_cast<time_t>(g_Now / Second);
    if (result) *result = now;
    return now;
}

ENTRY_POINT unsigned int sleep(unsigned int seconds)
{
    NEXT(sleep);
    if (!t_bOnHost) return next(seconds);
    g_Now += seconds * Second;
    return 0;
}

ENTRY_POINT int usleep(useconds_t microseconds)
{
    NEXT(usleep);
    if (!t_bOnHost) return next(microseconds);
    g_Now += microseconds;
    return 0;
}
