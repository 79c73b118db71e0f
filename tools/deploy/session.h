// What all steps of a command share.
#pragma once

#include "support/process.h"
#include "tools/deploy/history.h"
#include "tools/deploy/identity.h"
#include "tools/deploy/keyring.h"
#include "tools/deploy/libraries.h"
#include "tools/deploy/onlyone.h"
#include "tools/deploy/options.h"
#include "tools/deploy/runfolder.h"
#include "tools/deploy/runlog.h"
#include "tools/deploy/screen.h"
#include "tools/deploy/workfolder.h"

struct Session
{
    // Throws std::runtime_error where the command can't run: no place for files, no such server.
    explicit Session(const DeployOptions& options);

    const CServerLock Lock;  // nothing is looked at before it is held
    const DeployOptions& Options;
    CScreen Screen;
    CWorkFolder Work;
    RunLog Log;
    CProcessRunner Runner;
    Identity Server;
    CHistory History;
    const std::vector<HistoryEntry> Unfinished;  // installations, when this run began
    CKeyring Keys;
    const std::filesystem::path Libraries;  // the maker's; empty: they are where the loader looks anyway
    CRunFolder Run;                         // a server that can't be opened gets no folder
};

// Whether packages that nobody has signed are run.
inline bool AllowsUnsigned(const DeployOptions& options)
{
    return options.AllowUnsigned || !options.Server.empty();
}
