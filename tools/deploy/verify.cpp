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

void Show(Session& session, const Offers& offers)
{
    const std::vector<Column> columns = {
        {"component", Narrow_Above},   {"device", Narrow_Below},   {"current"}, {"offered"},
        {"result", Narrow_Keep, true}, {"signed by", Narrow_Below}};
    CScreen& screen = session.Screen;
    std::vector<Row> rows;
    for (const Offer& offer : offers)
        if (!screen.IsQuiet() || offer.Status != DeployStatus_Well) rows.push_back(VerifiedRow(offer));
    if (!rows.empty()) screen.PrintProblem(TableText(screen, columns, rows));
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
    Offers offers = AskPackages(session, Copies::Drop);
    for (Offer& offer : offers) Verify(offer);
    Show(session, offers);
    if (options.Json) PrintJson(ToJson("zaldeploy.verify", session, offers));
    return WorstStatus(offers);
}
