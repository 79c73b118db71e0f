// The measurements. Each prints its lines of the table; those with a folder may write into it.
#pragma once

#include <string>

void BenchCrc32();
void BenchExpressions();
void BenchHex(const std::string& folder);
void BenchSmbios(const std::string& self, const std::string& folder);
void BenchDiscovery(const std::string& folder);
void BenchUpload(const std::string& folder);

// What BenchSmbios runs as a process of its own: asks a server's tables everything.
int AskSmbios(const std::string& folder);
