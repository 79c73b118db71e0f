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
    CRomDriver(const CMemory& memory, const RomDriverDescription& driver) : m_Memory(memory), m_Driver(driver) {}

    int Ioctl(unsigned long request, void* argument) override
    {
        if (m_Driver.Fault == DriverFault_Fails) return Errno(EIO);
        const bool isKnown = request == RomDriverRequest_ReadMemory ||
                             (request == RomDriverRequest_Version && m_Driver.Fault != DriverFault_Refuses);
        if (!isKnown) return Errno(EINVAL);
        if (!argument) return Errno(EFAULT);
        return request == RomDriverRequest_Version ? TellVersion(*static_cast<_versioninfo*>(argument))
                                                   : Read(*static_cast<const _pmemRead*>(argument));
    }

  private:
    int TellVersion(_versioninfo& info) const
    {
        const auto& version = *m_Driver.Version;
        info = {version[0], version[1], version[2], version[3]};
        return 0;
    }

    int Read(const _pmemRead& read) const
    {
        // The record carries the address as a number.
        void* pBuffer = reinterpret_cast<void*>(read.userBuffer);  // NOLINT(performance-no-int-to-ptr)
        if (!pBuffer || !m_Memory.Read(read.startPhysicalMemAddress, pBuffer, read.readSize)) return Errno(EFAULT);
        return 0;
    }

    const CMemory& m_Memory;
    const RomDriverDescription& m_Driver;
};

}  // namespace

std::unique_ptr<IDevice> OpenRomDriver(const CMemory& memory, const RomDriverDescription& driver)
{
    if (driver.Fault == DriverFault_Missing) {
        errno = ENOENT;
        return nullptr;
    }
    return std::make_unique<CRomDriver>(memory, driver);
}

}  // namespace sim
