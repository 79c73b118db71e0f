// The private folder in which packages run.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "support/descriptor.h"
#include "tools/deploy/options.h"

// A folder that goes away with the object.
class CPrivateFolder
{
  public:
    explicit CPrivateFolder(std::filesystem::path path) : m_Path(std::move(path)) {}
    ~CPrivateFolder();
    CPrivateFolder(const CPrivateFolder&) = delete;
    CPrivateFolder& operator=(const CPrivateFolder&) = delete;

    const std::filesystem::path& Path() const { return m_Path; }

  private:
    std::filesystem::path m_Path;
};

class CRunFolder
{
  public:
    // Makes a folder for this run in "run" of the state folder, or of temporary for a user who is not root and may not
    // write to that of the host. Only the owner may enter it. Removes what runs that were killed have left there, and
    // nothing else. Throws
    // std::runtime_error where it can't be made, or programs can't be run from it.
    CRunFolder(const DeployOptions& options, const std::filesystem::path& temporary);

    // Makes a new folder. Throws std::runtime_error where it can't be made.
    std::unique_ptr<CPrivateFolder> Make();

    // While this is open, here or in a process that has inherited it, the folder is not left over.
    int Descriptor() const { return m_Lock.Get(); }

  private:
    CDescriptor m_Lock;  // is open until the folder is gone
    std::unique_ptr<CPrivateFolder> m_pOwn;
    int m_Made = 0;
};
