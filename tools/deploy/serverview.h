// What a server is made of, as far as firmware goes.
#pragma once

#include <nlohmann/json.hpp>

// Reads product, system ROM, management processor, NVMe backplanes, controllers and power supplies, and changes
// nothing. An object whose members are parts, or arrays of parts; a part is an object with "name", "version" and what
// else is known of it, or null where there is none, or it can't be read.
nlohmann::ordered_json ReadServer();

// True when a part that is there could not be read.
bool IsIncomplete(const nlohmann::ordered_json& server);

void PrintServer(const nlohmann::ordered_json& server);
