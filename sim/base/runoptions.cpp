#include "sim/base/runoptions.h"

#include <charconv>
#include <cstdlib>
#include <stdexcept>

namespace sim
{

namespace
{

const char szServer[] = "ZALSIM_SERVER";
const char szFaults[] = "ZALSIM_FAULTS";
const char szJournal[] = "ZALSIM_JOURNAL";
const char szCapture[] = "ZALSIM_CAPTURE";
const char szRealTime[] = "ZALSIM_REAL_TIME";
const char szPreload[] = "LD_PRELOAD";
const char szLibraries[] = "LD_LIBRARY_PATH";
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

}  // namespace

RunOptions ReadRunOptions()
{
    RunOptions options;
    options.Server = Get(szServer);
    options.Faults = Get(szFaults);
    options.Journal = Get(szJournal);
    options.Capture = Get(szCapture);
    options.RealTime = !Get(szRealTime).empty();
    const std::string start = Get(szClockStart);
    if (start.empty()) return options;
    std::int64_t seconds = 0;
    const auto parsed = std::from_chars(start.data(), start.data() + start.size(), seconds);
    if (parsed.ec != std::errc() || parsed.ptr != start.data() + start.size() || seconds < 0 || seconds > MaxClockStart)
        throw std::runtime_error(std::string(szClockStart) + " is no number of seconds: " + start);
    options.ClockStart = seconds;
    return options;
}

void WriteRunOptions(const RunOptions& options)
{
    Set(szServer, options.Server.string());
    Set(szFaults, options.Faults);
    Set(szJournal, options.Journal.string());
    Set(szCapture, options.Capture.string());
    Set(szRealTime, options.RealTime ? "1" : "");
    Set(szClockStart, options.ClockStart ? std::to_string(*options.ClockStart) : "");
}

std::map<std::string, std::string> LoaderVariables(const std::string& library, const std::string& folder)
{
    const auto join = [](const std::string& first, const std::string& second) {
        return first + (first.empty() || second.empty() ? "" : ":") + second;
    };
    return {{szPreload, join(library, Get(szPreload))}, {szLibraries, join(Get(szLibraries), folder)}};
}

void SetForPrograms(const std::map<std::string, std::string>& variables)
{
    for (const auto& [name, value] : variables) Set(name.c_str(), value);
}

}  // namespace sim
