#include "support/serverlock.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace
{

// Where the lock of whoever started this process is open, if it holds it: above those that a shell names.
const int FirstShared = 10;
const int LastShared = 255;

const int MaxRecord = 512;       // bytes
const std::size_t MaxName = 64;  // bytes
const int Reads = 20;            // of a record that is being written
const int ReadPause = 5;         // ms

// What the file says of who holds the lock.
struct Holder
{
    int Process = 0;
    char szProgram[MaxName + 1] = "";
    char szSince[32] = "";

    bool IsKnown() const { return Process > 0; }
    bool HasEnded() const { return kill(Process, 0) != 0 && errno == ESRCH; }
};

const char* const szRecord = "process %d\nprogram %64[^\n]\nsince %31[^\n]\n";

// The time is that at which the kernel empties the file: real time, whatever clock is simulated.
bool WriteHolder(int file, const std::string& program)
{
    std::string name = program.substr(0, MaxName);
    std::replace_if(
        name.begin(), name.end(), [](unsigned char c) { return c < ' ' || c >= 0x7F; }, '?');
    struct stat status = {};
    if (ftruncate(file, 0) != 0 || fstat(file, &status) != 0) return false;
    tm utc = {};
    gmtime_r(&status.st_mtime, &utc);
    char szSince[32];
    std::strftime(szSince, sizeof szSince, "%Y-%m-%d %H:%M:%S UTC", &utc);
    const std::string record =
        "process " + std::to_string(getpid()) + "\nprogram " + name + "\nsince " + szSince + "\n";
    return pwrite(file, record.data(), record.size(), 0) == static_cast<ssize_t>(record.size());
}

Holder ReadHolder(int file)
{
    char szText[MaxRecord + 1] = "";
    Holder holder;
    if (pread(file, szText, MaxRecord, 0) <= 0) return holder;
    if (std::sscanf(szText, szRecord, &holder.Process, holder.szProgram, holder.szSince) != 3) holder.Process = 0;
    return holder;
}

// Who holds it now: one that has just taken it may not have written yet.
Holder FindHolder(int file)
{
    Holder holder = ReadHolder(file);
    for (int i = 1; i < Reads && (!holder.IsKnown() || holder.HasEnded()); i++) {
        poll(nullptr, 0, ReadPause);  // real time, too
        holder = ReadHolder(file);
    }
    return holder;
}

std::string Describe(const Holder& holder)
{
    if (!holder.IsKnown()) return "another program works on the firmware of this server";
    const bool ended = holder.HasEnded();
    return std::string(holder.szProgram) + " (process " + std::to_string(holder.Process) +
           (ended ? ", which has ended, but not what it started)" : ")") +
           " has been working on the firmware of this server since " + holder.szSince;
}

// The descriptor of the same file that this process was started with; -1 where there is none.
int FindShared(int file)
{
    struct stat own = {};
    if (fstat(file, &own) != 0) return -1;
    for (int descriptor = FirstShared; descriptor <= LastShared; descriptor++) {
        struct stat other = {};
        if (descriptor != file && fstat(descriptor, &other) == 0 && other.st_dev == own.st_dev &&
            other.st_ino == own.st_ino)
            return descriptor;
    }
    return -1;
}

// A folder in which nobody else puts a file.
bool IsOwnFolder(const std::string& folder)
{
    struct stat status = {};
    return lstat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
           (status.st_uid == geteuid() || status.st_uid == 0) && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

}  // namespace

CServerLock::State CServerLock::Take(const std::string& program, const std::string& root)
{
    if (m_File.Get() < 0 && Open(root) != State_Held) return State_NoPlace;
    int status = 0;
    do status = flock(m_File.Get(), LOCK_EX | LOCK_NB);
    while (status != 0 && errno == EINTR);
    if (status == 0) {
        if (!m_bInherited) static_cast<void>(WriteHolder(m_File.Get(), program));  // it is held, written or not
        return State_Held;
    }
    if (errno != EWOULDBLOCK) return Fail("The lock of this server can't be taken");
    m_sProblem = Describe(FindHolder(m_File.Get()));
    return State_Busy;
}

void CServerLock::Share()
{
    m_File.Reset(fcntl(m_File.Get(), F_DUPFD, FirstShared));
}

CServerLock::State CServerLock::Open(const std::string& root)
{
    for (const char* pszParent : {"/run", "/var/run"}) {
        const std::string folder = root + pszParent + "/flashlib";
        if (mkdir(folder.c_str(), 0700) == 0 || errno == EEXIST) return OpenIn(folder);
        if (errno != ENOENT && errno != ENOTDIR) return Fail("The folder " + folder + " can't be made");
    }
    m_sProblem = "There is neither " + root + "/run nor " + root + "/var/run, where the lock of this server has to be";
    return State_NoPlace;
}

CServerLock::State CServerLock::OpenIn(const std::string& folder)
{
    if (!IsOwnFolder(folder)) {
        m_sProblem = "Others can write to the folder " + folder + ", where the lock of this server has to be";
        return State_NoPlace;
    }
    const std::string path = folder + "/lock";
    m_File.Reset(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY, 0600));
    if (m_File.Get() < 0) return Fail("The file " + path + " can't be opened");
    const int shared = FindShared(m_File.Get());
    m_bInherited = shared >= 0;
    if (m_bInherited) m_File.Reset(shared);
    return State_Held;
}

CServerLock::State CServerLock::Fail(const std::string& what)
{
    const bool forRoot = errno == EACCES || errno == EPERM;
    m_sProblem = what + ": " + std::strerror(errno) + (forRoot ? "; run this as root" : "");
    return State_NoPlace;
}
