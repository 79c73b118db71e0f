// The ROM utility driver: version query and physical memory.
#include <cstdio>
#include <cstring>

#include "component.h"
#include "romdriver.h"
#include "sim/devices.h"

namespace sim
{

namespace
{

class CRomDriver : public IDevice
{
  public:
    explicit CRomDriver(const CServer& server) : m_Server(server) {}

    int Ioctl(unsigned long request, void* argument) override
    {
        const DriverFault fault = m_Server.GetDescription().Driver;
        if (fault == DriverFault::Fails) return Fail(EIO);
        switch (request) {
            case RomDriverRequest_Version:
                return fault == DriverFault::Refuses ? Fail(EINVAL) : Version(static_cast<_versioninfo*>(argument));
            case RomDriverRequest_ReadMemory: {
                const _pmemRead* pRead = static_cast<const _pmemRead*>(argument);
                void* pBuffer = reinterpret_cast<void*>(pRead->userBuffer);
                return m_Server.ReadMemory(pRead->startPhysicalMemAddress, pBuffer, pRead->readSize) ? 0 : Fail(EFAULT);
            }
            default:
                return Fail(EINVAL);
        }
    }

  private:
    int Version(_versioninfo* pInfo) const
    {
        _versioninfo info = {};
        std::sscanf(m_Server.GetDescription().DriverVersion.c_str(), "%hu.%hu.%hu.%hu", &info.esxi_major_version,
                    &info.esxi_minor_version, &info.cru_driver_version_num, &info.cru_driver_build_num);
        *pInfo = info;
        return 0;
    }

    const CServer& m_Server;
};

}  // namespace

std::unique_ptr<IDevice> OpenRomUtilityDriver(CServer& server)
{
    if (server.GetDescription().Driver == DriverFault::Missing) {
        errno = ENOENT;
        return nullptr;
    }
    return std::make_unique<CRomDriver>(server);
}

}  // namespace sim
