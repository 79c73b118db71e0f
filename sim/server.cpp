#include "sim/server.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <optional>

#include "sim/bmc/ipminode.h"
#include "sim/bootid.h"
#include "sim/images/romimage.h"
#include "sim/rom/romdrivernode.h"
#include "sim/smbios/smbiosnode.h"

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

// What follows is never destroyed: calls come in until the very end of the process.
const std::map<std::string, DeviceNode>& DeviceNodes()
{
    static const auto smbios = [](CServer& server) {
        return OpenSmbiosNode(server.GetSmbios(), server.GetDescription().Smbios.Fault, server.GetCapture());
    };
    static const auto romDriver = [](CServer& server) {
        return OpenRomDriver(server.GetMemory(), server.GetDescription().RomDriver, server.GetCapture());
    };
    static const auto ipmi = [](CServer& server) {
        return OpenIpmiNode(server.GetBmc(), server.GetDescription().Ipmi, server.GetCapture());
    };
    static const auto bootId = [](CServer& server) { return OpenBootId(server.GetFolder()); };
    static const auto& nodes = *new std::map<std::string, DeviceNode>{
        {"/vmfs/devices/char/mem/smbios", {O_RDONLY, smbios}},
        {"/dev/qvrcru", {O_RDWR, romDriver}},
        {"/dev/ipmi0", {O_RDWR, ipmi}},
        {"/proc/sys/kernel/random/boot_id", {O_RDONLY, bootId}},
    };
    return nodes;
}

// The faults for which a node is not there.
std::string FindMissing(const std::string& path, const ServerDescription& server)
{
    return JoinFaults(
        {{path == "/vmfs/devices/char/mem/smbios" && server.Smbios.Fault == SmbiosFault_Missing, "smbios=missing"},
         {path == "/dev/qvrcru" && server.RomDriver.Fault == DriverFault_Missing, "driver=missing"},
         {path == "/dev/ipmi0" && server.Ipmi.Missing, "ipmi.missing"}});
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
      m_FlashPart(m_Description.FlashPart, m_Folder, m_Journal),
      m_Bmc(m_Description.Ipmi, m_Folder, m_Journal)
{
    m_Folder.GetSteps().Begin(m_Description.Steps, options, m_Journal);
    if (m_Description.Processor) {
        m_pProcessor = std::make_unique<CProcessor>(*m_Description.Processor, m_Folder, m_Journal);
        m_pChannelDriver =
            std::make_unique<CChannelDriver>(*m_pProcessor, *m_Description.Processor, m_Folder, m_Journal);
    }
    m_Smbios = MakeSmbios();
    const SMBIOS_RESERVED_BUFFER buffer = FindFlashBuffer(m_Smbios);
    m_FlashPart.SetBuffer(static_cast<DWORD>(buffer.Address), buffer.Size);
    m_Memory.Map(BiosAreaAddress, [this]() -> const CMemory::Bytes& { return m_FlashPart.GetRunning().BiosArea; });
    m_Memory.Map(SmbiosAddress, m_Smbios.Table);
}

SmbiosTables CServer::MakeSmbios() const
{
    const SmbiosDescription& smbios = m_Description.Smbios;
    if (!smbios.Dump.empty()) return ReadSmbiosDump(smbios.Dump, SmbiosAddress);
    std::optional<PowerPicFirmware> powerPic;
    if (const PowerPicDescription* pPowerPic = m_pProcessor ? m_pProcessor->GetPowerPicDescription() : nullptr)
        powerPic = {pPowerPic->Version, pPowerPic->BootLoader};
    return BuildSmbios(smbios, m_FlashPart.GetRunningRom(), powerPic, SmbiosAddress);
}

bool CServer::OwnsPath(const std::string& path)
{
    return DeviceNodes().count(path) != 0;
}

std::unique_ptr<IDevice> CServer::Open(const std::string& path, int flags)
{
    const DeviceNode& node = DeviceNodes().at(path);
    std::unique_ptr<IDevice> pDevice = node.Open(*this);
    int error = pDevice ? 0 : errno;
    if (pDevice && (flags & O_ACCMODE) != node.Mode) {
        pDevice.reset();
        error = EACCES;
    }
    GetCapture().AddNote("open " + path + " errno=" + std::to_string(error),
                         error == 0 ? "" : FindMissing(path, m_Description));
    errno = error;
    return pDevice;
}

void RestartServer(const std::filesystem::path& folder, const RunOptions& options)
{
    CServerFolder(folder).Restart();
    CJournal(folder, options).Write("server restart");
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

bool HasCurrentServer()
{
    return CurrentServerSlot() != nullptr;
}

void SetCurrentServer(std::unique_ptr<CServer> server)
{
    CurrentServerSlot() = std::move(server);
}

}  // namespace sim
