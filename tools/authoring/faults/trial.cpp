#include "tools/authoring/faults/trial.h"

#include <fcntl.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

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
    static const std::set<std::string> names = {"server.json", "journal.log", "vrl.bin", "pci_devices"};
    return names.count(file.filename().string()) != 0 || file.extension() == ".running";
}

// What no run reads, and what differs for no reason: the name of this start of the server, which is random (a run that
// notes it does so in a file that counts), and who held its lock.
bool IsMeaningless(const std::string& file)
{
    static const std::set<std::string> files = {"journal.log", "boot_id.running", "run/flashlib/lock",
                                                "var/run/flashlib/lock"};
    return files.count(file) != 0;
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

CTrial::CTrial(CProcessRunner& runner, CLoadedProgram& installer, const Subject& subject, const fs::path& folder)
    : m_Runner(runner), m_Installer(installer), m_Subject(subject), m_Folder(folder), m_Server(folder / "server")
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

ProcessResult CTrial::Start(const Fault& fault, bool withSteps, RunResult& result)
{
    sim::RunOptions options;
    options.Server = m_Server;
    options.Faults = fault.Values.empty() ? "" : sim::FaultObject(fault.Values);
    options.KillAt = fault.KillAt;
    options.ClockStart = ClockStart;
    if (withSteps) {
        options.Steps = m_Folder / "steps";
        fs::remove(options.Steps);
    }
    sim::WriteRunOptions(options);
    ProcessWatch watch;
    watch.Report = [&](const std::string& line) { TakeReport(line, result); };
    watch.ReportVariable = ReportVariable;
    ProcessGifts gifts;
    gifts.Start = [this](const ProcessStart& start, pid_t& process) { return m_Installer.Start(start, process); };
    return m_Runner.Run(m_Subject.GetCommand(), MaxSeconds, TimeLimit_AskFirst, watch, gifts);
}

RunResult CTrial::Run(const Fault& fault, std::vector<Step>* pSteps)
{
    RunResult result;
    result.Wrong = fault;
    result.Before = m_State;
    const std::size_t events = ReadEvents().size();
    const Versions versions = std::move(m_Versions);
    const ProcessResult process = Start(fault, pSteps != nullptr, result);
    if (process.End == ProcessEnd_NotStarted)
        throw std::runtime_error(std::string("can't start the installer: ") + std::strerror(process.Status));
    result.CameToEnd = process.End == ProcessEnd_Exited;
    result.Status = process.End == ProcessEnd_Crashed ? 128 + process.Status : process.Status;
    result.Complaint = FindComplaint(process.Errors);
    result.Error = LastLine(process.Errors);
    if (const std::string line = LastLine(process.Output); !line.empty()) result.Sentence = line;
    if (!result.CameToEnd || result.Status != 0) sim::CServerFolder(m_Server).Restart();
    ReadServer();
    result.After = m_State;
    result.Writes = Differ(versions, m_Versions);
    const std::vector<bool> after = ReadEvents();
    for (std::size_t i = events; i < after.size(); i++) result.FlashEvents += after[i];
    result.Litter = FindLitter(result.Left == ToText(Left_RunsNew));
    CServerLock lock;
    result.HoldsLock = fs::exists(m_Server / "run/flashlib/lock") &&
                       lock.Take("zalfaults", m_Server.string()) == CServerLock::State_Busy;
    if (pSteps) *pSteps = ReadSteps(m_Folder / "steps");
    return result;
}

bool CTrial::Differ(const Versions& before, const Versions& after)
{
    return std::any_of(after.begin(), after.end(), [&before](const auto& entry) {
        const auto found = before.find(entry.first);
        if (found == before.end()) return true;
        const struct stat& was = found->second.Status;
        const struct stat& is = entry.second.Status;
        return was.st_ino != is.st_ino || was.st_size != is.st_size || was.st_mtim.tv_sec != is.st_mtim.tv_sec ||
               was.st_mtim.tv_nsec != is.st_mtim.tv_nsec;
    });
}

std::vector<Step> CTrial::LookAhead()
{
    const fs::path saved = m_Folder / "saved";
    fs::copy(m_Server, saved, fs::copy_options::recursive);
    std::vector<Step> steps;
    Run({}, &steps);
    fs::remove_all(m_Server);
    fs::rename(saved, m_Server);
    ReadServer();
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

void CTrial::ReadServer()
{
    std::map<std::string, std::uint64_t> files;  // in their order, which a folder does not have
    m_State.clear();
    m_Versions.clear();
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(m_Server)) {
        const std::string name = entry.path().lexically_relative(m_Server).string();
        if (!entry.is_regular_file() || IsMeaningless(name)) continue;
        const std::uint64_t contents = files[name] = Fingerprint(ReadWholeFile(entry.path()));
        if (entry.path().parent_path() != m_Server || IsBookkeeping(entry.path())) continue;
        m_State[name] = contents;
        if (!IsMemory(name)) continue;
        Version& version = m_Versions[name];
        version.File.Reset(open(entry.path().c_str(), O_RDONLY | O_CLOEXEC));
        fstat(version.File.Get(), &version.Status);
    }
    m_Found = 0;
    for (const auto& [name, contents] : files) m_Found = Fingerprint(name, m_Found) ^ contents;
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

std::uint64_t Fingerprint(std::string_view text, std::uint64_t start)
{
    std::uint64_t number = start ^ text.size();
    for (std::size_t at = 0; at < text.size(); at += sizeof number) {
        std::uint64_t part = 0;
        std::memcpy(&part, text.data() + at, std::min(sizeof part, text.size() - at));
        number = (number ^ part) * 0x9E3779B97F4A7C15;
        number ^= number >> 32;
    }
    return number;
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
