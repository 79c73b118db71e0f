// The debug log of a run.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "tools/deploy/options.h"

struct RunLog
{
    std::filesystem::path File;  // empty: none is kept
    std::string Problem;         // why, and what to do: a sentence

    // A sentence that names the log, or says why there is none.
    std::string Describe() const;

    // Bytes that are in it now, and the last lines, 4 KiB at most, of what came behind so many; 0 and none where they
    // can't be read.
    std::uintmax_t Size() const;
    std::string Excerpt(std::uintmax_t start) const;
};

// Chooses the file that installers and this process log into, and sets QVFLASHLOG to it: what --log says, else what
// QVFLASHLOG says, else a new file in the state folder, which keeps the last 50. Throws std::runtime_error when --log
// names a file that can't be written.
RunLog ChooseLog(const DeployOptions& options);

// For a command that leaves no trace on the server: a log is kept only where --log or QVFLASHLOG names one.
void KeepLogIfNamed(const DeployOptions& options);
