#include "tools/deploy/commands.h"
#include "tools/deploy/identity.h"
#include "tools/deploy/jsonoutput.h"
#include "tools/deploy/reach.h"
#include "tools/deploy/runlog.h"
#include "tools/deploy/serverview.h"

int RunInventory(const DeployOptions& options, char** argv)
{
    if (!ReachServer(options, argv)) return DeployStatus_CouldNotRun;
    CScreen screen(options);
    const RunLog log = ChooseLog(options);
    const nlohmann::ordered_json server = ReadServer();
    const int status = IsIncomplete(server) ? DeployStatus_Unknown : DeployStatus_Well;
    screen.Print(ServerText(screen, server));
    if (status != DeployStatus_Well) screen.Print(Wrap(log.Describe(), 0, screen.Width()));
    if (options.Json) {
        nlohmann::ordered_json json = JsonHead("zaldeploy.inventory", ReadOwnIdentity());
        json["log"] = TextOrNull(log.File.string());
        json["parts"] = server;
        json["status"] = status;
        PrintJson(json);
    }
    return status;
}
