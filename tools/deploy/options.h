// What the commands of zaldeploy are asked for, and how they end.
#pragma once

#include <string>
#include <vector>

// Exit status of zaldeploy, from the best to the worst result; up to DeployStatus_Failed also of each package.
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
    DeployStatus_Busy = 8,
};

struct DeployOptions
{
    std::vector<std::string> Folders;
    std::vector<std::string> Only;   // names of packages; empty: all
    std::vector<std::string> Trust;  // files of public keys that are trusted, too
    std::string Restored;            // the device, package or kept image that restore puts back
    std::string Server;              // folder of a simulated server; empty: this server
    std::string State;               // folder of history, logs and running packages; empty: that of the server
    std::string Log;                 // file of the debug log; empty: chosen
    std::string Recording;           // folder that record makes
    std::string PowerController;     // where record finds one: bus and address
    double Timeout = 300;            // seconds
    double Wait = 0;                 // for another program that works on the server, in seconds
    bool AllowUnsigned = false;      // run what nobody has signed
    bool DryRun = false;
    bool Force = false;
    bool KeepSerials = false;  // in what is recorded
    bool Yes = false;
    bool Json = false;
    bool Quiet = false;
    bool Verbose = false;
};
