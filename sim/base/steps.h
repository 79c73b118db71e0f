// The steps of a run: what a program has the server do, and what devices then write. They are counted from 1 on in each
// process, and at one of them power may go or the program be killed.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "sim/base/journal.h"
#include "support/descriptor.h"

namespace sim
{

class CFields;

enum Moment
{
    Moment_Before,
    Moment_Middle,  // half of the step is done; of a step that has no halves: all
    Moment_After,
};

struct StepFaults
{
    int PowerLost = 0;  // power goes at the step with that number; 0: at none
    Moment When = Moment_Before;
    std::optional<std::size_t> Bytes;  // that are written by then, in the middle; none: half of them
};

// Reads "power_lost_at_step" in "faults": the number of a step, or an object with that ("step") and "when", or the
// "bytes" that are written by then. Throws std::runtime_error with a sentence for the user.
StepFaults DescribeStepFaults(CFields& faults);

class CSteps
{
  public:
    // losePower takes the power from the server, and does not come back.
    explicit CSteps(std::function<void()> losePower) : m_LosePower(std::move(losePower)) {}
    CSteps(const CSteps&) = delete;
    CSteps& operator=(const CSteps&) = delete;

    // Has the faults from here on, and those of the run options; adds a line "NUMBER KIND SIZE NAME" for each step to
    // the file that these name. The journal lives as long as this is used.
    void Begin(const StepFaults& faults, const RunOptions& options, CJournal& journal);

  private:
    friend class CStep;

    int Count(const char* kind, const std::string& name, std::size_t size);
    bool LosesPower(int step, Moment moment) const;
    void LosePower(int step, Moment moment);
    void KillProgram(int step);

    std::function<void()> m_LosePower;
    CJournal* m_pJournal = nullptr;  // null: nothing was begun, and nothing happens at a step
    StepFaults m_Faults;
    int m_KillAt = 0;
    CDescriptor m_File;  // to which the lines go; none: to none
    std::atomic<int> m_Count = 0;
};

// A step, which whoever does it counts here:
//
//     CStep step(folder.GetSteps(), "append", "TMBR.fw", bytes.size());
//     ...  // the step; of its bytes, the first step.GetDone()
//     step.End();
//
// Power goes in the constructor or in End. keep is called before: it writes down what a device holds so far.
class CStep
{
  public:
    CStep(CSteps& steps, const char* kind, const std::string& name, std::size_t size = 0,
          std::function<void()> keep = nullptr);
    CStep(const CStep&) = delete;
    CStep& operator=(const CStep&) = delete;

    std::size_t GetDone() const;
    void End();

  private:
    void LosePower(Moment moment);

    CSteps& m_Steps;
    std::function<void()> m_Keep;
    std::size_t m_Size;
    int m_Number;
};

}  // namespace sim
