#include "tools/authoring/faults/fault.h"

#include <algorithm>
#include <map>
#include <set>
#include <sstream>
#include <utility>

#include "support/files.h"
#include "support/process.h"

namespace
{

const std::size_t MaxStepsFile = std::size_t{64} << 20;

// A write is cut between so many parts at most; a small one behind every byte.
const std::size_t Parts = 32;

bool StartsWith(const std::string& text, const char* start)
{
    return text.rfind(start, 0) == 0;
}

std::string Quoted(const std::string& text)
{
    return "\"" + text + "\"";
}

// What hits the server from the start of a run to its end.
void AddWhole(std::vector<Fault>& faults)
{
    const std::map<const char*, std::vector<const char*>> values = {
        {"SMBIOS",
         {"smbios=missing", "smbios=empty", "smbios=read_error", "smbios=no_anchor", "smbios=false_anchor",
          "smbios=misaligned", "smbios=zero_address", "smbios=truncated", "smbios=unreadable"}},
        {"ROM driver", {"driver=missing", "driver=refuses", "driver=fails"}},
        {"flash part", {"flash.no_header=true", "flash.no_table=true"}},
        {"IPMI",
         {"ipmi.missing=true", "ipmi.send_fails=true", "ipmi.silent=true", "ipmi.foreign=true", "ipmi.event=true",
          "ipmi.empty_answer=true", "ipmi.delay_ms=9999", "ipmi.delay_ms=10001", "ipmi.interruptions=3",
          "ipmi.poll_fails=true", "ipmi.completion_code=193", "ipmi.status=1", "ipmi.padding=1", "ipmi.padding=300"}},
        {"processor",
         {"processor.dead=true", "processor.no_driver=true", "processor.stays_away=true", "processor.lost=true",
          "processor.late=true", "processor.stale=true", "processor.runt=true", "processor.error=true",
          "processor.full_fifo=true", "processor.stale={\"replies\": 4}"}},
        {"power controller",
         {"processor.i2c.power_controller.never_unlocks=true",
          "processor.i2c.power_controller.never_leaves_boot_loader=true"}},
    };
    for (const auto& [step, all] : values)
        for (const char* value : all) faults.push_back({{value}, 0, step, value, 0});
}

// Makes the faults of one step after the other; some are numbered among their like.
class CMaker
{
  public:
    explicit CMaker(std::vector<Fault>& faults) : m_Faults(faults) {}

    void Add(const Step& step)
    {
        if (step.Kind == "exchange") AddExchange(step);
        if (StartsWith(step.Kind, "i2c")) AddTransaction(step);
        if (step.Kind == "table") AddTable(step);
        if (step.Kind == "block") AddBlock(step);
        if (step.Kind == "ipmi" || step.Kind == "host") AddEnds(step, Group(step), true);
        if (step.Kind == "append") AddInside(step, Group(step));
        if (step.Kind == "append" || step.Kind == "write" || step.Kind == "replace" || step.Kind == "remove")
            AddEnds(step, Group(step), false);
    }

  private:
    static std::string Group(const Step& step) { return step.Kind + " " + step.Name; }

    void AddValue(const Step& step, const std::string& group, const std::string& what, const std::string& value)
    {
        m_Faults.push_back({{value}, 0, group, what, step.Number});
    }

    // Where in the step is told by a member: "bytes": 100.
    void AddPowerLost(const Step& step, const std::string& group, const std::string& what, const std::string& where)
    {
        AddValue(step, group, "power lost, " + what,
                 "power_lost_at_step={\"step\": " + std::to_string(step.Number) + ", " + where + "}");
    }

    // Power goes when some of its bytes are written.
    void AddInside(const Step& step, const std::string& group)
    {
        const std::size_t part = std::max<std::size_t>((step.Size + Parts - 1) / Parts, 1);
        for (std::size_t bytes = part; bytes < step.Size; bytes += part)
            AddPowerLost(step, group, "inside", "\"bytes\": " + std::to_string(bytes));
    }

    // Power goes before the step and behind it; the installer, which is in no inner step, dies behind it.
    void AddEnds(const Step& step, const std::string& group, bool kills)
    {
        for (const char* when : {"before", "after"}) AddPowerLost(step, group, when, "\"when\": " + Quoted(when));
        if (kills) m_Faults.push_back({{}, step.Number, group, "installer killed", step.Number});
    }

