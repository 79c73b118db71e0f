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

void BenchCrc32();
void BenchExpressions();
void BenchHex(const std::string& folder);
void BenchSmbios(const std::string& self, const std::string& folder);
void BenchDiscovery(const std::string& folder);
void BenchUpload(const std::string& folder);

// What BenchSmbios runs as a process of its own: asks a server's tables everything.
int AskSmbios(const std::string& folder);
