#include "tools/deploy/jsonoutput.h"

#include <cstdio>
#include <ctime>

using Json = nlohmann::ordered_json;

namespace
{

const int SchemaNumber = 1;

// UTC, as RFC 3339 writes it.
std::string Now()
{
    const std::time_t now = std::time(nullptr);
    std::tm parts = {};
    gmtime_r(&now, &parts);
    char szTime[32];
    std::strftime(szTime, sizeof szTime, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return szTime;
}

}  // namespace

Json JsonHead(const char* schema, const Identity& server)
{
    return {{"schema", {{"name", schema}, {"number", SchemaNumber}}},
            {"tool", {{"name", "zaldeploy"}, {"version", FLASHLIB_VERSION}}},
            {"host", server.Host},
            {"product", TextOrNull(server.Product)},
            {"serial", TextOrNull(server.Serial)},
            {"time", Now()}};
}

Json TextOrNull(const std::string& text)
{
    return text.empty() ? Json(nullptr) : Json(text);
}

void PrintJson(const Json& json)
{
    std::printf("%s\n", json.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
}
