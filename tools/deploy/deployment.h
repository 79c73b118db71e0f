// What a deployment tool does with the packages of components: finds them, runs discovery, installs.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "support/process.h"

// Exit status of zaldeploy, from the best to the worst result; also of each component.
enum DeployStatus
{
    DeployStatus_Well = 0,
    DeployStatus_Offered = 1,
    DeployStatus_Restart = 2,
    DeployStatus_NotAllowed = 3,
    DeployStatus_Unknown = 4,
    DeployStatus_Stopped = 5,
    DeployStatus_Failed = 6,
    DeployStatus_CouldNotRun = 7,
};

struct DeployOptions
{
    std::vector<std::string> Folders;
    std::string Server;    // folder of a simulated server; empty: this server
    double Timeout = 300;  // seconds
    bool Install = false;
    bool DryRun = false;
    bool Force = false;
    bool Json = false;
};

// How an installation went.
struct InstallOutcome
{
    std::string Result;   // in a word or two
    std::string Now;      // the version that discovery finds afterwards
    std::string Message;  // for the operator
};

// A component's package, what its discovery told, and what was made of it. Texts are empty where nothing is known.
struct Component
{
    std::filesystem::path Folder;
    std::filesystem::path Installer;
    std::string Name;
    std::string Device;
    std::string ProductId;
    std::string Current;
    std::string Offered;
    std::string TakesEffect;
    int Duration = 0;        // seconds that the installation is expected to take
    std::string Discovered;  // the action that discovery tells
    std::string Action;      // the one that an installation takes: "skip" or "failed" for none
    std::string WhyNot;      // why none is taken
    int Status = DeployStatus_Well;
    std::optional<InstallOutcome> Outcome;

    bool IsOffered() const { return Status == DeployStatus_Offered; }
};

// Package folders among the folders and in them, in order of their names. A folder with a package description (qx*.xml)
// or, where it holds no packages, with an installer, is a package. Throws std::runtime_error for a folder without any.
std::vector<std::filesystem::path> FindPackages(const std::vector<std::string>& folders);

// Runs the discovery of the package in that folder.
Component Discover(CProcessRunner& runner, const std::filesystem::path& folder, const DeployOptions& options);

// The command that installs a component.
std::vector<std::string> InstallCommand(const Component& component, const DeployOptions& options);

// Takes a component's action, with the installer's lines on standard output unless the result is for a script, runs
// discovery once more to see what came of it, and sets Outcome and Status.
void Install(CProcessRunner& runner, Component& component, const DeployOptions& options);
