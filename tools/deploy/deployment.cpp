#include "tools/deploy/deployment.h"

#include <fnmatch.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <stdexcept>

#include "component.h"
#include "host/propertytable.h"
#include "support/tempfolder.h"
#include "tools/simulated.h"
#include "zalxml.h"

namespace fs = std::filesystem;

namespace
{

const std::uintmax_t MaxDiscoveryFile = 1 << 20;  // bytes; a discovery file has about a thousand
const int DurationFactor = 10;                    // how much longer than expected an installation may take
const int MaxDuration = 86400;                    // seconds
const int StateNotTold = 0;                       // no ZALSTATE_..

const char* const NothingInstalled = " Nothing was installed. ";
const char* const TellMaker = "Get the package anew; if that does not help, tell its maker.";
const char* const InstallAgain = "Do not restart the server; run zaldeploy --install again.";

using Properties = std::map<std::string, std::string>;

std::vector<fs::path> SortedEntries(const fs::path& folder)
{
    std::vector<fs::path> entries;
    for (const auto& entry : fs::directory_iterator(folder, fs::directory_options::skip_permission_denied))
        entries.push_back(entry.path());
    std::sort(entries.begin(), entries.end());
    return entries;
}

bool IsProgram(const fs::path& file)
{
    return fs::is_regular_file(file) && access(file.c_str(), X_OK) == 0 &&
           file.filename().string().find(".so") == std::string::npos;
}

// The program that has the folder's name, else the only one; empty when there is none.
fs::path FindInstaller(const fs::path& folder)
{
    if (IsProgram(folder / folder.filename())) return folder / folder.filename();
    std::vector<fs::path> programs;
    for (const fs::path& entry : SortedEntries(folder))
        if (IsProgram(entry)) programs.push_back(entry);
    return programs.size() == 1 ? programs[0] : fs::path();
}

bool HasDescription(const fs::path& folder)
{
    const std::vector<fs::path> entries = SortedEntries(folder);
    return std::any_of(entries.begin(), entries.end(), [](const fs::path& entry) {
        return fnmatch("qx*.xml", entry.filename().c_str(), FNM_CASEFOLD) == 0;
    });
}

std::vector<fs::path> FindPackagesIn(const fs::path& folder)
{
    if (HasDescription(folder)) return {folder};
    std::vector<fs::path> packages;
    for (const fs::path& entry : SortedEntries(folder))
        if (fs::is_directory(entry) && (HasDescription(entry) || !FindInstaller(entry).empty()))
            packages.push_back(entry);
    if (packages.empty() && !FindInstaller(folder).empty()) packages.push_back(folder);
    return packages;
}

std::vector<std::string> Command(const Component& component, const DeployOptions& options,
                                 const std::vector<std::string>& switches)
{
    std::vector<std::string> command = {component.Installer.string(), "/y", component.Folder.string()};
    command.insert(command.end(), switches.begin(), switches.end());
    return options.Server.empty() ? command : OnServer(options.Server, command);
}

// How a process ended that should have ended otherwise: a sentence.
std::string DescribeEnd(const ProcessResult& result, double seconds)
{
    char szLimit[32];
    std::snprintf(szLimit, sizeof szLimit, "%g", seconds);
    std::string text = "The installer ";
    switch (result.End) {
        case ProcessEnd::Exited:
            text += "ended with exit status " + std::to_string(result.Status);
            break;
        case ProcessEnd::Crashed:
            text += std::string("crashed (") + strsignal(result.Status) + ")";
            break;
        case ProcessEnd::TimedOut:
            text += std::string("did not finish within ") + szLimit + " seconds and was ended";
            break;
        case ProcessEnd::Stopped:
            text += "was stopped";
            break;
        case ProcessEnd::StillRuns:
            text += std::string("did not finish within ") + szLimit + " seconds and can't be ended";
            break;
        case ProcessEnd::NotStarted:
            text += std::string("can't be started (") + std::strerror(result.Status) + ")";
            break;
    }
    std::string last = result.End == ProcessEnd::Exited ? LastLine(result.Output) : "";
    if (last.empty()) last = LastLine(result.Errors);
    if (!last.empty()) text += ": " + last;
    return std::strchr(".!?", text.back()) ? text : text + ".";
}

Properties ReadProperties(const std::vector<std::string>& lines)
{
    Properties properties;
    std::string name;
    std::string value;
    for (const std::string& line : lines)
        if (ReadPropertyRow(line, name, value)) properties.emplace(name, value);
    return properties;
}

// The value attribute of an element below another.
std::string Value(CZalXMLNode* pNode, const char* element)
{
    CZalXMLNode* pElement = pNode ? pNode->GetFirstChild(element) : nullptr;
    const char* pszValue = pElement ? pElement->GetAttribute("value") : nullptr;
    return pszValue ? Printable(pszValue) : "";
}

// Keeps the folder's name where the component has none of its own.
void SetName(Component& component, const std::string& name)
{
    if (!name.empty() && name != "(Name)") component.Name = name;
}

bool IsAction(const std::string& action)
{
    return action == "upgrade" || action == "downgrade" || action == "rewrite" || action == "skip";
}

// Reads the discovery file. Empty, or what is wrong with it.
std::string ReadDiscoveryFile(const fs::path& file, Component& component)
{
    if (!fs::exists(file)) return "The installer wrote no discovery file.";
    if (!fs::is_regular_file(file) || fs::file_size(file) > MaxDiscoveryFile)
        return "The installer wrote rubbish for a discovery file.";
    CZalXMLReader reader;
    if (reader.ParseFile(file.c_str()) != XMLNoError) return "The installer's discovery file is not well-formed XML.";

    CZalXMLNode* pDiscovery = reader.GetRootNode()->GetFirstChild("qv_rom_discovery");
    CZalXMLNode* pDevice = pDiscovery;
    for (const char* element : {"devices", "device"}) pDevice = pDevice ? pDevice->GetFirstChild(element) : nullptr;
    CZalXMLNode* pItem = pDevice ? pDevice->GetFirstChild("fw_item") : nullptr;
    if (!pItem) return "The installer's discovery file tells of no device.";
    const std::string action = Value(pItem, "action");
    if (!IsAction(action)) return "The installer's discovery file tells an action that is none: \"" + action + "\".";

    SetName(component, Value(pDiscovery, "alt_name"));
    component.Device = Value(pDevice, "device_id");
    component.ProductId = Value(pDevice, "product_id");
    component.Current = Value(pItem, "active_version");
    component.Offered = Value(pItem, "version");
    component.TakesEffect = Value(pDiscovery, "takes_effect");
    component.Duration = std::clamp(std::atoi(Value(pItem, "duration").c_str()), 0, MaxDuration);
    component.Discovered = action;
    component.WhyNot = Value(pItem, "message");
    return "";
}

bool IsNotNeeded(int state)
{
    return state == ZALSTATE_INSTALLEDNOTNEEDED || state == ZALSTATE_NOTINSTALLEDNOTNEEDED;
}

void Decide(Component& component, const char* action, int status, const std::string& whyNot)
{
    component.Action = action;
    component.Status = status;
    component.WhyNot = whyNot;
}

// Whether the action is taken.
void DecideAction(Component& component, int state, bool force)
{
    const std::string& action = component.Discovered;
    const bool again = action == "rewrite" || action == "downgrade";
    if (action == "upgrade" || (again && force)) return Decide(component, action.c_str(), DeployStatus_Offered, "");
    if (again)
        return Decide(component, "skip", DeployStatus_Well,
                      action == "rewrite" ? "This version is installed; --force writes it again."
                                          : "A newer version is installed; --force goes back to this one.");
    const std::string why = component.WhyNot.empty() ? "The installer gives no reason." : component.WhyNot;
    Decide(component, "skip", state == StateNotTold || IsNotNeeded(state) ? DeployStatus_Well : DeployStatus_NotAllowed,
           why);
}

// What is known of a component whose discovery did not succeed: a server without the device is none of its faults.
void DecideWithoutDiscovery(Component& component, const ProcessResult& result, int state, const std::string& problem)
{
    const bool explains = result.End == ProcessEnd::Exited && !component.WhyNot.empty();
    if (explains && IsNotNeeded(state)) return Decide(component, "skip", DeployStatus_Well, component.WhyNot);
    if (explains && state == ZALSTATE_INSTALLNOTALLOWED)
        return Decide(component, "skip", DeployStatus_NotAllowed, component.WhyNot);
    const int status = result.End == ProcessEnd::Stopped ? DeployStatus_Stopped : DeployStatus_Unknown;
    const char* pszAdvice = result.End == ProcessEnd::Stopped     ? "Run zaldeploy again."
                            : result.End == ProcessEnd::TimedOut  ? "Try again with a longer --timeout."
                            : result.End == ProcessEnd::StillRuns ? "A driver holds it: restart the server."
                                                                  : TellMaker;
    Decide(component, "failed", status, problem + NothingInstalled + pszAdvice);
}

// Shows an installer's lines, without the table of its properties.
class CProgress
{
  public:
    void Show(const std::string& line)
    {
        std::string name;
        std::string value;
        if (!m_bTableSeen && ReadPropertyRow(line, name, value) && name == PropertyRow_Name)
            m_bTableSeen = m_bInTable = true;
        if (!m_bInTable) std::printf("%s\n", line.c_str());
        std::fflush(stdout);
        if (line.empty()) m_bInTable = false;
    }

