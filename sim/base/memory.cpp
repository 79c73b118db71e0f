#include "sim/base/memory.h"

#include <cstring>
#include <utility>

namespace sim
{

void CMemory::Map(std::uint32_t address, std::vector<std::uint8_t> bytes)
{
    m_Regions.insert(m_Regions.begin(), {address, std::move(bytes)});
}

bool CMemory::Read(std::uint32_t address, void* buffer, std::size_t size) const
{
    for (const Region& region : m_Regions) {
        if (address < region.Address) continue;
        const std::size_t offset = address - region.Address;
        if (offset > region.Bytes.size() || size > region.Bytes.size() - offset) continue;
        std::memcpy(buffer, region.Bytes.data() + offset, size);
        return true;
    }
    return false;
}

}  // namespace sim
