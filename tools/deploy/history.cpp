#include "tools/deploy/history.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>

#include "support/boot.h"
#include "support/syncfolder.h"
#include "tools/deploy/decision.h"
#include "tools/deploy/statefolder.h"
#include "tools/deploy/utc.h"

namespace fs = std::filesystem;

namespace
{

const int Format = 1;  // of the table; a database with another one is not touched

const char* const CreateTable =
    "CREATE TABLE history (id INTEGER PRIMARY KEY, time TEXT NOT NULL, product TEXT NOT NULL, serial TEXT NOT NULL,"
    " component TEXT NOT NULL, device TEXT NOT NULL, product_id TEXT NOT NULL, package TEXT NOT NULL,"
    " from_version TEXT NOT NULL, offered_version TEXT NOT NULL, to_version TEXT NOT NULL, action TEXT NOT NULL,"
    " result TEXT NOT NULL, status INTEGER NOT NULL, message TEXT NOT NULL, manifest_digest TEXT NOT NULL,"
    " key_id TEXT NOT NULL, seconds REAL NOT NULL, log_excerpt TEXT NOT NULL, boot TEXT NOT NULL, writer TEXT NOT "
    "NULL)";

const char* const Interrupted = "interrupted";
const char* const Waiting = "waiting for restart";
const char* const Replaced = "replaced";

const char* const Select =
    "SELECT id, time, product, serial, component, device, package, from_version, offered_version, to_version, action,"
    " result, status, message, manifest_digest, key_id, seconds, log_excerpt, boot, writer FROM history AS one WHERE ";
const char* const NewestFirst = " ORDER BY id DESC LIMIT 1000";

const char* const OfServer = "product = ? AND serial = ? ";
const char* const OfDevice = "AND device = ? AND product_id = ? ";
const std::string IsUnfinished =
    std::string("AND (result = '") + Waiting + "' OR (result = '" + Interrupted + "' AND to_version IN ('', '" +
    IncompleteVersion +
    "') AND NOT EXISTS"
    " (SELECT 1 FROM history AS later WHERE later.id > one.id AND later.product = one.product AND"
    "  later.serial = one.serial AND later.device = one.device AND later.product_id = one.product_id)))";

std::string FirstLine(const std::string& file)
{
    std::ifstream stream(file);
    std::string line;
    std::getline(stream, line);
    return line;
}

// Names a process: the start of the host, its number, its own start. No process has the name of an earlier one.
std::string ProcessName(long process)
{
    const std::string status = FirstLine("/proc/" + std::to_string(process) + "/stat");
    std::size_t place = status.rfind(')');
    for (int field = 2; field < 22 && place != std::string::npos; field++) place = status.find(' ', place + 1);
    if (place == std::string::npos) return "";
    const std::string start = status.substr(place + 1, status.find(' ', place + 1) - place - 1);
    return std::to_string(process) + "/" + start + "/" + ReadBoot();
}

bool Lives(const std::string& processName)
{
    return !processName.empty() && ProcessName(std::atol(processName.c_str())) == processName;
}

HistoryState StateOf(const std::string& result, const std::string& writer)
{
    if (result == Waiting) return HistoryState_Waiting;
    if (result != Interrupted) return HistoryState_Ended;
    return Lives(writer) ? HistoryState_Running : HistoryState_Interrupted;
}

HistoryEntry ReadEntry(const CStatement& row)
{
    HistoryEntry e;
    e.Row = row.Number(0);
    int column = 1;
    for (std::string* pText : {&e.Time, &e.Product, &e.Serial, &e.Component, &e.Device, &e.Package, &e.FromVersion,
                               &e.OfferedVersion, &e.ToVersion, &e.Action, &e.Result})
        *pText = row.Text(column++);
    e.Status = static_cast<int>(row.Number(column++));
    for (std::string* pText : {&e.Message, &e.ManifestDigest, &e.KeyId}) *pText = row.Text(column++);
    e.Seconds = row.Real(column++);
    for (std::string* pText : {&e.LogExcerpt, &e.Boot}) *pText = row.Text(column++);
    e.State = StateOf(e.Result, row.Text(column));
    return e;
}

// True when the device runs what that version is.
bool Runs(const Discovery& found, const std::string& version)
{
    return (found.Word == Action_Rewrite && found.Offered == version) || CompareVersions(found.Current, version) == 0;
}

// False for a database that is empty, and not to be filled.
bool Prepare(CDatabase& database, CDatabase::Access access)
{
    const auto format = [&database] {
        CStatement statement(database, "PRAGMA user_version");
        return statement.Step() ? statement.Number(0) : 0;
    };
    if (access == CDatabase::Access_Create && format() == 0) {
        CTransaction transaction(database);
        if (format() == 0) {
            database.Execute(CreateTable);
            database.Execute(("PRAGMA user_version = " + std::to_string(Format)).c_str());
        }
        transaction.Commit();
    }
    const long long found = format();
    if (found != 0 && found != Format) throw DatabaseError("it is one of another version of zaldeploy");
    return found == Format;
}

}  // namespace

