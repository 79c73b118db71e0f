#include "support/process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/signalfd.h>
#include <sys/timerfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>

#include "support/descriptor.h"

namespace
{

using ShowLine = std::function<void(const std::string&)>;

const std::size_t MaxLineLength = 1000;
const std::size_t MaxLines = 2000;
const int LeftoverReads = 64;  // of the pipe of a process that has ended: more than a pipe holds

// What a process prints on one of its descriptors, in lines.
class COutput
{
  public:
    COutput(std::vector<std::string>& lines, const ShowLine& show) : m_Lines(lines), m_Show(show)
    {
        int ends[] = {-1, -1};
        if (pipe2(ends, O_CLOEXEC) != 0) return;
        m_ReadEnd.Reset(ends[0]);
        m_WriteEnd.Reset(ends[1]);
        fcntl(ends[0], F_SETFL, O_NONBLOCK);
    }

    int GetReadEnd() const { return m_ReadEnd.Get(); }
    int GetWriteEnd() const { return m_WriteEnd.Get(); }
    void CloseWriteEnd() { m_WriteEnd.Reset(-1); }

    // Takes some of what is there; false when nothing was.
    bool Read()
    {
        char szPart[4096];
        const ssize_t length = read(m_ReadEnd.Get(), szPart, sizeof szPart);
        if (length == 0) m_ReadEnd.Reset(-1);
        for (ssize_t i = 0; i < length; i++) {
            if (szPart[i] == '\n' || m_Line.size() == MaxLineLength) EndLine();
            if (szPart[i] != '\n') m_Line += szPart[i];
        }
        return length > 0;
    }

    // Takes the rest after the process has ended: another that it left behind may still print.
    void Finish()
    {
        for (int i = 0; i < LeftoverReads && Read(); i++) continue;
        if (!m_Line.empty()) EndLine();
    }

  private:
    void EndLine()
    {
        if (m_Lines.size() == MaxLines) m_Lines.pop_back();
        m_Lines.push_back(Printable(m_Line));
        m_Line.clear();
        if (m_Show) m_Show(m_Lines.back());
    }

    std::vector<std::string>& m_Lines;
    const ShowLine& m_Show;
    CDescriptor m_ReadEnd;
    CDescriptor m_WriteEnd;
    std::string m_Line;
};

// Becomes readable whenever so many seconds have passed. The kernel's time, which no simulation moves.
int StartTimer(double seconds)
{
    const int timer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
    const double whole = std::floor(seconds);
    const timespec period = {static_cast<time_t>(whole), static_cast<long>((seconds - whole) * 1e9)};
    const itimerspec setting = {period, period};
    timerfd_settime(timer, 0, &setting, nullptr);
    return timer;
}

bool HasExpired(int timer)
{
    std::uint64_t times = 0;
    return read(timer, &times, sizeof times) == sizeof times;
}

// Starts a command in a process group of its own, without input; 0 or errno.
int Spawn(const std::vector<std::string>& command, int output, int errors, const sigset_t& mask, pid_t& process)
{
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&files, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&files, errors, STDERR_FILENO);

    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setsigmask(&attributes, &mask);
    posix_spawnattr_setsigdefault(&attributes, &pipe);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    const std::vector<char*> arguments = ToArguments(command);
    const int error = posix_spawn(&process, arguments[0], &files, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    return error;
}

// Its number stays taken: its group can be ended without hitting another.
bool HasEnded(pid_t process)
{
    siginfo_t info = {};
    return waitid(P_PID, static_cast<id_t>(process), &info, WEXITED | WNOHANG | WNOWAIT) != 0 || info.si_pid != 0;
}

}  // namespace

CProcessRunner::CProcessRunner() : m_Before(), m_Signals(-1)
{
    sigset_t set;
    sigemptyset(&set);
    for (int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGCHLD}) sigaddset(&set, signal);
    sigprocmask(SIG_BLOCK, &set, &m_Before);
    m_Signals = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
    signal(SIGCHLD, SIG_DFL);
    signal(SIGPIPE, SIG_IGN);  // whoever reads the table may go before the work is done
}

CProcessRunner::~CProcessRunner()
{
    close(m_Signals);
    signal(SIGPIPE, SIG_DFL);
    sigprocmask(SIG_SETMASK, &m_Before, nullptr);
}

bool CProcessRunner::IsStopped()
{
    signalfd_siginfo info = {};
    while (read(m_Signals, &info, sizeof info) == sizeof info)
        if (info.ssi_signo != SIGCHLD) m_bStopped = true;
    return m_bStopped;
}

ProcessResult CProcessRunner::Run(const std::vector<std::string>& command, double seconds, TimeLimit limit,
                                  const ShowLine& show)
{
    ProcessResult result = {ProcessEnd::NotStarted, 0, {}, {}};
    COutput output(result.Output, show);
    COutput errors(result.Errors, show);
    const CDescriptor timer(StartTimer(seconds));
    const bool stoppedBefore = IsStopped();
    pid_t process = 0;
    result.Status = Spawn(command, output.GetWriteEnd(), errors.GetWriteEnd(), m_Before, process);
    output.CloseWriteEnd();
    errors.CloseWriteEnd();
    if (result.Status != 0) return result;

    ProcessEnd ours = ProcessEnd::Crashed;  // what it means when a signal ends it
    bool killed = false;
    while (!HasEnded(process)) {
        pollfd descriptors[] = {{output.GetReadEnd(), POLLIN, 0},
                                {errors.GetReadEnd(), POLLIN, 0},
                                {m_Signals, POLLIN, 0},
                                {timer.Get(), POLLIN, 0}};
        poll(descriptors, std::size(descriptors), -1);
        if (descriptors[0].revents) output.Read();
        if (descriptors[1].revents) errors.Read();
        const bool stopped = IsStopped() && !stoppedBefore;
        if (HasExpired(timer.Get())) {
            if (killed) {
                m_bStopped = true;
                result.End = ProcessEnd::StillRuns;
                return result;
            }
            killed = limit == TimeLimit::End || ours == ProcessEnd::TimedOut;
            kill(-process, killed ? SIGKILL : SIGTERM);
            ours = ProcessEnd::TimedOut;
        } else if (stopped && ours == ProcessEnd::Crashed) {
            kill(-process, SIGTERM);
            ours = ProcessEnd::Stopped;
        }
    }
    output.Finish();
    errors.Finish();
    if (limit == TimeLimit::End || ours == ProcessEnd::TimedOut) kill(-process, SIGKILL);

    int status = 0;
    waitpid(process, &status, 0);
    result.End = WIFEXITED(status) ? ProcessEnd::Exited : ours;
    result.Status = WIFEXITED(status) ? WEXITSTATUS(status) : WTERMSIG(status);
    return result;
}

std::vector<char*> ToArguments(const std::vector<std::string>& command)
{
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    return arguments;
}

std::string LastLine(const std::vector<std::string>& lines)
{
    const auto line = std::find_if(lines.rbegin(), lines.rend(), [](const std::string& l) { return !l.empty(); });
    return line == lines.rend() ? "" : *line;
}

std::string Printable(std::string text)
{
    for (char& c : text) {
        const unsigned char byte = static_cast<unsigned char>(c);
        if (c == '\t')
            c = ' ';
        else if (byte < ' ' || byte == 0x7F)
            c = '?';
    }
    return text;
}
