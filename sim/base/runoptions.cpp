#include "sim/base/runoptions.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <stdexcept>

#include "sim/base/fields.h"

namespace sim
{

namespace
{

const char szServer[] = "ZALSIM_SERVER";
const char szFaults[] = "ZALSIM_FAULTS";
const char szJournal[] = "ZALSIM_JOURNAL";
const char szCapture[] = "ZALSIM_CAPTURE";
const char szSteps[] = "ZALSIM_STEPS";
const char szKillAt[] = "ZALSIM_KILL_AT";
const char szRealTime[] = "ZALSIM_REAL_TIME";
const char szClockStart[] = "ZALSIM_CLOCK_START";

std::string Get(const char* name)
{
    const char* pszValue = std::getenv(name);
    return pszValue ? pszValue : "";
}

void Set(const char* name, const std::string& value)
{
    if (value.empty())
        unsetenv(name);
    else
        setenv(name, value.c_str(), 1);
}

// The number in a variable, from 0 to most; nothing where there is none.
std::optional<std::int64_t> GetNumber(const char* name, std::int64_t most)
{
    const std::string text = Get(name);
    if (text.empty()) return std::nullopt;
    std::int64_t number = 0;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
    if (parsed.ec != std::errc() || parsed.ptr != text.data() + text.size() || number < 0 || number > most)
        throw std::runtime_error(std::string(name) + " is no number up to " + std::to_string(most) + ": " + text);
    return number;
}

}  // namespace

RunOptions ReadRunOptions()
{
    RunOptions options;
    options.Server = Get(szServer);
    options.Faults = Get(szFaults);
    options.Journal = Get(szJournal);
    options.Capture = Get(szCapture);
    options.RealTime = !Get(szRealTime).empty();
    options.ClockStart = GetNumber(szClockStart, MaxClockStart);
    options.Steps = Get(szSteps);
    options.KillAt = static_cast<int>(GetNumber(szKillAt, MaxClockStart).value_or(0));
    return options;
}

void WriteRunOptions(const RunOptions& options)
{
    Set(szServer, options.Server.string());
    Set(szFaults, options.Faults);
    Set(szJournal, options.Journal.string());
    Set(szCapture, options.Capture.string());
    Set(szSteps, options.Steps.string());
    Set(szKillAt, options.KillAt != 0 ? std::to_string(options.KillAt) : "");
    Set(szRealTime, options.RealTime ? "1" : "");
    Set(szClockStart, options.ClockStart ? std::to_string(*options.ClockStart) : "");
}

std::string FaultObject(const std::vector<std::string>& faults)
{
    Json object = Json::object();
    for (const std::string& fault : faults) {
        const std::size_t equals = fault.find('=');
        if (equals == std::string::npos || equals == 0)
            throw std::runtime_error("a fault is written NAME=VALUE, not " + fault);
        std::string path = "/" + fault.substr(0, equals);
        std::replace(path.begin(), path.end(), '.', '/');
        const std::string text = fault.substr(equals + 1);
        object[Json::json_pointer(path)] = ParseJson(text, Json(text));
    }
    return object.dump();
}

}  // namespace sim
