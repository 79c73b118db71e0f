#include "tools/deploy/runlog.h"

#include <fcntl.h>
#include <fnmatch.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <vector>

#include "support/descriptor.h"
#include "support/printable.h"
#include "tools/deploy/statefolder.h"
#include "tools/deploy/utc.h"

namespace fs = std::filesystem;

namespace
{

const std::size_t MaxLogs = 50;
const std::size_t MaxExcerpt = 4096;  // bytes

// Why nothing can be written into the file; empty: it can.
std::string TryToWrite(const fs::path& file)
{
    // Of a pipe that nobody reads, opening would have no end.
    const CDescriptor descriptor(
        open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0666));
    return descriptor.Get() < 0 ? std::strerror(errno) : "";
}

const char* const NamePattern = "[0-9][0-9][0-9][0-9]-[0-9][0-9]-[0-9][0-9]T[0-9][0-9][0-9][0-9][0-9][0-9]Z-[0-9]*.log";

// "2026-11-25T101500Z-1234.log": names in order of time.
std::string NewName()
{
    return UtcNow("%Y-%m-%dT%H%M%SZ") + "-" + std::to_string(getpid()) + ".log";
}

void RemoveOldest(const fs::path& folder)
{
    std::vector<fs::path> logs;
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(folder, ignored))
        if (fnmatch(NamePattern, entry.path().filename().c_str(), 0) == 0) logs.push_back(entry.path());
    std::sort(logs.begin(), logs.end());
    for (std::size_t i = 0; i + MaxLogs < logs.size(); i++) fs::remove(logs[i], ignored);
}

// A new file in the state folder. That of a server that does not exist is not made.
RunLog NewLog(const DeployOptions& options)
{
    std::error_code error;
    const fs::path folder = StateFolder(options) / "log";
    if (HasServer(options)) fs::create_directories(folder, error);
    const fs::path file = folder / NewName();
    const std::string problem = error ? error.message() : TryToWrite(file);
    if (!problem.empty())
        return {{},
                "No debug log is kept: nothing can be written to " + folder.string() + " (" + problem +
                    "). --log FILE names one."};
    RemoveOldest(folder);
    return {file, ""};
}

RunLog Choose(const DeployOptions& options)
{
    if (!options.Log.empty()) {
        const std::string problem = TryToWrite(options.Log);
        if (!problem.empty()) throw std::runtime_error("can't write the log " + options.Log + ": " + problem);
        return {fs::absolute(options.Log), ""};
    }
    const char* pszNamed = std::getenv("QVFLASHLOG");
    if (!pszNamed || !*pszNamed) return NewLog(options);
    const std::string problem = TryToWrite(pszNamed);
    if (problem.empty()) return {pszNamed, ""};
    return {{},
            std::string("No debug log is kept: QVFLASHLOG names ") + pszNamed + ", which can't be written (" + problem +
                "). --log FILE names another."};
}

}  // namespace

std::uintmax_t RunLog::Size() const
{
    std::error_code error;
    const std::uintmax_t size = File.empty() ? 0 : fs::file_size(File, error);
    return error ? 0 : size;
}

std::string RunLog::Excerpt(std::uintmax_t start) const
{
    const std::uintmax_t size = Size();
    if (size <= start) return "";
    const bool cut = size - start > MaxExcerpt;
    std::ifstream stream(File, std::ios::binary);
    stream.seekg(static_cast<std::streamoff>(cut ? size - MaxExcerpt : start));
    std::string text(cut ? MaxExcerpt : static_cast<std::size_t>(size - start), '\0');
    stream.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(std::max<std::streamsize>(stream.gcount(), 0)));
    if (cut) text.erase(0, text.find('\n') + 1);
    return PrintableLines(text);
}

std::string RunLog::Describe() const
{
    return File.empty() ? Problem : "The debug log is " + File.string() + ".";
}

RunLog ChooseLog(const DeployOptions& options)
{
    RunLog log = Choose(options);
    if (!log.File.empty()) setenv("QVFLASHLOG", log.File.c_str(), 1);
    return log;
}

void KeepLogIfNamed(const DeployOptions& options)
{
    if (!options.Log.empty() || std::getenv("QVFLASHLOG"))
        ChooseLog(options);
    else
        setenv("QVFLASHLOG", "/dev/null", 1);
}
