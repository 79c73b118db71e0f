#include "keep.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "sha256.h"
#include "support/boot.h"

namespace
{

const int MaxNoteSize = 511;  // bytes
const std::size_t ChecksumLength = 16;
const char* const ImageEnd = ".bin";
const char* const NoteEnd = ".writing";

// The descriptor goes with the object, and leaves errno alone.
class CFile
{
  public:
    CFile(const std::string& path, int flags) : m_File(open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, 0600)) {}
    ~CFile()
    {
        const int error = errno;
        if (m_File >= 0) close(m_File);
        errno = error;
    }
    CFile(const CFile&) = delete;
    CFile& operator=(const CFile&) = delete;

    int Get() const { return m_File; }
    bool Sync() const { return m_File >= 0 && fsync(m_File) == 0; }

  private:
    int m_File;
};

bool SyncFolder(const std::string& folder)
{
    return CFile(folder, O_RDONLY | O_DIRECTORY).Sync();
}

std::string ImageName(const std::string& device, const std::string& version, const void* bytes, int size)
{
    return KeptNamePart(device) + "_" + KeptNamePart(version) + "_" + KeepChecksum(bytes, size) + ImageEnd;
}

}  // namespace

std::string KeptNamePart(std::string text)
{
    for (char& c : text)
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '.') c = '-';
    return text;
}

std::string CKeptImages::Path(const std::string& file) const
{
    return file.find('/') != std::string::npos ? file : m_Folder + "/" + file;
}

bool CKeptImages::Begin(const std::string& device, const std::string& version, const void* bytes, int size)
{
    const std::string note = KeptNamePart(device) + NoteEnd;
    m_Image = Interrupted(device);
    if (access(Path(note).c_str(), F_OK) != 0) {
        if (!MakeFolder()) return Fail();
        if (bytes) m_Image = ImageName(device, version, bytes, size);
        if (bytes && !Keep(m_Image, bytes, size)) return Fail();
        const std::string text = m_Image + "\n" + ReadBoot();
        if (!Write(note, text.data(), static_cast<int>(text.size()))) return Fail();
    }
    return true;
}

bool CKeptImages::End(const std::string& device)
{
    const bool removed = unlink(Path(KeptNamePart(device) + NoteEnd).c_str()) == 0;
    return (removed ? SyncFolder(m_Folder) : errno == ENOENT) || Fail();
}

std::string CKeptImages::ReadNote(const std::string& device) const
{
    int size = 0;
    const std::unique_ptr<char[]> pNote = ReadKept(Path(KeptNamePart(device) + NoteEnd), MaxNoteSize, size);
    return pNote ? std::string(pNote.get(), static_cast<std::size_t>(size)) : "";
}

bool CKeptImages::IsUnfinished(const std::string& device) const
{
    if (access(Path(KeptNamePart(device) + NoteEnd).c_str(), F_OK) != 0) return false;
    const std::string note = ReadNote(device);
    const std::size_t end = note.find('\n');
    const std::string then = end == std::string::npos ? "" : note.substr(end + 1);
    const std::string now = ReadBoot();
    return then.empty() || now.empty() || then == now;
}

std::string CKeptImages::Interrupted(const std::string& device) const
{
    const std::string note = ReadNote(device);
    const std::string image = note.substr(0, note.find('\n'));
    return !KeptChecksum(image).empty() && access(Path(image).c_str(), R_OK) == 0 ? image : "";
}

// Makes the folder and those above it. Nobody else may write into it.
bool CKeptImages::MakeFolder() const
{
    for (std::size_t end = m_Folder.find('/', 1);; end = m_Folder.find('/', end + 1)) {
        const std::string folder = m_Folder.substr(0, end);
        if (mkdir(folder.c_str(), 0700) == 0 && !SyncFolder(folder + "/..")) return false;
        if (end == std::string::npos) break;
    }
    const CFile folder(m_Folder, O_RDONLY | O_DIRECTORY);
    struct stat status = {};
    if (folder.Get() < 0 || fstat(folder.Get(), &status) != 0) return false;
    const bool ours = status.st_uid == geteuid() && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
    if (!ours) errno = EPERM;
    return ours;
}

// What is there already need not be written again, which a full disk could not take; its time says that it is the last
// one that was kept.
bool CKeptImages::Keep(const std::string& name, const void* bytes, int size) const
{
    int keptSize = 0;
    const std::unique_ptr<char[]> pKept = ReadKept(Path(name), size, keptSize);
    const bool kept = pKept && keptSize == size && std::memcmp(pKept.get(), bytes, static_cast<std::size_t>(size)) == 0;
    return kept ? futimens(CFile(Path(name), O_RDONLY).Get(), nullptr) == 0 : Write(name, bytes, size);
}

bool CKeptImages::Write(const std::string& name, const void* bytes, int size) const
{
    const std::string path = Path(name);
    const std::string unfinished = path + ".new";
    unlink(unfinished.c_str());
    {
        const CFile file(unfinished, O_WRONLY | O_CREAT | O_EXCL);
        const char* pBytes = static_cast<const char*>(bytes);
        ssize_t written = 0;
        for (int left = size; file.Get() >= 0 && left > 0 && written >= 0; left -= static_cast<int>(written)) {
            written = write(file.Get(), pBytes, static_cast<std::size_t>(left));
            pBytes += written;
        }
        if (written >= 0 && file.Sync() && rename(unfinished.c_str(), path.c_str()) == 0) return SyncFolder(m_Folder);
    }
    const int error = errno;
    unlink(unfinished.c_str());
    errno = error;
    return false;
}

bool CKeptImages::Fail()
{
    const char* pszProblem = errno == EPERM ? "others may write there" : std::strerror(errno);
    m_ErrorMessage = "the old firmware can't be kept in " + m_Folder + ": " + pszProblem;
    m_Image.clear();
    return false;
}

std::string KeepChecksum(const void* bytes, int size)
{
    return Sha256(bytes, static_cast<std::size_t>(size)).substr(0, ChecksumLength);
}

std::string KeptChecksum(const std::string& file)
{
    const std::size_t end = file.rfind(ImageEnd);
    const std::size_t start = file.rfind('_');
    const bool tells = end != std::string::npos && end + std::strlen(ImageEnd) == file.size() &&
                       start != std::string::npos && start + 1 + ChecksumLength == end;
    return tells ? file.substr(start + 1, ChecksumLength) : "";
}

std::unique_ptr<char[]> ReadKept(const std::string& path, int maxSize, int& size)
{
    const CFile file(path, O_RDONLY | O_NONBLOCK);
    struct stat status = {};
    if (file.Get() < 0 || fstat(file.Get(), &status) != 0) return nullptr;
    errno = !S_ISREG(status.st_mode) ? EINVAL : status.st_size > maxSize ? EFBIG : 0;
    if (errno != 0) return nullptr;
    const int wanted = static_cast<int>(status.st_size);
    std::unique_ptr<char[]> pBytes(new (std::nothrow) char[static_cast<std::size_t>(wanted) + 1]);
    if (!pBytes) errno = ENOMEM;
    ssize_t count = 1;
    for (size = 0; pBytes && size < wanted && count > 0; size += static_cast<int>(count))
        count = read(file.Get(), pBytes.get() + size, static_cast<std::size_t>(wanted - size));
    return pBytes && count > 0 && size == wanted ? std::move(pBytes) : nullptr;
}
