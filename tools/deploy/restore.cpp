#include <stdexcept>

#include "tools/deploy/backup.h"
#include "tools/deploy/commands.h"
#include "tools/deploy/discovery.h"
#include "tools/deploy/historyview.h"
#include "tools/deploy/loading.h"

int RunRestore(const DeployOptions& options)
{
    CheckQuestion(options);
    DeployOptions forced = options;
    forced.Force = true;  // what is put back is older as a rule
    Session session(forced);
    const Backup backup = FindBackup(options, options.Restored);
    Package package = FindPackages({backup.Packages.string()}).at(0);
    package.Restored = backup.Image;
    ShowUnfinished(session);
    session.Screen.Begin("Asking " + package.Name());
    Load(session, package);
    if (!package.Problem.empty())
        package.Problem += " Its installer puts the image back with /r " + backup.Image.string() + ".";
    Offers offers = {Discover(session, package, "Asking " + package.Name())};
    COfferTable(session.Screen).Add(offers[0]);
    return InstallOffers(session, offers, "zaldeploy.restore");
}
