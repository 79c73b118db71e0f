// The ROM utility driver's node, /dev/qvrcru, as a character device in user space (CUSE): tells a version and reads
// physical memory out of /dev/mem, for 32-bit callers. Runs until it is killed. Argument: the folder of a simulated
// server, whose flash part is then behind the node, its BIOS area in the place of the machine's; the machine has just
// been started.
#include <fcntl.h>
#include <linux/fuse.h>
#include <sys/mman.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "component.h"
#include "guestdriver.h"
#include "romdriver.h"
#include "sim/server.h"

namespace
{

const _versioninfo Version = {5, 5, 4, 1};  // the oldest driver that components accept

static_assert(sizeof(_pmemRead) == 12, "callers are 32-bit, and so is the driver");

const char DeviceName[] = "DEVNAME=qvrcru";

const std::uint32_t PieceSize = 65536;  // bytes that one read or write moves

// A message of the kernel.
struct Message
{
    fuse_in_header Header;
    unsigned char Body[sizeof(fuse_write_in) + PieceSize];

    template <typename Record>
    const Record& As() const
    {
        return *reinterpret_cast<const Record*>(Body);
    }
};

class CCuseDevice
{
  public:
    // The server may be null: then there is no flash part.
    CCuseDevice(int cuse, sim::CServer* pServer) : m_Cuse(cuse), m_pServer(pServer), m_Message() {}

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
            case FUSE_WRITE:
                return Write();
            case FUSE_READ:
                return ReadBuffer();
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
        body.max_read = body.max_write = PieceSize;
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
            case GuestRequest_FlashTable:
                return m_pServer ? DoFlashTable() : ReplyError(EINVAL);
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
        const bool simulated = m_pServer && read.startPhysicalMemAddress == sim::BiosAreaAddress;
        if (simulated && m_pServer->GetMemory().Read(sim::BiosAreaAddress, memory.data(), memory.size()))
            return Reply(fuse_ioctl_out{}, memory.data(), memory.size());
        const int error = ReadPhysical(read.startPhysicalMemAddress, memory);
        return error ? ReplyError(error) : Reply(fuse_ioctl_out{}, memory.data(), memory.size());
    }

    // What goes with an operation on flash tables comes in pieces before it, and goes in pieces behind it: whatever the
    // caller's offsets, the kernel tells none.
    bool Write()
    {
        const fuse_write_in& write = m_Message.As<fuse_write_in>();
        if (m_bAnswered) m_Buffer.clear();
        m_bAnswered = false;
        if (write.size > PieceSize || m_Buffer.size() > sim::MaxRomSize) return ReplyError(EFBIG);
        const unsigned char* pData = m_Message.Body + sizeof write;
        m_Buffer.insert(m_Buffer.end(), pData, pData + write.size);
        fuse_write_out body = {};
        body.size = write.size;
        return Reply(body);
    }

    bool ReadBuffer()
    {
        const fuse_read_in& read = m_Message.As<fuse_read_in>();
        const unsigned char* pData = m_Buffer.data() + m_Position;
        const std::size_t length = std::min<std::size_t>(read.size, m_Buffer.size() - m_Position);
        m_Position += length;
        return Send(0, pData, length, nullptr, 0);
    }

    bool DoFlashTable()
    {
        const fuse_ioctl_in& ioctl = m_Message.As<fuse_ioctl_in>();
        GUEST_TABLE_REQUEST request = {};
        const fuse_ioctl_iovec record = {ioctl.arg, sizeof request};
        if (ioctl.in_size != sizeof request) return AskFor(record, record);
        std::memcpy(&request, m_Message.Body + sizeof ioctl, sizeof request);
        if (request.Size > sim::MaxRomSize) return ReplyError(EINVAL);
        m_Buffer.resize(std::max<std::size_t>(request.Size, PieceSize));  // whatever table comes has room
        request.Done = Do(m_pServer->GetFlashPart(), request);
        m_bAnswered = true;
        m_Position = 0;
        return Reply(fuse_ioctl_out{}, &request, sizeof request);
    }

    bool Do(sim::CFlashPart& part, GUEST_TABLE_REQUEST& request)
    {
        switch (request.Operation) {
            case GuestOperation_Initialize:
                part.Initialize();
                return true;
            case GuestOperation_Select:
                part.Select({m_Buffer.begin(), m_Buffer.begin() + static_cast<std::ptrdiff_t>(request.Size)});
                return true;
            case GuestOperation_Query:
                request.Result = part.Query();
                return true;
            case GuestOperation_ReadHeader:
                request.Size = part.Query().HeaderSize;
                return part.ReadHeader(m_Buffer.data());
            case GuestOperation_ReadTable:
                request.Size = part.Query().TableSize;
                return part.ReadTable(m_Buffer.data());
            case GuestOperation_WriteTable:
                return part.WriteTable(m_Buffer.data(), request.Size);
            case GuestOperation_Execute:
                if (request.Execute.pBuffer) request.Execute.pBuffer = m_Buffer.data();
                part.Execute(request.Execute);
                return true;
            case GuestOperation_CorruptNvram:
                part.CorruptNvram();
                return true;
            default:
                return false;
        }
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
    sim::CServer* const m_pServer;
    Message m_Message;
    std::vector<unsigned char> m_Buffer;
    std::size_t m_Position = 0;  // of what is read next
    bool m_bAnswered = false;    // what is in the buffer was given
};

}  // namespace

int main(int argc, char** argv)
{
    std::unique_ptr<sim::CServer> pServer;
    try {
        if (argc == 2) sim::RestartServer(argv[1], {});
        if (argc == 2) pServer = std::make_unique<sim::CServer>(argv[1], sim::RunOptions());
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kernel_romdriver: %s\n", error.what());
        return 1;
    }
    const int cuse = open("/dev/cuse", O_RDWR | O_CLOEXEC);
    if (cuse < 0) {
        std::perror("/dev/cuse");
        return 1;
    }
    CCuseDevice device(cuse, pServer.get());
    while (device.Serve()) {
    }
    std::perror("/dev/qvrcru");
    return 1;
}
