// What comes of trials: counted, shown, told as JSON.
#pragma once

#include <cstdio>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tools/authoring/faults/judge.h"

// What comes of one trial: a line of JSON from the process that has made it.
struct TrialResult
{
    std::string Options;  // with which this program makes the trial again
    std::string Step;
    std::string What;
    int Number = 0;        // of the step
    std::string Outcome;   // "incomplete (7)", "power lost, then Incomplete"
    std::string Sentence;  // of the run with the first fault, if it came to its end
    std::string State;     // a number for what the devices held behind it
    int Runs = 0;
    int Known = 0;  // runs that were not made again
    std::vector<Violation> Violations;
};

std::string ToLine(const TrialResult& result);
TrialResult FromLine(const std::string& line);

class CSummary
{
  public:
    CSummary(std::string component, std::string command)
        : m_Component(std::move(component)), m_Command(std::move(command))
    {
    }

    void Add(const TrialResult& result);

    // Of a work that is one of several: seconds that it took, false when it was stopped.
    void End(double seconds, bool whole);

    int CountViolations() const { return m_Violating; }

    // Classes of faults with what they leave, and all that the installer says, as Markdown.
    void PrintTables(std::FILE* pFile) const;

    // Each rule that is violated: by how many faults, and the smallest one, with the command that shows it again.
    void PrintViolations(std::FILE* pFile) const;

    // "devicefw: 2507 faults at 409 steps, ..."
    std::string Figures() const;

    nlohmann::json ToJson() const;

  private:
    struct Class
    {
        int Faults = 0;
        std::map<std::string, int> Outcomes;
    };

    struct Row : Class
    {
        std::string Names;
    };

    struct Broken
    {
        int Count = 0;
        std::string Text;
        std::string Options;  // of the smallest fault
    };

    struct Said
    {
        int Count = 0;
        std::string Options;
    };

    std::map<std::pair<std::string, std::string>, Row> MakeRows() const;

    std::string m_Component;
    std::string m_Command;  // without the options of a trial
    std::map<std::pair<std::string, std::string>, Class> m_Classes;
    std::map<std::pair<std::string, std::string>, Broken> m_Broken;  // by rule and class
    std::map<std::string, Said> m_Said;
    std::set<int> m_Steps;
    std::set<std::string> m_States;
    int m_Faults = 0;
    int m_Runs = 0;
    int m_Known = 0;
    int m_Violating = 0;  // faults
    double m_Seconds = 0;
    bool m_bWhole = true;
};
