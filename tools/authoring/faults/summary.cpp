#include "tools/authoring/faults/summary.h"

#include <algorithm>
#include <regex>

#include "tools/authoring/faults/crew.h"

namespace
{

using Json = nlohmann::json;

// Texts of a line that has to fit.
const std::size_t MaxText = 500;

// Numbers that differ from fault to fault.
std::string WithoutNumbers(const std::string& sentence)
{
    static const std::regex byte("at byte [0-9]+");
    return std::regex_replace(sentence, byte, "at byte N");
}

// The smaller fault: one, not two, and of the same kind the one at an earlier step.
bool IsSmaller(const std::string& one, const std::string& other)
{
    return one.size() != other.size() ? one.size() < other.size() : one < other;
}

std::string Times(int count)
{
    return count == 1 ? "once" : std::to_string(count) + " times";
}

// "incomplete (7) 2 times; runs old (7) once".
std::string ToText(const std::map<std::string, int>& outcomes)
{
    std::string text;
    for (const auto& [outcome, count] : outcomes) {
        text += (text.empty() ? "" : "; ") + outcome;
        if (outcomes.size() > 1) text += " " + Times(count);
    }
    return text;
}

}  // namespace

std::string ToLine(const TrialResult& result)
{
    Json violations = Json::array();
    for (const Violation& violation : result.Violations)
        violations.push_back({{"rule", violation.Rule}, {"text", violation.Text.substr(0, MaxText)}});
    if (violations.size() > 3) violations.erase(violations.begin() + 3, violations.end());
    const Json line = {{"options", result.Options}, {"step", result.Step},
                       {"what", result.What},       {"number", result.Number},
                       {"outcome", result.Outcome}, {"sentence", result.Sentence.substr(0, MaxText)},
                       {"state", result.State},     {"runs", result.Runs},
                       {"known", result.Known},     {"violations", violations}};
    return line.dump(-1, ' ', true, Json::error_handler_t::replace);
}

TrialResult FromLine(const std::string& line)
{
    const Json json = Json::parse(line);
    TrialResult result;
    result.Options = json["options"];
    result.Step = json["step"];
    result.What = json["what"];
    result.Number = json["number"];
    result.Outcome = json["outcome"];
    result.Sentence = json["sentence"];
    result.State = json["state"];
    result.Runs = json["runs"];
    result.Known = json["known"];
    for (const Json& violation : json["violations"])
        result.Violations.push_back({violation["rule"], violation["text"]});
    return result;
}

void CSummary::Add(const TrialResult& result)
{
    const std::pair<std::string, std::string> key(result.Step, result.What);
    Class& faults = m_Classes[key];
    faults.Faults++;
    faults.Outcomes[result.Outcome]++;
    m_Faults++;
    m_Runs += result.Runs;
    m_Known += result.Known;
    if (result.Number != 0) m_Steps.insert(result.Number);
    m_States.insert(result.State);
    if (!result.Sentence.empty()) {
        Said& said = m_Said[WithoutNumbers(result.Sentence)];
        if (said.Count++ == 0 || IsSmaller(result.Options, said.Options)) said.Options = result.Options;
    }
    m_Violating += !result.Violations.empty();
    for (const Violation& violation : result.Violations) {
        Broken& broken = m_Broken[{violation.Rule, result.Step + ", " + result.What}];
        if (broken.Count++ != 0 && !IsSmaller(result.Options, broken.Options)) continue;
        broken.Text = violation.Text;
        broken.Options = result.Options;
    }
}

void CSummary::End(double seconds, bool whole)
{
    m_Seconds += seconds;
    m_bWhole = m_bWhole && whole;
}

// Faults of one step that leave the same stand in one row.
std::map<std::pair<std::string, std::string>, CSummary::Row> CSummary::MakeRows() const
{
    std::map<std::pair<std::string, std::string>, Row> rows;
    for (const auto& [key, faults] : m_Classes) {
        std::string outcomes;
        for (const auto& [outcome, count] : faults.Outcomes) outcomes += outcome + '\n';
        Row& row = rows[{key.first, outcomes}];
        row.Names += (row.Names.empty() ? "`" : ", `") + key.second + "`";
        row.Faults += faults.Faults;
        for (const auto& [outcome, count] : faults.Outcomes) row.Outcomes[outcome] += count;
    }
    return rows;
}

void CSummary::PrintTables(std::FILE* pFile) const
{
    std::fprintf(pFile, "## %s\n\n| what is hit | faults | times | what is left |\n|---|---|---|---|\n",
                 m_Component.c_str());
    for (const auto& [key, row] : MakeRows())
        std::fprintf(pFile, "| %s | %s | %d | %s |\n", key.first.c_str(), row.Names.c_str(), row.Faults,
                     ToText(row.Outcomes).c_str());
    std::fprintf(pFile, "\nWhat it says in the end:\n\n| sentence | times | for example |\n|---|---|---|\n");
    for (const auto& [sentence, said] : m_Said)
        std::fprintf(pFile, "| %s | %d | `%s` |\n", sentence.c_str(), said.Count,
                     said.Options.empty() ? "no fault" : said.Options.c_str() + 1);
    std::fprintf(pFile, "\n");
}

void CSummary::PrintViolations(std::FILE* pFile) const
{
    for (const auto& [key, broken] : m_Broken)
        std::fprintf(pFile, "%s: %s, %s (%s); the smallest fault that shows it:\n  %s%s\n", key.first.c_str(),
                     broken.Text.c_str(), Times(broken.Count).c_str(), key.second.c_str(), m_Command.c_str(),
                     broken.Options.c_str());
}

std::string CSummary::Figures() const
{
    char szSeconds[32];
    std::snprintf(szSeconds, sizeof szSeconds, "%.1f", m_Seconds);
    return m_Component + ": " + std::to_string(m_Faults) + " faults at " + std::to_string(m_Steps.size()) +
           " steps, which leave " + std::to_string(m_States.size()) + " different states; " + std::to_string(m_Runs) +
           " runs in " + szSeconds + " s, and " + std::to_string(m_Known) + " that were known; " +
           std::to_string(m_Violating) + " violations" + (m_bWhole ? "" : "; stopped before the end");
}

nlohmann::json CSummary::ToJson() const
{
    Json violations = Json::array();
    for (const auto& [key, broken] : m_Broken)
        violations.push_back({{"rule", key.first},
                              {"fault", key.second},
                              {"count", broken.Count},
                              {"text", broken.Text},
                              {"command", m_Command + broken.Options}});
    Json classes = Json::array();
    for (const auto& [key, faults] : m_Classes)
        classes.push_back(
            {{"step", key.first}, {"fault", key.second}, {"count", faults.Faults}, {"left", faults.Outcomes}});
    return {{"component", m_Component},  {"whole", m_bWhole},        {"faults", m_Faults}, {"steps", m_Steps.size()},
            {"states", m_States.size()}, {"runs", m_Runs},           {"known", m_Known},   {"seconds", m_Seconds},
            {"violations", violations},  {"violating", m_Violating}, {"classes", classes}};
}
