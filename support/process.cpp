#include "support/process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "support/descriptor.h"
#include "support/printable.h"

namespace
{

const std::size_t MaxLineLength = 1000;
const std::size_t MaxReportLength = 8192;
const std::size_t MaxLines = 2000;
const int LeftoverReads = 64;  // of the pipe of a process that has ended: more than a pipe holds
const int TickLength = 250;    // ms
const int ReportDescriptor = 3;
const mode_t OwnerMask = 077;

// The lines that a process writes to one of its descriptors.
class CLines
{
  public:
    CLines()
    {
        int ends[] = {-1, -1};
        if (pipe2(ends, O_CLOEXEC) != 0) return;
        m_ReadEnd.Reset(ends[0]);
        m_WriteEnd.Reset(ends[1]);
        fcntl(ends[0], F_SETFL, O_NONBLOCK);
    }
    virtual ~CLines() = default;

    int GetReadEnd() const { return m_ReadEnd.Get(); }
    int GetWriteEnd() const { return m_WriteEnd.Get(); }
    void CloseWriteEnd() { m_WriteEnd.Reset(-1); }

    // Takes some of what is there; false when nothing was.
    bool Read()
    {
        char szPart[4096];
        const ssize_t length = read(m_ReadEnd.Get(), szPart, sizeof szPart);
        if (length == 0) m_ReadEnd.Reset(-1);
        for (ssize_t i = 0; i < length; i++) Take(szPart[i]);
        return length > 0;
    }

    // Takes the rest after the process has ended: another that it left behind may still write.
    void Finish()
    {
        for (int i = 0; i < LeftoverReads && Read(); i++) continue;
        if (!m_Line.empty()) Take('\n');
    }

  protected:
    virtual void Take(char c) = 0;

    std::string m_Line;  // so far

  private:
    CDescriptor m_ReadEnd;
    CDescriptor m_WriteEnd;
};

// Lines for a terminal. One that is too long goes on in the next; one that is drawn anew counts as drawn last.
class COutput : public CLines
{
  public:
    COutput(std::vector<std::string>& lines, const std::function<void(const std::string&)>& show)
        : m_Lines(lines), m_Show(show)
    {
    }

  private:
    void Take(char c) override
    {
        if (c == '\n' || m_Line.size() == MaxLineLength) EndLine();
        if (m_bReturned && c != '\n') m_Line.clear();
        m_bReturned = c == '\r';
        if (c != '\n' && c != '\r') m_Line += c;
    }

    void EndLine()
    {
        if (m_Lines.size() == MaxLines) m_Lines.pop_back();
        m_Lines.push_back(Printable(m_Line));
        m_Line.clear();
        m_bReturned = false;
        if (m_Show) m_Show(m_Lines.back());
    }

    std::vector<std::string>& m_Lines;
    const std::function<void(const std::string&)>& m_Show;
    bool m_bReturned = false;  // the last character was a carriage return
};

// Lines for a program: none is changed.
class CReports : public CLines
{
  public:
    explicit CReports(const std::function<void(const std::string&)>& report) : m_Report(report) {}

  private:
    void Take(char c) override
    {
        if (c != '\n') {
            if (m_Line.size() <= MaxReportLength) m_Line += c;
            return;
        }
        if (m_Report && m_Line.size() <= MaxReportLength) m_Report(m_Line);
        m_Line.clear();
    }

