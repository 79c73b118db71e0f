// What must hold of an installer's runs, whatever goes wrong: the rules stand here and nowhere else.
#pragma once

#include <string>
#include <vector>

#include "tools/authoring/faults/trial.h"

// What a run without a fault does.
struct GoodRun
{
    std::string Old;  // version
    std::string New;
    DeviceState Before;
    DeviceState After;
    std::set<std::string> Files;  // of devices that the installer may write
    std::vector<Step> Steps;
};

// The rules, by name:
//   "ends"        the installer comes to its end by itself, unless the fault ends it
//   "reports"     it reports what it leaves
//   "status"      its exit status is a documented one and fits what it leaves
//   "left"        what it says that it leaves is there
//   "current"     a version that it takes for the new one is all of the new one
//   "again"       run again, without a fault, it brings the new version, and is then done
//   "sentence"    after a failure it says what to do
//   "log"         the event log tells of the flashes that were, and of no other
//   "log-told"    when a request to log failed, the installer says that it can't tell whether the event was logged
//   "writes"      it writes no device but its own
//   "gives-back"  it gives descriptors, channels and pipes back
//   "litter"      it leaves no temporary file
//   "lock"        nothing holds the server's lock when it has ended
struct Violation
{
    std::string Rule;
    std::string Text;
};

// Judges runs on one server, each behind the other: those with a fault, one without that brings the new version, and,
// where that had work to do, one that finds it done.
std::vector<Violation> Judge(const GoodRun& good, const std::vector<RunResult>& runs);

// True for one that says it has installed.
bool HasInstalled(const RunResult& run);
