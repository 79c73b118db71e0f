// Installs what a package offers.
#pragma once

#include "tools/deploy/offer.h"
#include "tools/deploy/session.h"

// The command that installs an offer without zaldeploy.
std::vector<std::string> InstallCommand(const Session& session, const Offer& offer);

// Runs discovery again, installs what it offers then, runs discovery once more to see what came of it, and sets the
// offer's outcome and status.
void Install(Session& session, Offer& offer);

// Sets the outcome of an offer that is not installed, because the operator has stopped before.
void LeaveOut(Offer& offer);
