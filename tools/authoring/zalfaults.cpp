// zalfaults: installs a component against every fault of the simulated server, and judges what it says and leaves.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "host/host.h"
#include "sim/base/program.h"
#include "support/help.h"
#include "support/output.h"
#include "support/process.h"
#include "support/tempfolder.h"
#include "tools/authoring/faults/crew.h"
#include "tools/authoring/faults/judge.h"
#include "tools/authoring/faults/summary.h"
#include "tools/authoring/faults/trial.h"
#include "util.h"

CStr g_InstallLocalDir;

namespace
{

namespace fs = std::filesystem;

struct Options
{
    std::string Server;
    std::string Package;
    std::vector<std::string> Files;  // that the installer may write; none: those that it writes without a fault
    bool All = false;
    int Pairs = 0;
    unsigned Seed = 1;
    int Jobs = CountProcessors();
    bool Json = false;
    Fault First;  // of a single trial
    Fault Then;
};

std::string Outcome(const RunResult& run, const RunResult& next)
{
    if (!run.CameToEnd) return std::string(run.Wrong.KillAt != 0 ? "killed" : "power lost") + ", then " + next.Current;
    return run.Left + " (" + std::to_string(run.Status) + ")";
}

// Runs without a fault, which bring a server in order that faults have left. What one does depends on what it finds
// alone, so that none is made twice on the same server.
class CRecovery
{
  public:
    // A run and, where that had work to do, one more.
    void Finish(CTrial& trial, std::vector<RunResult>& runs)
    {
        const Known* pFirst = Find(trial.GetServer());
        const bool known = pFirst && (!HasInstalled(pFirst->Run) || Find(pFirst->Server));
        runs.push_back(known ? pFirst->Run : Make(trial));
        if (!HasInstalled(runs.back())) return;
        const Known* pSecond = Find(known ? pFirst->Server : trial.GetServer());
        runs.push_back(pSecond ? pSecond->Run : Make(trial));
    }

  private:
    struct Known
    {
        RunResult Run;
        std::uint64_t Server;  // that it has left
    };

    const Known* Find(std::uint64_t server) const
    {
        const auto found = m_Known.find(server);
        return found == m_Known.end() ? nullptr : &found->second;
    }

    // One that ran out of time, or met another installer, would do something else the next time.
    RunResult Make(CTrial& trial)
    {
        const std::uint64_t found = trial.GetServer();
        RunResult run = trial.Run({});
        if (!run.CameToEnd || run.Status == ServerBusy) return run;
        Known& known = m_Known[found] = {run, trial.GetServer()};
        known.Run.IsKnown = true;
        return run;
    }

    std::map<std::uint64_t, Known> m_Known;  // by the server that it finds
};

// What devices hold.
std::string ToText(const DeviceState& state)
{
    std::string text;
    for (const auto& [file, contents] : state) text += file + "=" + std::to_string(contents) + " ";
    return text;
}

TrialResult Sum(const GoodRun& good, const std::vector<Fault>& faults, const std::vector<RunResult>& runs)
{
    const Fault& first = faults.front();
    TrialResult result = {ToOptions(first), first.Step, first.What, first.Number, "", "", "", 0, 0, {}};
    if (faults.size() == 2) {
        result.Options += ToOptions(faults[1], true);
        result.Step = "a fault, and another in the recovery";
        result.What = "pairs";
        result.Number = 0;
    }
    result.Outcome = Outcome(runs[0], runs[1]);
    if (runs[0].CameToEnd) result.Sentence = runs[0].Sentence;
    result.State = std::to_string(Fingerprint(ToText(runs[0].After) + runs[1].Current));
    for (const RunResult& run : runs) (run.IsKnown ? result.Known : result.Runs)++;
    result.Violations = Judge(good, runs);
    return result;
}

class CBench
{
  public:
    explicit CBench(const Options& options)
        : m_Options(options),
          m_Subject{fs::canonical(options.Server), fs::canonical(options.Package)},
          m_Folder("zalfaults"),
          m_Installer(m_Subject.GetCommand()),
          m_Summary(m_Subject.Package.filename().string(),
                    "zalfaults --server " + options.Server + FileOptions(options) + " " + options.Package)
    {
    }

