#include "fuzz/fuzz.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>

#include "fuzz/calls.h"
#include "fuzz/host.h"
#include "support/tempfolder.h"
#include "util.h"

CStr g_InstallLocalDir;

namespace
{

// The component directory. Its files are in memory: a disk would be the slowest part by far.
class CFolder
{
  public:
    CFolder() { g_InstallLocalDir = m_Folder.Path().c_str(); }

    std::string Write(const char* name, const std::uint8_t* pData, std::size_t size)
    {
        const std::filesystem::path path = m_Folder.Path() / name;
        const auto found = m_Files.emplace(name, -1);
        int& file = found.first->second;
        if (found.second) {
            file = memfd_create(name, 0);
            std::filesystem::create_symlink("/proc/self/fd/" + std::to_string(file), path);
        }
        REQUIRE(ftruncate(file, static_cast<off_t>(size)) == 0);
        REQUIRE(pwrite(file, pData, size, 0) == static_cast<ssize_t>(size));
        return path.string();
    }

  private:
    const CTempFolder m_Folder{"flashfuzz"};
    std::map<std::string, int> m_Files;  // their descriptors
};

}  // namespace

std::uint8_t CInput::Byte()
{
    if (m_Size == 0) return 0;
    m_Size--;
    return *m_pData++;
}

std::uint32_t CInput::Word(int bytes)
{
    std::uint32_t word = 0;
    for (int i = 0; i < bytes; i++) word |= static_cast<std::uint32_t>(Byte()) << (8 * i);
    return word;
}

std::vector<std::uint8_t> CInput::Bytes(std::size_t count)
{
    const std::uint8_t* pStart = m_pData;
    count = std::min(count, m_Size);
    m_pData += count;
    m_Size -= count;
    return {pStart, pStart + count};
}

std::vector<char> CInput::Text(char end)
{
    const std::uint8_t* pStart = m_pData;
    const std::uint8_t* pLimit = m_pData + m_Size;
    const auto* pEnd =
        std::find_if(pStart, pLimit, [=](std::uint8_t c) { return c == 0 || c == static_cast<std::uint8_t>(end); });
    std::vector<char> text(static_cast<std::size_t>(pEnd - pStart) + 1);
    std::copy(pStart, pEnd, text.begin());
    m_pData = std::min(pEnd + 1, pLimit);
    m_Size = static_cast<std::size_t>(pLimit - m_pData);
    return text;
}

std::string WriteFile(const char* name, const std::uint8_t* pData, std::size_t size)
{
    static CFolder folder;
    return folder.Write(name, pData, size);
}

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    setenv("QVFLASHLOG", "/dev/null", 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t size)
{
    BeginCalls();
    CInput input(pData, size);
    {
        const CHost host;
        Fuzz(input);
    }
    REQUIRE(EndCalls() <= StepBound.Base + StepBound.PerByte * size);
    return 0;
}
