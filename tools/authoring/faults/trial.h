// Runs an installer on a simulated server of its own, and tells all that a run shows.
#pragma once

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "support/process.h"
#include "tools/authoring/faults/fault.h"

// What is tried.
struct Subject
{
    std::filesystem::path Server;   // its server.json is what each server is
    std::filesystem::path Package;  // its installer has its name
};

// What a server's devices hold, by the names of their files.
using DeviceState = std::map<std::string, std::string>;

struct RunResult
{
    Fault Wrong;  // with the server
    int Status = 0;
    bool CameToEnd = false;  // by itself
    std::string Current;     // version that it has found
    std::string Offered;     // and that it offers
    std::string Sentence;    // its last words
    std::string Left;        // what it reports to leave; empty: it has reported nothing
    std::string Complaint;   // of the simulated server; empty: none
    std::string Error;       // its last line on standard error
    int FlashEvents = 0;     // that came into the event log
    DeviceState Before;
    DeviceState After;
    std::vector<std::string> Litter;  // files that it has left
    bool HoldsLock = false;
    std::vector<Step> Steps;
};

class CTrial
{
  public:
    // A new server in that folder, which no other trial uses. This process's working folder and environment become
    // those of the installers.
    CTrial(CProcessRunner& runner, const Subject& subject, const std::filesystem::path& folder);

    // Runs the installer, and restarts the server behind it, unless the installer says that all is done already.
    RunResult Run(const Fault& fault);

    // What a run without a fault would do now; the server stays as it is.
    std::vector<Step> LookAhead();

  private:
    ProcessResult Start(const Fault& fault, RunResult& result);
    std::vector<std::string> FindLitter(bool done) const;
    DeviceState ReadState() const;
    std::vector<bool> ReadEvents() const;

    CProcessRunner& m_Runner;
    const Subject& m_Subject;
    std::filesystem::path m_Folder;
    std::filesystem::path m_Server;
    DeviceState m_State;
};

// True for a file that is a device's memory, not what it notes beside that.
bool IsMemory(const std::string& file);

// True when the memories among them hold the same.
bool HoldSame(const DeviceState& one, const DeviceState& other);