    const std::function<void(const std::string&)>& m_Report;
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

// What a process is given, with the number of the descriptor for reports.
std::vector<std::string> Environment(const ProcessGifts& gifts, const std::string& reportVariable)
{
    const std::string start = reportVariable + "=";
    std::vector<std::string> environment = gifts.Environment ? *gifts.Environment : OwnEnvironment();
    environment.erase(std::remove_if(environment.begin(), environment.end(),
                                     [&start](const std::string& v) { return v.rfind(start, 0) == 0; }),
                      environment.end());
    if (!reportVariable.empty()) environment.push_back(start + std::to_string(ReportDescriptor));
    return environment;
}

// Its number stays taken: its group can be ended without hitting another.
bool HasEnded(pid_t process)
{
    siginfo_t info = {};
    return waitid(P_PID, static_cast<id_t>(process), &info, WEXITED | WNOHANG | WNOWAIT) != 0 || info.si_pid != 0;
}

// Where a process stands that has not ended.
enum Phase
{
    Phase_Runs,
    Phase_Stopping,   // the operator wants to stop
    Phase_OutOfTime,  // its time is up, and it was asked to end
    Phase_Killed,     // it was ended, and should be gone
    Phase_Abandoned,  // it can't be ended
};

// Asks or ends a process and all that it started, as its next phase wants.
void Enter(Phase& phase, Phase next, pid_t process, TimeLimit limit)
{
    phase = next;
    if (next == Phase_OutOfTime || (next == Phase_Stopping && limit == TimeLimit_End)) kill(-process, SIGTERM);
    if (next == Phase_Killed) kill(-process, SIGKILL);
}

// The phase that follows when time is up.
Phase AfterTimeLimit(Phase phase, TimeLimit limit)
{
    if (phase == Phase_Killed) return Phase_Abandoned;
    return limit == TimeLimit_End || phase == Phase_OutOfTime ? Phase_Killed : Phase_OutOfTime;
}

// What it means that a signal ended a process in that phase.
ProcessEnd EndBySignal(Phase phase, TimeLimit limit)
{
    if (phase == Phase_OutOfTime || phase == Phase_Killed) return ProcessEnd_TimedOut;
    return phase == Phase_Stopping && limit == TimeLimit_End ? ProcessEnd_Stopped : ProcessEnd_Crashed;
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
    if (m_bStopped) IsStopped();  // who has asked to stop may have asked again
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

bool CProcessRunner::WaitForInput(int descriptor)
{
    pollfd descriptors[] = {{descriptor, POLLIN, 0}, {m_Signals, POLLIN, 0}};
    while (!IsStopped()) {
        poll(descriptors, std::size(descriptors), -1);
        if (descriptors[0].revents) return true;
    }
    return false;
}

ProcessResult CProcessRunner::Run(const std::vector<std::string>& command, double seconds, TimeLimit limit,
                                  const ProcessWatch& watch, const ProcessGifts& gifts)
{
    ProcessResult result = {ProcessEnd_NotStarted, 0, {}, {}};
    const std::function<void(const std::string&)> nothing;
    COutput output(result.Output, watch.Line);
    COutput errors(result.Errors, nothing);
    CReports reports(watch.Report);
    CLines* const all[] = {&output, &errors, &reports};
    const CDescriptor timer(StartTimer(seconds));
    const bool stoppedBefore = IsStopped();
    pid_t process = 0;
    const ProcessStart start = {output.GetWriteEnd(), errors.GetWriteEnd(),
                                watch.ReportVariable.empty() ? -1 : reports.GetWriteEnd(),
                                Environment(gifts, watch.ReportVariable), m_Before};
    const mode_t before = umask(OwnerMask);
    result.Status = gifts.Start ? gifts.Start(start, process) : ENOSYS;
    if (result.Status == ENOSYS) result.Status = Spawn(command, start, gifts.Descriptors, process);
    umask(before);
    for (CLines* pLines : all) pLines->CloseWriteEnd();
    if (result.Status != 0) return result;

    Phase phase = Phase_Runs;
    while (phase != Phase_Abandoned && !HasEnded(process)) {
        pollfd descriptors[] = {{output.GetReadEnd(), POLLIN, 0},
                                {errors.GetReadEnd(), POLLIN, 0},
                                {reports.GetReadEnd(), POLLIN, 0},
                                {m_Signals, POLLIN, 0},
                                {timer.Get(), POLLIN, 0}};
        poll(descriptors, std::size(descriptors), watch.Tick ? TickLength : -1);
        for (std::size_t i = 0; i < std::size(all); i++)
            if (descriptors[i].revents) all[i]->Read();
        const bool stopped = IsStopped() && !stoppedBefore;
        if (HasExpired(timer.Get())) {
            Enter(phase, AfterTimeLimit(phase, limit), process, limit);
        } else if (phase == Phase_Runs && stopped) {
            Enter(phase, Phase_Stopping, process, limit);
            if (watch.Stopping) watch.Stopping();
        }
        if (watch.Tick) watch.Tick();
    }
    if (phase == Phase_Abandoned) {
        m_bStopped = true;
        result.End = ProcessEnd_StillRuns;
        return result;
    }
    for (CLines* pLines : all) pLines->Finish();
    if (limit == TimeLimit_End || phase == Phase_OutOfTime) kill(-process, SIGKILL);

    int status = 0;
    waitpid(process, &status, 0);
    result.End = WIFEXITED(status) ? ProcessEnd_Exited : EndBySignal(phase, limit);
    result.Status = WIFEXITED(status) ? WEXITSTATUS(status) : WTERMSIG(status);
    return result;
}

int Spawn(const std::vector<std::string>& command, const ProcessStart& start, const std::vector<int>& others,
          pid_t& process)
{
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&files, start.Output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&files, start.Errors, STDERR_FILENO);
    if (start.Reports >= 0) posix_spawn_file_actions_adddup2(&files, start.Reports, ReportDescriptor);
    for (int descriptor : others) posix_spawn_file_actions_adddup2(&files, descriptor, descriptor);

    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setsigmask(&attributes, &start.Mask);
    posix_spawnattr_setsigdefault(&attributes, &pipe);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    const std::vector<char*> arguments = ToArguments(command);
    const int error = posix_spawn(&process, arguments[0], &files, &attributes, arguments.data(),
                                  ToArguments(start.Environment).data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    return error;
}

std::vector<std::string> OwnEnvironment()
{
    std::vector<std::string> environment;
    for (char** ppVariable = environ; *ppVariable; ppVariable++) environment.emplace_back(*ppVariable);
    return environment;
}

std::vector<char*> ToArguments(const std::vector<std::string>& command)
{
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    return arguments;
}

std::string ShellWord(const std::string& text)
{
    std::string word = "'";
    for (const char c : text) word += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return word + "'";
}

std::string LastLine(const std::vector<std::string>& lines)
{
    const auto line = std::find_if(lines.rbegin(), lines.rend(), [](const std::string& l) { return !l.empty(); });
    return line == lines.rend() ? "" : *line;
}