    void AddExchange(const Step& step)
    {
        const std::string exchange = std::to_string(++m_Count[Group(step)]);
        for (const char* kind : {"full_fifo", "lost", "late", "stale", "runt", "error"})
            AddValue(step, Group(step), kind,
                     std::string("processor.") + kind + "={\"command\": " + Quoted(step.Name) +
                         ", \"exchange\": " + exchange + "}");
        AddEnds(step, Group(step), true);
    }

    void AddTransaction(const Step& step)
    {
        const std::string at = "={\"at\": " + std::to_string(++m_Transactions) + "}";
        AddValue(step, Group(step), "not acknowledged", "processor.i2c.no_acknowledge" + at);
        if (step.Kind == "i2c-checked")
            AddValue(step, Group(step), "wrong checksum", "processor.i2c.bad_checksum" + at);
        AddInside(step, Group(step));
    }

    void AddTable(const Step& step)
    {
        m_Table = step.Name;
        const std::vector<std::string> names = {"setup", "backup", "erase", "program", "cleanup", "os-cleanup"};
        const auto number = std::find(names.begin(), names.end(), step.Name) - names.begin();
        AddValue(step, Group(step), "fails",
                 "flash.fails_at_table={\"table\": " + std::to_string(number) +
                     ", \"run\": " + std::to_string(++m_Count[Group(step)]) + "}");
        AddEnds(step, Group(step), true);
    }

    void AddBlock(const Step& step)
    {
        const std::string group = "block, " + m_Table;
        AddInside(step, group);
        AddEnds(step, group, false);
        if (m_Table == "program") AddValue(step, group, "stuck", "flash.stuck_block=" + step.Name);
    }

    std::vector<Fault>& m_Faults;
    std::map<std::string, int> m_Count;
    int m_Transactions = 0;
    std::string m_Table;  // that runs
};

// Of faults that follow each other at one step the one in the middle.
std::vector<std::size_t> OneOfEachStep(const std::vector<Fault>& faults, const std::vector<std::size_t>& all)
{
    std::vector<std::size_t> chosen;
    for (std::size_t start = 0, end = 0; start < all.size(); start = end) {
        while (end < all.size() && faults[all[end]].Number == faults[all[start]].Number) end++;
        chosen.push_back(all[(start + end) / 2]);
    }
    return chosen;
}

}  // namespace

std::vector<Step> ReadSteps(const std::filesystem::path& file)
{
    std::istringstream text(ReadFileIfThere(file, MaxStepsFile).value_or(""));
    std::vector<Step> steps;
    Step step = {};
    while (text >> step.Number >> step.Kind >> step.Size && std::getline(text >> std::ws, step.Name))
        steps.push_back(step);
    return steps;
}

bool Fault::Cuts() const
{
    return KillAt != 0 || std::any_of(Values.begin(), Values.end(), [](const std::string& value) {
               return value.find("power_lost") != std::string::npos;
           });
}

bool Fault::HitsLog() const
{
    return std::any_of(Values.begin(), Values.end(),
                       [](const std::string& value) { return StartsWith(value, "ipmi."); });
}

std::vector<Fault> MakeFaults(const std::vector<Step>& steps)
{
    std::vector<Fault> faults;
    AddWhole(faults);
    CMaker maker(faults);
    for (const Step& step : steps) maker.Add(step);
    return faults;
}

std::vector<Fault> Sample(const std::vector<Fault>& faults)
{
    std::map<std::pair<std::string, std::string>, std::vector<std::size_t>> groups;
    for (std::size_t i = 0; i < faults.size(); i++) groups[{faults[i].Step, faults[i].What}].push_back(i);
    std::set<std::size_t> chosen;
    for (const auto& [group, members] : groups) {
        const std::vector<std::size_t> all = OneOfEachStep(faults, members);
        for (const std::size_t place : {std::size_t{0}, std::size_t{1}, all.size() / 2, all.size() - 2, all.size() - 1})
            if (place < all.size()) chosen.insert(all[place]);
    }
    std::vector<Fault> sample;
    sample.reserve(chosen.size());
    for (const std::size_t i : chosen) sample.push_back(faults[i]);
    return sample;
}

std::string ToOptions(const Fault& fault, bool then)
{
    std::string text;
    for (const std::string& value : fault.Values) {
        const bool plain = value.find_first_of(" {\"'") == std::string::npos;
        text += std::string(then ? " --then " : " --fault ") + (plain ? value : ShellWord(value));
    }
    if (fault.KillAt != 0) text += (then ? " --then-kill-at " : " --kill-at ") + std::to_string(fault.KillAt);
    return text;
}
