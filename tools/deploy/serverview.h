// What a server is made of, as far as firmware goes.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "chif.h"
#include "tools/deploy/screen.h"

// Reads product, system ROM, management processor, NVMe backplanes, controllers and power supplies, and changes
// nothing. An object whose members are parts, or arrays of parts; a part is an object with "name", "version" and what
// else is known of it, or null where the server has none. One that can't be read has a "problem": why.
nlohmann::ordered_json ReadServer();

// The power supplies alone.
nlohmann::ordered_json ReadPowerSupplies(CChannelInterface& channel);

// True when a part that is there could not be read.
bool IsIncomplete(const nlohmann::ordered_json& server);

// The same as a table.
std::string ServerText(const CScreen& screen, const nlohmann::ordered_json& server);
