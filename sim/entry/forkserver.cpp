#include "sim/base/forkserver.h"

#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "sim/base/runoptions.h"
#include "sim/server.h"

namespace sim
{

namespace
{

struct Request
{
    std::vector<char> Texts;
    int Descriptors[ForkDescriptorCount];
};

// The size of its texts; 0 when nobody asks any more, -1 for what is no request.
ssize_t Receive(int socket, Request& request)
{
    request.Texts.resize(MaxForkRequest);
    iovec texts = {request.Texts.data(), request.Texts.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof request.Descriptors)] = {};
    msghdr message = {};
    message.msg_iov = &texts;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t size = recvmsg(socket, &message, MSG_CMSG_CLOEXEC);
    if (size <= 0) return size;
    const cmsghdr* pHeader = CMSG_FIRSTHDR(&message);
    if (!pHeader || pHeader->cmsg_len != CMSG_LEN(sizeof request.Descriptors)) return -1;
    std::memcpy(request.Descriptors, CMSG_DATA(pHeader), sizeof request.Descriptors);
    request.Texts.resize(static_cast<std::size_t>(size));
    return size;
}

// Makes this process one that has just been started with what was asked for.
void Become(const Request& request, int socket)
{
    clearenv();
    const char* pszEnd = request.Texts.data() + request.Texts.size();
    const char* pszFolder = request.Texts.data();
    for (const char* pszText = pszFolder + std::strlen(pszFolder) + 1; pszText < pszEnd;
         pszText += std::strlen(pszText) + 1) {
        const char* pszEquals = std::strchr(pszText, '=');
        if (pszEquals) setenv(std::string(pszText, pszEquals).c_str(), pszEquals + 1, 1);
    }
    for (std::size_t i = 0; i < ForkDescriptorCount; i++) {
        dup2(request.Descriptors[i], ForkDescriptors[i]);
        close(request.Descriptors[i]);
    }
    close(socket);
    if (chdir(pszFolder) != 0) _exit(CouldNotRun);
    setpgid(0, 0);
}

// Where the C library keeps the number of this thread; null where the kernel does not tell.
pid_t* FindThreadNumber()
{
    std::uint64_t address = 0;  // as wide as the kernel's
    if (prctl(PR_GET_TID_ADDRESS, &address, 0, 0, 0) != 0) return nullptr;
    return reinterpret_cast<pid_t*>(static_cast<std::uintptr_t>(address));  // NOLINT(performance-no-int-to-ptr)
}

// Comes back in each process that is to run. It is a brother of this one, so that who asks can wait for it, which the C
// library's fork can't make.
void Serve(int socket)
{
    pid_t* pThread = FindThreadNumber();
    send(socket, &ForkServerReady, sizeof ForkServerReady, MSG_NOSIGNAL);
    Request request;
    ssize_t size = 0;
    while ((size = Receive(socket, request)) > 0) {
        const auto process = static_cast<pid_t>(syscall(SYS_clone, CLONE_PARENT | SIGCHLD, 0, 0, 0, 0));
        if (process == 0) {
            if (pThread) *pThread = getpid();
            return Become(request, socket);
        }
        send(socket, &process, sizeof process, MSG_NOSIGNAL);
        for (const int descriptor : request.Descriptors) close(descriptor);
    }
    _exit(size == 0 ? 0 : CouldNotRun);
}

// Comes before what else this library does when it is loaded.
__attribute__((constructor(101))) void StartForkServer()
{
    const char* pszSocket = std::getenv(szForkServer);
    if (!pszSocket) return;
    if (HasCurrentServer()) _exit(CouldNotRun);
    Serve(std::atoi(pszSocket));
}

}  // namespace

}  // namespace sim
