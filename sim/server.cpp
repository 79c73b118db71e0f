#include "sim/server.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <stdexcept>

#include "sim/bmc/ipminode.h"
#include "sim/devices.h"
#include "sim/images/romimage.h"

namespace sim
{

namespace
{

const std::uint32_t SmbiosAddress = 0x7B7F0000;

struct DeviceNode
{
    int Mode;  // O_RDONLY or O_RDWR, the only one that it is opened with
    std::unique_ptr<IDevice> (*Open)(CServer& server);
};

std::unique_ptr<IDevice> OpenIpmi(CServer& server)
{
    return OpenIpmiNode(server.GetBmc(), server.GetDescription().Ipmi);
}

// What follows is never destroyed: calls come in until the very end of the process.
const std::map<std::string, DeviceNode>& DeviceNodes()
{
    static const auto& nodes = *new std::map<std::string, DeviceNode>{
        {"/vmfs/devices/char/mem/smbios", {O_RDONLY, OpenSmbiosNode}},
        {"/dev/qvrcru", {O_RDWR, OpenRomUtilityDriver}},
        {"/dev/ipmi0", {O_RDWR, OpenIpmi}},
    };
    return nodes;
}

std::unique_ptr<CServer>& CurrentServerSlot()
{
    static auto& server = *new std::unique_ptr<CServer>;
    return server;
}

}  // namespace

CServer::CServer(const std::filesystem::path& folder, const RunOptions& options)
    : m_Folder(folder),
      m_Description(ReadDescription(folder, options.Faults)),
      m_Journal(folder, options),
      m_FlashPart(m_Description, folder, m_Journal),
      m_Bmc(m_Description.Ipmi, folder, m_Journal)
{
    if (m_Description.Processor) {
        m_pProcessor = std::make_unique<CProcessor>(*m_Description.Processor, folder, m_Journal);
        m_pChannelDriver = std::make_unique<CChannelDriver>(*m_pProcessor, *m_Description.Processor, m_Journal);
    }
    const PowerPicDescription* pPowerPic = m_pProcessor ? m_pProcessor->GetPowerPicDescription() : nullptr;
    m_Smbios = m_Description.SmbiosDump.empty()
                   ? BuildSmbios(m_Description, m_FlashPart.GetRunningRom(), pPowerPic, SmbiosAddress)
                   : ReadSmbiosDump(m_Description.SmbiosDump, SmbiosAddress);
    const SMBIOS_RESERVED_BUFFER buffer = FindFlashBuffer(m_Smbios);
    m_FlashPart.SetBuffer(static_cast<DWORD>(buffer.Address), buffer.Size);
    MapMemory(BiosAreaAddress, m_FlashPart.GetBiosArea());
    MapMemory(SmbiosAddress, m_Smbios.Table);
}

void CServer::MapMemory(std::uint32_t address, std::vector<std::uint8_t> bytes)
{
    m_Memory.insert(m_Memory.begin(), {address, std::move(bytes)});
}

bool CServer::ReadMemory(std::uint32_t address, void* buffer, std::size_t size) const
{
    for (const Region& region : m_Memory) {
        if (address < region.Address) continue;
        const std::size_t offset = address - region.Address;
        if (offset > region.Bytes.size() || size > region.Bytes.size() - offset) continue;
        std::memcpy(buffer, region.Bytes.data() + offset, size);
        return true;
    }
    return false;
}

bool CServer::OwnsPath(const std::string& path)
{
    return DeviceNodes().count(path) != 0;
}

std::unique_ptr<IDevice> CServer::Open(const std::string& path, int flags)
{
    const DeviceNode& node = DeviceNodes().at(path);
    std::unique_ptr<IDevice> pDevice = node.Open(*this);
    if (!pDevice || (flags & O_ACCMODE) == node.Mode) return pDevice;
    errno = EACCES;
    return nullptr;
}

void EndProcess(const std::exception& error)
{
    std::fprintf(stderr, "zalsim: %s\n", error.what());
    std::_Exit(CouldNotRun);
}

CServer* CurrentServer()
{
    static const auto& options = *new RunOptions(OrEndProcess(ReadRunOptions));
    static std::mutex mutex;
    const std::lock_guard<std::mutex> lock(mutex);  // threads may meet at the first call
    std::unique_ptr<CServer>& slot = CurrentServerSlot();
    if (!slot && !options.Server.empty())
        OrEndProcess([&] { slot = std::make_unique<CServer>(options.Server, options); });
    return slot.get();
}

void SetCurrentServer(std::unique_ptr<CServer> server)
{
    CurrentServerSlot() = std::move(server);
}

}  // namespace sim
