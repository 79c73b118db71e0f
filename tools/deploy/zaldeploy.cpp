// zaldeploy: brings a server's firmware up to date from a folder of component packages.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/process.h"
#include "tools/deploy/deployment.h"
#include "tools/deploy/serverview.h"
#include "tools/deploy/table.h"
#include "tools/simulated.h"
#include "util.h"

CStr g_InstallLocalDir;

namespace
{

using Json = nlohmann::ordered_json;

const char* const Footer =
    "Without --install nothing is changed. A discovery that reaches the time limit is ended. An installation is asked\n"
    "to end, and is ended when as much time has passed again: one that is writing to a device goes on when asked. Its\n"
    "time limit is ten times the duration that it announces, if that is longer.\n"
    "\n"
    "Exit status, the worst result:\n"
    "  0  all is well: nothing to do, or done\n"
    "  1  updates are offered and were not installed\n"
    "  2  installed; takes effect when the server is restarted\n"
    "  3  a component may not be installed on this server as it is\n"
    "  4  a discovery failed: an error, a crash, the time limit, rubbish; a part of the inventory can't be read;\n"
    "     what was installed can't be verified\n"
    "  5  stopped by a signal before all was done\n"
    "  6  an installation failed\n"
    "  7  zaldeploy itself could not run: wrong arguments, no packages\n"
    "\n"
    "Examples:\n"
    "  $ zaldeploy --server sim/servers/rack packages\n"
    "  $ zaldeploy --install packages\n"
    "  $ zaldeploy inventory --json";

void PrintJson(const Json& json)
{
    std::printf("%s\n", json.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
}

Json ToJson(const Component& component, const DeployOptions& options)
{
    Json json = {{"package", component.Folder.string()},
                 {"component", component.Name},
                 {"device", component.Device},
                 {"product_id", component.ProductId},
                 {"current", component.Current},
                 {"offered", component.Offered},
                 {"discovered_action", component.Discovered},
                 {"action", component.Action},
                 {"takes_effect", component.TakesEffect},
                 {"duration", component.Duration},
                 {"why_not", component.WhyNot},
                 {"status", component.Status}};
    if (component.IsOffered()) json["command"] = InstallCommand(component, options);
    if (component.Outcome)
        json["outcome"] = {{"result", component.Outcome->Result},
                           {"now", component.Outcome->Now},
                           {"message", component.Outcome->Message}};
    return json;
}

void PrintComponents(const std::vector<Component>& components)
{
    std::vector<std::vector<std::string>> rows = {
        {"component", "device", "current", "offered", "action", "takes effect", "why not"}};
    for (const Component& c : components)
        rows.push_back({c.Name, c.Device, c.Current, c.Offered, c.Action, c.TakesEffect, c.WhyNot});
    PrintTable(rows);
}

void PrintSummary(const std::vector<Component>& components)
{
    std::vector<std::vector<std::string>> rows = {{"component", "result", "was", "now", "message"}};
    for (const Component& c : components)
        if (c.Outcome) rows.push_back({c.Name, c.Outcome->Result, c.Current, c.Outcome->Now, c.Outcome->Message});
    std::printf("\nSummary:\n\n");
    PrintTable(rows);
}

int WorstStatus(const std::vector<Component>& components)
{
    int status = DeployStatus_Well;
    for (const Component& component : components) status = std::max(status, component.Status);
    return status;
}

// What to do now, for each result that is not good.
void PrintAdvice(const std::vector<Component>& components)
{
    static const std::pair<int, const char*> advice[] = {
        {DeployStatus_Offered, "Updates are offered: zaldeploy --install installs them."},
        {DeployStatus_Restart, "Restart the server: what was installed takes effect then."},
        {DeployStatus_NotAllowed, "A component may not be installed on this server as it is: the table says why."},
        {DeployStatus_Unknown, "Not all could be found out: the tables say why, and what to do."},
        {DeployStatus_Stopped, "Stopped before all was done: run zaldeploy again."},
        {DeployStatus_Failed, "An installation failed: the summary says what state the device is in, and what to do."},
    };
    std::printf("\n");
    for (const auto& [status, text] : advice)
        if (std::any_of(components.begin(), components.end(), [s = status](const auto& c) { return c.Status == s; }))
            std::printf("%s\n", text);
    if (WorstStatus(components) == DeployStatus_Well) std::printf("All is well.\n");
}

void InstallAll(CProcessRunner& runner, std::vector<Component>& components, const DeployOptions& options)
{
    const auto offered =
        std::count_if(components.begin(), components.end(), [](const Component& c) { return c.IsOffered(); });
    int number = 0;
    for (Component& component : components) {
        if (!component.IsOffered()) continue;
        if (runner.IsStopped()) {
            component.Outcome = {"not run", component.Current,
                                 "zaldeploy was stopped before. The device was not touched."};
            component.Status = DeployStatus_Stopped;
            continue;
        }
        if (!options.Json)
            std::printf("\n[%d/%d] %s: %s from %s to %s\n", ++number, static_cast<int>(offered), component.Name.c_str(),
                        component.Action.c_str(), component.Current.c_str(), component.Offered.c_str());
        Install(runner, component, options);
    }
    if (!options.Json && offered > 0) PrintSummary(components);
}

Component NotAsked(const std::filesystem::path& folder)
{
    Component component;
    component.Folder = folder;
    component.Name = folder.filename().string();
    component.Action = "failed";
    component.WhyNot = "zaldeploy was stopped before. Nothing was installed. Run zaldeploy again.";
    component.Status = DeployStatus_Stopped;
    return component;
}

int Deploy(const DeployOptions& options)
{
    const std::vector<std::filesystem::path> packages = FindPackages(options.Folders);
    CProcessRunner runner;
    std::vector<Component> components;
    components.reserve(packages.size());
    for (const auto& folder : packages)
        components.push_back(runner.IsStopped() ? NotAsked(folder) : Discover(runner, folder, options));

    if (!options.Json) PrintComponents(components);
    if (options.Install && !options.DryRun) InstallAll(runner, components, options);

    const int status = WorstStatus(components);
    if (options.Json) {
        Json json = {{"components", Json::array()}, {"status", status}};
        for (const Component& component : components) json["components"].push_back(ToJson(component, options));
        PrintJson(json);
        return status;
    }
    if (options.Install && options.DryRun) {
        std::printf("\n--install would run:\n");
        for (const Component& component : components) {
            if (!component.IsOffered()) continue;
            for (const std::string& argument : InstallCommand(component, options)) std::printf(" %s", argument.c_str());
            std::printf("\n");
        }
    }
    PrintAdvice(components);
    return status;
}

int ShowInventory(const DeployOptions& options, char** argv)
{
    if (!options.Server.empty() && !RunOnServer(options.Server, argv)) return DeployStatus_CouldNotRun;
    const Json server = ReadServer();
    if (options.Json)
        PrintJson(server);
    else
        PrintServer(server);
    return IsIncomplete(server) ? DeployStatus_Unknown : DeployStatus_Well;
}

}  // namespace

int main(int argc, char** argv)
{
    CLI::App app("Shows what firmware a folder of component packages offers to this server, and installs it.");
    app.footer(Footer);
    DeployOptions options;
    app.add_option("DIR", options.Folders, "Folders of component packages, or package folders");
    app.add_flag("--install", options.Install, "Install what the table says");
    app.add_flag("--dry-run", options.DryRun, "With --install: print the commands and run none");
    app.add_flag("--force", options.Force, "Write the same version again, and go back to an older one");
    app.add_option("--timeout", options.Timeout, "Time limit of each component, in seconds of real time")
        ->check(CLI::Range(0.1, 86400.0))
        ->capture_default_str();
    app.add_flag("--json", options.Json, "Print JSON, for scripts");
    app.add_option("--server", options.Server, "Folder of a simulated server to work on");
    CLI::App* pInventory = app.add_subcommand("inventory", "Show what the server is made of, and change nothing");
    pInventory->fallthrough();
    pInventory->footer("Takes --json and --server. Exit status: 0, or 4 where a part can't be read.");
    try {
        app.parse(argc, argv);
        if (options.Folders.empty() != pInventory->parsed())
            throw CLI::ValidationError("DIR", "either folders or inventory");
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? DeployStatus_Well : DeployStatus_CouldNotRun;
    }
    try {
        return pInventory->parsed() ? ShowInventory(options, argv) : Deploy(options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "zaldeploy: %s.\n", error.what());
        return DeployStatus_CouldNotRun;
    }
}
