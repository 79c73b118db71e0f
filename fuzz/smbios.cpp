// An SMBIOS dump: the device node hands out its bytes, and physical memory holds them from address 0 on.
#include "zalph/smbios.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <vector>

#include "fuzz/fuzz.h"
#include "fuzz/host.h"
#include "zalftbl.h"
#include "zalph/system.h"

// Every question walks as many records as the entry point says.
const CStepBound StepBound = {50000, 1000};

namespace
{

class CDump : public CMemoryNode
{
  public:
    // Entry points tell fewer than 256 records in less than 8 KiB: with up to 65535 in as many bytes a run would take a
    // thousand times as long.
    explicit CDump(CInput& input) : m_Bytes(input.Bytes(input.Size()))
    {
        const std::string_view bytes(reinterpret_cast<const char*>(m_Bytes.data()), m_Bytes.size());
        for (std::size_t at = bytes.find("_SM_"); at < bytes.size(); at = bytes.find("_SM_", at + 1)) {
            Limit(at + offsetof(SMBIOSEntryPoint, wNumStructures) + 1, 0);
            Limit(at + offsetof(SMBIOSEntryPoint, wSTLength) + 1, 0x1F);
        }
    }

    ssize_t Read(void* buffer, std::size_t size) override
    {
        const std::size_t length = std::min(size, m_Bytes.size());
        std::copy_n(m_Bytes.data(), length, static_cast<std::uint8_t*>(buffer));
        return static_cast<ssize_t>(length);
    }

    // Behind the dump there are no zeros that would end a table which is longer.
    bool ReadMemory(std::uint32_t address, std::uint8_t* pBuffer, std::uint32_t size) override
    {
        if (address >= m_Bytes.size()) return false;
        const std::size_t length = std::min<std::size_t>(size, m_Bytes.size() - address);
        std::memset(pBuffer, 0xFF, size);
        std::copy_n(m_Bytes.data() + address, length, pBuffer);
        return true;
    }

    // True when an SPS version whose last byte is above 15 may be in the table. It ends the process, as is stated.
    bool MayHaveOverlongSpsVersion() const
    {
        for (std::size_t i = 0; i < m_Bytes.size(); i++) {
            const auto at = [this, i](std::size_t offset) {
                return i + offset < m_Bytes.size() ? m_Bytes[i + offset] : 0xFF;
            };
            const auto is = [at](std::size_t offset, int value) { return at(offset) == value || at(offset) == 0xFF; };
            if (is(0, 216) && is(4, SMBIOS_VERSION_TYPE_SPS) && is(5, 0) && at(17) > 15) return true;
        }
        return false;
    }

  private:
    void Limit(std::size_t at, std::uint8_t most)
    {
        if (at < m_Bytes.size()) m_Bytes[at] = std::min(m_Bytes[at], most);
    }

    std::vector<std::uint8_t> m_Bytes;
};

}  // namespace

void Fuzz(CInput& input)
{
    CDump dump(input);
    PlayNode(&dump);
    cruFd = -1;

    CSMBIOS smbios;
    smbios.Exists();
    smbios.GetProductName();
    smbios.GetROMFamily();
    smbios.GetROMDate();
    smbios.GetROMVersion();
    smbios.GetRDDate();
    smbios.GetBBDate();
    smbios.GetOEMROMName();
    smbios.GetOEMROMDate();
    smbios.GetPowerMicroVersion();
    if (!dump.MayHaveOverlongSpsVersion()) smbios.GetSPSVersion();
    for (int i : {-1, 0, 6, 7}) {
        smbios.GetPALType(i);
        smbios.GetPALVersion(i);
    }
    smbios.GetTPMStatus();
    smbios.GetSystemID();
    smbios.GetPlatformID();
    DWORD size = 0;
    smbios.GetFlashBuffer(size);

    CSystem system;
    REQUIRE(system.GetProductName().GetAt(0) != ' ');
    system.IsBlade();
    unsigned int read = 0;
    delete[] smbios.GetSMBiosMemoryHeader(read);
    delete[] smbios.GetSMBiosMemoryTables(0, 0);
}
