// The journal of a server: what was done to it, one line each.
#pragma once

#include <cstdio>
#include <filesystem>
#include <memory>

namespace sim
{

class CJournal
{
  public:
    // Appends to the file, which the first line creates; the environment variable ZALSIM_JOURNAL names another one.
    explicit CJournal(const std::filesystem::path& file);

    // Adds a line: the virtual time in seconds since the epoch, then the printf-style text. It is in the file when the
    // call returns.
    void Write(const char* format, ...) __attribute__((format(printf, 2, 3)));

  private:
    void Open();

    std::filesystem::path m_File;
    std::unique_ptr<FILE, int (*)(FILE*)> m_pFile;
};

}  // namespace sim
