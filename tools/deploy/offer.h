// An offer of a package: what its discovery tells, what zaldeploy makes of it, and what came of that.
#pragma once

#include <optional>
#include <string>

#include "host/report.h"
#include "tools/deploy/options.h"
#include "tools/deploy/package.h"

// Of a text that an installer tells, in bytes. Longer ones are none of ours.
const std::size_t MaxToldLength = 1024;

// What the installer says that an installation would do.
enum Action
{
    Action_Skip,
    Action_Upgrade,
    Action_Rewrite,
    Action_Downgrade,
};

// What zaldeploy makes of it.
enum Verdict
{
    Verdict_Install,
    Verdict_Current,     // the device runs this version
    Verdict_Newer,       // the device runs a newer version
    Verdict_NotNeeded,   // the server has no such device, or the package is not for it
    Verdict_Waiting,     // this version, or a newer one, is installed and waits for a restart
    Verdict_Superseded,  // another package has a newer version for the device
    Verdict_NotAllowed,  // something on this server speaks against it
    Verdict_Refused,     // the package can't be trusted
    Verdict_Failed,      // it could not be found out
    Verdict_Stopped,     // the operator has stopped before
};

// How an installation ended.
enum Result
{
    Result_Installed,
    Result_Restart,  // takes effect when the server is restarted
    Result_RunsAlready,
    Result_NotVerified,  // the installer says done; what the device runs can't be read
    Result_NotRun,
    Result_Failed,
};

// What discovery tells. Texts are fit for a terminal, and empty where nothing is known.
struct Discovery
{
    std::string Name;
    std::string Device;
    std::string ProductId;
    std::string Current;  // version
    std::string Offered;
    std::string TakesEffect;
    int Duration = 0;      // seconds that the installation is expected to take
    int State = 0;         // ZALSTATE_..; 0: not told
    std::string Reason;    // why the installer would not install
    bool WayBack = false;  // what it would replace can be put back
    std::optional<Action> Word;

    // True where what runs is what the device holds; else it may hold something else that takes a restart.
    bool IsImmediate() const { return TakesEffect == "immediate"; }
};

struct Outcome
{
    ::Result Result;
    std::string Now;      // the version that discovery finds afterwards
    std::string Message;  // for the operator
    ::Left Left = Left_Unknown;
    double Seconds = 0;
    bool IsKept = false;  // what was replaced can be put back
};

struct Offer
{
    ::Package Package;
    Discovery Found;
    ::Verdict Verdict = Verdict_Failed;
    std::string Why;  // why nothing is installed, and what to do
    int Status = DeployStatus_Unknown;
    std::optional<::Outcome> Outcome;

    // The component's name; the folder's where it has none of its own.
    std::string Name() const;
    bool IsOffered() const { return Verdict == Verdict_Install; }
};

// In words.
const char* ToText(Action action);
const char* ToText(Verdict verdict);
const char* ToText(Result result);

// The action or state of that name.
std::optional<Action> ActionFromText(const std::string& text);
std::optional<Left> LeftFromText(const std::string& text);
