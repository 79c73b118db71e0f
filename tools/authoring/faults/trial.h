// Runs an installer on a simulated server of its own, and tells all that a run shows.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "support/descriptor.h"
#include "support/process.h"
#include "tools/authoring/faults/fault.h"
#include "tools/authoring/faults/loaded.h"

// What is tried.
struct Subject
{
    std::filesystem::path Server;   // its server.json is what each server is
    std::filesystem::path Package;  // its installer has its name

    std::vector<std::string> GetCommand() const
    {
        return {(Package / Package.filename()).string(), "/y", Package.string(), "/s"};
    }
};

// A number for a text, with which it goes on from an earlier one. Two texts that differ have different ones, but for
// one in 2^64.
std::uint64_t Fingerprint(std::string_view text, std::uint64_t start = 0);

// Fingerprints of what a server's devices hold, by the names of their files.
using DeviceState = std::map<std::string, std::uint64_t>;

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
    bool Writes = false;              // a device's memory, with what it held before or something else
    std::vector<std::string> Litter;  // files that it has left
    bool HoldsLock = false;
    bool IsKnown = false;  // it was not made: one before found the same server
};

class CTrial
{
  public:
    // A new server in that folder, which no other trial uses. This process's working folder and environment become
    // those of the installers.
    CTrial(CProcessRunner& runner, CLoadedProgram& installer, const Subject& subject,
           const std::filesystem::path& folder);

    // Runs the installer, and restarts the server behind it, unless the installer says that all is done already. Tells
    // the steps of the run to whom they matter.
    RunResult Run(const Fault& fault, std::vector<Step>* pSteps = nullptr);

    // What a run without a fault would do now; the server stays as it is.
    std::vector<Step> LookAhead();

    // The fingerprint of all that a run finds on the server as it is now.
    std::uint64_t GetServer() const { return m_Found; }

  private:
    // A file of a device's memory: one that is written anew is another file, or is longer. While it is open, no other
    // gets its number.
    struct Version
    {
        CDescriptor File;
        struct stat Status;
    };
    using Versions = std::map<std::string, Version>;

    ProcessResult Start(const Fault& fault, bool withSteps, RunResult& result);
    static bool Differ(const Versions& before, const Versions& after);
    std::vector<std::string> FindLitter(bool done) const;
    void ReadServer();
    std::vector<bool> ReadEvents() const;

    CProcessRunner& m_Runner;
    CLoadedProgram& m_Installer;
    const Subject& m_Subject;
    std::filesystem::path m_Folder;
    std::filesystem::path m_Server;
    DeviceState m_State;
    Versions m_Versions;
    std::uint64_t m_Found = 0;
};

// True for a file that is a device's memory, not what it notes beside that.
bool IsMemory(const std::string& file);

// True when the memories among them hold the same.
bool HoldSame(const DeviceState& one, const DeviceState& other);