  private:
    bool m_bTableSeen = false;
    bool m_bInTable = false;
};

// What to make of an installer that says that it is done: the device must run what was offered by then, unless that
// takes a restart.
void Verify(Component& component, const Component& after, bool restart)
{
    InstallOutcome& outcome = *component.Outcome;
    if (restart || after.Discovered == "rewrite") {
        outcome.Result = restart ? "installed, restart" : "installed";
        component.Status = restart ? DeployStatus_Restart : DeployStatus_Well;
        return;
    }
    outcome.Result = "not verified";
    if (after.Discovered.empty()) {
        component.Status = DeployStatus_Unknown;
        outcome.Message += " What the device runs now can't be read: " + after.WhyNot;
        return;
    }
    component.Status = DeployStatus_Failed;
    outcome.Message += " Yet the device runs " + after.Current + ". " + InstallAgain;
}

}  // namespace

std::vector<fs::path> FindPackages(const std::vector<std::string>& folders)
{
    std::vector<fs::path> packages;
    for (const std::string& name : folders) {
        fs::path folder = fs::absolute(name).lexically_normal();
        if (folder.filename().empty()) folder = folder.parent_path();
        if (!fs::is_directory(folder)) throw std::runtime_error("there is no folder " + folder.string());
        const std::vector<fs::path> found = FindPackagesIn(folder);
        if (found.empty()) throw std::runtime_error("there is no component package in " + folder.string());
        for (const fs::path& package : found)
            if (std::find(packages.begin(), packages.end(), package) == packages.end()) packages.push_back(package);
    }
    return packages;
}

