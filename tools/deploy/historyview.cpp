#include "tools/deploy/historyview.h"

#include <algorithm>

#include "tools/deploy/backup.h"
#include "tools/deploy/jsonoutput.h"
#include "tools/deploy/table.h"

namespace
{

using Json = nlohmann::ordered_json;

bool Waits(const HistoryEntry& entry)
{
    return entry.State == HistoryState_Waiting;
}

const char* ResultText(const HistoryEntry& entry)
{
    return entry.State == HistoryState_Running ? "running" : entry.Result.c_str();
}

// "2026-11-25 10:15" of "2026-11-25T10:15:00Z".
std::string Minute(const std::string& time)
{
    std::string text = time.substr(0, 16);
    std::replace(text.begin(), text.end(), 'T', ' ');
    return text;
}

// "Fan, from 1.0 to 2.0"
std::string Subject(const HistoryEntry& entry)
{
    return entry.Component + ", from " + entry.FromVersion + " to " + entry.OfferedVersion;
}

std::string Sentence(const DeployOptions& options, const HistoryEntry& entry)
{
    const std::string since = Minute(entry.Time) + " UTC";
    if (Waits(entry))
        return entry.Component + ": " + entry.OfferedVersion + " was installed on " + since +
               " and takes effect when the server is restarted.";
    if (entry.State == HistoryState_Running)
        return "An installation is running since " + since + ": " + Subject(entry) + ".";
    return "An installation was interrupted: " + Subject(entry) + ", begun on " + since +
           ". The device may be half written: install it again" +
           (HasBackup(options, entry.Device) ? " or put the old firmware back (" + RestoreCommand(entry.Device) + ")"
                                             : "") +
           ", and do not restart the server before.";
}

Row EntryRow(const HistoryEntry& entry)
{
    const bool bad = entry.Status == DeployStatus_Failed;
    const Colour colour = Waits(entry) ? Colour_Yellow : bad ? Colour_Red : Colour_None;
    return {{entry.Component, Minute(entry.Time), entry.FromVersion, entry.ToVersion, ResultText(entry), entry.Package},
            bad ? entry.Message : "",
            colour};
}

Json ToJson(const HistoryEntry& entry)
{
    return {{"time", entry.Time},
            {"product", entry.Product},
            {"serial", entry.Serial},
            {"component", entry.Component},
            {"device", entry.Device},
            {"package", entry.Package},
            {"from_version", entry.FromVersion},
            {"offered_version", entry.OfferedVersion},
            {"to_version", TextOrNull(entry.ToVersion)},
            {"action", entry.Action},
            {"result", ResultText(entry)},
            {"status", entry.Status},
            {"message", entry.Message},
            {"manifest_digest", TextOrNull(entry.ManifestDigest)},
            {"key_id", TextOrNull(entry.KeyId)},
            {"seconds", entry.Seconds},
            {"log_excerpt", entry.LogExcerpt}};
}

}  // namespace

void ShowUnfinished(Session& session)
{
    CScreen& screen = session.Screen;
    const auto text = [&session](const HistoryEntry& entry) {
        return Wrap(Sentence(session.Options, entry), 0, session.Screen.Width()) + "\n";
    };
    for (const HistoryEntry& entry : session.Unfinished)
        if (!Waits(entry)) screen.PrintProblem(text(entry));
    for (const HistoryEntry& entry : session.Unfinished)
        if (Waits(entry)) screen.Print(text(entry));
}

Json ToJson(const std::vector<HistoryEntry>& entries)
{
    Json json = Json::array();
    for (const HistoryEntry& entry : entries) json.push_back(ToJson(entry));
    return json;
}

std::string HistoryText(const CScreen& screen, const std::vector<HistoryEntry>& entries)
{
    const std::vector<Column> columns = {{"component", Narrow_Above},   {"time (UTC)"},
                                         {"from", Narrow_Below},        {"to"},
                                         {"result", Narrow_Keep, true}, {"package", Narrow_Below}};
    std::vector<Row> rows;
    rows.reserve(entries.size());
    for (const HistoryEntry& entry : entries) rows.push_back(EntryRow(entry));
    return rows.empty() ? "Nothing was installed yet." : TableText(screen, columns, rows);
}
