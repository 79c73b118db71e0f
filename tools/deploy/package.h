// Finds packages of offers.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tools/deploy/runfolder.h"

struct Package
{
    std::filesystem::path Folder;
    std::string Installer;           // the name of its file
    std::string Problem;             // why it can't be run, and what to do: sentences; empty: it can
    std::filesystem::path Restored;  // the kept image that its installer puts back; empty: it installs its own
    bool IsRefused = false;          // that is because something about it speaks against it

    // Since it was loaded.
    std::string Version;                          // that its list of files tells; empty where it has no list
    std::string ListDigest;                       // the SHA-256 of the list, in hexadecimal digits
    bool IsUnsigned = false;                      // it runs though nobody has signed it
    std::string Signer;                           // the name of the key that has signed the list; empty where none has
    std::shared_ptr<const CPrivateFolder> pCopy;  // from where it runs, as long as that is needed

    std::string Name() const { return Folder.filename().string(); }
};

// Names that an operator gives, of packages and devices, are the same in upper and lower case.
bool IsSameName(const std::string& a, const std::string& b);

// The packages among the folders and in them, in order of their names. A folder with a list of its files, a package
// description (qx*.xml) or, where it holds no packages, an installer is a package. Throws std::runtime_error for a
// folder that can't be read or is without any.
std::vector<Package> FindPackages(const std::vector<std::string>& folders);
