// Finds packages of offers.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

struct Package
{
    std::filesystem::path Folder;
    std::filesystem::path Installer;
    std::string Problem;  // why it can't be run, and what to do: sentences; empty: it can

    std::string Name() const { return Folder.filename().string(); }
};

// The packages among the folders and in them, in order of their names. A folder with a package description (qx*.xml)
// or, where it holds no packages, with an installer, is a package. Throws std::runtime_error for a folder that can't be
// read or is without any.
std::vector<Package> FindPackages(const std::vector<std::string>& folders);
