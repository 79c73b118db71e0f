// The ROM utility driver's node, /dev/qvrcru, as a character device in user space (CUSE): tells a version and reads
// physical memory out of /dev/mem, for 32-bit callers. Runs until it is killed.
#include <fcntl.h>
#include <linux/fuse.h>
#include <sys/mman.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "component.h"
#include "romdriver.h"
#include "sim/kernel/requests.h"

namespace
{

const _versioninfo Version = {5, 5, 4, 1};  // the oldest driver that components accept

static_assert(sizeof(_pmemRead) == 12, "callers are 32-bit, and so is the driver");

const char DeviceName[] = "DEVNAME=qvrcru";

// A message of the kernel, in the smallest buffer that it accepts.
struct Message
{
    fuse_in_header Header;
    unsigned char Body[FUSE_MIN_READ_BUFFER - sizeof(fuse_in_header)];

    template <typename Record>
    const Record& As() const
    {
        return *reinterpret_cast<const Record*>(Body);
    }
};

class CCuseDevice
{
  public:
    explicit CCuseDevice(int cuse) : m_Cuse(cuse), m_Message() {}

    // Answers one message; false when there are no more.
    bool Serve()
    {
        if (read(m_Cuse, &m_Message, sizeof m_Message) < 0) return errno == EINTR || errno == ENOENT || errno == EAGAIN;
        switch (m_Message.Header.opcode) {
            case CUSE_INIT:
                return Initialize();
            case FUSE_OPEN:
                return Reply(fuse_open_out{});
            case FUSE_IOCTL:
                return Ioctl();
            case FUSE_RELEASE:
                return Send(0, nullptr, 0, nullptr, 0);
            case FUSE_INTERRUPT:
                return true;  // every request is answered at once
            default:
                return ReplyError(ENOSYS);
        }
    }

  private:
    bool Send(int error, const void* body, std::size_t bodySize, const void* data, std::size_t dataSize)
    {
        fuse_out_header header = {};
        header.len = static_cast<std::uint32_t>(sizeof header + bodySize + dataSize);
        header.error = -error;
        header.unique = m_Message.Header.unique;
        const iovec parts[] = {
            {&header, sizeof header}, {const_cast<void*>(body), bodySize}, {const_cast<void*>(data), dataSize}};
        // ENOENT: the caller is gone.
        return writev(m_Cuse, parts, 3) >= 0 || errno == ENOENT;
    }

    template <typename Body>
    bool Reply(const Body& body, const void* data = nullptr, std::size_t dataSize = 0)
    {
        return Send(0, &body, sizeof body, data, dataSize);
    }

    bool ReplyError(int error) { return Send(error, nullptr, 0, nullptr, 0); }

    bool Initialize()
    {
        const cuse_init_in& init = m_Message.As<cuse_init_in>();
        cuse_init_out body = {};
        body.major = init.major;
        body.minor = init.minor;
        body.flags = CUSE_UNRESTRICTED_IOCTL;  // the request numbers don't carry the sizes of their data
        return Reply(body, DeviceName, sizeof DeviceName);
    }

    bool Ioctl()
    {
        const fuse_ioctl_in& ioctl = m_Message.As<fuse_ioctl_in>();
        if (!(ioctl.flags & FUSE_IOCTL_COMPAT)) return ReplyError(EINVAL);
        switch (ioctl.cmd) {
            case RomDriverRequest_Version:
                if (ioctl.out_size == 0) return AskFor({ioctl.arg, 0}, {ioctl.arg, sizeof Version});
                return Reply(fuse_ioctl_out{}, &Version, sizeof Version);
            case RenumberedReadMemory:
                return Read();
            default:
                return ReplyError(EINVAL);
        }
    }

    // Has the kernel send the request again, with what stands in the caller's memory at in, and room for an answer that
    // goes to out.
    bool AskFor(const fuse_ioctl_iovec& in, const fuse_ioctl_iovec& out)
    {
        fuse_ioctl_out body = {};
        body.flags = FUSE_IOCTL_RETRY;
        body.in_iovs = 1;
        body.out_iovs = 1;
        const fuse_ioctl_iovec memory[] = {in, out};
        return Reply(body, memory, sizeof memory);
    }

    // Comes three times: for the request's address alone, with the request, and with room for the memory it asks for.
    bool Read()
    {
        const fuse_ioctl_in& ioctl = m_Message.As<fuse_ioctl_in>();
        const fuse_ioctl_iovec request = {ioctl.arg, sizeof(_pmemRead)};
        if (ioctl.in_size == 0) return AskFor(request, {ioctl.arg, 0});

        _pmemRead read = {};
        std::memcpy(&read, m_Message.Body + sizeof ioctl, sizeof read);
        if (ioctl.out_size != read.readSize) return AskFor(request, {read.userBuffer, read.readSize});

        std::vector<unsigned char> memory(read.readSize);
        const int error = ReadPhysical(read.startPhysicalMemAddress, memory);
        return error ? ReplyError(error) : Reply(fuse_ioctl_out{}, memory.data(), memory.size());
    }

    // Fills memory from a physical address; 0, or the error. Firmware tables may lie above the RAM that read reaches.
    static int ReadPhysical(std::uint32_t address, std::vector<unsigned char>& memory)
    {
        const int mem = open("/dev/mem", O_RDONLY);
        if (mem < 0) return errno;
        const std::uint32_t offset = address % static_cast<std::uint32_t>(getpagesize());
        const std::size_t size = offset + memory.size();
        void* pMapped = mmap(nullptr, size, PROT_READ, MAP_SHARED, mem, static_cast<off_t>(address - offset));
        const int error = pMapped == MAP_FAILED ? errno : 0;
        close(mem);
        if (error) return error;
        std::memcpy(memory.data(), static_cast<const unsigned char*>(pMapped) + offset, memory.size());
        munmap(pMapped, size);
        return 0;
    }

    const int m_Cuse;
    Message m_Message;
};

}  // namespace

int main()
{
    const int cuse = open("/dev/cuse", O_RDWR | O_CLOEXEC);
    if (cuse < 0) {
        std::perror("/dev/cuse");
        return 1;
    }
    CCuseDevice device(cuse);
    while (device.Serve()) {
    }
    std::perror("/dev/qvrcru");
    return 1;
}
