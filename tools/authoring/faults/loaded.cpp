#include "tools/authoring/faults/loaded.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "sim/base/forkserver.h"

namespace
{

const int FirstDescriptor = 10;  // above those that each program has
const timeval Patience = {60, 0};

// The working folder and the environment of a run.
std::string ToTexts(const std::vector<std::string>& environment)
{
    std::string texts = std::filesystem::current_path().string() + '\0';
    for (const std::string& variable : environment) texts += variable + '\0';
    return texts;
}

// Asks for a run; false where that can't be sent.
bool Send(int socket, std::string texts, const ProcessStart& start)
{
    const int descriptors[] = {start.Output, start.Errors, start.Reports};
    static_assert(sizeof descriptors == sizeof sim::ForkDescriptors);
    iovec part = {texts.data(), texts.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof descriptors)] = {};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr* pHeader = CMSG_FIRSTHDR(&message);
    pHeader->cmsg_level = SOL_SOCKET;
    pHeader->cmsg_type = SCM_RIGHTS;
    pHeader->cmsg_len = CMSG_LEN(sizeof descriptors);
    std::memcpy(CMSG_DATA(pHeader), descriptors, sizeof descriptors);
    return sendmsg(socket, &message, MSG_NOSIGNAL) >= 0;
}

}  // namespace

CLoadedProgram::~CLoadedProgram()
{
    if (m_Process <= 0) return;
    kill(m_Process, SIGKILL);
    waitpid(m_Process, nullptr, 0);
}

// Waits until it is there. One that can't be started, or ends or hangs before it is there, is not loaded.
void CLoadedProgram::Load(const ProcessStart& run)
{
    int ends[] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) return;
    m_Socket.Reset(ends[0]);
    setsockopt(ends[0], SOL_SOCKET, SO_RCVTIMEO, &Patience, sizeof Patience);
    CDescriptor other(fcntl(ends[1], F_DUPFD_CLOEXEC, FirstDescriptor));
    close(ends[1]);
    const CDescriptor nothing(open("/dev/null", O_WRONLY | O_CLOEXEC));
    ProcessStart start = {nothing.Get(), nothing.Get(), -1, run.Environment, run.Mask};
    start.Environment.push_back(sim::szForkServer + ("=" + std::to_string(other.Get())));
    if (Spawn(m_Command, start, {other.Get()}, m_Process) != 0) m_Process = 0;
    other.Reset(-1);
    char ready = 0;
    if (recv(m_Socket.Get(), &ready, sizeof ready, 0) != sizeof ready) m_Socket.Reset(-1);
}

int CLoadedProgram::Start(const ProcessStart& start, pid_t& process)
{
    if (!std::exchange(m_bTried, true)) Load(start);
    if (m_Socket.Get() < 0) return ENOSYS;
    const std::string texts = ToTexts(start.Environment);
    if (texts.size() > sim::MaxForkRequest) return ENOSYS;
    if (Send(m_Socket.Get(), texts, start) && recv(m_Socket.Get(), &process, sizeof process, 0) == sizeof process)
        return process > 0 ? 0 : EAGAIN;
    m_Socket.Reset(-1);  // an answer that comes late would be taken for the next one's
    return EIO;
}
