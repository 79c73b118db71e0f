// A server's physical memory, as far as it holds anything.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace sim
{

class CMemory
{
  public:
    using Bytes = std::vector<std::uint8_t>;

    // Gives a range of addresses contents, ahead of what was there.
    void Map(std::uint32_t address, Bytes bytes);

    // The same, for contents that are asked for at each read, and live as long as this is used.
    void Map(std::uint32_t address, std::function<const Bytes&()> contents);

    // Copies size bytes at a physical address; false when not all of them are there.
    bool Read(std::uint32_t address, void* buffer, std::size_t size) const;

  private:
    struct Region
    {
        std::uint32_t Address;
        std::function<const Bytes&()> Contents;
    };

    std::vector<Region> m_Regions;
};

}  // namespace sim
