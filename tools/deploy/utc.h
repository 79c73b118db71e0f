// The time, as files and documents have it.
#pragma once

#include <ctime>
#include <string>

// The time now in UTC, in a form of strftime; RFC 3339 unless told otherwise.
inline std::string UtcNow(const char* format = "%Y-%m-%dT%H:%M:%SZ")
{
    const std::time_t now = std::time(nullptr);
    std::tm parts = {};
    gmtime_r(&now, &parts);
    char szTime[32];
    std::strftime(szTime, sizeof szTime, format, &parts);
    return szTime;
}
