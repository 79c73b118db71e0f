#include "tools/deploy/installation.h"

#include <algorithm>

#include "component.h"
#include "tools/deploy/backup.h"
#include "tools/deploy/discovery.h"
#include "tools/deploy/installer.h"

namespace
{

const int DurationFactor = 10;  // how much longer than expected an installation may take

// The command to give once more.
std::string SameCommand(const Offer& offer)
{
    const std::string restored = offer.Package.Restored.filename().string();
    return restored.empty() ? "zaldeploy install" : "zaldeploy restore " + restored;
}

// What to do about a device that may be half written.
std::string TryAgain(const Offer& offer)
{
    const bool isKept = offer.Outcome->IsKept && offer.Package.Restored.empty();
    return "Do not restart the server; run " + SameCommand(offer) + " again" +
           (isKept ? ", or put the old firmware back: " + RestoreCommand(offer.Found.Device) + "." : ".");
}

void End(Offer& offer, Result result, int status)
{
    offer.Outcome->Result = result;
    offer.Status = status;
}

// What discovery found just before the installation. False when there is nothing to install any more.
bool LookAgain(Session& session, Offer& offer)
{
    const Offer now = Discover(session, offer.Package, "Asking " + offer.Name() + " once more");
    offer.Outcome = ::Outcome{Result_NotRun, now.Found.Current, "", Left_Untouched};
    if (now.IsOffered()) {
        offer.Found = now.Found;
        return true;
    }
    if (now.Verdict == Verdict_Stopped) {
        LeaveOut(offer);
        return false;
    }
    offer.Outcome->Message = "It is no more what it was before: " + now.Why;
    End(offer, now.Verdict == Verdict_Current ? Result_RunsAlready : Result_NotRun, now.Status);
    return false;
}

// Keeps the package, with which what the installer keeps can be put back. False when that can't be done: nothing is
// erased then.
bool KeepWayBack(Session& session, Offer& offer)
{
    if (!offer.Found.WayBack || !offer.Package.Restored.empty()) return true;
    try {
        KeepPackage(session.Options, offer);
        return true;
    } catch (const std::exception& error) {
        offer.Outcome->Message = std::string("The way back can't be kept: ") + error.what() +
                                 ". The device was not touched. See to that, then run zaldeploy install again.";
        End(offer, Result_NotRun, DeployStatus_Failed);
        return false;
    }
}

// What is left in the device, where the installer does not tell. What has run before may be what was started, and not
// what the device holds.
Left Compare(const Discovery& before, const Discovery& after)
{
    const bool isOld = after.Current == before.Current;
    if (after.Current.empty() || (isOld && !after.IsImmediate())) return Left_Unknown;
    if (after.Word == Action_Rewrite) return Left_RunsNew;
    return isOld ? Left_RunsOld : Left_Unknown;
}

// The state of the device, and what to do, behind an installer that tells neither.
std::string DescribeLeft(const Offer& offer)
{
    const Outcome& outcome = *offer.Outcome;
    if (outcome.Left != Left_RunsOld && outcome.Left != Left_RunsNew)
        return " The device may be half written. " + TryAgain(offer);
    return " The device runs " + outcome.Now + ". See to that, then run " + SameCommand(offer) + " again.";
}

// What to make of an installer that says that it is done: the device must run what was offered by then.
void Verify(Offer& offer, const Offer& after)
{
    if (after.Found.Word == Action_Rewrite) return End(offer, Result_Installed, DeployStatus_Well);
    std::string& message = offer.Outcome->Message;
    if (!after.Found.Word) {
        message += " What the device runs now can't be read: " + after.Why;
        return End(offer, Result_NotVerified, DeployStatus_Unknown);
    }
    message += " Yet the device runs " + after.Found.Current + ". " + TryAgain(offer);
    End(offer, Result_Failed, DeployStatus_Failed);
}

// What to make of an installer that did nothing, because the device needs nothing: true when that is so.
bool RunsAlready(const Offer& offer, const InstallerRun& run, const Offer& after)
{
    const Action word = after.Found.Word.value_or(Action_Skip);
    if (run.Process.Status == ReturnCodeTargetCurrent) return word == Action_Rewrite;
    return run.Process.Status == ReturnCodeTargetNewer && offer.Found.Word == Action_Upgrade &&
           (word == Action_Rewrite || word == Action_Downgrade);
}

void JudgeStatus(Offer& offer, const InstallerRun& run, const Offer& after)
{
    if (run.Process.Status == ReturnCodeReboot) return End(offer, Result_Restart, DeployStatus_Restart);
    if (run.Process.Status == ReturnCodeNone) return Verify(offer, after);
    if (RunsAlready(offer, run, after)) return End(offer, Result_RunsAlready, DeployStatus_Well);
    if (!run.Report.Result()) offer.Outcome->Message += DescribeLeft(offer);
    End(offer, Result_Failed, DeployStatus_Failed);
}

// Behind an installer that did not get to say what state the device is in.
void JudgeEnd(Offer& offer, const InstallerRun& run)
{
    std::string& message = offer.Outcome->Message;
    if (run.Process.End == ProcessEnd_NotStarted)
        message += " Nothing was installed. Get the package anew; if that does not help, tell its maker.";
    else if (offer.Outcome->Left == Left_Untouched)
        message += " The device was not touched. Run " + SameCommand(offer) + " again.";
    else if (run.Process.End == ProcessEnd_StillRuns)
        message += " The device may be half written. Do not restart the server before its maker is asked.";
    else
        message += " The device may be half written. " + TryAgain(offer);
    End(offer, Result_Failed, DeployStatus_Failed);
}

// An installer does not know what has started it.
std::string ForZaldeploy(const Offer& offer, const std::string& message)
{
    if (message.find("this installer") == std::string::npos) return message;
    const bool forced = offer.Package.Restored.empty() && message.find("this installer with /f") != std::string::npos;
    return message + " With zaldeploy: " + SameCommand(offer) + (forced ? " --force." : ".");
}

// The command that installs an offer from a folder that holds its package.
std::vector<std::string> CommandFrom(const std::filesystem::path& folder, const Offer& offer,
                                     const DeployOptions& options)
{
    std::vector<std::string> switches;
    if (offer.Found.Word != Action_Upgrade || options.Force) switches.emplace_back("/f");
    return InstallerCommand(folder, offer.Package, options, switches);
}

}  // namespace

