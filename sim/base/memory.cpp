#include "sim/base/memory.h"

#include <cstring>
#include <utility>

namespace sim
{

void CMemory::Map(std::uint32_t address, Bytes bytes)
{
    Map(address, [bytes = std::move(bytes)]() -> const Bytes& { return bytes; });
}

void CMemory::Map(std::uint32_t address, std::function<const Bytes&()> contents)
{
    m_Regions.insert(m_Regions.begin(), {address, std::move(contents)});
}

bool CMemory::Read(std::uint32_t address, void* buffer, std::size_t size) const
{
    for (const Region& region : m_Regions) {
        if (address < region.Address) continue;
        const std::size_t offset = address - region.Address;
        const Bytes& bytes = region.Contents();
        if (offset > bytes.size() || size > bytes.size() - offset) continue;
        std::memcpy(buffer, bytes.data() + offset, size);
        return true;
    }
    return false;
}

}  // namespace sim
