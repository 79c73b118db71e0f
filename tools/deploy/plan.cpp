#include <algorithm>
#include <future>
#include <stdexcept>

#include "support/printable.h"
#include "tools/deploy/commands.h"
#include "tools/deploy/decision.h"
#include "tools/deploy/discovery.h"
#include "tools/deploy/historyview.h"
#include "tools/deploy/jsonoutput.h"
#include "tools/deploy/loading.h"

namespace
{

const char* const UnsignedWarning =
    "WARNING: --allow-unsigned runs whatever lies in these folders, whoever has put it there. For development only.";

bool IsNamed(const Offer& offer, const std::string& name)
{
    return IsSameName(offer.Package.Name(), name) || IsSameName(offer.Name(), name) ||
           IsSameName(offer.Found.Device, name);
}

bool IsSelected(const Offer& offer, const std::vector<std::string>& only)
{
    return only.empty() ||
           std::any_of(only.begin(), only.end(), [&offer](const std::string& n) { return IsNamed(offer, n); });
}

// The packages that did not tell what they are for; empty: all did.
std::string NotKnown(const Offers& offers)
{
    std::string names;
    for (const Offer& offer : offers)
        if (offer.Verdict == Verdict_Refused || offer.Verdict == Verdict_Failed)
            names += (names.empty() ? "" : ", ") + offer.Package.Name();
    return names;
}

// Leaves those that --only names.
void Select(Offers& offers, const std::vector<std::string>& only)
{
    const std::string unknown = NotKnown(offers);
    for (const std::string& name : only)
        if (std::none_of(offers.begin(), offers.end(), [&name](const Offer& o) { return IsNamed(o, name); }))
            throw std::runtime_error("--only " + name + ": no package, component or device has this name" +
                                     (unknown.empty() ? ""
                                                      : ", as far as they can be asked. These can't, which a plan "
                                                        "without --only explains: " +
                                                            unknown));
    const auto isLeftOut = [&only](const Offer& offer) { return !IsSelected(offer, only); };
    offers.erase(std::remove_if(offers.begin(), offers.end(), isLeftOut), offers.end());
}

// Packages that --only names all by their folders need no discovery of the others.
void SelectByFolder(std::vector<Package>& packages, const std::vector<std::string>& only)
{
    const auto isLeftOut = [&only](const Package& package) {
        return std::none_of(only.begin(), only.end(),
                            [&](const std::string& n) { return IsSameName(package.Name(), n); });
    };
    const auto isFolder = [&packages](const std::string& name) {
        return std::any_of(packages.begin(), packages.end(),
                           [&](const Package& p) { return IsSameName(p.Name(), name); });
    };
    if (!only.empty() && std::all_of(only.begin(), only.end(), isFolder))
        packages.erase(std::remove_if(packages.begin(), packages.end(), isLeftOut), packages.end());
}

// Takes packages over, one ahead of the one that is asked: that waits for its device, and this for the disk.
class CLoader
{
  public:
    CLoader(Session& session, const std::vector<Package>& packages) : m_Session(session), m_Packages(packages)
    {
        Begin();
    }

    // The next package.
    Package Take()
    {
        Package package = m_Package.get();
        m_Place++;
        Begin();
        return package;
    }

  private:
    void Begin()
    {
        if (m_Place == m_Packages.size()) return;
        m_Package = std::async(std::launch::async, [this, package = m_Packages[m_Place]]() mutable {
            Load(m_Session, package);
            return package;
        });
    }

    Session& m_Session;
    const std::vector<Package>& m_Packages;
    std::size_t m_Place = 0;
    std::future<Package> m_Package;
};

// Removes the copies that are not needed any more.
void DropCopies(Offers& offers, Copies copies)
{
    for (Offer& offer : offers)
        if (copies == Copies_Drop || !offer.IsOffered()) offer.Package.pCopy.reset();
}

}  // namespace

Offers AskPackages(Session& session, Copies copies, const std::function<void(const Offer&)>& show)
{
    ShowUnfinished(session);
    if (session.Options.AllowUnsigned) session.Screen.Notice(UnsignedWarning);
    std::vector<Package> packages = FindPackages(session.Options.Folders);
    SelectByFolder(packages, session.Options.Only);
    Offers offers;
    offers.reserve(packages.size());
    CLoader loader(session, packages);
    for (const Package& package : packages) {
        const std::string label = "[" + std::to_string(offers.size() + 1) + "/" + std::to_string(packages.size()) +
                                  "] Asking " + Printable(package.Name());
        if (session.Runner.IsStopped()) {
            offers.push_back(NotAsked(package));
            show(offers.back());
            continue;
        }
        session.Screen.Begin(label);
        offers.push_back(Discover(session, loader.Take(), label));
        if (session.Runner.IsStopped() || IsSelected(offers.back(), session.Options.Only)) show(offers.back());
        DropCopies(offers, copies);
    }
    if (!session.Runner.IsStopped()) Select(offers, session.Options.Only);
    KeepNewest(offers);
    DropCopies(offers, copies);
    return offers;
}

Offers ShowPackages(Session& session, Copies copies)
{
    COfferTable table(session.Screen);
    Offers offers = AskPackages(session, copies, [&table](const Offer& offer) { table.Add(offer); });
    table.ShowSuperseded(offers);
    ShowUnsigned(session, offers);
    ShowNoWayBack(session, offers);
    return offers;
}

int RunPlan(const DeployOptions& options)
{
    Session session(options);
    const Offers offers = ShowPackages(session, Copies_Drop);
    ShowAdvice(session, offers);
    if (options.Json) PrintJson(ToJson("zaldeploy.plan", session, offers));
    return WorstStatus(offers);
}
