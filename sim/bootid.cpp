#include "sim/bootid.h"

#include <cerrno>
#include <cstdio>
#include <exception>
#include <optional>
#include <string>

namespace sim
{

namespace
{

const std::size_t MaxSize = 64;  // bytes

class CBootId : public IDevice
{
  public:
    explicit CBootId(std::string text) : m_Text(std::move(text)) {}

    ssize_t Read(void* buffer, std::size_t size) override
    {
        const std::size_t length = m_Text.copy(static_cast<char*>(buffer), size, m_Position);
        m_Position += length;
        return static_cast<ssize_t>(length);
    }

  private:
    std::string m_Text;
    std::size_t m_Position = 0;
};

// As the kernel gives out at each reading; it knows no size.
std::string NewId()
{
    std::FILE* pFile = std::fopen("/proc/sys/kernel/random/uuid", "re");
    char szId[MaxSize] = "";
    if (pFile && !std::fgets(szId, sizeof szId, pFile)) szId[0] = 0;
    if (pFile) std::fclose(pFile);
    return szId;
}

}  // namespace

std::unique_ptr<IDevice> OpenBootId(CServerFolder& folder)
{
    try {
        const CServerFolder::Lock lock(folder);
        CStateFile file(folder, "boot_id.running", MaxSize);
        std::optional<std::string> text;
        file.Refresh(text);
        if (!text) file.Write(*(text = NewId()));
        return std::make_unique<CBootId>(*text);
    } catch (const std::exception&) {  // a folder where nothing can be written
        errno = EIO;
        return nullptr;
    }
}

}  // namespace sim
