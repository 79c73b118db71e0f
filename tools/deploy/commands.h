// The commands of zaldeploy. Each returns its exit status, and throws std::runtime_error where it could not run.
#pragma once

#include <functional>

#include "tools/deploy/offerview.h"
#include "tools/deploy/options.h"

// Shows what packages offer to the server, and changes nothing.
int RunPlan(const DeployOptions& options);

// Shows who has signed packages, and whether the devices hold what they offer; changes nothing.
int RunVerify(const DeployOptions& options);

// Installs it.
int RunInstall(const DeployOptions& options);

// Shows what the server is made of, and changes nothing. argv starts this program anew on a simulated server.
int RunInventory(const DeployOptions& options, char** argv);

// Shows what was installed before, and changes nothing.
int RunHistory(const DeployOptions& options);
// What becomes of the copy of a package that is offered.
enum class Copies
{
    Keep,  // until it is installed
    Drop,  // when it was asked
};

// What packages offer, as far as --only does not leave it out. show is called as soon as one has answered.
Offers AskPackages(Session& session, Copies copies, const std::function<void(const Offer&)>& show);

// The same, shown as a table: the first step of plan and install.
Offers ShowPackages(Session& session, Copies copies);
