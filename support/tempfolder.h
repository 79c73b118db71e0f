// A folder that goes away with the object.
#pragma once

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>

class CTempFolder
{
  public:
    // Its name begins with the program's. Throws std::runtime_error when it can't be made.
    explicit CTempFolder(const std::string& program)
    {
        const char* pszNamed = std::getenv("TMPDIR");
        const std::filesystem::path all = pszNamed && *pszNamed ? pszNamed : "/tmp";
        std::string path = (all / (program + ".XXXXXX")).string();
        if (!mkdtemp(path.data()))
            throw std::runtime_error("can't make a folder in " + all.string() + " (" + std::strerror(errno) +
                                     "); TMPDIR names another folder for temporary files");
        m_Path = path;
    }
    ~CTempFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_Path, ignored);
    }
    CTempFolder(const CTempFolder&) = delete;
    CTempFolder& operator=(const CTempFolder&) = delete;

    const std::filesystem::path& Path() const { return m_Path; }

  private:
    std::filesystem::path m_Path;
};
