#include "tools/deploy/recorder.h"

#include <sys/ioctl.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

#include "chif.h"
#include "component.h"
#include "flashtable.h"
#include "platform/interface/romdriver.h"
#include "pwrmicro.h"
#include "support/descriptor.h"
#include "support/printable.h"
#include "tools/deploy/managementcontroller.h"
#include "tools/deploy/nodes.h"
#include "tools/deploy/serverview.h"
#include "tools/deploy/smbiostable.h"
#include "tools/deploy/tamberline.h"
#include "zalph.h"

namespace
{

using Json = nlohmann::ordered_json;

const DWORD BiosArea = 0xF0000;
const std::size_t BiosAreaSize = 65536;
const int MaxRegister = 256;             // bytes of a register file
const std::size_t MaxPciList = 1 << 20;  // bytes
const DWORD MaxDeviceSize = 32U << 20;   // what a recorded device takes, as nothing tells its size
const UINT16 ReservedRegisters[] = {PowerRegister_Status, PowerRegister_MiscData, PowerRegister_Flags};

class CRecorder
{
  public:
    explicit CRecorder(const RecordOptions& options) : m_Options(options) {}

    Recording Record();

  private:
    void Found(const std::string& name, const std::string& found) { m_Recording.Parts.push_back({name, found, ""}); }
    void Missed(const std::string& name, const std::string& problem)
    {
        m_Recording.Parts.push_back({name, "", problem});
    }
    Json& Faults() { return m_Recording.Description["faults"]; }
    std::string Serial(std::string text) const;

    void RecordDriver();
    void RecordSmbios();
    void RecordBiosArea();
    void RecordController();
    void RecordPciList();
    void RecordProcessor();
    void RecordStatus(CChannelInterface& channel, Json& processor);
    void RecordRegisters(CChannelInterface& channel, Json& processor);
    void RecordHandlers(CChannelInterface& channel, Json& processor);
    void RecordPowerPic(CChannelInterface& channel, Json& processor);
    void RecordPowerController(CChannelInterface& channel, Json& processor);
    void RecordTamberline(CChannelInterface& channel, Json& processor);
    void RecordBackplanes(CChannelInterface& channel, Json& processor);
    void RecordPowerSupplies(CChannelInterface& channel, Json& processor);