Component Discover(CProcessRunner& runner, const fs::path& folder, const DeployOptions& options)
{
    Component component;
    component.Folder = folder;
    component.Name = Printable(folder.filename().string());
    component.Installer = FindInstaller(folder);
    if (component.Installer.empty()) {
        Decide(component, "failed", DeployStatus_Unknown,
               std::string("The package has no installer, or several.") + NothingInstalled + TellMaker);
        return component;
    }

    const CTempFolder folderOfFile("zaldeploy");
    const fs::path file = folderOfFile.Path() / "discovery.xml";
    const ProcessResult result =
        runner.Run(Command(component, options, {"/d", file.string()}), options.Timeout, TimeLimit::End);
    Properties properties = ReadProperties(result.Output);
    const bool succeeded = result.End == ProcessEnd::Exited && result.Status == ReturnCodeNone;
    const std::string problem = succeeded ? ReadDiscoveryFile(file, component) : DescribeEnd(result, options.Timeout);
    const int state = InstallStateFromText(properties[PropertyRow_InstallState]);
    if (component.WhyNot.empty()) component.WhyNot = properties[PropertyRow_Message];
    if (problem.empty()) {
        DecideAction(component, state, options.Force);
        return component;
    }
    SetName(component, properties[PropertyRow_Name]);
    component.Current = properties[PropertyRow_CurrentVersion];
    component.Offered = properties[PropertyRow_NewVersion];
    DecideWithoutDiscovery(component, result, state, problem);
    return component;
}

std::vector<std::string> InstallCommand(const Component& component, const DeployOptions& options)
{
    std::vector<std::string> switches;
    if (component.Action != "upgrade") switches.emplace_back("/f");
    if (options.Json) switches.emplace_back("/s");
    return Command(component, options, switches);
}

void Install(CProcessRunner& runner, Component& component, const DeployOptions& options)
{
    CProgress progress;
    const auto show = [&progress](const std::string& line) { progress.Show(line); };
    const double seconds = std::max(options.Timeout, static_cast<double>(component.Duration) * DurationFactor);
    const ProcessResult result = runner.Run(InstallCommand(component, options), seconds, TimeLimit::AskFirst,
                                            options.Json ? nullptr : std::function<void(const std::string&)>(show));
    const bool stillRuns = result.End == ProcessEnd::StillRuns;
    const Component after = stillRuns ? Component() : Discover(runner, component.Folder, options);

    InstallOutcome& outcome = component.Outcome.emplace();
    outcome.Now = after.Current;
    const bool said = result.End == ProcessEnd::Exited && result.Status <= ReturnCodeErrorReturn;
    outcome.Message = said ? LastLine(result.Output) : DescribeEnd(result, seconds);
    if (said && (result.Status == ReturnCodeNone || result.Status == ReturnCodeReboot))
        return Verify(component, after, result.Status == ReturnCodeReboot);
    outcome.Result = "failed";
    component.Status = DeployStatus_Failed;
    if (said) return;
    if (result.End == ProcessEnd::NotStarted)
        outcome.Message += NothingInstalled + std::string(TellMaker);
    else
        outcome.Message += std::string(" The device may be half written. ") +
                           (stillRuns ? "Do not restart the server before its maker is asked." : InstallAgain);
}
