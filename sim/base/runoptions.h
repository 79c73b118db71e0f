// What a run is to be like: chosen with zalsim's options, and handed to the programs that it runs in their environment,
// which nothing else in the simulation reads.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace sim
{

// Exit status when the simulation can't go on: none that an installer has.
const int CouldNotRun = 126;

// What a host of any word size can tell as a time.
const std::int64_t MaxClockStart = 0x7FFFFFFF;

struct RunOptions
{
    std::filesystem::path Server;            // ZALSIM_SERVER: folder of the server; empty: the process sees the host
    std::string Faults;                      // ZALSIM_FAULTS: a JSON object, over the description's; empty: none
    std::filesystem::path Journal;           // ZALSIM_JOURNAL: in place of journal.log in the folder; empty: that one
    std::filesystem::path Capture;           // ZALSIM_CAPTURE: what goes over the wires goes there too; empty: nowhere
    std::filesystem::path Steps;             // ZALSIM_STEPS: a line for each step goes there (steps.h); empty: nowhere
    int KillAt = 0;                          // ZALSIM_KILL_AT: the program is killed behind that step; 0: behind none
    bool RealTime = false;                   // ZALSIM_REAL_TIME: sleeps take their time
    std::optional<std::int64_t> ClockStart;  // ZALSIM_CLOCK_START: seconds since the epoch; none: the host's time
};

// Those of this process. Throws std::runtime_error with a sentence.
RunOptions ReadRunOptions();

// Hands them to the programs that are started after this.
void WriteRunOptions(const RunOptions& options);

// Turns faults of a run, "flash.fails_at_table=3" and more, into an object: {"flash": {"fails_at_table": 3}}. Values
// that are no JSON are texts. Throws std::runtime_error with a sentence.
std::string FaultObject(const std::vector<std::string>& faults);

}  // namespace sim
