// A server's physical memory, as far as it holds anything.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace sim
{

class CMemory
{
  public:
    // Gives a range of addresses contents, ahead of what was there.
    void Map(std::uint32_t address, std::vector<std::uint8_t> bytes);

    // Copies size bytes at a physical address; false when not all of them are there.
    bool Read(std::uint32_t address, void* buffer, std::size_t size) const;

  private:
    struct Region
    {
        std::uint32_t Address;
        std::vector<std::uint8_t> Bytes;
    };

    std::vector<Region> m_Regions;
};

}  // namespace sim
