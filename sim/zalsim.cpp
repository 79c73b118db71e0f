// zalsim: runs an unmodified installer on a simulated server.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "sim/base/program.h"
#include "sim/base/runoptions.h"
#include "sim/images/firmwareversion.h"
#include "sim/server.h"
#include "support/files.h"
#include "support/help.h"
#include "support/output.h"

namespace
{

namespace fs = std::filesystem;

// The management processor, and what the devices that are flashed through it run.
void DescribeProcessor(const sim::CServer& simulated)
{
    const sim::CProcessor* pProcessor = simulated.GetProcessor();
    if (!pProcessor) return;
    const sim::ProcessorDescription& processor = *simulated.GetDescription().Processor;
    const sim::FirmwareVersion& version = pProcessor->GetVersion();
    std::printf("  %-14s Mox %d v%d.%02d (%02d/%02d/%04d)%s\n", "processor", processor.Generation, version.Major,
                version.Minor, version.Month, version.Day, version.Year,
                processor.Faults.NoDriver ? ", no driver"
                : processor.Faults.Dead   ? ", dead"
                                          : "");
    for (const sim::CFlashDevice& device : pProcessor->GetFlashDevices()) {
        const std::optional<sim::FirmwareVersion> firmware = device.GetFirmware();
        std::printf("  %-14s %s\n", device.GetDescription().Handler.c_str(),
                    firmware ? sim::VersionText(*firmware).c_str() : "incomplete: runs its boot loader");
    }
    for (const sim::I2CDescription& device : processor.I2C.Devices) {
        char szPlace[32];
        std::snprintf(szPlace, sizeof szPlace, "I2C %d, 0x%02X", device.Bus, device.Address);
        std::printf("  %-14s %s\n", szPlace, device.Type.c_str());
    }
    const sim::PowerPicDescription* pPowerPic = pProcessor->GetPowerPicDescription();
    if (pPowerPic)
        std::printf("  %-14s %s\n", "power PIC",
                    pPowerPic->BootLoader ? "runs its boot loader" : sim::VersionText(pPowerPic->Version).c_str());
}

std::string RomText(const sim::StartedRom& started)
{
    const sim::RomDescription& rom = started.Rom;
    if (started.BootBlock) return rom.Family + ", incomplete: runs on its boot block";
    return rom.Family.empty() ? "" : rom.Family + " v" + rom.Version + " (" + rom.Date + ")";
}

std::string DriverText(const sim::RomDriverDescription& driver)
{
    if (!driver.Version) return "";
    std::string text;
    for (const unsigned number : *driver.Version) text += (text.empty() ? "" : ".") + std::to_string(number);
    return text;
}

void Describe(sim::CServer& simulated)
{
    const sim::ServerDescription& server = simulated.GetDescription();
    const auto line = [](const char* name, const std::string& value) {
        std::printf("  %-14s %s\n", name, value.empty() ? "none" : value.c_str());
    };
    line("product", server.Smbios.Product);
    const std::string running = RomText(simulated.GetFlashPart().GetRunning());
    const std::string next = RomText(simulated.GetFlashPart().GetNext());
    line("system ROM", running);
    if (next != running) line("  after restart", next);
    line("ROM driver", DriverText(server.RomDriver));
    line("SMBIOS", server.Smbios.Fault == sim::SmbiosFault_Missing ? ""
                   : server.Smbios.Dump.empty()                    ? "built from the description"
                                                                   : server.Smbios.Dump.string());
    DescribeProcessor(simulated);
}

std::string SeverityName(int severity)
{
    return severity == 2 ? "info" : std::to_string(severity);
}

const char* ClassName(const sim::EventLogEntry& entry)
{
    if (entry.Class == 0x20 && entry.Code == 1) return "ROM flash";
    if (entry.Class == 0x21 && entry.Code == 2) return "maintenance";
    return "other";
}

void ShowLog(sim::CBmc& bmc)
{
    std::printf("  %4s  %-16s  %-11s  %-8s  %s\n", "no.", "time", "class", "severity", "text");
    for (const sim::EventLogEntry& entry : bmc.GetLog())
        std::printf("  %4u  %-16s  %-11s  %-8s  %s\n", entry.Number, entry.Time.c_str(), ClassName(entry),
                    SeverityName(entry.Severity).c_str(), entry.Text.c_str());
}

int Run(const std::vector<std::string>& command, bool debug)
{
    const char* pszProgram = command[0].c_str();
    const std::string why = sim::WhyNotSimulated(command[0]);
    if (why.empty()) {
        if (debug) sim::Debug(command);
        sim::Become(command);
        std::fprintf(stderr, "zalsim: can't run %s: %s\n", pszProgram, std::strerror(errno));
    } else {
        std::fprintf(stderr, "zalsim: %s is %s. It was not run.\n", pszProgram, why.c_str());
    }
    return sim::CouldNotRun;
}

int ParseAndRun(int argc, char** argv)
{
    CLI::App app("Runs an unmodified installer on a simulated server.");
    app.set_version_flag("--version", "zalsim " FLASHLIB_VERSION);
    app.formatter(std::make_shared<CHelp>());
    app.footer("Example:\n  $ zalsim --server sim/servers/rack -- ./installer /d out.xml /y package");
    std::string folder;
    std::string dumpFile;
    std::string journal;
    std::string capture;
    std::string steps;
    int killAt = 0;
    std::vector<std::string> faults;
    bool describe = false;
    bool showLog = false;
    bool debug = false;
    bool realTime = false;
    bool restart = false;
    std::optional<std::int64_t> clockStart;
    std::vector<std::string> command;
    app.add_option("--server", folder, "Folder of the server: its server.json and its state")->required();
    app.add_flag("--describe", describe, "Print what the server is");
    app.add_flag("--restart", restart, "Restart the server first: what was flashed and waits for that then runs");
    app.add_flag("--debug", debug, "Start gdb with the installer, which then runs on the server");
    app.add_option("--dump-smbios", dumpFile, "Write the server's SMBIOS tables as dmidecode --dump-bin does");
    app.add_flag("--show-log", showLog, "Print the server event log");
    app.add_option("--fault", faults, "A fault for this run, on top of the description's: NAME=VALUE")
        ->allow_extra_args(false);
    app.add_option("--journal", journal, "Write what is done to the server there, not to journal.log in its folder");
    app.add_option("--capture", capture, "Add what goes over the server's wires to that pcapng file, for Wireshark");
    app.add_option("--steps", steps,
                   "Add a line for each step of the run to that file: its number, kind, size and name");
    app.add_option("--kill-at", killAt, "Kill the installer behind the step with that number; the server goes on")
        ->check(CLI::PositiveNumber);
    auto* pRealTime = app.add_flag("--real-time", realTime, "Let sleeps take their time");
    app.add_option("--clock-start", clockStart, "Let the virtual clock start there, in seconds since the epoch")
        ->check(CLI::Range(std::int64_t{0}, sim::MaxClockStart))
        ->excludes(pRealTime);
    app.add_option("command", command, "The path of the installer and its arguments, behind --");
    try {
        app.parse(argc, argv);
        sim::RunOptions options = sim::ReadRunOptions();  // those of a run that this one is a part of
        options.Server = fs::absolute(folder);
        if (!faults.empty()) options.Faults = sim::FaultObject(faults);
        if (!journal.empty()) options.Journal = fs::absolute(journal);
        if (!capture.empty()) options.Capture = fs::absolute(capture);
        if (!steps.empty()) options.Steps = fs::absolute(steps);
        if (killAt != 0) options.KillAt = killAt;
        if (realTime) options.RealTime = true;
        if (clockStart) options.ClockStart = clockStart;
        sim::WriteRunOptions(options);
        if (restart) sim::RestartServer(folder, options);
        sim::CServer server(folder, options);
        if (describe) Describe(server);
        if (showLog) ShowLog(server.GetBmc());
        if (!dumpFile.empty()) WriteWholeFile(dumpFile, sim::DumpSmbios(server.GetSmbios()));
        if (!command.empty()) return Run(command, debug);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : sim::CouldNotRun;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "zalsim: %s\n", error.what());
        return sim::CouldNotRun;
    }
    if (describe || showLog || restart || !dumpFile.empty()) return 0;
    std::fprintf(stderr, "zalsim: nothing to do; name an installer behind --, or see --help.\n");
    return sim::CouldNotRun;
}

}  // namespace

int main(int argc, char** argv)
{
    return EndOutput("zalsim", ParseAndRun(argc, argv), sim::CouldNotRun);
}
