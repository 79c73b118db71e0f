// The C library's calls, taken over for the process that this is linked into or preloaded to: device nodes of the
// current server and the clock are played, everything else goes on to the C library.
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "sim/base/clock.h"
#include "sim/base/conduct.h"
#include "sim/entry/entrypoint.h"
#include "sim/entry/folders.h"
#include "sim/processor/pcidevices.h"
#include "sim/server.h"

namespace
{

using sim::CClock;
using sim::CConduct;
using sim::Second;

using DevicePointer = std::shared_ptr<sim::IDevice>;

// The open devices. Never destroyed: calls come in until the very end of the process, from any thread.
struct OpenDevices
{
    static OpenDevices& Instance()
    {
        static auto& devices = *new OpenDevices;
        return devices;
    }

    std::mutex Mutex;  // held while nothing is called that may come back here
    std::map<int, DevicePointer> ByDescriptor;
};

DevicePointer FindDevice(int fd)
{
    OpenDevices& devices = OpenDevices::Instance();
    const std::lock_guard<std::mutex> lock(devices.Mutex);
    const auto entry = devices.ByDescriptor.find(fd);
    return entry == devices.ByDescriptor.end() ? nullptr : entry->second;
}

void KeepDevice(int fd, DevicePointer device, const std::string& path, const void* caller)
{
    CConduct::Instance().Take(sim::Held_Descriptor, fd, caller, "opened " + path + " and did not close it");
    OpenDevices& devices = OpenDevices::Instance();
    const std::lock_guard<std::mutex> lock(devices.Mutex);
    devices.ByDescriptor[fd] = std::move(device);
}

void ForgetDevice(int fd)
{
    CConduct::Instance().GiveBack(sim::Held_Descriptor, fd);
    OpenDevices& devices = OpenDevices::Instance();
    decltype(devices.ByDescriptor)::node_type entry;  // goes away after the lock
    const std::lock_guard<std::mutex> lock(devices.Mutex);
    entry = devices.ByDescriptor.extract(fd);
}

// The open device that the current server plays; -1 with errno without one.
int OpenDevice(sim::CServer& server, const std::string& path, int flags, const void* caller)
{
    NEXT(open);
    DevicePointer pDevice = sim::OrEndProcess([&] { return server.Open(path, flags); });
    if (!pDevice) return -1;
    const int fd = next("/dev/null", O_RDONLY | O_CLOEXEC);  // keeps the number taken; no device is written to
    if (fd >= 0) KeepDevice(fd, std::move(pDevice), path, caller);
    return fd;
}

template <typename Open>
int OpenPath(const char* path, int flags, mode_t mode, Open* next, const void* caller)
{
    sim::CServer* pServer = path && sim::CServer::OwnsPath(path) ? sim::CurrentServer() : nullptr;
    if (pServer) return OpenDevice(*pServer, path, flags, caller);
    const int fd = next(sim::CHostPath(path), flags, mode);
    const int error = errno;
    if (fd >= 0 && !CConduct::IsOwn(caller))
        CConduct::Instance().Take(sim::Held_Descriptor, fd, caller,
                                  std::string("opened ") + path + " and did not close it");
    errno = error;
    return fd;
}

// The debug log, which stays open.
bool IsLog(const char* path)
{
    const char* pszLog = std::getenv("QVFLASHLOG");
    return std::strcmp(path, pszLog ? pszLog : "/var/zal/flash.debug.log") == 0;
}

FILE* KeepStream(FILE* stream, const char* path, const void* caller)
{
    const int error = errno;
    if (stream && !IsLog(path) && !CConduct::IsOwn(caller))
        CConduct::Instance().Take(sim::Held_Stream, reinterpret_cast<std::intptr_t>(stream), caller,
                                  std::string("opened ") + path + " and did not close it");
    errno = error;
    return stream;
}

mode_t ModeArgument(int flags, va_list arguments)
{
    const bool creates = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    return creates ? static_cast<mode_t>(va_arg(arguments, unsigned int)) : 0;
}

std::string Hex(short number)
{
    char szNumber[16];
    std::snprintf(szNumber, sizeof szNumber, "0x%hX", number);
    return szNumber;
}

// A device is waited for alone; sets of descriptors are the C library's.
int Poll(pollfd* descriptors, nfds_t count, int timeout, const void* caller)
{
    NEXT(poll);
    const DevicePointer pDevice = count == 1 ? FindDevice(descriptors[0].fd) : nullptr;
    if (!pDevice) return next(descriptors, count, timeout);
    const short events = descriptors[0].events;
    const short expected = pDevice->EventsToWaitFor();
    if (expected != 0 && events != expected)
        CConduct::Instance().Complain(
            caller, "waited for the events " + Hex(events) + " of a device that is waited for with " + Hex(expected));
    descriptors[0].revents = 0;
    return sim::OrEndProcess([=] { return pDevice->Poll(events, timeout, descriptors[0].revents); });
}

bool IsVirtual(clockid_t clock)
{
    return !CClock::Instance().IsReal() &&
           (clock == CLOCK_REALTIME || clock == CLOCK_MONOTONIC || clock == CLOCK_BOOTTIME ||
            clock == CLOCK_REALTIME_COARSE || clock == CLOCK_MONOTONIC_COARSE || clock == CLOCK_MONOTONIC_RAW);
}

// Takes the preloaded libraries from the processes that start meanwhile.
class CWithoutPreload
{
  public:
    CWithoutPreload()
    {
        if (const char* pszLibraries = std::getenv(szVariable)) m_Libraries = pszLibraries;
        unsetenv(szVariable);
    }
    ~CWithoutPreload()
    {
        if (m_Libraries) setenv(szVariable, m_Libraries->c_str(), 1);
    }
    CWithoutPreload(const CWithoutPreload&) = delete;
    CWithoutPreload& operator=(const CWithoutPreload&) = delete;

