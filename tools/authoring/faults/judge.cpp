#include "tools/authoring/faults/judge.h"

#include <algorithm>

#include "host/host.h"
#include "host/report.h"
#include "sim/base/runoptions.h"

namespace
{

const int Killed = 137;
const char* const Incomplete = "Incomplete";

bool Has(const std::string& text, const char* part)
{
    return text.find(part) != std::string::npos;
}

// A run before the next one, whose fault may keep it from telling what it finds.
class CJudge
{
  public:
    CJudge(const GoodRun& good, const RunResult& run, const RunResult& next, std::vector<Violation>& violations)
        : m_Good(good), m_Run(run), m_Next(next), m_Violations(violations), m_bIsNew(HoldSame(run.After, good.After))
    {
    }

    void Judge()
    {
        JudgeEnd();
        JudgeFiles();
        if (m_Next.Wrong.IsNone() && m_Next.Current == m_Good.New && !m_bIsNew)
            Add("current", "the next run takes the device for " + m_Good.New +
                               ", but it does not hold what an installation without a fault leaves");
        JudgeLog();
        if (!m_Run.CameToEnd || m_Run.Status == sim::CouldNotRun) return;
        JudgeStatus();
        JudgeLeft();
        JudgeSentence();
    }

  private:
    void Add(const char* rule, const std::string& text) { m_Violations.push_back({rule, text}); }

    bool Left(enum Left left) const { return m_Run.Left == ToText(left); }

    void JudgeEnd()
    {
        const bool cut = m_Run.Wrong.Cuts() && m_Run.Status == Killed;
        if (!m_Run.Complaint.empty()) Add("gives-back", m_Run.Complaint);
        if (!m_Run.CameToEnd && !cut)
            Add("ends", m_Run.Status > 128 ? "signal " + std::to_string(m_Run.Status - 128) + " ends it"
                                           : "it does not come to its end");
        if (m_Run.CameToEnd && m_Run.Status == sim::CouldNotRun && m_Run.Complaint.empty()) Add("ends", m_Run.Error);
        if (m_Run.HoldsLock) Add("lock", "it has ended, and something holds the lock of the server");
        if (!cut && !m_Run.Litter.empty()) Add("litter", "it leaves the file " + m_Run.Litter.front());
    }

    void JudgeFiles()
    {
        for (const auto* pState : {&m_Run.Before, &m_Run.After})
            for (const auto& [file, bytes] : *pState) {
                const auto before = m_Run.Before.find(file);
                const auto after = m_Run.After.find(file);
                const bool same =
                    before != m_Run.Before.end() && after != m_Run.After.end() && before->second == after->second;
                if (same || m_Good.Files.count(file) != 0) continue;
                Add("writes", "it writes " + file + ", which is no part of its device");
                return;
            }
    }

    // A flash was one when the device then is found to run what it holds.
    bool WasFlash() const { return m_Run.Writes && m_bIsNew && m_Next.Current == m_Good.New; }

    void JudgeLog()
    {
        if (!m_Next.Wrong.IsNone()) return;
        const int flashes = WasFlash() ? 1 : 0;
        if (m_Run.FlashEvents > flashes) Add("log", "the event log tells of a flash that was none");
        if (!m_Run.CameToEnd || m_Run.FlashEvents >= flashes) {
            if (flashes != 0 && Has(m_Run.Sentence, "not be logged"))
                Add("log-told", "it says that the event is not in the log, where it is");
            return;
        }
        if (!m_Run.Wrong.HitsLog())
            Add("log", "the event log does not tell of the flash");
        else if (!Has(m_Run.Sentence, "logged"))
            Add("log-told", "the event is not in the log, and it does not say that this can't be told");
    }

    void JudgeStatus()
    {
        const int status = m_Run.Status;
        const bool whole = Left(Left_RunsNew) || (Left(Left_Unknown) && !m_Run.Wrong.IsNone());
        const bool refuses = status != ReturnCodeNone && status != ReturnCodeReboot && status != ReturnCodeErrorReturn;
        if (status < 0 || status > ServerBusy)
            Add("status", "its exit status " + std::to_string(status) + " is none that is documented");
        else if (HasInstalled(m_Run) ? !whole : refuses && !Left(Left_Untouched))
            Add("status", "its exit status " + std::to_string(status) +
                              " does not fit: it says that the device is left \"" + m_Run.Left + "\"");
    }

    void JudgeLeft()
    {
        const std::string says = "it says that the device is left \"" + m_Run.Left + "\", but ";
        if (m_Run.Left.empty()) Add("reports", "it does not report what it leaves");
        if (Left(Left_Untouched) && m_Run.Writes) Add("left", says + "it has written it");
        if (Left(Left_Unknown) && m_Run.Wrong.IsNone()) Add("left", says + "nothing went wrong");
        if (Left(Left_RunsNew) && !m_bIsNew) Add("left", says + "it does not hold the new firmware");
        if (!m_Next.Wrong.IsNone()) return;
        if (m_Run.Status == ReturnCodeNoTarget && m_Next.Status != ReturnCodeNoTarget)
            Add("status", "it says that there is no such device, which the next run finds");
        const std::string before = VersionBefore();
        if ((Left(Left_Untouched) || Left(Left_RunsOld)) && !before.empty() && m_Next.Current != before)
            Add("left", says + "the next run finds " + m_Next.Current + " in place of " + before);
        if (Left(Left_RunsNew) && m_Next.Current != m_Good.New)
            Add("left", says + "the next run finds " + m_Next.Current);
    }

    // What was there before the run, which may not have been able to read it; empty where that is not known.
    std::string VersionBefore() const
    {
        if (HoldSame(m_Run.Before, m_Good.Before)) return m_Good.Old;
        return m_Run.Current == "Unknown" ? "" : m_Run.Current;
    }

    void JudgeSentence()
    {
        if (m_Run.Status != ReturnCodeErrorReturn && m_Run.Status != ServerBusy) return;
        const char* const texts[] = {"again", "not touched", "Nothing was", "once more"};
        if (std::none_of(std::begin(texts), std::end(texts),
                         [&](const char* text) { return Has(m_Run.Sentence, text); }))
            Add("sentence", "its last words do not say what to do: " + m_Run.Sentence);
        else if (!Left(Left_Untouched) && !Has(m_Run.Sentence, "again") && !Has(m_Run.Sentence, "once more"))
            Add("sentence", "its last words do not say that it is to be run again: " + m_Run.Sentence);
    }

    const GoodRun& m_Good;
    const RunResult& m_Run;
    const RunResult& m_Next;
    std::vector<Violation>& m_Violations;
    const bool m_bIsNew;  // the device holds the new firmware behind the run
};

}  // namespace

bool HasInstalled(const RunResult& run)
{
    return run.CameToEnd && (run.Status == ReturnCodeNone || run.Status == ReturnCodeReboot);
}

std::vector<Violation> Judge(const GoodRun& good, const std::vector<RunResult>& runs)
{
    std::vector<Violation> violations;
    for (std::size_t i = 0; i + 1 < runs.size(); i++) CJudge(good, runs[i], runs[i + 1], violations).Judge();
    const RunResult& last = runs.back();
    const bool done = last.CameToEnd && last.Status == ReturnCodeTargetCurrent;
    if (!done || !HoldSame(last.After, good.After))
        violations.push_back({"again", (done ? "run again it leaves another firmware, and ends with \""
                                             : "run again it does not bring the new version, and ends with \"") +
                                           last.Sentence + "\""});
    return violations;
}