std::vector<std::string> InstallCommand(const Session& session, const Offer& offer)
{
    std::vector<std::string> command = CommandFrom(offer.Package.Folder, offer, session.Options);
    if (!session.Libraries.empty())
        command.insert(command.begin(), {"env", LibrariesVariable + session.Libraries.string()});
    return command;
}

void Install(Session& session, Offer& offer)
{
    if (!LookAgain(session, offer) || !KeepWayBack(session, offer)) return;
    const std::uintmax_t logStart = session.Log.Size();
    const long long row = session.History.Begin(offer);
    const std::string name = offer.Name();
    const double seconds =
        std::max(session.Options.Timeout, static_cast<double>(offer.Found.Duration) * DurationFactor);
    session.Screen.Begin("Installing");
    const InstallerRun run =
        RunInstaller(session, CommandFrom(offer.Package.pCopy->Path(), offer, session.Options), seconds,
                     TimeLimit_AskFirst, "Finishing " + name + ", then stopping; do not switch off.");
    session.Screen.End();
    const std::string logExcerpt = session.Log.Excerpt(logStart);
    const bool stillRuns = run.Process.End == ProcessEnd_StillRuns;
    const Offer after = stillRuns ? Offer() : Discover(session, offer.Package, "Asking " + name + " what runs now");

    Outcome& outcome = *offer.Outcome;
    outcome.Now = after.Found.Current;
    outcome.Seconds = run.Seconds;
    outcome.Left = run.Report.Result() ? run.Report.Result()->Left : Compare(offer.Found, after.Found);
    outcome.IsKept = !run.Report.Backup().empty();
    outcome.Message = ForZaldeploy(offer, run.HasSaid() ? DescribeReason(run) : DescribeEnd(run));
    if (run.HasSaid())
        JudgeStatus(offer, run, after);
    else
        JudgeEnd(offer, run);
    session.History.Complete(row, offer, logExcerpt);
}

void LeaveOut(Offer& offer)
{
    offer.Outcome = ::Outcome{Result_NotRun, offer.Found.Current,
                              "zaldeploy was stopped before. The device was not touched.", Left_Untouched};
    offer.Status = DeployStatus_Stopped;
}
