#include "tools/deploy/discovery.h"

#include <cerrno>

#include "component.h"
#include "tools/deploy/decision.h"
#include "tools/deploy/discoveryfile.h"
#include "tools/deploy/installer.h"

namespace
{

const char* const NothingInstalled = " Nothing was installed. ";
const int LoaderFailed = 127;  // exit status
const char* const LoaderError = "error while loading shared libraries: libzal";

// True when the loader has not found the maker's libraries.
bool LacksLibraries(const InstallerRun& run)
{
    return run.Process.End == ProcessEnd_Exited && run.Process.Status == LoaderFailed &&
           LastLine(run.Process.Errors).find(LoaderError) != std::string::npos;
}

// What to do about a discovery that ended in that way.
std::string Advice(const InstallerRun& run)
{
    if (LacksLibraries(run)) return "Name the folder of the maker's libraries in /etc/flashlib/libraries.";
    switch (run.Process.End) {
        case ProcessEnd_Stopped:
            return "Run zaldeploy again.";
        case ProcessEnd_TimedOut:
            return "Try again with a longer --timeout.";
        case ProcessEnd_StillRuns:
            return "A driver holds it: restart the server.";
        case ProcessEnd_NotStarted:
            if (run.Process.Status == EACCES) return "See whether its file system is mounted without exec.";
            [[fallthrough]];
        default:
            return "Get the package anew; if that does not help, tell its maker.";
    }
}

// What is known without a document. A server without the device is none of the package's faults.
void DecideWithoutDocument(Session& session, Offer& offer, const InstallerRun& run, const std::string& problem)
{
    const bool explains = run.Process.End == ProcessEnd_Exited && !offer.Found.Reason.empty();
    const int state = offer.Found.State;
    if (explains && IsNotNeeded(state)) return Decide(offer, Verdict_NotNeeded, offer.Found.Reason);
    if (explains && state == ZALSTATE_INSTALLNOTALLOWED) return Decide(offer, Verdict_NotAllowed, offer.Found.Reason);
    if (run.Process.End == ProcessEnd_Stopped)
        return Decide(offer, Verdict_Stopped, problem + NothingInstalled + Advice(run));
    const std::string room = session.Work.Problem();
    const std::string why =
        room.empty() ? problem + NothingInstalled + Advice(run) : "Discovery failed: " + room + "." + NothingInstalled;
    Decide(offer, Verdict_Failed, why);
}

// What an earlier installation has left for the restart need not be installed once more. Until then the device runs
// what it does not hold.
void DecideWaiting(Offer& offer, const HistoryEntry& waiting)
{
    const bool isNewer = CompareVersions(offer.Found.Offered, waiting.OfferedVersion) > 0;
    if (offer.Found.Word != Action_Skip && !(offer.IsOffered() && isNewer))
        Decide(offer, Verdict_Waiting,
               waiting.OfferedVersion + " is installed and waits for the restart; --force writes this version again.");
}

}  // namespace

Offer Discover(Session& session, const Package& package, const std::string& label)
{
    Offer offer;
    offer.Package = package;
    if (!package.Problem.empty()) {
        Decide(offer, package.IsRefused ? Verdict_Refused : Verdict_Failed, package.Problem);
        return offer;
    }
    session.Screen.Begin(label);
    const std::filesystem::path file = session.Work.DiscoveryFile();
    const InstallerRun run =
        RunInstaller(session, InstallerCommand(package.pCopy->Path(), package, session.Options, {"/d", file.string()}),
                     session.Options.Timeout, TimeLimit_End, "Stopping; nothing is being written.");
    session.Screen.End();

    offer.Found = run.Report.Properties();
    const bool succeeded = run.Process.End == ProcessEnd_Exited && run.Process.Status == ReturnCodeNone;
    const std::string problem = succeeded ? ReadDiscoveryFile(file, offer.Found) : DescribeEnd(run);
    if (!problem.empty()) {
        DecideWithoutDocument(session, offer, run, problem);
        return offer;
    }
    DecideByWord(offer, session.Options.Force);
    const std::optional<HistoryEntry> waiting = session.History.Settle(offer.Found);
    if (waiting && !session.Options.Force) DecideWaiting(offer, *waiting);
    return offer;
}

Offer NotAsked(const Package& package)
{
    Offer offer;
    offer.Package = package;
    Decide(offer, Verdict_Stopped, "zaldeploy was stopped before. Nothing was installed. Run zaldeploy again.");
    return offer;
}