    const RecordOptions& m_Options;
    Recording m_Recording;
};

// A query without parameters; false where it is not answered.
template <typename Reply>
bool Ask(CChannelInterface& channel, WORD command, Reply& reply)
{
    SMIFPACKET request = {};
    request.Length = sizeof request;
    request.Command = command;
    reply = {};
    return channel.SmifCommand(&request, &reply, sizeof reply, CChannelInterface::DefaultRecvTimeout) == 0;
}

std::string Version(int major, int minor, int pass)
{
    return std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(pass);
}

std::string Text(const void* text, std::size_t size)
{
    const char* pszText = static_cast<const char*>(text);
    return Printable(std::string(pszText, strnlen(pszText, size)));
}

std::string WhyNotOpened(const char* node, int error)
{
    return std::string(node) + " can't be opened: " + std::strerror(error) + ".";
}

std::string CRecorder::Serial(std::string text) const
{
    if (!m_Options.KeepSerials) std::fill(text.begin(), text.end(), 'X');
    return text;
}

void CRecorder::RecordDriver()
{
    const char* const name = "ROM utility driver";
    const CDescriptor driver(open(RomDriverNode, O_RDWR | O_CLOEXEC));
    if (driver.Get() < 0) return Missed(name, WhyNotOpened(RomDriverNode, errno));
    _versioninfo info = {};
    std::string version = "0.0.0.0";
    if (ioctl(driver.Get(), RomDriverRequest_Version, &info) < 0) {
        Faults()["driver"] = errno == EINVAL ? "refuses" : "fails";
        Missed(name, std::string("Its version can't be asked: ") + std::strerror(errno) + ".");
    } else {
        version = Version(info.esxi_major_version, info.esxi_minor_version, info.cru_driver_version_num) + "." +
                  std::to_string(info.cru_driver_build_num);
        Found(name, version);
    }
    m_Recording.Description["driver"]["version"] = version;
}

void CRecorder::RecordSmbios()
{
    const char* const name = "SMBIOS";
    if (const int error = TryNode(SmbiosNode, O_RDONLY)) {
        Faults()["smbios"] = "missing";
        return Missed(name, WhyNotOpened(SmbiosNode, error));
    }
    std::optional<sim::SmbiosTables> tables = ReadSmbios();
    if (!tables) {
        Faults()["smbios"] = "unreadable";
        return Missed(name, "The node holds no 32-bit entry point, or the table can't be read.");
    }
    if (!m_Options.KeepSerials) MaskSerials(tables->Table);
    Found(name, std::to_string(tables->Entry.wNumStructures) + " records, " + std::to_string(tables->Table.size()) +
                    " bytes" + (m_Options.KeepSerials ? "" : ", serial numbers masked"));
    m_Recording.Files["smbios.bin"] = sim::DumpSmbios(*tables);
    m_Recording.Description["product"] = Printable(CSystem().GetProductName().GetAnsiString());
    m_Recording.Description["smbios_dump"] = "smbios.bin";
}

void CRecorder::RecordBiosArea()
{
    std::string area(BiosAreaSize, '\0');
    if (!CSystem().ReadPhysicalMemory(BiosArea, reinterpret_cast<BYTE*>(area.data()), static_cast<int>(area.size())))
        return Missed("system ROM", "Its area can't be read.");
    CFlashTableHeader header;
    header.FindHeader();
    header.GetStrings();
    const std::string family = Printable(header.GetROMFamily().GetAnsiString());
    Found("system ROM", family.empty() ? "an area without a header" : family + ", the area of its header");
    m_Recording.Description["rom"] = {{"family", family}, {"area", "bios_area.bin"}};
    m_Recording.Files["bios_area.bin"] = std::move(area);
}

void CRecorder::RecordController()
{
    const char* const name = "management controller";
    if (const int error = TryNode(IpmiNode, O_RDWR)) {
        m_Recording.Description["management_controller"] = false;
        return Missed(name, WhyNotOpened(IpmiNode, error));
    }
    if (ControllerAnswers()) return Found(name, "answers");
    Faults()["ipmi"]["silent"] = true;
    Missed(name, "It does not answer.");
}

// The shell of the library's own query reads it, so it is read in the same way.
void CRecorder::RecordPciList()
{
    std::string list;
    if (std::FILE* pPipe = popen("cat /proc/bus/pci/devices 2>/dev/null", "r")) {
        char szPart[4096];
        while (const std::size_t length = std::fread(szPart, 1, sizeof szPart, pPipe))
            if (list.size() < MaxPciList) list.append(szPart, length);
        pclose(pPipe);
    }
    if (list.empty()) return Missed("PCI devices", "The list can't be read.");
    Found("PCI devices", std::to_string(std::count(list.begin(), list.end(), '\n')));
    m_Recording.Files["pci_list"] = std::move(list);
    m_Recording.Description["pci_list"] = "pci_list";
}

void CRecorder::RecordProcessor()
{
    const char* const name = "management processor";
    CChannelInterface channel;
    const ChannelState state = channel.GetState();
    if (state != ChannelState_Open && state != ChannelState_NoDriver && state != ChannelState_Broken)
        return Found(name, "none");
    Json& processor = m_Recording.Description["management_processor"] = Json::object();
    if (state == ChannelState_NoDriver) {
        Faults()["processor"]["no_driver"] = true;
        return Missed(name, "Its driver is not loaded, or may not be opened.");
    }
    if (state == ChannelState_Broken) {
        Faults()["processor"]["dead"] = true;
        return Missed(name, "It does not answer.");
    }
    RecordStatus(channel, processor);
    RecordRegisters(channel, processor);
    RecordHandlers(channel, processor);
    RecordPowerPic(channel, processor);
    RecordTamberline(channel, processor);
    RecordBackplanes(channel, processor);
    RecordPowerSupplies(channel, processor);
}

void CRecorder::RecordStatus(CChannelInterface& channel, Json& processor)
{
    const CFwVersion& version = channel.GetMOXFwVersion();
    processor["generation"] = channel.GetMOXGeneration();
    processor["version"] = Version(version.Major, version.Minor, 0);
    char szDate[32];
    std::snprintf(szDate, sizeof szDate, "%02d/%02d/%04d", version.Month, version.Day, version.Year);
    if (version.Month != 0 && version.Day != 0) processor["date"] = szDate;
    SMIFRSP_GET_STATUS status;
    if (Ask(channel, SMIFCMD_GET_STATUS, status))
        processor["serial"] = Serial(Text(status.SerialNumber, sizeof status.SerialNumber));
    Found("management processor",
          "Mox " + std::to_string(channel.GetMOXGeneration()) + " " + version.ToString().GetAnsiString());
}

// A register file is as long as it can be read.
void CRecorder::RecordRegisters(CChannelInterface& channel, Json& processor)
{
    std::string found;
    for (const auto& [name, operation] : {std::pair("MEMID", IoAccessOp_GetMEMID), std::pair("GPI", IoAccessOp_GetGPI),
                                          std::pair("GPO", IoAccessOp_GetGPO), std::pair("CPLD", IoAccessOp_GetCPLD),
                                          std::pair("XPLD", IoAccessOp_GetXPLD)}) {
        UCHAR value = 0;
        Json bytes = Json::array();
        while (bytes.size() < MaxRegister && channel.ReadIoByte(operation, static_cast<int>(bytes.size()), &value))
            bytes.push_back(value);
        if (bytes.empty()) continue;
        found += (found.empty() ? "" : ", ") + std::string(name) + " " + std::to_string(bytes.size());
        processor["registers"][name] = std::move(bytes);
    }
    Found("registers", found);
}

// Nobody lists the handlers, so those that have names in the library are asked for. The Tamberline controller's is
// recorded with that.
void CRecorder::RecordHandlers(CChannelInterface& channel, Json& processor)
{
    const char* const handler = CChannelInterface::DeviceHandler_SignedImage;
    const int status = channel.QueryDeviceFlashStatus(handler);
    if (status == DeviceFlashStatus_OK || status == DeviceFlashStatus_Busy)
        processor["flash"] = {{"handler", handler}, {"size", MaxDeviceSize}};
}

void CRecorder::RecordPowerPic(CChannelInterface& channel, Json& processor)
{
    SMIFRSP_GET_POWERPIC_INFO info;
    BOOL bootLoader = FALSE;
    int major = 0;
    int minor = 0;
    int pass = 0;
    if (!Ask(channel, SMIFCMD_GET_POWERPIC_INFO, info) ||
        !channel.GetPowerPICVersion(&major, &minor, &pass, &bootLoader))
        return Found("power controller", "none");
    processor["power_pic"] = {{"version", Version(major, minor, pass)},
                              {"type", info.uCType},
                              {"boot_loader", bootLoader != FALSE},
                              {"registers", info.Data}};
    RecordPowerController(channel, processor);
}

// Asks registers without trying for long.
class CRegisterReader : public CPowerMicro
{
  public:
    using CPowerMicro::CPowerMicro;

