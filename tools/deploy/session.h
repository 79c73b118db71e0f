// What all steps of a command share.
#pragma once

#include "support/process.h"
#include "tools/deploy/history.h"
#include "tools/deploy/identity.h"
#include "tools/deploy/options.h"
#include "tools/deploy/runlog.h"
#include "tools/deploy/screen.h"
#include "tools/deploy/workfolder.h"

struct Session
{
    // Throws std::runtime_error where the command can't run: no place for files, no such server.
    explicit Session(const DeployOptions& options);

    const DeployOptions& Options;
    CScreen Screen;
    CWorkFolder Work;
    RunLog Log;
    CProcessRunner Runner;
    Identity Server;
    CHistory History;
    const std::vector<HistoryEntry> Unfinished;  // installations, when this run began
};
