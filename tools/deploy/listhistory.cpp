#include <stdexcept>

#include "tools/deploy/commands.h"
#include "tools/deploy/historyview.h"
#include "tools/deploy/jsonoutput.h"

int RunHistory(const DeployOptions& options)
{
    CScreen screen(options);
    CProcessRunner runner;
    const Identity server = ReadIdentity(runner, options);
    CHistory history(options, server, [](const std::string&) {});
    const std::vector<HistoryEntry> entries = history.Entries();
    if (!history.Problem().empty()) throw std::runtime_error(history.Problem());
    screen.Print(HistoryText(screen, entries));
    if (options.Json) {
        nlohmann::ordered_json json = JsonHead("zaldeploy.history", server);
        json["file"] = history.File().string();
        json["entries"] = ToJson(entries);
        json["status"] = DeployStatus_Well;
        PrintJson(json);
    }
    return DeployStatus_Well;
}
