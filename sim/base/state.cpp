#include "sim/base/state.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "support/files.h"

namespace sim
{

namespace fs = std::filesystem;

CServerFolder::CServerFolder(const fs::path& path) : m_Path(path), m_Steps([this] { LosePower(); })
{
    if (Open().Get() < 0)
        throw std::runtime_error("There is no server in " + path.string() + ": " + std::strerror(errno));
}

CDescriptor CServerFolder::Open() const
{
    return CDescriptor(open(m_Path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

CServerFolder::Lock::Lock(CServerFolder& folder) : m_Guard(folder.m_Mutex), m_Folder(folder)
{
    if (m_Folder.m_Locks > 0) {
        m_Folder.m_Locks++;
        return;
    }
    CDescriptor descriptor = m_Folder.Open();
    int status = 0;
    do status = flock(descriptor.Get(), LOCK_EX);
    while (status != 0 && errno == EINTR);
    if (status != 0) throw std::runtime_error("Can't lock " + folder.m_Path.string() + ": " + std::strerror(errno));
    m_Folder.m_Locked = std::move(descriptor);
    m_Folder.m_Locks = 1;
}

CServerFolder::Lock::~Lock()
{
    if (--m_Folder.m_Locks == 0) m_Folder.m_Locked.Reset(-1);
}

void CServerFolder::Restart()
{
    const Lock lock(*this);
    for (const fs::directory_entry& entry : fs::directory_iterator(m_Path))
        if (entry.path().extension() == ".running") fs::remove(entry.path());
}

void CServerFolder::LosePower()
{
    Restart();
    kill(getpid(), SIGKILL);
    for (;;) pause();  // the signal may come a moment later
}

CStateFile::CStateFile(CServerFolder& folder, const std::string& name, std::size_t maxSize)
    : m_Folder(folder), m_Path(folder.Path() / name), m_MaxSize(maxSize)
{
}

bool CStateFile::Exists() const
{
    return access(m_Path.c_str(), F_OK) == 0;
}

void CStateFile::Open()
{
    m_Known.Reset(open(m_Path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (m_Known.Get() < 0 && errno != ENOENT)
        throw std::runtime_error("Can't read " + m_Path.string() + ": " + std::strerror(errno));
}

bool CStateFile::RefreshStart(std::optional<std::string>& bytes, std::size_t most)
{
    struct stat now = {};
    struct stat known = {};
    const bool exists = stat(m_Path.c_str(), &now) == 0;
    if (m_bKnown && exists == (m_Known.Get() >= 0)) {
        if (!exists) return false;
        if (fstat(m_Known.Get(), &known) == 0 && known.st_ino == now.st_ino && known.st_dev == now.st_dev &&
            static_cast<std::size_t>(now.st_size) == m_KnownSize)
            return false;
    }
    m_bKnown = false;
    bytes.reset();
    Open();
    if (m_Known.Get() >= 0) {
        try {
            bytes = ReadOpenFile(m_Known.Get(), m_Path, m_MaxSize, most);
        } catch (const std::exception& error) {
            RefuseContents(error.what());
        }
    }
    m_KnownSize = bytes ? static_cast<std::size_t>(now.st_size) : 0;
    m_bKnown = true;
    return true;
}

void CStateFile::Write(std::string_view bytes)
{
    CStep step(m_Folder.GetSteps(), "write", Name());
    WriteWholeFile(m_Path, bytes);
    Open();
    m_KnownSize = bytes.size();
    m_bKnown = true;
    step.End();
}

void CStateFile::WriteObject(const Json& object)
{
    Write(object.dump() + "\n");
}

void CStateFile::Append(std::string_view bytes)
{
    CStep step(m_Folder.GetSteps(), "append", Name(), bytes.size());
    bytes = bytes.substr(0, step.GetDone());
    const CDescriptor file(open(m_Path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY, 0666));
    if (file.Get() < 0 || !WriteAll(file.Get(), bytes)) {
        const std::string why = std::strerror(errno);
        const bool cut = ftruncate(file.Get(), static_cast<off_t>(m_KnownSize)) == 0;
        throw std::runtime_error("can't write " + m_Path.string() + ": " + why + (cut ? "" : ", nor cut it again"));
    }
    if (m_Known.Get() < 0) Open();
    m_KnownSize += bytes.size();
    m_bKnown = true;
    step.End();
}

void CStateFile::Remove()
{
    CStep step(m_Folder.GetSteps(), "remove", Name());
    if (unlink(m_Path.c_str()) != 0 && errno != ENOENT)
        throw std::runtime_error("can't remove " + m_Path.string() + ": " + std::strerror(errno));
    m_Known.Reset(-1);
    m_KnownSize = 0;
    m_bKnown = true;
    step.End();
}

void CStateFile::TakeFrom(CStateFile& other)
{
    CStep step(m_Folder.GetSteps(), "replace", Name());
    if (std::rename(other.m_Path.c_str(), m_Path.c_str()) != 0)
        throw std::runtime_error("can't rename " + other.m_Path.string() + ": " + std::strerror(errno));
    m_KnownSize = other.m_KnownSize;
    m_bKnown = true;
    Open();
    step.End();
    other.Remove();
}

void CStateFile::RefuseContents(const std::string& why) const
{
    throw std::runtime_error(m_Path.string() + " does not hold what the server keeps there (" + why +
                             "). Remove the file, and the server starts as if it had never been written");
}

}  // namespace sim
