#include "sim/base/journal.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "sim/base/clock.h"

namespace sim
{

namespace
{

std::string Format(const char* format, va_list arguments)
{
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    std::vector<char> text(static_cast<std::size_t>(length) + 1);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    return std::string(text.data(), text.size() - 1);
}

}  // namespace

CJournal::CJournal(const std::filesystem::path& folder, const RunOptions& options)
    : m_bNamed(!options.Journal.empty()),
      m_File(m_bNamed ? options.Journal : folder / "journal.log"),
      m_Capture(options.Capture)
{
    if (m_bNamed) Open();  // one that can't be written is refused before anything is done
}

void CJournal::Open()
{
    m_Descriptor.Reset(open(m_File.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY, 0666));
    if (m_Descriptor.Get() < 0) ThrowCantWrite();
}

void CJournal::ThrowCantWrite() const
{
    throw std::runtime_error("Can't write the journal " + m_File.string() + ": " + std::strerror(errno));
}

void CJournal::Write(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const std::string text = Format(format, arguments);
    va_end(arguments);
    m_Capture.Add(Wire_Journal, {}, text.data(), text.size());
    Append(text);
}

void CJournal::WritePacket(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    Append(Format(format, arguments));
    va_end(arguments);
}

void CJournal::Append(const std::string& text)
{
    if (m_Descriptor.Get() < 0) Open();
    const std::int64_t now = CClock::Instance().Now();
    char szTime[40];
    std::snprintf(szTime, sizeof szTime, "%lld.%06lld ", static_cast<long long>(now / Second),
                  static_cast<long long>(now % Second / Microsecond));
    const std::string line = szTime + text + "\n";
    // One write, so that lines of two processes do not mix.
    const ssize_t written = write(m_Descriptor.Get(), line.data(), line.size());
    if (written >= 0 && static_cast<std::size_t>(written) != line.size()) errno = ENOSPC;
    if (written < 0 || static_cast<std::size_t>(written) != line.size()) ThrowCantWrite();
}

}  // namespace sim
