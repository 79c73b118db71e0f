// JSON for scripts: docs/zaldeploy.schema.json.
#pragma once

#include <nlohmann/json.hpp>

#include "tools/deploy/identity.h"

// What every document begins with. schema is its name: "zaldeploy.plan".
nlohmann::ordered_json JsonHead(const char* schema, const Identity& server);

// The text; null where it is empty.
nlohmann::ordered_json TextOrNull(const std::string& text);

// Prints it in ASCII: what a name may hold reaches no terminal.
void PrintJson(const nlohmann::ordered_json& json);
