// A device node of the simulated host.
#pragma once

#include <sys/types.h>

#include <cerrno>
#include <cstddef>

namespace sim
{

// An open device. Calls answer as the system calls of the same name do: -1 with errno on failure.
class IDevice
{
  public:
    virtual ~IDevice() = default;

    virtual ssize_t Read(void*, std::size_t) { return Errno(EINVAL); }
    virtual int Ioctl(unsigned long, void*) { return Errno(ENOTTY); }

    // The events of poll to ask for, no more and no less; 0: the device is not made for waiting.
    virtual short EventsToWaitFor() const { return 0; }

    // Waits at most timeout milliseconds (negative: for ever) for one of the events. Returns 1 with those in occurred,
    // 0 when the time is over.
    virtual int Poll(short events, int, short& occurred)
    {
        occurred = events;
        return 1;
    }

  protected:
    // Sets errno; -1.
    static int Errno(int error)
    {
        errno = error;
        return -1;
    }
};

}  // namespace sim