  private:
    static constexpr const char* szVariable = "LD_PRELOAD";
    std::optional<std::string> m_Libraries;
};

}  // namespace

ENTRY_POINT int open(const char* path, int flags, ...)
{
    NEXT(open);
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeArgument(flags, arguments);
    va_end(arguments);
    return OpenPath(path, flags, mode, next, CALLER);
}

ENTRY_POINT int open64(const char* path, int flags, ...)
{
    NEXT(open64);
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeArgument(flags, arguments);
    va_end(arguments);
    return OpenPath(path, flags, mode, next, CALLER);
}

ENTRY_POINT ssize_t read(int fd, void* buffer, size_t size)
{
    NEXT(read);
    const DevicePointer pDevice = FindDevice(fd);
    return pDevice ? sim::OrEndProcess([=] { return pDevice->Read(buffer, size); }) : next(fd, buffer, size);
}

// What programs call that are built with checks of their buffers (_FORTIFY_SOURCE).
ENTRY_POINT int __open_2(const char* path, int flags)
{
    NEXT(open);
    return OpenPath(path, flags, 0, next, CALLER);
}

ENTRY_POINT int __open64_2(const char* path, int flags)
{
    NEXT(open64);
    return OpenPath(path, flags, 0, next, CALLER);
}

ENTRY_POINT ssize_t __read_chk(int fd, void* buffer, size_t size, size_t room)
{
    if (size > room) std::abort();
    return read(fd, buffer, size);
}

ENTRY_POINT int ioctl(int fd, unsigned long request, ...)
{
    NEXT(ioctl);
    va_list arguments;
    va_start(arguments, request);
    void* pArgument = va_arg(arguments, void*);
    va_end(arguments);
    const DevicePointer pDevice = FindDevice(fd);
    if (!pDevice) return next(fd, request, pArgument);
    return sim::OrEndProcess([=] { return pDevice->Ioctl(request, pArgument); });
}

ENTRY_POINT int poll(pollfd* descriptors, nfds_t count, int timeout)
{
    return Poll(descriptors, count, timeout, CALLER);
}

