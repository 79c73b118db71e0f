#include "tools/authoring/faults/crew.h"

#include <fcntl.h>
#include <limits.h>
#include <sched.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <vector>

#include "support/descriptor.h"
#include "support/files.h"

namespace
{

using Clock = std::chrono::steady_clock;

static_assert(MaxCrewLine <= PIPE_BUF, "lines of several processes do not mix in one pipe");

// How far the work is, on a line that is drawn anew.
class CProgressLine
{
  public:
    CProgressLine(const char* name, int count) : m_Name(name), m_Count(count), m_Start(Clock::now()), m_Shown(m_Start)
    {
    }
    ~CProgressLine()
    {
        if (m_bDrawn) std::fprintf(stderr, "\r\033[K");
    }
    CProgressLine(const CProgressLine&) = delete;
    CProgressLine& operator=(const CProgressLine&) = delete;

    void Show(int done)
    {
        const Clock::time_point now = Clock::now();
        if (!m_bTerminal || now - m_Shown < std::chrono::milliseconds(200)) return;
        m_Shown = now;
        m_bDrawn = true;
        const double seconds = std::chrono::duration<double>(now - m_Start).count();
        std::fprintf(stderr, "\r\033[K%s: %d of %d, %.0f s left", m_Name, done, m_Count,
                     seconds / done * (m_Count - done));
    }

  private:
    const char* m_Name;
    int m_Count;
    Clock::time_point m_Start;
    Clock::time_point m_Shown;
    bool m_bTerminal = isatty(STDERR_FILENO) != 0;
    bool m_bDrawn = false;
};

// Pieces that are next to each other are alike: a worker takes some of them, and leaves as many to each of the others.
int RunLength(int jobs, int count)
{
    return std::clamp(count / (jobs * 8), 1, 64);
}

// A worker. What comes of a piece that was cut off by the operator is not told.
[[noreturn]] void Work(int worker, int jobs, int count, int pipe,
                       const std::function<std::string(CProcessRunner&, int, int)>& work)
{
    int status = 0;
    try {
        CProcessRunner runner;
        const int length = RunLength(jobs, count);
        for (int piece = 0; piece < count && !runner.IsStopped(); piece++) {
            if (piece / length % jobs != worker) continue;
            std::string line = work(runner, worker, piece);
            if (runner.IsStopped()) break;
            line.resize(std::min(line.size(), MaxCrewLine - 1));
            if (!WriteAll(pipe, line + "\n")) break;
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "zalfaults: %s\n", error.what());
        status = 1;
    }
    std::fflush(nullptr);
    _exit(status);
}

// Who has asked to stop may ask again: what is left to do then is short, and leaves nothing behind.
void IgnoreStops()
{
    for (const int stop : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) signal(stop, SIG_IGN);
}

}  // namespace

bool DoWork(const Crew& crew, int count, const std::function<std::string(CProcessRunner&, int, int)>& work,
            const std::function<void(const std::string&)>& take)
{
    int ends[] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error(std::string("no pipe: ") + std::strerror(errno));
    const CDescriptor readEnd(ends[0]);
    CDescriptor writeEnd(ends[1]);
    std::vector<pid_t> workers;
    std::fflush(nullptr);
    for (int worker = 0; worker < crew.Jobs; worker++) {
        const pid_t process = fork();
        if (process < 0) throw std::runtime_error(std::string("can't fork: ") + std::strerror(errno));
        if (process == 0) Work(worker, crew.Jobs, count, writeEnd.Get(), work);
        workers.push_back(process);
    }
    writeEnd.Reset(-1);

    CProgressLine progress(crew.Name, count);
    bool stopped = false;
    {
        CProcessRunner signals;  // keeps those that ask to stop
        std::string text;
        char szPart[4 * MaxCrewLine];
        for (int done = 0;;) {
            if (!stopped && !signals.WaitForInput(readEnd.Get())) {
                stopped = true;
                IgnoreStops();
                for (const pid_t process : workers) kill(process, SIGTERM);
            }
            const ssize_t size = read(readEnd.Get(), szPart, sizeof szPart);
            if (size <= 0) break;
            text.append(szPart, static_cast<std::size_t>(size));
            for (std::size_t end = 0; (end = text.find('\n')) != std::string::npos; text.erase(0, end + 1)) {
                take(text.substr(0, end));
                progress.Show(++done);
            }
        }
    }
    bool failed = false;
    for (const pid_t process : workers) {
        int status = 0;
        waitpid(process, &status, 0);
        failed = failed || status != 0;
    }
    if (failed && !stopped) throw std::runtime_error("not all of the work could be done");
    return !stopped;
}

int CountProcessors()
{
    cpu_set_t set;
    return sched_getaffinity(0, sizeof set, &set) == 0 ? CPU_COUNT(&set) : 1;
}
