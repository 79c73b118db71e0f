#include "sim/smbios/smbios.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>

#include "support/files.h"

namespace sim
{

namespace
{

const std::size_t MaxDump = std::size_t{1} << 20;

// Collects records.
class CTable
{
  public:
    // Adds a string to the record being made and returns its number; the empty text is no string.
    BYTE String(const std::string& text)
    {
        if (text.empty()) return 0;
        m_Strings.push_back(text);
        return static_cast<BYTE>(m_Strings.size());
    }

    // Ends the record: its first length bytes, then its strings.
    template <typename Record>
    void Add(BYTE type, Record record, std::size_t length = sizeof(Record))
    {
        record.byType = type;
        record.byLength = static_cast<BYTE>(length);
        record.wHandle = static_cast<WORD>(0x100 * type + m_Count);
        const BYTE* pRecord = reinterpret_cast<const BYTE*>(&record);
        m_Bytes.insert(m_Bytes.end(), pRecord, pRecord + length);
        for (const std::string& text : m_Strings)
            m_Bytes.insert(m_Bytes.end(), text.c_str(), text.c_str() + text.size() + 1);
        m_Bytes.insert(m_Bytes.end(), m_Strings.empty() ? 2 : 1, 0);
        m_Strings.clear();
        m_Count++;
    }

    SmbiosTables Finish(BYTE minorVersion, std::uint32_t address)
    {
        SmbiosTables tables = MakeSmbios(2, minorVersion, m_Bytes);
        PlaceSmbios(tables, address);
        return tables;
    }

