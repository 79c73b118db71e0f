#include "sim/base/steps.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "sim/base/fields.h"
#include "support/files.h"

namespace sim
{

namespace
{

const char* const szMoments[] = {"before", "middle", "after"};

}  // namespace

StepFaults DescribeStepFaults(CFields& faults)
{
    static const char szKey[] = "power_lost_at_step";
    const Json* pFault = faults.Find(szKey);
    if (!pFault) return {};
    if (!pFault->is_object()) return {faults.Numeric(szKey, 0), Moment_Before, std::nullopt};
    return faults.Object(szKey, [](CFields& members) -> StepFaults {
        const int step = members.Numeric("step", 1);
        if (members.Find("bytes")) return {step, Moment_Middle, members.Numeric<std::size_t>("bytes", 0)};
        const Moment when = members.Choice<Moment>(
            "when",
            {{"none", Moment_Before}, {"before", Moment_Before}, {"middle", Moment_Middle}, {"after", Moment_After}});
        return {step, when, std::nullopt};
    });
}

void CSteps::Begin(const StepFaults& faults, const RunOptions& options, CJournal& journal)
{
    m_pJournal = &journal;
    m_Faults = faults;
    m_KillAt = options.KillAt;
    if (options.Steps.empty()) return;
    m_File.Reset(open(options.Steps.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY, 0666));
    if (m_File.Get() < 0)
        throw std::runtime_error("Can't write the steps to " + options.Steps.string() + ": " + std::strerror(errno));
}

int CSteps::Count(const char* kind, const std::string& name, std::size_t size)
{
    const int step = ++m_Count;
    if (m_File.Get() >= 0)
        WriteAll(m_File.Get(), std::to_string(step) + " " + kind + " " + std::to_string(size) + " " + name + "\n");
    return step;
}

bool CSteps::LosesPower(int step, Moment moment) const
{
    return m_pJournal && step == m_Faults.PowerLost && moment == m_Faults.When;
}

void CSteps::LosePower(int step, Moment moment)
{
    m_pJournal->GetCapture().NoteFault("power_lost_at_step");
    m_pJournal->Write("server power-lost step=%d when=%s", step, szMoments[moment]);
    m_LosePower();
}

// The server goes on.
void CSteps::KillProgram(int step)
{
    if (!m_pJournal || step != m_KillAt) return;
    m_pJournal->Write("server program-killed step=%d", step);
    kill(getpid(), SIGKILL);
    for (;;) pause();  // the signal may come a moment later
}

CStep::CStep(CSteps& steps, const char* kind, const std::string& name, std::size_t size, std::function<void()> keep)
    : m_Steps(steps), m_Keep(std::move(keep)), m_Size(size), m_Number(m_Steps.Count(kind, name, size))
{
    LosePower(Moment_Before);
}

std::size_t CStep::GetDone() const
{
    if (!m_Steps.LosesPower(m_Number, Moment_Middle)) return m_Size;
    return std::min(m_Size, m_Steps.m_Faults.Bytes.value_or(m_Size / 2));
}

void CStep::End()
{
    LosePower(Moment_Middle);
    LosePower(Moment_After);
    m_Steps.KillProgram(m_Number);
}

void CStep::LosePower(Moment moment)
{
    if (!m_Steps.LosesPower(m_Number, moment)) return;
    if (m_Keep) m_Keep();
    m_Steps.LosePower(m_Number, moment);
}

}  // namespace sim
