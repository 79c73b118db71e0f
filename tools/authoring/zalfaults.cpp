// zalfaults: installs a component against every fault of the simulated server, and checks what must hold each time.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/output.h"
#include "support/process.h"
#include "support/tempfolder.h"
#include "tools/simulated.h"
#include "util.h"
#include "zalxml.h"

CStr g_InstallLocalDir;

namespace
{

namespace fs = std::filesystem;

const int Status_Done = 0;
const int Status_Reboot = 1;
const int Status_PowerLost = 137;  // killed
const int Status_Error = 7;
const int Status_None = -1;  // did not come to its end

const double MaxSeconds = 60;  // of real time, for a run

// What is wrong with the server in a case: values of zalsim's --fault.
using Fault = std::vector<std::string>;

// All faults; those behind processor. come with every command that a device is written by.
std::vector<Fault> MakeFaults()
{
    std::vector<Fault> faults = {{"smbios=missing"}, {"smbios=truncated"}, {"driver=missing"},
                                 {"driver=refuses"}, {"driver=fails"},     {"flash.no_header=true"}};
    for (int table = 0; table <= 5; table++) faults.push_back({"flash.fails_at_table=" + std::to_string(table)});
    for (const char* table : {"0", "2", "3", "4"})
        for (const char* blocks : {"0", "1", "8", "16"})
            faults.push_back({std::string("flash.power_lost_at_table=") + table,
                              std::string("flash.power_lost_after_blocks=") + blocks});
    for (const char* block : {"0", "7", "15"}) faults.push_back({std::string("flash.stuck_block=") + block});
    for (const char* kind : {"missing=true", "send_fails=true", "silent=true", "foreign=true", "event=true",
                             "completion_code=193", "status=1", "delay_ms=10001", "interruptions=3"})
        faults.push_back({std::string("ipmi.") + kind});

    faults.push_back({"processor.dead=true"});
    for (const char* command : {"DEVICE_FLASH", "I2C_TRANSACTION"})
        for (const char* kind : {"full_fifo", "lost", "late", "stale", "runt", "error"})
            for (const char* exchange : {"1", "20", "190", "198"})
                faults.push_back({std::string("processor.") + kind + "={\"command\": \"" + command +
                                  "\", \"exchange\": " + exchange + "}"});
    for (const char* kind : {"device_error_at_byte", "dies_at_byte", "power_lost_at_byte"})
        for (const char* byte : {"0", "1000", "100000", "199999"})
            faults.push_back({std::string("processor.") + kind + "=" + byte});
    const std::string controller = "processor.i2c.power_controller.";
    for (const char* record : {"2", "250", "513"}) {
        faults.push_back({controller + "power_lost_at_record=" + record});
        faults.push_back({controller + "busy_at_record=" + record});
        faults.push_back({controller + "error={\"at\": " + record + ", \"times\": 100}"});
        faults.push_back({controller + "error={\"at\": " + record + ", \"times\": 100000}"});
    }
    for (const char* kind : {"never_unlocks=true", "never_leaves_boot_loader=true", "no_acknowledge=40",
                             "bad_checksum=40", "no_acknowledge={\"at\": 40, \"times\": 100000}"})
        faults.push_back({controller + kind});
    return faults;
}

// The fault as zalsim's options in a shell, without the first --fault.
std::string ToText(const Fault& fault)
{
    std::string text;
    for (const std::string& value : fault) {
        const std::size_t start = value.find('=') + 1;
        const bool plain = value.find(' ') == std::string::npos;
        text += (text.empty() ? "" : " --fault ") + value.substr(0, start);
        text += plain ? value.substr(start) : "'" + value.substr(start) + "'";
    }
    return text;
}

// What a run of the installer shows.
struct Run
{
    int Status;
    std::string Sentence;  // its last line
};

struct Finding
{
    std::string Current;
    std::string Offered;
};

class CCase
{
  public:
    CCase(CProcessRunner& runner, const fs::path& server, const fs::path& package, const fs::path& folder)
        : m_Runner(runner), m_Package(package), m_Server(folder / "server"), m_Xml(folder / "discovery.xml")
    {
        fs::remove_all(m_Server);
        fs::create_directories(m_Server);
        fs::copy(server / "server.json", m_Server);
    }

    Run Install(const Fault& fault, const std::vector<std::string>& switches) const
    {
        std::vector<std::string> arguments;
        for (const std::string& value : fault) arguments.insert(arguments.end(), {"--fault", value});
        const fs::path installer = m_Package / m_Package.filename();
        arguments.insert(arguments.end(), {"--", installer.string(), "/y", m_Package.string(), "/s"});
        arguments.insert(arguments.end(), switches.begin(), switches.end());
        return Zalsim(arguments);
    }

    Finding Discover() const
    {
        fs::remove(m_Xml);
        Install({}, {"/d", m_Xml.string()});
        CZalXMLReader reader;
        reader.ParseFile(m_Xml.c_str());
        return {Value(reader, "active_version"), Value(reader, "version")};
    }

    // What was flashed and waits for it then runs.
    void Restart() const { Zalsim({"--restart"}); }

    // The last entry of the server event log.
    std::string Log() const { return Zalsim({"--show-log"}).Sentence; }

