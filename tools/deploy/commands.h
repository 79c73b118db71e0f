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

// Puts back the firmware that an installation has replaced.
int RunRestore(const DeployOptions& options);

// Shows what the server is made of, and changes nothing. argv starts this program anew on a simulated server.
int RunInventory(const DeployOptions& options, char** argv);

// Shows whether the server has what installers need, and changes nothing.
int RunDoctor(const DeployOptions& options, char** argv);

// Records the server for a simulation, and changes nothing.
int RunRecord(const DeployOptions& options, char** argv);

// Shows what was installed before, and changes nothing.
int RunHistory(const DeployOptions& options);

// Throws std::runtime_error where it is to be asked before anything is written, and nobody can be.
void CheckQuestion(const DeployOptions& options);

// Asks, installs what is offered, and shows and prints what came of it; the last step of install and restore.
int InstallOffers(Session& session, Offers& offers, const char* schema);

// What becomes of the copy of a package that is offered.
enum Copies
{
    Copies_Keep,  // until it is installed
    Copies_Drop,  // when it was asked
};

// What packages offer, as far as --only does not leave it out. show is called as soon as one has answered.
Offers AskPackages(Session& session, Copies copies, const std::function<void(const Offer&)>& show);

// The same, shown as a table: the first step of plan and install.
Offers ShowPackages(Session& session, Copies copies);
