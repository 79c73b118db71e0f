#include "tools/authoring/faults/trial.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>

#include "host/report.h"
#include "sim/base/preload.h"
#include "sim/base/runoptions.h"
#include "sim/base/state.h"
#include "support/files.h"
#include "support/serverlock.h"
#include "tools/simulated.h"
#include "zalph/evtlog.h"

namespace fs = std::filesystem;

namespace
{

const double MaxSeconds = 60;                // of real time, for a run
const std::int64_t ClockStart = 1767225600;  // so that runs are the same
const std::uint16_t FlashEventClass = 0x20;
const char* const szKept = "var/lib/flashlib/backup";

// Of the simulation, not of a device.
bool IsBookkeeping(const fs::path& file)
{
    static const std::set<std::string> names = {"server.json", "journal.log", "vrl.bin", "pci_devices", "lock"};
    return names.count(file.filename().string()) != 0 || file.extension() == ".running";
}

void TakeReport(const std::string& line, RunResult& result)
{
    const nlohmann::json report = nlohmann::json::parse(line, nullptr, false);
    if (!report.is_object()) return;
    const std::string kind = report.value("report", "");
    if (kind == "properties") {
        result.Current = report.value("current", "");
        result.Offered = report.value("offered", "");
    } else if (kind == "result") {
        result.Left = report.value("left", "");
        result.Sentence = report.value("message", "");
    }
}

// Complaints come before what they change.
std::string FindComplaint(const std::vector<std::string>& errors)
{
    const std::string start = "zalsim: ";
    for (std::size_t i = 0; i + 1 < errors.size(); i++)
        if (errors[i] == start + "The server was used as no server should be:")
            return errors[i + 1].substr(start.size());
    return "";
}

}  // namespace

CTrial::CTrial(CProcessRunner& runner, const Subject& subject, const fs::path& folder)
    : m_Runner(runner), m_Subject(subject), m_Folder(folder), m_Server(folder / "server")
{
    fs::remove_all(m_Folder);
    for (const char* part : {"server", "work", "temporary"}) fs::create_directories(m_Folder / part);
    fs::copy(subject.Server / "server.json", m_Server);
    fs::current_path(m_Folder / "work");
    static const std::map<std::string, std::string> loader = sim::LoaderVariables(FindZalsim().parent_path());
    sim::SetForPrograms(loader);
    setenv("QVFLASHLOG", "/dev/null", 1);
    setenv("TMPDIR", (m_Folder / "temporary").c_str(), 1);
}

ProcessResult CTrial::Start(const Fault& fault, RunResult& result)
{
    sim::RunOptions options;
    options.Server = m_Server;
    options.Faults = fault.Values.empty() ? "" : sim::FaultObject(fault.Values);
    options.KillAt = fault.KillAt;
    options.ClockStart = ClockStart;
    options.Steps = m_Folder / "steps";
    fs::remove(options.Steps);
    sim::WriteRunOptions(options);
    const fs::path installer = m_Subject.Package / m_Subject.Package.filename();
    ProcessWatch watch;
    watch.Report = [&](const std::string& line) { TakeReport(line, result); };
    watch.ReportVariable = ReportVariable;
    return m_Runner.Run({installer.string(), "/y", m_Subject.Package.string(), "/s"}, MaxSeconds, TimeLimit_AskFirst,
                        watch);
}

RunResult CTrial::Run(const Fault& fault)
{
    RunResult result;
    result.Wrong = fault;
    result.Before = m_State;
    const std::size_t events = ReadEvents().size();
    const ProcessResult process = Start(fault, result);
    result.CameToEnd = process.End == ProcessEnd_Exited;
    result.Status = process.End == ProcessEnd_Crashed ? 128 + process.Status : process.Status;
    result.Complaint = FindComplaint(process.Errors);
    result.Error = LastLine(process.Errors);
    if (const std::string line = LastLine(process.Output); !line.empty()) result.Sentence = line;
    result.After = m_State = ReadState();
    const std::vector<bool> after = ReadEvents();
    for (std::size_t i = events; i < after.size(); i++) result.FlashEvents += after[i];
    result.Litter = FindLitter(result.Left == ToText(Left_RunsNew));
    CServerLock lock;
    result.HoldsLock = fs::exists(m_Server / "run/flashlib/lock") &&
                       lock.Take("zalfaults", m_Server.string()) == CServerLock::State_Busy;
    result.Steps = ReadSteps(m_Folder / "steps");
    if (!result.CameToEnd || result.Status != 0) sim::CServerFolder(m_Server).Restart();
    return result;
}

std::vector<Step> CTrial::LookAhead()
{
    const fs::path saved = m_Folder / "saved";
    const DeviceState state = m_State;
    fs::copy(m_Server, saved, fs::copy_options::recursive);
    std::vector<Step> steps = Run({}).Steps;
    fs::remove_all(m_Server);
    fs::rename(saved, m_Server);
    m_State = state;
    return steps;
}

// What is in the folders that are the installer's own, and what is left of files that it keeps.
std::vector<std::string> CTrial::FindLitter(bool done) const
{
    std::vector<std::string> litter;
    for (const char* part : {"work", "temporary"})
        for (const fs::directory_entry& entry : fs::directory_iterator(m_Folder / part)) {
            litter.push_back(entry.path().filename().string());
            fs::remove_all(entry.path());
        }
    if (!fs::is_directory(m_Server / szKept)) return litter;
    for (const fs::directory_entry& entry : fs::directory_iterator(m_Server / szKept)) {
        const std::string end = entry.path().extension().string();
        if (end == ".new" || (done && end == ".writing")) litter.push_back(entry.path().filename().string());
    }
    return litter;
}

DeviceState CTrial::ReadState() const
{
    DeviceState state;
    for (const fs::directory_entry& entry : fs::directory_iterator(m_Server))
        if (entry.is_regular_file() && !IsBookkeeping(entry.path()))
            state[entry.path().filename().string()] = ReadWholeFile(entry.path());
    return state;
}

// Of each entry of the server event log, whether it tells of a flash.
std::vector<bool> CTrial::ReadEvents() const
{
    const std::string log = ReadFileIfThere(m_Server / "vrl.bin").value_or("");
    std::vector<bool> events;
    _evtLogHdr entry = {};
    for (std::size_t offset = 0; offset + sizeof entry <= log.size(); offset += entry.wEvtLength) {
        std::memcpy(&entry, log.data() + offset, sizeof entry);
        if (entry.wEvtLength < sizeof entry) break;
        events.push_back(entry.wClass == FlashEventClass);
    }
    return events;
}

bool IsMemory(const std::string& file)
{
    return fs::path(file).extension() != ".json";
}

bool HoldSame(const DeviceState& one, const DeviceState& other)
{
    const auto holds = [](const DeviceState& state, const DeviceState& held) {
        return std::all_of(held.begin(), held.end(), [&](const auto& entry) {
            const auto found = state.find(entry.first);
            return !IsMemory(entry.first) || (found != state.end() && found->second == entry.second);
        });
    };
    return holds(one, other) && holds(other, one);
}