  private:
    Run Zalsim(const std::vector<std::string>& arguments) const
    {
        std::vector<std::string> command = {FindZalsim().string(), "--server", m_Server.string()};
        command.insert(command.end(), arguments.begin(), arguments.end());
        const ProcessResult result = m_Runner.Run(command, MaxSeconds, TimeLimit_End);
        const std::string sentence = LastLine(result.Output);
        const int status = result.End == ProcessEnd_Exited    ? result.Status
                           : result.End == ProcessEnd_Crashed ? 128 + result.Status
                                                              : Status_None;
        return {status, sentence.empty() ? LastLine(result.Errors) : sentence};
    }

    static std::string Value(CZalXMLReader& reader, const char* element)
    {
        CZalXMLNode* pNode = reader.FindFirstChildOf(nullptr, element, nullptr, nullptr);
        const char* pszValue = pNode ? pNode->GetAttribute("value") : nullptr;
        return pszValue ? pszValue : "";
    }

    CProcessRunner& m_Runner;
    fs::path m_Package;
    fs::path m_Server;
    fs::path m_Xml;
};

bool Has(const std::string& text, const char* part)
{
    return text.find(part) != std::string::npos;
}

// What must hold after a run with a fault; empty, or what does not.
std::string Judge(const Run& run, const Finding& found, const std::string& old, const std::string& log)
{
    const bool done = run.Status == Status_Done || run.Status == Status_Reboot;
    const bool isNew = found.Current == found.Offered;
    const bool isOld = found.Current == old;
    if (!done && run.Status != Status_Error && run.Status != Status_PowerLost) return "ends with an unknown status";
    if (!isNew && !isOld && found.Current != "Incomplete") return "the next run does not know what is there";
    if (done && !isNew) return "says done, but the new version is not there";
    if (done && !Has(log, "flashed; was") && !Has(run.Sentence, "could not be logged"))
        return "is not in the event log";
    if (!done && !isNew && Has(log, " flashed; was")) return "the event log tells of a flash that is none";
    if (run.Status != Status_Error) return "";
    if (found.Current == "Incomplete" && !Has(run.Sentence, "this installer again"))
        return "leaves the device incomplete and does not say to run again";
    if (isOld && !Has(run.Sentence, "not touched") && !Has(run.Sentence, "Nothing was installed") &&
        !Has(run.Sentence, "run this installer"))
        return "does not say what state the device is in";
    return "";
}

// A row of the table; false when something does not hold.
bool Check(const CCase& test, const Fault& fault, const std::string& old, std::FILE* pTable)
{
    const Run run = test.Install(fault, {});
    test.Restart();
    const std::string log = test.Log();
    const Finding found = test.Discover();
    std::string verdict = Judge(run, found, old, log);
    const Run again = test.Install({}, {"/f"});
    test.Restart();
    const bool recovers =
        (again.Status == Status_Done || again.Status == Status_Reboot) && test.Discover().Current == found.Offered;
    if (!recovers && verdict.empty()) verdict = "a run without the fault does not recover: " + again.Sentence;

    const std::string outcome = run.Status == Status_PowerLost ? "power lost" : run.Sentence;
    std::fprintf(pTable, "| `%s` | %d | %s | %s | %s |\n", ToText(fault).c_str(), run.Status, outcome.c_str(),
                 found.Current.c_str(), verdict.empty() ? "recovers" : ("**" + verdict + "**").c_str());
    return verdict.empty();
}

int CheckAll(const fs::path& server, const fs::path& package, std::FILE* pTable)
{
    const CTempFolder folder("zalfaults");
    CProcessRunner runner;
    setenv("QVFLASHLOG", "/dev/null", 1);

    std::fprintf(pTable, "## %s\n\n| fault | status | sentence | found next | run again |\n|---|---|---|---|---|\n",
                 package.filename().c_str());
    const std::string old = CCase(runner, server, package, folder.Path()).Discover().Current;
    int violations = 0;
    const std::vector<Fault> faults = MakeFaults();
    for (const Fault& fault : faults) {
        violations += !Check(CCase(runner, server, package, folder.Path()), fault, old, pTable);
        if (runner.IsStopped()) throw std::runtime_error("stopped by a signal");
    }
    std::fprintf(pTable, "\n");
    std::fprintf(stderr, "%s: %zu faults, %d violations\n", package.filename().c_str(), faults.size(), violations);
    return violations == 0 ? 0 : 1;
}

int ParseAndRun(int argc, char** argv)
{
    CLI::App app(
        "Installs a component against every fault of the simulated server, and checks what must hold each time.");
    app.set_version_flag("--version", "zalfaults " FLASHLIB_VERSION);
    app.footer(
        "Prints a table: the fault, the exit status, the last sentence, the version that the next run finds, and\n"
        "whether a run without the fault recovers. Exit status: 0, 1 where something did not hold, 2 for wrong\n"
        "arguments or when a signal stops it.");
    std::string server;
    std::string package;
    app.add_option("--server", server, "Folder of the server; its server.json is copied for each fault")->required();
    app.add_option("package", package, "The component's package folder; the installer has its name")->required();
    try {
        app.parse(argc, argv);
        return CheckAll(server, fs::canonical(package), stdout);
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
