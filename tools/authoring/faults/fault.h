// Faults: what may go wrong in a run of an installer.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

// A step of a run, as zalsim's --steps tells it.
struct Step
{
    int Number;
    std::string Kind;
    std::size_t Size;  // bytes that it writes one after the other
    std::string Name;
};

std::vector<Step> ReadSteps(const std::filesystem::path& file);

// What is wrong in one run.
struct Fault
{
    std::vector<std::string> Values;  // of zalsim's --fault
    int KillAt = 0;                   // of its --kill-at; 0: none
    std::string Step;                 // what is hit: "exchange DEVICE_FLASH"
    std::string What;                 // what happens to that: "lost"
    int Number = 0;                   // of the step; 0: the whole run is hit

    bool IsNone() const { return Values.empty() && KillAt == 0; }

    // True when the run does not come to its end.
    bool Cuts() const;

    // True when the management controller may not log an event, or the answer not come.
    bool HitsLog() const;
};

// All that may go wrong with the server of a run that has those steps, each step with each fault that fits it.
std::vector<Fault> MakeFaults(const std::vector<Step>& steps);

// Of each fault of each kind of step the first, the second, the middle and the last two.
std::vector<Fault> Sample(const std::vector<Fault>& faults);

// As options in a shell: " --fault X --kill-at N", or with --then for the run after the first one.
std::string ToOptions(const Fault& fault, bool then = false);
