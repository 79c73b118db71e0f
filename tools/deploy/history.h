// What was installed when, by which package, with what result: an SQLite database in the state folder.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/deploy/database.h"
#include "tools/deploy/identity.h"
#include "tools/deploy/offer.h"
#include "tools/deploy/options.h"

// How far an installation has come.
enum HistoryState
{
    HistoryState_Running,      // by a process that lives
    HistoryState_Interrupted,  // it did not get to its end: a power cut, a crash of zaldeploy
    HistoryState_Waiting,      // for a restart, after which discovery tells what came of it
    HistoryState_Ended,
};

struct HistoryEntry
{
    long long Row = 0;
    HistoryState State = HistoryState_Ended;
    std::string Time;  // when it began, UTC
    std::string Product;
    std::string Serial;
    std::string Component;
    std::string Device;
    std::string Package;  // its folder
    std::string FromVersion;
    std::string OfferedVersion;
    std::string ToVersion;  // what discovery found that the device runs; empty where that is not known
    std::string Action;
    std::string Result;
    int Status = 0;
    std::string Message;
    std::string ManifestDigest;
    std::string KeyId;
    double Seconds = 0;
    std::string LogExcerpt;  // the end of what the installation wrote into the debug log
    std::string Boot;        // the start of the server that it ran on; empty where that is not known
};

// Its operations do not throw: a database that is damaged or can't be written keeps nobody from installing. The first
// that fails makes it said; none is tried any more then.
class CHistory
{
  public:
    // say is told when it can't be used.
    CHistory(const DeployOptions& options, const Identity& server, std::function<void(const std::string&)> say);

    // Where it stands, and why it can't be used, without a full stop; empty: it can.
    const std::filesystem::path& File() const { return m_File; }
    const std::string& Problem() const { return m_Problem; }

    // Records that an installer is about to be started. That is on the disk, as interrupted, when this returns the row
    // for Complete. 0: it could not be recorded.
    long long Begin(const Offer& offer);

    // Records what came of it, likewise.
    void Complete(long long row, const Offer& offer, const std::string& logExcerpt);

    // Records what discovery finds in the device of an earlier installation that was interrupted, or that waited for a
    // restart which has happened. Returns the one that waits still.
    std::optional<HistoryEntry> Settle(const Discovery& found);

    // The installations of this server, the newest first, that run, were interrupted and have left what no discovery
    // has found to be whole since, or wait for a restart that has not happened; as far as none followed for the device.
    std::vector<HistoryEntry> Unfinished();

    // The last thousand installations, the newest first.
    std::vector<HistoryEntry> Entries();

  private:
    bool Open(CDatabase::Access access);
    std::vector<HistoryEntry> Read(const std::string& condition, const std::vector<std::string>& parameters);
    bool IsBeforeRestart(const HistoryEntry& entry) const;
    bool IsFound(const HistoryEntry& entry, const Discovery& found) const;
    void SettleRow(const HistoryEntry& entry, const Discovery& found);
    template <typename Action>
    void Try(Action action);

    const std::filesystem::path m_File;
    const Identity& m_Server;
    const std::function<void(const std::string&)> m_Say;
    std::optional<CDatabase> m_Database;
    std::string m_Problem;
};
