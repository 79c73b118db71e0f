// Asks a package what it offers to the server.
#pragma once

#include "tools/deploy/offer.h"
#include "tools/deploy/session.h"

// Runs the package's discovery, and decides what is made of it. label is what the screen shows meanwhile.
Offer Discover(Session& session, const Package& package, const std::string& label);

// A component that is not asked, because the operator has stopped before.
Offer NotAsked(const Package& package);
