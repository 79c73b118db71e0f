#include "tools/deploy/decision.h"

#include <cctype>
#include <cstdio>

#include "component.h"
#include "support/printable.h"

namespace
{

const int StateNotTold = 0;

int StatusOf(Verdict verdict)
{
    switch (verdict) {
        case Verdict_Install:
            return DeployStatus_Offered;
        case Verdict_Waiting:
            return DeployStatus_Restart;
        case Verdict_NotAllowed:
            return DeployStatus_NotAllowed;
        case Verdict_Refused:
        case Verdict_Failed:
            return DeployStatus_Unknown;
        case Verdict_Stopped:
            return DeployStatus_Stopped;
        default:
            return DeployStatus_Well;
    }
}

// Splits "2.40 (03/15/2021)" into the version and the days of its date, as a number that grows with them.
long SplitDate(std::string& version)
{
    const std::size_t open = version.find('(');
    int month = 0;
    int day = 0;
    int year = 0;
    const char* pszDate = version.c_str() + (open == std::string::npos ? 0 : open + 1);
    if (std::sscanf(pszDate, "%2d/%2d/%4d", &month, &day, &year) != 3) return 0;
    version.erase(open == std::string::npos ? 0 : open);
    version.erase(version.find_last_not_of(' ') + 1);
    return (year * 12L + month) * 31 + day;
}

bool IsDigit(char c)
{
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

// The digits at a place, without leading zeros; moves behind them.
std::string TakeNumber(const std::string& text, std::size_t& place)
{
    while (place + 1 < text.size() && text[place] == '0' && IsDigit(text[place + 1])) place++;
    const std::size_t start = place;
    while (place < text.size() && IsDigit(text[place])) place++;
    return text.substr(start, place - start);
}

int CompareNumbers(const std::string& a, const std::string& b)
{
    return a.size() != b.size() ? (a.size() < b.size() ? -1 : 1) : a.compare(b);
}

int CompareTexts(const std::string& a, const std::string& b)
{
    std::size_t i = 0;
    std::size_t j = 0;
    while (i < a.size() && j < b.size()) {
        const bool numbers = IsDigit(a[i]) && IsDigit(b[j]);
        const int order = numbers ? CompareNumbers(TakeNumber(a, i), TakeNumber(b, j)) : a[i++] - b[j++];
        if (order != 0) return order;
    }
    return static_cast<int>(a.size() - i) - static_cast<int>(b.size() - j);
}

// What a device runs is older than an upgrade and newer than a downgrade.
int Rank(Action action)
{
    return action == Action_Downgrade ? -1 : action == Action_Upgrade ? 1 : 0;
}

bool IsForDevice(const Offer& offer)
{
    return offer.Found.Word && *offer.Found.Word != Action_Skip && !offer.Found.Device.empty();
}

bool IsSameDevice(const Offer& a, const Offer& b)
{
    return a.Found.Device == b.Found.Device && a.Found.ProductId == b.Found.ProductId;
}

int CompareOffers(const Discovery& a, const Discovery& b)
{
    const int order = Rank(*a.Word) - Rank(*b.Word);
    return order != 0 ? order : CompareVersions(a.Offered, b.Offered);
}

}  // namespace

void Decide(Offer& offer, Verdict verdict, const std::string& why)
{
    offer.Verdict = verdict;
    offer.Status = StatusOf(verdict);
    offer.Why = why;
}

void DecideByWord(Offer& offer, bool force)
{
    const Discovery& found = offer.Found;
    const Action word = *found.Word;
    if (word == Action_Upgrade || (word != Action_Skip && force)) return Decide(offer, Verdict_Install, "");
    if (word == Action_Rewrite)
        return Decide(offer, Verdict_Current, "This version is installed; --force writes it again.");
    if (word == Action_Downgrade)
        return Decide(offer, Verdict_Newer, "A newer version is installed; --force goes back to this one.");
    const bool harmless = found.State == StateNotTold || IsNotNeeded(found.State);
    Decide(offer, harmless ? Verdict_NotNeeded : Verdict_NotAllowed,
           found.Reason.empty() ? "The installer gives no reason." : found.Reason);
}

void KeepNewest(std::vector<Offer>& offers)
{
    for (Offer& offer : offers) {
        if (!IsForDevice(offer)) continue;
        // The first of the newest, so that of two that are the same one is left.
        const Offer* pNewest = &offer;
        for (const Offer& other : offers) {
            if (!IsForDevice(other) || !IsSameDevice(other, offer)) continue;
            const int order = CompareOffers(pNewest->Found, other.Found);
            if (order < 0 || (order == 0 && &other < pNewest)) pNewest = &other;
        }
        if (pNewest == &offer) continue;
        const bool same = CompareOffers(offer.Found, pNewest->Found) == 0;
        Decide(offer, Verdict_Superseded,
               (same ? "The same version" : "A newer version, " + pNewest->Found.Offered + ",") +
                   " is offered for this device by " + Printable(pNewest->Package.Folder.string()) + ".");
    }
}

bool IsNotNeeded(int state)
{
    return state == ZALSTATE_INSTALLEDNOTNEEDED || state == ZALSTATE_NOTINSTALLEDNOTNEEDED;
}

int CompareVersions(const std::string& a, const std::string& b)
{
    std::string first = a;
    std::string second = b;
    const long firstDate = SplitDate(first);
    const long secondDate = SplitDate(second);
    const int order = CompareTexts(first, second);
    if (order != 0) return order;
    return firstDate < secondDate ? -1 : firstDate > secondDate ? 1 : 0;
}
