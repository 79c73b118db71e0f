// Shows what was installed before.
#pragma once

#include <nlohmann/json.hpp>
#include <vector>

#include "tools/deploy/history.h"
#include "tools/deploy/screen.h"
#include "tools/deploy/session.h"

// Says which installations are unfinished: those that run or were interrupted first, then those that wait for a
// restart.
void ShowUnfinished(Session& session);

// Installations as a table.
std::string HistoryText(const CScreen& screen, const std::vector<HistoryEntry>& entries);

// The same for scripts: an array of the entries.
nlohmann::ordered_json ToJson(const std::vector<HistoryEntry>& entries);
