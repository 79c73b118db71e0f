#include "tools/deploy/commands.h"
#include "tools/deploy/jsonoutput.h"
#include "tools/deploy/table.h"

namespace
{

bool IsKnown(const Offer& offer)
{
    return offer.Found.Word && *offer.Found.Word != Action_Skip && offer.Verdict != Verdict_Waiting;
}

// The status of a package is whether its device holds what it offers; which package is the newest does not matter.
void Verify(Offer& offer)
{
    if (!IsKnown(offer)) return;
    const bool holds = offer.Found.Word == Action_Rewrite;
    offer.Status = holds ? DeployStatus_Well : DeployStatus_Offered;
    offer.Why = holds ? "" : "The device holds something else than the package offers.";
}

Row VerifiedRow(const Offer& o)
{
    const char* pszResult = !IsKnown(o) ? ToText(o.Verdict) : o.Status == DeployStatus_Well ? "holds it" : "differs";
    const Colour colour = o.Status == DeployStatus_Well      ? Colour_Green
                          : o.Status == DeployStatus_Offered ? Colour_Yellow
                                                             : Colour_Red;
    return {{o.Name(), o.Found.Device, o.Found.Current, o.Found.Offered, pszResult, o.Package.Signer}, o.Why, colour};
}

// Shows an offer; the first one has the head above it.
void ShowRow(CScreen& screen, Offer offer, bool& begun)
{
    static const std::vector<Column> columns = {
        {"component", Narrow_Above, false, 45}, {"device", Narrow_Below, false, 7}, {"current", Narrow_Keep, false, 17},
        {"offered", Narrow_Keep, false, 17},    {"result", Narrow_Keep, true, 11},  {"signed by", Narrow_Below}};
    Verify(offer);
    if (screen.IsQuiet() && offer.Status == DeployStatus_Well) return;
    if (!begun) screen.PrintProblem(TableHead(screen, columns));
    begun = true;
    screen.PrintProblem(TableRow(screen, columns, VerifiedRow(offer)));
}

void ShowEnd(Session& session, const Offers& offers)
{
    CScreen& screen = session.Screen;
    ShowUnsigned(session, offers);
    if (WorstStatus(offers) == DeployStatus_Well)
        screen.Print("\nAll is well: the devices hold what the packages offer.");
    if (WorstStatus(offers) >= DeployStatus_NotAllowed)
        screen.PrintProblem("\n" + Wrap(session.Log.Describe(), 0, screen.Width()));
}

}  // namespace

int RunVerify(const DeployOptions& options)
{
    Session session(options);
    bool begun = false;
    Offers offers =
        AskPackages(session, Copies_Drop, [&](const Offer& offer) { ShowRow(session.Screen, offer, begun); });
    for (Offer& offer : offers) Verify(offer);
    ShowEnd(session, offers);
    if (options.Json) PrintJson(ToJson("zaldeploy.verify", session, offers));
    return WorstStatus(offers);
}
