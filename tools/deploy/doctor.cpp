#include <algorithm>
#include <exception>

#include "tools/deploy/checks.h"
#include "tools/deploy/commands.h"
#include "tools/deploy/identity.h"
#include "tools/deploy/jsonoutput.h"
#include "tools/deploy/reach.h"
#include "tools/deploy/runlog.h"
#include "tools/deploy/screen.h"
#include "tools/deploy/table.h"

namespace
{

const char* const StateNames[] = {"well", "limited", "missing"};
const Colour StateColours[] = {Colour_None, Colour_Yellow, Colour_Red};
const DeployStatus StateStatus[] = {DeployStatus_Well, DeployStatus_NotAllowed, DeployStatus_Unknown};

std::string ChecksText(const CScreen& screen, const std::vector<Check>& checks)
{
    std::vector<Row> rows;
    rows.reserve(checks.size());
    for (const Check& check : checks)
        rows.push_back({{check.Name, StateNames[check.State], check.Found},
                        check.Reason + (check.Remedy.empty() ? "" : " ") + check.Remedy,
                        StateColours[check.State]});
    return TableText(screen, {{"what"}, {"state", Narrow_Keep, true}, {"found", Narrow_Below}}, rows);
}

nlohmann::ordered_json ChecksJson(const std::vector<Check>& checks)
{
    nlohmann::ordered_json json = nlohmann::ordered_json::array();
    for (const Check& check : checks)
        json.push_back({{"check", check.Name},
                        {"state", StateNames[check.State]},
                        {"found", TextOrNull(check.Found)},
                        {"reason", check.Reason},
                        {"remedy", check.Remedy}});
    return json;
}

}  // namespace

int RunDoctor(const DeployOptions& options, char** argv)
{
    try {
        if (!ReachServer(options, argv)) return DeployStatus_CouldNotRun;
    } catch (const std::exception&) {
        if (!options.Server.empty()) throw;  // else it is about the libraries, which are checked
    }
    CScreen screen(options);
    KeepLogIfNamed(options);
    const std::vector<Check> checks = CheckHost(options);
    DeployStatus status = DeployStatus_Well;
    for (const Check& check : checks) status = std::max(status, StateStatus[check.State]);
    screen.Print(ChecksText(screen, checks));
    if (options.Json) {
        nlohmann::ordered_json json = JsonHead("zaldeploy.doctor", ReadOwnIdentity());
        json["checks"] = ChecksJson(checks);
        json["status"] = status;
        PrintJson(json);
    }
    return status;
}