    // What a run without a fault does; throws std::runtime_error where that does not install.
    void RunGood()
    {
        const std::string installer = m_Subject.GetCommand().front();
        if (access(installer.c_str(), X_OK) != 0)
            throw std::runtime_error("can't run " + installer + ": " + std::strerror(errno));
        if (const std::string why = sim::WhyNotSimulated(installer); !why.empty())
            throw std::runtime_error(installer + " is " + why);
        CProcessRunner runner;
        CLoadedProgram program(m_Subject.GetCommand());
        CTrial trial(runner, program, m_Subject, m_Folder.Path() / "good");
        std::vector<Step> steps;
        const RunResult first = trial.Run({}, &steps);
        const RunResult second = trial.Run({});
        if (!HasInstalled(first))
            throw std::runtime_error("the installer does not install without a fault: " +
                                     (first.Sentence.empty() ? first.Error : first.Sentence));
        m_Good = {first.Current, first.Offered, first.Before, first.After, {}, steps};
        for (const auto& [file, bytes] : first.After) m_Good.Files.insert(file);
        if (!m_Options.Files.empty()) m_Good.Files = {m_Options.Files.begin(), m_Options.Files.end()};
        TrialResult result = Sum(m_Good, {{{}, 0, "nothing", "none", 0}}, {first, second});
        m_Summary.Add(result);
    }

    void RunFaults()
    {
        const std::vector<Fault> all = MakeFaults(m_Good.Steps);
        const std::vector<Fault> faults = m_Options.All ? all : Sample(all);
        Do("faults", static_cast<int>(faults.size()), [&](CProcessRunner& runner, const fs::path& folder, int piece) {
            CTrial trial(runner, m_Installer, m_Subject, folder);
            const std::vector<Fault> one = {faults[static_cast<std::size_t>(piece)]};
            return Sum(m_Good, one, RunTrial(trial, one));
        });
    }

    // A fault, and one in the run that has to recover from it.
    void RunPairs()
    {
        std::fprintf(stderr, "%s: pairs of seed %u\n", m_Subject.Package.filename().c_str(), m_Options.Seed);
        const std::vector<Fault> all = MakeFaults(m_Good.Steps);
        Do("pairs", m_Options.Pairs, [&](CProcessRunner& runner, const fs::path& folder, int piece) {
            std::seed_seq seeds = {m_Options.Seed, static_cast<unsigned>(piece)};
            std::mt19937 random(seeds);
            const auto choose = [&](const std::vector<Fault>& faults) { return faults[random() % faults.size()]; };
            for (;;) {
                CTrial trial(runner, m_Installer, m_Subject, folder);
                std::vector<Fault> pair = {choose(all)};
                std::vector<RunResult> runs = {trial.Run(pair[0])};
                if (HasInstalled(runs[0]) && !runner.IsStopped()) continue;  // nothing is left to recover from
                pair.push_back(choose(MakeFaults(trial.LookAhead())));
                runs.push_back(trial.Run(pair[1]));
                m_Recovery.Finish(trial, runs);
                return Smaller(runner, folder, Sum(m_Good, pair, runs), pair[0]);
            }
        });
    }

    // One trial, told run by run.
    void RunOne()
    {
        std::vector<Fault> faults = {m_Options.First};
        if (!m_Options.Then.IsNone()) faults.push_back(m_Options.Then);
        CProcessRunner runner;
        CLoadedProgram program(m_Subject.GetCommand());
        CTrial trial(runner, program, m_Subject, m_Folder.Path() / "one");
        const std::vector<RunResult> runs = RunTrial(trial, faults);
        for (const RunResult& run : runs)
            std::printf("run%s\n  found  %s, offers %s\n  says   %s\n  leaves %s, exit status %d\n",
                        ToOptions(run.Wrong).c_str(), run.Current.c_str(), run.Offered.c_str(), run.Sentence.c_str(),
                        run.Left.empty() ? "(not told)" : run.Left.c_str(), run.Status);
        m_Summary.Add(Sum(m_Good, faults, runs));
    }

    const CSummary& GetSummary() const { return m_Summary; }
    bool IsStopped() const { return m_bStopped; }

  private:
    std::vector<RunResult> RunTrial(CTrial& trial, const std::vector<Fault>& faults)
    {
        std::vector<RunResult> runs;
        runs.reserve(faults.size() + 2);
        for (const Fault& fault : faults) runs.push_back(trial.Run(fault));
        m_Recovery.Finish(trial, runs);
        return runs;
    }

    using Piece = std::function<TrialResult(CProcessRunner&, const fs::path& folder, int piece)>;

    void Do(const char* name, int count, const Piece& piece)
    {
        if (m_bStopped) return;
        const auto start = std::chrono::steady_clock::now();
        const auto work = [&](CProcessRunner& runner, int worker, int number) {
            return ToLine(piece(runner, m_Folder.Path() / std::to_string(worker), number));
        };
        m_bStopped = !DoWork({m_Options.Jobs, name}, count, work,
                             [&](const std::string& line) { m_Summary.Add(FromLine(line)); });
        m_Summary.End(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), !m_bStopped);
    }

