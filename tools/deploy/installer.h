// Runs the installer of a package.
#pragma once

#include <string>
#include <vector>

#include "tools/deploy/offer.h"
#include "tools/deploy/report.h"
#include "tools/deploy/session.h"

struct InstallerRun
{
    ProcessResult Process;
    CReport Report;
    double Limit = 0;    // of time, in seconds
    double Seconds = 0;  // that it took

    // True when it ended with a status that installers have; see eReturnCode.
    bool HasSaid() const;
};

// The command that runs a package's installer with those switches, from a folder that holds the package.
std::vector<std::string> InstallerCommand(const std::filesystem::path& folder, const Package& package,
                                          const DeployOptions& options, const std::vector<std::string>& switches);

// Runs it. The screen shows what it is doing, and in detail what it prints; subject names what it is for the sentence
// that answers a request to stop.
InstallerRun RunInstaller(Session& session, const std::vector<std::string>& command, double seconds, TimeLimit limit,
                          const std::string& subject);

// What an installer that has said how it ended gives as the reason: a sentence.
std::string DescribeReason(const InstallerRun& run);

// How one ended that should have ended otherwise: a sentence.
std::string DescribeEnd(const InstallerRun& run);
