#include "tools/deploy/offer.h"

#include "support/printable.h"

std::string Offer::Name() const
{
    return Found.Name.empty() ? Printable(Package.Name()) : Found.Name;
}

const char* ToText(Action action)
{
    static const char* const names[] = {"skip", "upgrade", "rewrite", "downgrade"};
    return names[static_cast<int>(action)];
}

const char* ToText(Verdict verdict)
{
    static const char* const names[] = {"install",    "current",     "newer",   "not needed", "waiting",
                                        "superseded", "not allowed", "refused", "failed",     "stopped"};
    return names[static_cast<int>(verdict)];
}

const char* ToText(Result result)
{
    static const char* const names[] = {"installed", "installed, restart", "runs already", "not verified", "not run",
                                        "failed"};
    return names[static_cast<int>(result)];
}

std::optional<Action> ActionFromText(const std::string& text)
{
    for (Action action : {Action_Skip, Action_Upgrade, Action_Rewrite, Action_Downgrade})
        if (text == ToText(action)) return action;
    return std::nullopt;
}

std::optional<Left> LeftFromText(const std::string& text)
{
    for (Left left : {Left_Untouched, Left_RunsOld, Left_RunsNew, Left_Incomplete, Left_Unknown})
        if (text == ToText(left)) return left;
    return std::nullopt;
}
