// The folder for what installers write for zaldeploy.
#pragma once

#include <filesystem>
#include <string>

#include "support/tempfolder.h"

class CWorkFolder
{
  public:
    // Throws std::runtime_error where there is no folder for temporary files, or nothing can be written there.
    CWorkFolder();

    const std::filesystem::path& Path() const { return m_Folder.Path(); }

    // Where the next discovery writes its document; no earlier one is there.
    std::filesystem::path DiscoveryFile() const;

    // Why a document can't be written; empty: it can.
    std::string Problem() const;

  private:
    CTempFolder m_Folder;
};
