// Measurements as one table.
#pragma once

#include <functional>
#include <string>
#include <vector>

// One of those that do the same work. Returns false when its result is wrong.
struct Contestant
{
    std::string Name;
    std::function<bool()> Work;
};

// Lets the contestants take turns, so that what disturbs the machine disturbs all of them, takes the best time of each,
// and prints a line each: amount (in unit) a second, and how that compares with the first. Ends the program when a
// result is wrong.
void Compare(const char* title, double amount, const char* unit, int rounds,
             const std::vector<Contestant>& contestants);

// Runs a shell command; true when it succeeds.
bool RunQuietly(const std::string& command);
