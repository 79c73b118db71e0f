// Runs an installer as a process of its own, and outlives whatever it does.
#pragma once

#include <signal.h>
#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

enum ProcessEnd
{
    ProcessEnd_Exited,
    ProcessEnd_Crashed,    // a signal that is not ours
    ProcessEnd_TimedOut,   // was ended at its time limit
    ProcessEnd_Stopped,    // was ended because the operator wants to stop
    ProcessEnd_StillRuns,  // can't be ended: a driver holds it
    ProcessEnd_NotStarted,
};

struct ProcessResult
{
    ProcessEnd End;
    int Status;  // exit status, signal, or errno
    // Lines that it printed, as a terminal may see them. Of very many the first ones and the last.
    std::vector<std::string> Output;
    std::vector<std::string> Errors;
};

// What happens to a process and all that it started when time is up, and when the operator wants to stop.
enum TimeLimit
{
    TimeLimit_End,       // they are ended; what it leaves behind when it ends by itself, too
    TimeLimit_AskFirst,  // they are asked to end, and are ended when as much time is up again; no operator stops them
};

// What to do while a process runs. Each may be empty.
struct ProcessWatch
{
    std::function<void(const std::string&)> Line;  // it has printed that line on standard output
    std::function<void()> Tick;                    // a quarter of a second has passed
    std::function<void()> Stopping;                // the operator has asked to stop

    // It has written that line, as it is, to a descriptor of its own, whose number the environment variable tells it.
    // Lines above 8 KiB are left out.
    std::function<void(const std::string&)> Report;
    std::string ReportVariable;
};

// What a process is started with.
struct ProcessStart
{
    int Output;  // descriptors
    int Errors;
    int Reports;  // which it has as number 3; -1: none
    std::vector<std::string> Environment;
    sigset_t Mask;  // of signals that are kept from it
};

// What a process is given.
struct ProcessGifts
{
    std::optional<std::vector<std::string>> Environment;  // in place of this process's own
    std::vector<int> Descriptors;  // that it has open, too, under their numbers, which are above 9

    // Starts the command in another way, without those descriptors, as a child of this process in a process group of
    // its own; 0 or errno. Where that is ENOSYS, and without it, the system starts it.
    std::function<int(const ProcessStart&, pid_t&)> Start;
};

// Starts processes one after the other. While an object lives, signals that ask to end are kept for it: a process that
// writes firmware is never left alone.
class CProcessRunner
{
  public:
    CProcessRunner();
    ~CProcessRunner();
    CProcessRunner(const CProcessRunner&) = delete;
    CProcessRunner& operator=(const CProcessRunner&) = delete;

    // True once nothing more is to be started: the operator has asked to stop, or a process can't be ended.
    bool IsStopped();

    // Waits until the descriptor can be read; false when the operator has asked to stop.
    bool WaitForInput(int descriptor);

    // Runs a command, its program given by path, to its end. It has no input, and what it makes is for its owner only.
    // The time limit is in seconds of real time, whatever clock is simulated.
    ProcessResult Run(const std::vector<std::string>& command, double seconds, TimeLimit limit,
                      const ProcessWatch& watch = {}, const ProcessGifts& gifts = {});

  private:
    sigset_t m_Before;  // the signal mask that processes are started with
    int m_Signals;      // descriptor from which the kept ones are read
    bool m_bStopped = false;
};

// Starts a command in a process group of its own, without input, and with those descriptors under their numbers, too;
// 0 or errno.
int Spawn(const std::vector<std::string>& command, const ProcessStart& start, const std::vector<int>& others,
          pid_t& process);

// This process's variables, "NAME=VALUE".
std::vector<std::string> OwnEnvironment();

// A command as the system takes it, with a null pointer at its end; holds while the command does.
std::vector<char*> ToArguments(const std::vector<std::string>& command);

// A text as one word of a shell command.
std::string ShellWord(const std::string& text);

// The last line that is not empty; empty when there is none.
std::string LastLine(const std::vector<std::string>& lines);