CHistory::CHistory(const DeployOptions& options, const Identity& server, std::function<void(const std::string&)> say)
    : m_File(StateFolder(options) / "history.db"), m_Server(server), m_Say(std::move(say))
{
}

template <typename Action>
void CHistory::Try(Action action)
{
    if (!m_Problem.empty()) return;
    try {
        action();
    } catch (const std::exception& error) {
        m_Database.reset();
        const bool isDenied = access(m_File.c_str(), R_OK | W_OK) != 0 && errno == EACCES;
        m_Problem = "the history " + m_File.string() + " can't be used (" + error.what() +
                    "): installations are not recorded. " +
                    (isDenied ? "Run zaldeploy as a user who may read and write it"
                              : "Where it is damaged, move it away; a new one is begun");
        m_Say(m_Problem);
    }
}

// False where there is none, and none is to be made.
bool CHistory::Open(CDatabase::Access access)
{
    if (m_Database) return true;
    std::error_code error;
    const fs::file_type type = fs::status(m_File, error).type();
    if (type == fs::file_type::none) throw DatabaseError(error.message());
    if (type == fs::file_type::not_found && access == CDatabase::Access_Existing) return false;
    if (type != fs::file_type::not_found && type != fs::file_type::regular)
        throw DatabaseError("it is no regular file");
    if (access == CDatabase::Access_Create) MakeSyncedFolder(m_File.parent_path());
    CDatabase database(m_File, access);
    if (!Prepare(database, access)) return false;
    m_Database = std::move(database);
    return true;
}

std::vector<HistoryEntry> CHistory::Read(const std::string& condition, const std::vector<std::string>& parameters)
{
    std::vector<HistoryEntry> entries;
    if (!Open(CDatabase::Access_Existing)) return entries;
    CStatement statement(*m_Database, Select + condition + NewestFirst);
    for (const std::string& parameter : parameters) statement.Bind(parameter);
    while (statement.Step()) entries.push_back(ReadEntry(statement));
    return entries;
}

long long CHistory::Begin(const Offer& offer)
{
    long long row = 0;
    Try([&] {
        Open(CDatabase::Access_Create);
        const Discovery& found = offer.Found;
        CStatement insert(*m_Database,
                          "INSERT INTO history (time, product, serial, component, device, product_id, package,"
                          " from_version, offered_version, to_version, action, result, status, message,"
                          " manifest_digest, key_id, seconds, log_excerpt, boot, writer)"
                          " VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, '', ?, ?, ?, '', ?, ?, 0, '', ?, ?)");
        insert.Bind(UtcNow()).Bind(m_Server.Product).Bind(m_Server.Serial).Bind(offer.Name()).Bind(found.Device);
        insert.Bind(found.ProductId).Bind(offer.Package.Folder.string()).Bind(found.Current).Bind(found.Offered);
        insert.Bind(ToText(*found.Word)).Bind(Interrupted).Bind(static_cast<long long>(DeployStatus_Failed));
        insert.Bind(offer.Package.ListDigest).Bind(offer.Package.Signer);
        insert.Bind(m_Server.Boot).Bind(ProcessName(getpid())).Run();
        row = m_Database->LastRow();
    });
    return row;
}