  private:
    std::vector<BYTE> m_Bytes;
    std::vector<std::string> m_Strings;
    std::size_t m_Count = 0;
};

bool HasVersionRecords(const SmbiosDescription& server)
{
    return server.Generation >= 8;
}

std::string RomVersionText(const RomDescription& rom)
{
    return "v" + rom.Version + " (" + rom.Date + ")";
}

// What stands before and behind the point of the ROM's version; 255, which means none, for a boot block.
BYTE VersionNumber(const RomDescription& rom, bool minor)
{
    const std::size_t point = rom.Version.find('.');
    if (point == std::string::npos) return 0xFF;
    return static_cast<BYTE>(std::atoi(rom.Version.c_str() + (minor ? point + 1 : 0)));
}

void AddBios(CTable& table, const SmbiosDescription& server, const RomDescription& rom)
{
    SMBIOS_BIOS_INFORMATION bios = {};
    bios.byVendor = table.String(server.Manufacturer);
    bios.byBIOSVersion = table.String(rom.Version.empty() ? rom.Family : rom.Family + " " + RomVersionText(rom));
    bios.wStartSegment = 0xF000;
    bios.byReleaseDate = table.String(rom.Date);
    bios.byROMSize = 0xFF;                // 16 MiB
    bios.baCharacteristics[0] = 0x80;     // PCI is supported
    bios.baCharacteristics[1] = 0x08;     // the BIOS can be flashed
    bios.baCharacteristicsExt[0] = 0x01;  // ACPI is supported
    bios.byBIOSMajorVersion = VersionNumber(rom, false);
    bios.byBIOSMinorVersion = VersionNumber(rom, true);
    bios.byECMajorVersion = bios.byECMinorVersion = 0xFF;
    table.Add(0, bios, HasVersionRecords(server) ? sizeof bios : 20);
}

void AddSystem(CTable& table, const SmbiosDescription& server)
{
    SMBIOS_SYSTEM_INFORMATION system = {};
    system.byManufacturer = table.String(server.Manufacturer);
    system.byProductName = table.String(server.Product);
    system.bySerialNumber = table.String(server.Serial);
    for (std::size_t i = 0; i < server.Serial.size() && i < 16; i++)
        system.baUUID[i] = static_cast<BYTE>(server.Serial[i]);
    system.byWakeUpType = 6;  // power switch
    table.Add(1, system, HasVersionRecords(server) ? sizeof system : 25);
}

// "3.3" or, in a version record, "1.4.2"; empty while there is only a boot loader.
std::string PowerPicVersion(const PowerPicFirmware& pic, bool pass)
{
    if (pic.BootLoader) return "";
    const std::string version = std::to_string(pic.Version.Major) + "." + std::to_string(pic.Version.Minor);
    return pass ? version + "." + std::to_string(pic.Version.Pass) : version;
}

void AddOtherRoms(CTable& table, const SmbiosDescription& server, const std::optional<PowerPicFirmware>& powerPic)
{
    SMBIOS_OTHER_ROMINFO other = {};
    other.bfRedundantROMInstalled = !server.RedundantRomDate.empty();
    other.byRedundantROMDate = table.String(server.RedundantRomDate);
    other.byBootBlockROMDate = table.String(server.BootBlockDate);
    other.byOEMROMName = table.String(server.OemRomName);
    other.byOEMROMDate = table.String(server.OemRomDate);
    other.byPowerMicroVersion = table.String(powerPic && !HasVersionRecords(server) ? PowerPicVersion(*powerPic, false)
                                                                                    : server.PowerMicroVersion);
    std::size_t device = 0;
    for (const FirmwareDescription& firmware : server.Firmware) {
        if (firmware.Type != SMBIOS_VERSION_TYPE_CPLD || firmware.Data.size() < 3 || device == 6) continue;
        other.wPALVersion[device] = static_cast<WORD>(firmware.Data[1] << 8 | firmware.Data[2]);
        other.byPALType[device++] = table.String(firmware.Name);
    }
    table.Add(193, other);
}

void AddVersion(CTable& table, const FirmwareDescription& firmware, std::size_t index)
{
    SMBIOS_VERSION_INDICATOR version = {};
    version.wType = firmware.Type;
    version.byFirmwareName = table.String(firmware.Name);
    version.byFirmwareVersion = table.String(firmware.Version);
    version.byVersionDataFormat = firmware.Format;
    std::copy(firmware.Data.begin(), firmware.Data.end(), version.baVersionData);
    version.wUniqueId = static_cast<WORD>(index + 1);
    table.Add(216, version);
}

}  // namespace

SmbiosTables BuildSmbios(const SmbiosDescription& server, const RomDescription& rom,
                         const std::optional<PowerPicFirmware>& powerPic, std::uint32_t address)
{
    CTable table;
    AddBios(table, server, rom);
    AddSystem(table, server);
    AddOtherRoms(table, server, powerPic);

    SMBIOS_SYSTEM_ID id = {};
    id.bySystemId = table.String(server.SystemId);
    id.wPlatformId = server.PlatformId;
    table.Add(195, id);

    if (HasVersionRecords(server)) {
        if (!rom.Version.empty())
            AddVersion(table, {SMBIOS_VERSION_TYPE_SYSTEMROM, "System ROM", RomVersionText(rom), 0, {}}, 0);
        for (std::size_t i = 0; i < server.Firmware.size(); i++) {
            FirmwareDescription firmware = server.Firmware[i];
            if (firmware.Type == SMBIOS_VERSION_TYPE_POWERPIC && powerPic)
                firmware.Version = PowerPicVersion(*powerPic, true);
            AddVersion(table, firmware, i + 1);
        }
    }

    SMBIOS_TPM_INFORMATION tpm = {};
    tpm.byStatus = server.TpmStatus;
    table.Add(224, tpm);

    if (server.FlashBufferSize != 0) {
#pragma pack(push, 1)
        struct ReservedMemory : SMBIOS_HEADER
        {
            SMBIOS_RESERVED_BUFFER Buffer;
        } reserved = {};
#pragma pack(pop)
        reserved.Buffer = {server.BufferSignature, server.FlashBufferAddress, server.FlashBufferSize};
        table.Add(229, reserved);
    }

    table.Add(127, SMBIOS_HEADER());
    return table.Finish(HasVersionRecords(server) ? 7 : 3, address);
}

SMBIOS_RESERVED_BUFFER FindFlashBuffer(const SmbiosTables& tables)
{
    const std::vector<BYTE>& table = tables.Table;
    SMBIOS_RESERVED_BUFFER buffer = {};
    for (std::size_t record = 0; record + sizeof(SMBIOS_HEADER) <= table.size();) {
        const std::size_t end = std::min<std::size_t>(record + table[record + 1], table.size());
        for (std::size_t entry = record + sizeof(SMBIOS_HEADER); table[record] == 229 && entry + sizeof buffer <= end;
             entry += sizeof buffer) {
            std::memcpy(&buffer, table.data() + entry, sizeof buffer);
            if (buffer.Signature == FlashBufferSignature || buffer.Signature == ReversedFlashBufferSignature)
                return buffer;
        }
        // The strings end with two zeros.
        static const BYTE zeros[2] = {};
        const auto strings =
            std::search(table.begin() + static_cast<std::ptrdiff_t>(end), table.end(), zeros, zeros + 2);
        record = static_cast<std::size_t>(strings - table.begin()) + sizeof zeros;
    }
    return {};
}

SmbiosTables ReadSmbiosDump(const std::filesystem::path& file, std::uint32_t address)
{
    const std::optional<std::string> dump = ReadFileIfThere(file, MaxDump);
    if (!dump) throw std::runtime_error("There is no SMBIOS dump " + file.string());
    try {
        SmbiosTables tables = ParseSmbiosDump(*dump);
        PlaceSmbios(tables, address);
        return tables;
    } catch (const std::exception& error) {
        throw std::runtime_error("The SMBIOS dump " + file.string() + " " + error.what());
    }
}

}  // namespace sim
