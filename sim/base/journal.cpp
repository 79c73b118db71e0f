#include "sim/base/journal.h"

#include <cstdarg>
#include <cstdlib>
#include <stdexcept>

#include "sim/base/clock.h"

namespace sim
{

namespace
{

std::filesystem::path ChosenFile(const std::filesystem::path& file)
{
    const char* pszOther = std::getenv("ZALSIM_JOURNAL");
    return pszOther ? std::filesystem::path(pszOther) : file;
}

}  // namespace

CJournal::CJournal(const std::filesystem::path& file)
    : m_bNamed(std::getenv("ZALSIM_JOURNAL") != nullptr), m_File(ChosenFile(file)), m_pFile(nullptr, std::fclose)
{
    if (m_File != file) Open();  // one that can't be written is refused before anything is done
}

void CJournal::Open()
{
    m_pFile.reset(std::fopen(m_File.c_str(), "ae"));
    if (!m_pFile) Refuse();
}

void CJournal::Refuse() const
{
    throw std::runtime_error("Can't write the journal " + m_File.string());
}

void CJournal::Write(const char* format, ...)
{
    if (!m_pFile) Open();
    const std::int64_t now = CClock::Instance().Now();
    std::fprintf(m_pFile.get(), "%lld.%06lld ", static_cast<long long>(now / Second),
                 static_cast<long long>(now % Second / Microsecond));
    va_list arguments;
    va_start(arguments, format);
    std::vfprintf(m_pFile.get(), format, arguments);
    va_end(arguments);
    std::fputc('\n', m_pFile.get());
    if (std::fflush(m_pFile.get()) != 0 || std::ferror(m_pFile.get())) Refuse();
}

}  // namespace sim
