// What follows the signature of a flash image header: at an offset of the BIOS area that the first two bytes give, and
// in the header that the driver library hands out.
#include <algorithm>
#include <cstring>

#include "flashtable.h"
#include "fuzz/fuzz.h"
#include "fuzz/host.h"

const CStepBound StepBound = {1000, 10};

namespace
{

const std::size_t AreaSize = 65536;
const std::uint32_t MaxSize = 4096;

// The header's strings go to the debug log, where a message of 1024 bytes ends the process; this is stated, and so kept
// out of reach: the area is zero but for so many bytes.
const std::size_t MaxHeader = 900;

class CBiosArea : public CMemoryNode
{
  public:
    CBiosArea(std::size_t offset, const std::vector<std::uint8_t>& bytes) : m_Area(AreaSize)
    {
        std::copy_n(bytes.begin(), std::min(bytes.size(), AreaSize - offset),
                    m_Area.begin() + static_cast<std::ptrdiff_t>(offset));
    }

    bool ReadMemory(std::uint32_t address, std::uint8_t* pBuffer, std::uint32_t size) override
    {
        REQUIRE(address == 0xF0000 && size == AreaSize);
        std::memcpy(pBuffer, m_Area.data(), AreaSize);
        return true;
    }

  private:
    std::vector<std::uint8_t> m_Area;
};

class CTable : public CFlashTable
{
  public:
    using CFlashTable::GetTableFromBootBlock;
};

TABLE_QUERY_RESULT g_Query;
std::vector<std::uint8_t> g_Header;

// A size up to MaxSize, or a negative one.
std::uint32_t SizeOf(std::uint32_t word)
{
    return word & 0x80000000 ? word : word % (MaxSize + 1);
}

void Fill(void* pBuffer, std::uint32_t size)
{
    std::memset(pBuffer, 0xFF, size);
    std::copy_n(g_Header.begin(), std::min<std::size_t>(size, g_Header.size()), static_cast<std::uint8_t*>(pBuffer));
}

}  // namespace

int QueryFlashTable(TABLE_QUERY_RESULT* pResult)
{
    *pResult = g_Query;
    return 0;
}

int ReadFlashHeader(ZALFLSH_HEADER* pHeader)
{
    Fill(pHeader, g_Query.HeaderSize);
    return 0;
}

int ReadFlashTable(void* pTable)
{
    Fill(pTable, g_Query.TableSize);
    return 0;
}

void Fuzz(CInput& input)
{
    // Most of the area is as good as its start, and the search for the signature takes longer there.
    std::size_t offset = input.Word(2);
    if (offset < 0xF000) offset %= 256;
    g_Query = {0, SizeOf(input.Word(4)), 0, SizeOf(input.Word(4))};
    g_Header = {'$', 'Z', 'A', 'L', 'F', 'L', 'S', 'H'};
    const std::vector<std::uint8_t> rest = input.Bytes(MaxHeader);
    g_Header.insert(g_Header.end(), rest.begin(), rest.end());

    CBiosArea area(offset, g_Header);
    PlayNode(&area);
    cruFd = -1;
    CFlashTableHeader header;
    header.FindHeader();
    header.GetStrings();
    REQUIRE(header.GetROMFamily().GetLength() < static_cast<int>(MaxHeader));

    CTable table;
    table.GetTableFromBootBlock(nullptr);
    table.GetTableFromBootBlock("other");
}
