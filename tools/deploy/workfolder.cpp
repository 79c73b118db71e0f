#include "tools/deploy/workfolder.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace fs = std::filesystem;

namespace
{

const int RoomNeeded = 64 << 10;  // bytes, more than a discovery document has

}  // namespace

CWorkFolder::CWorkFolder() : m_Folder("zaldeploy")
{
    const std::string problem = Problem();
    if (!problem.empty()) throw std::runtime_error(problem);
}

fs::path CWorkFolder::DiscoveryFile() const
{
    fs::path file = m_Folder.Path() / "discovery.xml";
    std::error_code ignored;
    fs::remove(file, ignored);
    return file;
}

std::string CWorkFolder::Problem() const
{
    fs::path file = m_Folder.Path() / "room";
    const int descriptor = open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    const int error = descriptor < 0 ? errno : posix_fallocate(descriptor, 0, RoomNeeded);
    if (descriptor >= 0) close(descriptor);
    unlink(file.c_str());
    if (error == 0) return "";
    return "nothing can be written to " + m_Folder.Path().parent_path().string() + " (" + std::strerror(error) +
           "); TMPDIR names another folder for temporary files";
}