ENTRY_POINT int __poll_chk(pollfd* descriptors, nfds_t count, int timeout, size_t room)
{
    if (count > room / sizeof *descriptors) std::abort();
    return Poll(descriptors, count, timeout, CALLER);
}

ENTRY_POINT int close(int fd)
{
    NEXT(close);
    ForgetDevice(fd);
    return next(fd);
}

ENTRY_POINT FILE* fopen(const char* path, const char* mode)
{
    NEXT(fopen);
    return KeepStream(next(path, mode), path, CALLER);
}

ENTRY_POINT FILE* fopen64(const char* path, const char* mode)
{
    NEXT(fopen64);
    return KeepStream(next(path, mode), path, CALLER);
}

ENTRY_POINT int fclose(FILE* stream)
{
    NEXT(fclose);
    CConduct::Instance().GiveBack(sim::Held_Stream, reinterpret_cast<std::intptr_t>(stream));
    return next(stream);
}

ENTRY_POINT time_t time(time_t* result) noexcept
{
    NEXT(time);
    if (CClock::Instance().IsReal()) return next(result);
    const time_t now = static_cast<time_t>(CClock::Instance().Ask() / Second);
    if (result) *result = now;
    return now;
}

ENTRY_POINT int clock_gettime(clockid_t clock, timespec* result) noexcept
{
    NEXT(clock_gettime);
    if (!IsVirtual(clock)) return next(clock, result);
    const std::int64_t now = CClock::Instance().Ask();
    result->tv_sec = static_cast<time_t>(now / Second);
    result->tv_nsec = static_cast<long>(now % Second);
    return 0;
}

ENTRY_POINT int gettimeofday(timeval* result, void* zone) noexcept
{
    NEXT(gettimeofday);
    if (CClock::Instance().IsReal()) return next(result, zone);
    const std::int64_t now = CClock::Instance().Ask();
    result->tv_sec = static_cast<time_t>(now / Second);
    result->tv_usec = static_cast<suseconds_t>(now % Second / 1000);
    return 0;
}

ENTRY_POINT unsigned int sleep(unsigned int seconds)
{
    NEXT(sleep);
    if (CClock::Instance().IsReal()) return next(seconds);
    CClock::Instance().Wait(seconds * Second);
    return 0;
}

ENTRY_POINT int usleep(useconds_t microseconds)
{
    NEXT(usleep);
    if (CClock::Instance().IsReal()) return next(microseconds);
    CClock::Instance().Wait(microseconds * std::int64_t{1000});
    return 0;
}

ENTRY_POINT int nanosleep(const timespec* request, timespec* remaining)
{
    NEXT(nanosleep);
    if (CClock::Instance().IsReal()) return next(request, remaining);
    CClock::Instance().Wait(request->tv_sec * Second + request->tv_nsec);
    return 0;
}

// The shell and what it starts are the host's own programs, which the simulation is not in.
ENTRY_POINT FILE* popen(const char* command, const char* mode)
{
    NEXT(popen);
    sim::CServer* pServer = sim::CurrentServer();
    if (!pServer) return next(command, mode);
    const CWithoutPreload withoutPreload;
    std::string redirected = command;
    if (sim::ReadsPciDevices(command))
        redirected = sim::OrEndProcess([=] {
            const sim::ServerDescription& server = pServer->GetDescription();
            const int functions = server.Processor ? server.Processor->PciFunctions : 0;
            return sim::WithPciDevices(command, server.PciList.empty()
                                                    ? sim::WritePciDevices(pServer->GetFolder(), functions)
                                                    : server.PciList);
        });
    FILE* pPipe = next(redirected.c_str(), mode);
    if (pPipe)
        CConduct::Instance().Take(sim::Held_Pipe, reinterpret_cast<std::intptr_t>(pPipe), CALLER,
                                  "ran \"" + std::string(command) + "\" and did not close its pipe with pclose");
    return pPipe;
}

ENTRY_POINT int pclose(FILE* pipe)
{
    NEXT(pclose);
    CConduct::Instance().GiveBack(sim::Held_Pipe, reinterpret_cast<std::intptr_t>(pipe));
    return next(pipe);
}
