#include "tools/deploy/offerview.h"

#include <algorithm>

#include "support/printable.h"
#include "tools/deploy/historyview.h"
#include "tools/deploy/installation.h"
#include "tools/deploy/jsonoutput.h"
#include "tools/deploy/table.h"

namespace
{

using Json = nlohmann::ordered_json;

// Rows are shown before all are known: the widths are those of most components.
const std::vector<Column> OfferColumns = {{"component", Narrow_Above, false, 45}, {"device", Narrow_Below, false, 7},
                                          {"current", Narrow_Keep, false, 17},    {"offered", Narrow_Keep, false, 17},
                                          {"action", Narrow_Keep, true, 11},      {"takes effect", Narrow_Below}};

Colour ColourOf(int status)
{
    switch (status) {
        case DeployStatus_Well:
            return Colour_Green;
        case DeployStatus_Offered:
        case DeployStatus_Restart:
            return Colour_Yellow;
        default:
            return Colour_Red;
    }
}

bool IsProblem(const Offer& offer)
{
    return offer.Status >= DeployStatus_NotAllowed;
}

Row OfferRow(const Offer& o)
{
    const char* pszAction = o.IsOffered() ? ToText(*o.Found.Word) : ToText(o.Verdict);
    const Colour colour = o.Verdict == Verdict_Install ? Colour_Yellow : IsProblem(o) ? Colour_Red : Colour_None;
    // Of several packages for a device the names need not tell which this is.
    const std::string from =
        o.Verdict == Verdict_Superseded ? "From " + Printable(o.Package.Folder.string()) + ". " : "";
    return {{o.Name(), o.Found.Device, o.Found.Current, o.Found.Offered, pszAction, o.Found.TakesEffect},
            from + o.Why,
            colour};
}

Row OutcomeRow(const Offer& o)
{
    return {{o.Name(), ToText(o.Outcome->Result), o.Found.Current, o.Outcome->Now},
            IsProblem(o) ? o.Outcome->Message : "",
            ColourOf(o.Status)};
}

Json ToJson(const Session& session, const Offer& offer)
{
    const Discovery& found = offer.Found;
    Json json = {{"package", offer.Package.Folder.string()},
                 {"component", offer.Name()},
                 {"device", found.Device},
                 {"product_id", found.ProductId},
                 {"current", found.Current},
                 {"offered", found.Offered},
                 {"action", found.Word ? Json(ToText(*found.Word)) : Json(nullptr)},
                 {"verdict", ToText(offer.Verdict)},
                 {"why", offer.Why},
                 {"takes_effect", found.TakesEffect},
                 {"duration", found.Duration},
                 {"way_back", found.WayBack},
                 {"holds", found.Word ? Json(*found.Word == Action_Rewrite) : Json(nullptr)},
                 {"package_version", TextOrNull(offer.Package.Version)},
                 {"manifest", TextOrNull(offer.Package.ListDigest)},
                 {"signed_by", TextOrNull(offer.Package.Signer)},
                 {"status", offer.Status}};
    if (offer.IsOffered()) json["command"] = InstallCommand(session, offer);
    if (offer.Outcome)
        json["outcome"] = {{"result", ToText(offer.Outcome->Result)},
                           {"now", offer.Outcome->Now},
                           {"message", offer.Outcome->Message},
                           {"left", ToText(offer.Outcome->Left)},
                           {"seconds", offer.Outcome->Seconds}};
    return json;
}

}  // namespace

int WorstStatus(const Offers& offers)
{
    int status = DeployStatus_Well;
    for (const Offer& offer : offers) status = std::max(status, offer.Status);
    return status;
}

void COfferTable::Add(const Offer& offer)
{
    if (m_Screen.IsQuiet() && !IsProblem(offer)) return;
    if (!m_bBegun) m_Screen.PrintProblem(TableHead(m_Screen, OfferColumns));
    m_bBegun = true;
    m_Screen.PrintProblem(TableRow(m_Screen, OfferColumns, OfferRow(offer)));
}

void COfferTable::ShowSuperseded(const Offers& offers)
{
    std::vector<Row> rows;
    for (const Offer& offer : offers)
        if (offer.Verdict == Verdict_Superseded) rows.push_back(OfferRow(offer));
    if (rows.empty()) return;
    m_Screen.Print("\nOf several packages for a device the newest counts:\n");
    m_Screen.Print(TableText(m_Screen, OfferColumns, rows));
}

void ShowUnsigned(Session& session, const Offers& offers)
{
    std::string note;
    for (const Offer& offer : offers)
        if (offer.Package.IsUnsigned)
            note += (note.empty() ? "\nNot signed: " : ", ") + Printable(offer.Package.Name());
    if (note.empty()) return;
    note += session.Options.AllowUnsigned ? ". Nobody knows who has made them."
                                          : ". A simulated server takes them, a real one does not.";
    session.Screen.Print(Wrap(note, 0, session.Screen.Width()));
}

void ShowNoWayBack(Session& session, const Offers& offers)
{
    std::string note;
    for (const Offer& offer : offers)
        if (offer.IsOffered() && !offer.Found.WayBack)
            note += (note.empty() ? "\nNo way back: " : ", ") + Printable(offer.Package.Name());
    if (!note.empty())
        session.Screen.Print(Wrap(note + ". What is replaced can't be kept.", 0, session.Screen.Width()));
}

void ShowOutcomes(Session& session, const Offers& offers)
{
    const std::vector<Column> columns = {{"component", Narrow_Above}, {"result", Narrow_Keep, true}, {"was"}, {"now"}};
    std::vector<Row> rows;
    for (const Offer& offer : offers)
        if (offer.Outcome && (!session.Screen.IsQuiet() || IsProblem(offer))) rows.push_back(OutcomeRow(offer));
    if (rows.empty()) return;
    session.Screen.Print("\nSummary:\n");
    session.Screen.PrintProblem(TableText(session.Screen, columns, rows));
}

void ShowAdvice(Session& session, const Offers& offers)
{
    static const std::pair<int, const char*> advice[] = {
        {DeployStatus_Offered, "Updates are offered: zaldeploy install installs them."},
        {DeployStatus_Restart, "Restart the server: what was installed takes effect then."},
        {DeployStatus_NotAllowed, "A component may not be installed on this server as it is: the table says why."},
        {DeployStatus_Unknown, "Not all could be found out, or trusted: the tables say why, and what to do."},
        {DeployStatus_Stopped, "Stopped before all was done: run zaldeploy again."},
        {DeployStatus_Failed, "An installation failed: the summary says what state the device is in, and what to do."},
    };
    CScreen& screen = session.Screen;
    screen.Print("");
    for (const auto& [status, text] : advice)
        if (std::any_of(offers.begin(), offers.end(), [s = status](const Offer& o) { return o.Status == s; }))
            screen.Print(Wrap(text, 0, screen.Width()));
    if (WorstStatus(offers) == DeployStatus_Well) screen.Print("All is well.");
    if (WorstStatus(offers) >= DeployStatus_NotAllowed)
        screen.PrintProblem(Wrap(session.Log.Describe(), 0, screen.Width()));
}

Json ToJson(const char* schema, const Session& session, const Offers& offers)
{
    Json json = JsonHead(schema, session.Server);
    json["log"] = TextOrNull(session.Log.File.string());
    json["unfinished"] = ::ToJson(session.Unfinished);
    json["history_problem"] = TextOrNull(session.History.Problem());
    json["packages"] = Json::array();
    for (const Offer& offer : offers) json["packages"].push_back(ToJson(session, offer));
    json["status"] = WorstStatus(offers);
    return json;
}