void CHistory::Complete(long long row, const Offer& offer, const std::string& logExcerpt)
{
    if (row == 0) return;
    Try([&] {
        const Outcome& outcome = *offer.Outcome;
        const bool waits = outcome.Result == Result_Restart;
        CTransaction transaction(*m_Database);
        CStatement(*m_Database,
                   "UPDATE history SET result = ?, status = ?, message = ?, to_version = ?, seconds = ?,"
                   " log_excerpt = ?, writer = '' WHERE id = ?")
            .Bind(waits ? Waiting : ToText(outcome.Result))
            .Bind(static_cast<long long>(offer.Status))
            .Bind(outcome.Message)
            .Bind(waits ? "" : outcome.Now)
            .Bind(outcome.Seconds)
            .Bind(logExcerpt)
            .Bind(row)
            .Run();
        if (outcome.Left != Left_Untouched)
            CStatement(*m_Database, std::string("UPDATE history SET result = ? WHERE ") + OfServer + OfDevice +
                                        "AND result = ? AND id < ?")
                .Bind(Replaced)
                .Bind(m_Server.Product)
                .Bind(m_Server.Serial)
                .Bind(offer.Found.Device)
                .Bind(offer.Found.ProductId)
                .Bind(Waiting)
                .Bind(row)
                .Run();
        transaction.Commit();
    });
}

// True when the server was restarted since.
bool CHistory::IsBeforeRestart(const HistoryEntry& entry) const
{
    return !entry.Boot.empty() && !m_Server.Boot.empty() && entry.Boot != m_Server.Boot;
}

// True when discovery finds what the installation has left in the device, and not what was started before it.
bool CHistory::IsFound(const HistoryEntry& entry, const Discovery& found) const
{
    return found.IsImmediate() || found.Current != entry.FromVersion || IsBeforeRestart(entry);
}

void CHistory::SettleRow(const HistoryEntry& entry, const Discovery& found)
{
    const bool runs = Runs(found, entry.OfferedVersion);
    const std::string now = runs ? entry.OfferedVersion : found.Current;
    std::string result = entry.Result;
    std::string message = entry.Message;
    int status = entry.Status;
    if (entry.State == HistoryState_Waiting) {
        result = ToText(runs ? Result_Installed : Result_Failed);
        status = runs ? DeployStatus_Well : DeployStatus_Failed;
        if (!runs) message += " Yet the device runs " + found.Current + " after the restart.";
    } else if (entry.ToVersion == now) {
        return;
    }
    CStatement(*m_Database,
               "UPDATE history SET to_version = ?, result = ?, status = ?, message = ? WHERE id = ? AND result = ?")
        .Bind(now)
        .Bind(result)
        .Bind(static_cast<long long>(status))
        .Bind(message)
        .Bind(entry.Row)
        .Bind(entry.Result)
        .Run();
}

std::optional<HistoryEntry> CHistory::Settle(const Discovery& found)
{
    std::optional<HistoryEntry> waiting;
    if (found.Current.empty() || found.Device.empty()) return waiting;
    Try([&] {
        for (const HistoryEntry& entry : Read(std::string(OfServer) + OfDevice + IsUnfinished,
                                              {m_Server.Product, m_Server.Serial, found.Device, found.ProductId})) {
            const bool waits = entry.State == HistoryState_Waiting;
            if (waits && !IsBeforeRestart(entry) && !Runs(found, entry.OfferedVersion))
                waiting = entry;
            else if (waits || (entry.State == HistoryState_Interrupted && IsFound(entry, found)))
                SettleRow(entry, found);
        }
    });
    return waiting;
}

std::vector<HistoryEntry> CHistory::Unfinished()
{
    std::vector<HistoryEntry> entries;
    Try([&] { entries = Read(std::string(OfServer) + IsUnfinished, {m_Server.Product, m_Server.Serial}); });
    const auto isOver = [this](const HistoryEntry& entry) {
        return entry.State == HistoryState_Waiting && IsBeforeRestart(entry);
    };
    entries.erase(std::remove_if(entries.begin(), entries.end(), isOver), entries.end());
    return entries;
}

std::vector<HistoryEntry> CHistory::Entries()
{
    std::vector<HistoryEntry> entries;
    Try([&] { entries = Read("TRUE", {}); });
    return entries;
}
