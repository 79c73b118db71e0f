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
    // call returns. Throws std::runtime_error with a sentence for the user.
    void Write(const char* format, ...) __attribute__((format(printf, 2, 3)));

    // Packets to and from the management processor are for a journal that was asked for.
    bool RecordsPackets() const { return m_bNamed; }

  private:
    void Open();
    [[noreturn]] void Refuse() const;

    bool m_bNamed;  // by the environment variable
    std::filesystem::path m_File;
    std::unique_ptr<FILE, int (*)(FILE*)> m_pFile;
};

}  // namespace sim