    // Where the first of two faults alone breaks a rule, too, that is what is told.
    TrialResult Smaller(CProcessRunner& runner, const fs::path& folder, TrialResult result, const Fault& first)
    {
        if (result.Violations.empty()) return result;
        CTrial trial(runner, m_Installer, m_Subject, folder);
        TrialResult alone = Sum(m_Good, {first}, RunTrial(trial, {first}));
        return alone.Violations.empty() ? result : alone;
    }

    static std::string FileOptions(const Options& options)
    {
        std::string text;
        for (const std::string& file : options.Files) text += " --writes " + file;
        return text;
    }

    const Options& m_Options;
    const Subject m_Subject;
    const CTempFolder m_Folder;
    GoodRun m_Good;
    CLoadedProgram m_Installer;  // loaded by each process that works
    CRecovery m_Recovery;
    CSummary m_Summary;
    bool m_bStopped = false;
};

int Run(const Options& options)
{
    CBench bench(options);
    bench.RunGood();
    const bool one = !options.First.IsNone();
    if (one)
        bench.RunOne();
    else
        bench.RunFaults();
    if (!one && options.Pairs > 0) bench.RunPairs();
    const CSummary& summary = bench.GetSummary();
    if (options.Json)
        std::printf("%s\n", summary.ToJson().dump(2).c_str());
    else if (!one)
        summary.PrintTables(stdout);
    std::fflush(stdout);
    summary.PrintViolations(stderr);
    if (!one) std::fprintf(stderr, "%s\n", summary.Figures().c_str());
    if (bench.IsStopped()) return 2;
    return summary.CountViolations() == 0 ? 0 : 1;
}

// What is written is soon gone again: a file system in memory does.
void ChooseTemporaryFolder()
{
    std::error_code ignored;
    if (!std::getenv("TMPDIR") && fs::is_directory("/dev/shm", ignored) && access("/dev/shm", W_OK) == 0)
        setenv("TMPDIR", "/dev/shm", 1);
}

int ParseAndRun(int argc, char** argv)
{
    CLI::App app(
        "Installs a component against every fault of the simulated server, and judges what it says and leaves.");
    app.set_version_flag("--version", "zalfaults " FLASHLIB_VERSION);
    app.formatter(std::make_shared<CHelp>());
    app.footer(
        "Runs the installer once without a fault and counts its steps; then each step has each fault that fits it, or "
        "of many of one kind the first, the second, the middle and the last two. Behind each fault the installer is "
        "run again without one; a run on a server that holds what it did in an earlier one is known, and not made "
        "again. Prints what is left by class of fault; each rule that was broken with a command that shows it again. "
        "Exit status: 0, 1 where a rule was broken, 2 for wrong arguments or when a signal stops it.");
    Options options;
    options.First.Step = "a run";
    options.First.What = "as given";
    app.add_option("--server", options.Server, "Folder of the server; its server.json is copied for each fault")
        ->required();
    app.add_option("package", options.Package, "The component's package folder; the installer has its name")
        ->required();
    app.add_flag("--all", options.All, "Fault every step, not a sample");
    app.add_option("--pairs", options.Pairs, "Also so many pairs of a fault and one in the run that recovers from it")
        ->check(CLI::NonNegativeNumber);
    app.add_option("--seed", options.Seed, "Of the pairs (1)");
    app.add_option("--writes", options.Files,
                   "A file of the server that holds what the installer may write: TMBR.fw; without it all that it "
                   "writes without a fault")
        ->allow_extra_args(false);
    app.add_option("--jobs", options.Jobs, "Installers that run at once; without it as many as there are processors")
        ->check(CLI::PositiveNumber);
    app.add_flag("--json", options.Json, "Print a JSON object in place of the tables");
    app.add_option("--fault", options.First.Values, "Make only one trial, with that fault: NAME=VALUE, as zalsim")
        ->allow_extra_args(false);
    app.add_option("--kill-at", options.First.KillAt, "The same; the installer is killed behind that step");
    app.add_option("--then", options.Then.Values, "In such a trial, a fault of the run behind it")
        ->allow_extra_args(false);
    app.add_option("--then-kill-at", options.Then.KillAt, "The same; the installer is killed behind that step");
    try {
        app.parse(argc, argv);
        ChooseTemporaryFolder();
        return Run(options);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "zalfaults: %s\n", error.what());
        return 2;
    }
}

}  // namespace

int main(int argc, char** argv)
{
    return EndOutput("zalfaults", ParseAndRun(argc, argv), 2);
}
