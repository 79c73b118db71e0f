#include "sim/rom/romdrivernode.h"

#include "component.h"
#include "romdriver.h"

namespace sim
{

namespace
{

class CRomDriver : public IDevice
{
  public:
    CRomDriver(const CMemory& memory, const RomDriverDescription& driver, CCapture& capture)
        : m_Memory(memory), m_Driver(driver), m_Capture(capture)
    {
    }

    int Ioctl(unsigned long request, void* argument) override
    {
        const bool reads = request == RomDriverRequest_ReadMemory && argument;
        const bool asks = request == RomDriverRequest_Version && argument;
        const _pmemRead read = reads ? *static_cast<const _pmemRead*>(argument) : _pmemRead();
        const auto operation = static_cast<DWORD>(request);
        m_Capture.AddRequest(Wire_RomDriver, operation, &read, reads ? sizeof read : 0);
        NoteFault();
        const int result = Answer(request, argument);
        const int error = errno;
        if (result != 0)
            m_Capture.AddReply(Wire_RomDriver, operation, static_cast<DWORD>(error), nullptr, 0);
        else
            m_Capture.AddReply(Wire_RomDriver, operation, 0, reads ? BufferOf(read) : argument,
                               reads  ? read.readSize
                               : asks ? sizeof(_versioninfo)
                                      : 0);
        errno = error;
        return result;
    }

  private:
    int Answer(unsigned long request, void* argument) const
    {
        if (m_Driver.Fault == DriverFault_Fails) return Errno(EIO);
        const bool isKnown = request == RomDriverRequest_ReadMemory ||
                             (request == RomDriverRequest_Version && m_Driver.Fault != DriverFault_Refuses);
        if (!isKnown) return Errno(EINVAL);
        if (!argument) return Errno(EFAULT);
        return request == RomDriverRequest_Version ? TellVersion(*static_cast<_versioninfo*>(argument))
                                                   : ReadMemory(*static_cast<const _pmemRead*>(argument));
    }

    void NoteFault()
    {
        m_Capture.NoteFault(JoinFaults({{m_Driver.Fault == DriverFault_Refuses, "driver=refuses"},
                                        {m_Driver.Fault == DriverFault_Fails, "driver=fails"}}));
    }

    // The record carries the address as a number.
    static void* BufferOf(const _pmemRead& read)
    {
        return reinterpret_cast<void*>(read.userBuffer);  // NOLINT(performance-no-int-to-ptr)
    }

    int TellVersion(_versioninfo& info) const
    {
        const auto& version = *m_Driver.Version;
        info = {version[0], version[1], version[2], version[3]};
        return 0;
    }

    int ReadMemory(const _pmemRead& read) const
    {
        void* pBuffer = BufferOf(read);
        if (!pBuffer || !m_Memory.Read(read.startPhysicalMemAddress, pBuffer, read.readSize)) return Errno(EFAULT);
        return 0;
    }

    const CMemory& m_Memory;
    const RomDriverDescription& m_Driver;
    CCapture& m_Capture;
};

}  // namespace

std::unique_ptr<IDevice> OpenRomDriver(const CMemory& memory, const RomDriverDescription& driver, CCapture& capture)
{
    if (driver.Fault == DriverFault_Missing) {
        errno = ENOENT;
        return nullptr;
    }
    return std::make_unique<CRomDriver>(memory, driver, capture);
}

}  // namespace sim