    // Those that are not 0, by number.
    Json ReadRegisters()
    {
        Json registers = Json::object();
        m_MaxRetries = 2;
        for (int number = 0; number < 256; number += 2) {
            UINT16 value = 0;
            const bool reserved = std::count(std::begin(ReservedRegisters), std::end(ReservedRegisters), number) != 0;
            if (!reserved && ReadRegister(number, &value) && value != 0) registers[std::to_string(number)] = value;
        }
        return registers;
    }
};

void CRecorder::RecordPowerController(CChannelInterface& channel, Json& processor)
{
    const char* const name = "power controller";
    if (!m_Options.PowerController)
        return Missed(name, "Nothing tells its place; with --power-controller its registers are recorded, too.");
    const I2CPlace& place = *m_Options.PowerController;
    CRegisterReader controller(&channel);
    controller.SetBus(place.Bus);
    controller.SetAddress(place.Address);
    if (!controller.DetermineControllerType())
        return Missed(name, "What is in that place does not tell that it is one, or runs its boot loader.");
    static const char* const families[] = {"", "opal", "zephyra", "quillon", "brisk"};
    Json device = {{"type", "power_controller"},
                   {"bus", place.Bus},
                   {"address", place.Address},
                   {"family", families[controller.GetControllerType()]}};
    if (controller.GetControllerType() >= ControllerType_Quillon)
        device["acts_as"] = families[controller.GetRegisterSet()];
    device["registers"] = controller.ReadRegisters();
    Found(name, std::string(families[controller.GetControllerType()]) + ", " +
                    std::to_string(device["registers"].size()) + " registers that are not 0");
    processor["i2c"].push_back(std::move(device));
}

void CRecorder::RecordTamberline(CChannelInterface& channel, Json& processor)
{
    const std::optional<TamberlineFirmware> firmware = ReadTamberline(channel);
    if (!firmware) return Found("Tamberline controller", "none");
    const std::string version = Version(firmware->Major, firmware->Minor, firmware->Pass);
    Json& controller =
        processor["tamberline"] = {{"version", version},
                                   {"loader_version", Version(firmware->LoaderMajor, firmware->LoaderMinor, 0)},
                                   {"family", firmware->Family}};
    const char* const handler = CChannelInterface::DeviceHandler_TMBR;
    const int status = channel.QueryDeviceFlashStatus(handler);
    if (status == DeviceFlashStatus_OK || status == DeviceFlashStatus_Busy)
        controller["flash"] = {{"handler", handler}, {"size", MaxDeviceSize}};
    Found("Tamberline controller", version);
}

void CRecorder::RecordBackplanes(CChannelInterface& channel, Json& processor)
{
    SMIFRSP_GET_NVME_BACKPLANE_INFO info;
    if (!Ask(channel, SMIFCMD_GET_NVME_BACKPLANE_INFO, info)) return Found("NVMe backplanes", "none");
    const DWORD count = std::min<DWORD>(info.Count, SMIFRSP_GET_NVME_BACKPLANE_INFO::MaxBackplanes);
    for (DWORD i = 0; i < count; i++) {
        const NVME_BACKPLANE_INFO& backplane = info.BackplaneInfo[i];
        const bool bootLoader = (backplane.Status & 1) != 0;  // told by a version that none has
        processor["nvme_backplanes"].push_back(
            {{"version", bootLoader ? "255.255" : Version(backplane.FwVersion, backplane.FwBuild, 0)},
             {"loader_version", backplane.LoaderVersion},
             {"segment", backplane.Segment},
             {"address", backplane.Address},
             {"type", backplane.Type},
             {"id", Text(backplane.Id, sizeof backplane.Id)}});
    }
    Found("NVMe backplanes", std::to_string(count));
}

void CRecorder::RecordPowerSupplies(CChannelInterface& channel, Json& processor)
{
    Json names = Json::array();
    for (const Json& supply : ReadPowerSupplies(channel)) names.push_back(supply.at("name"));
    Found("power supplies", std::to_string(names.size()));
    processor["power_supplies"] = std::move(names);
}

Recording CRecorder::Record()
{
    m_Recording.Description = Json::object();
    RecordDriver();
    RecordSmbios();
    RecordBiosArea();
    RecordController();
    RecordPciList();
    RecordProcessor();
    return std::move(m_Recording);
}

}  // namespace

Recording RecordServer(const RecordOptions& options)
{
    return CRecorder(options).Record();
}
