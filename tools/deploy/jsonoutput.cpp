#include "tools/deploy/jsonoutput.h"

#include <cstdio>

#include "tools/deploy/utc.h"

using Json = nlohmann::ordered_json;

namespace
{

const int SchemaNumber = 1;

}  // namespace

Json JsonHead(const char* schema, const Identity& server)
{
    return {{"schema", {{"name", schema}, {"number", SchemaNumber}}},
            {"tool", {{"name", "zaldeploy"}, {"version", FLASHLIB_VERSION}}},
            {"host", server.Host},
            {"product", TextOrNull(server.Product)},
            {"serial", TextOrNull(server.Serial)},
            {"time", UtcNow()}};
}

Json TextOrNull(const std::string& text)
{
    return text.empty() ? Json(nullptr) : Json(text);
}

void PrintJson(const Json& json)
{
    std::printf("%s\n", json.dump(2, ' ', true, Json::error_handler_t::replace).c_str());
}
