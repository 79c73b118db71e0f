#include "tools/deploy/installer.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "component.h"
#include "tools/deploy/activity.h"
#include "tools/simulated.h"

namespace
{

bool EndsWith(const std::string& text, const char* end)
{
    const std::size_t length = std::strlen(end);
    return text.size() >= length && text.compare(text.size() - length, length, end) == 0;
}

bool IsWholeSentence(const std::string& line)
{
    return std::strchr(".!?", line.back()) && !EndsWith(line, "...");
}

// A percentage stands in the line.
bool IsProgress(const std::string& line)
{
    const std::size_t sign = line.find('%');
    return sign != std::string::npos && line.find_last_of("0123456789", sign) != std::string::npos;
}

// The last line that is a sentence, or at least no progress and not indented, as tables are; empty when there is none.
std::string LastSentence(const std::vector<std::string>& lines)
{
    const auto isSentence = [](const std::string& line) {
        return !line.empty() && (IsWholeSentence(line) || (line[0] != ' ' && !IsProgress(line)));
    };
    const auto line = std::find_if(lines.rbegin(), lines.rend(), isSentence);
    return line == lines.rend() ? "" : line->substr(line->find_first_not_of(' '));
}

// All that an installer has in its environment, beside what the runner adds.
std::vector<std::string> InstallerEnvironment(const Session& session)
{
    std::vector<std::string> environment = {"PATH=/usr/sbin:/usr/bin:/sbin:/bin"};
    if (!session.Log.File.empty()) environment.push_back("QVFLASHLOG=" + session.Log.File.string());
    if (!session.Libraries.empty()) environment.push_back(LibrariesVariable + session.Libraries.string());
    return environment;
}

// What an installer gives as the reason for how it ended; empty: nothing.
std::string GivenReason(const InstallerRun& run)
{
    std::string reason;
    if (run.Report.Result())
        reason = run.Report.Result()->Message;
    else if (!run.Report.IsGiven())
        reason = LastSentence(run.Process.Output);
    return reason.empty() ? LastLine(run.Process.Errors) : reason;
}

const char* StatusSentence(int status)
{
    switch (status) {
        case ReturnCodeNone:
            return "The installer says that it is done.";
        case ReturnCodeReboot:
            return "The installer says that it is done, and that the server must be restarted.";
        case ReturnCodeTargetCurrent:
            return "The installer says that this version is installed already.";
        case ReturnCodeTargetNewer:
            return "The installer says that a newer version is installed.";
        case ReturnCodeNoTarget:
            return "The installer says that there is no such device.";
        case ReturnCodeCanceledByUser:
            return "The installer says that it was cancelled.";
        case ReturnCodeCouldNotRun:
            return "The installer says that it could not run.";
        default:
            return "The installer says that it failed, and gives no reason.";
    }
}

std::string Sentence(const std::string& text)
{
    return std::strchr(".!?", text.back()) ? text : text + ".";
}

}  // namespace

bool InstallerRun::HasSaid() const
{
    return Process.End == ProcessEnd_Exited && Process.Status <= ReturnCodeErrorReturn;
}

std::vector<std::string> InstallerCommand(const std::filesystem::path& folder, const Package& package,
                                          const DeployOptions& options, const std::vector<std::string>& switches)
{
    std::vector<std::string> command = {(folder / package.Installer).string(), "/y", folder.string()};
    command.insert(command.end(), switches.begin(), switches.end());
    if (!package.Restored.empty()) command.insert(command.end(), {"/r", package.Restored.string()});
    return options.Server.empty() ? command : OnServer(options.Server, command);
}

InstallerRun RunInstaller(Session& session, const std::vector<std::string>& command, double seconds, TimeLimit limit,
                          const std::string& subject)
{
    InstallerRun run = {};
    run.Limit = seconds;
    CActivity activity(session.Screen, session.Log.File, run.Report);
    ProcessWatch watch;
    watch.Line = [&activity](const std::string& line) { activity.ShowLine(line); };
    watch.Tick = [&activity] { activity.Show(); };
    watch.Stopping = [&session, &subject] { session.Screen.Notice(subject); };
    watch.Report = [&run](const std::string& line) { run.Report.Read(line); };
    watch.ReportVariable = ReportVariable;

    const auto start = std::chrono::steady_clock::now();
    const ProcessGifts gifts = {InstallerEnvironment(session), {session.Run.Descriptor()}, nullptr};
    run.Process = session.Runner.Run(command, seconds, limit, watch, gifts);
    run.Seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return run;
}

std::string DescribeReason(const InstallerRun& run)
{
    const std::string reason = GivenReason(run);
    return reason.empty() ? StatusSentence(run.Process.Status) : Sentence(reason);
}

std::string DescribeEnd(const InstallerRun& run)
{
    char szLimit[32];
    std::snprintf(szLimit, sizeof szLimit, "%g", run.Limit);
    const ProcessResult& process = run.Process;
    std::string text = "The installer ";
    switch (process.End) {
        case ProcessEnd_Exited:
            text += "ended with exit status " + std::to_string(process.Status);
            break;
        case ProcessEnd_Crashed:
            text += std::string("crashed (") + strsignal(process.Status) + ")";
            break;
        case ProcessEnd_TimedOut:
            text += std::string("did not finish within ") + szLimit + " seconds and was ended";
            break;
        case ProcessEnd_Stopped:
            text += "was stopped";
            break;
        case ProcessEnd_StillRuns:
            text += std::string("did not finish within ") + szLimit + " seconds and can't be ended";
            break;
        case ProcessEnd_NotStarted:
            text += std::string("can't be started (") + std::strerror(process.Status) + ")";
            break;
    }
    // One that ends as no installer does, was ended by something else: that says why on standard error.
    const std::string error = LastLine(process.Errors);
    const bool speaks = process.End == ProcessEnd_Exited && (run.HasSaid() || error.empty());
    const std::string last = speaks ? GivenReason(run) : error;
    if (!last.empty()) text += ": " + last;
    return Sentence(text);
}
