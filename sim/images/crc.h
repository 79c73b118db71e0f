// CRC-32 of IEEE 802.3: on purpose not the library's, which is checked against it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace sim
{

// Of size bytes; of those before them too when crc is theirs.
std::uint32_t Crc32(const void* bytes, std::size_t size, std::uint32_t crc = 0);

}  // namespace sim
