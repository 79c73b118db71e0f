// The way back: what installers have kept of the firmware that they replaced, and the packages that can put it back.
#pragma once

#include <filesystem>
#include <string>

#include "tools/deploy/offer.h"
#include "tools/deploy/options.h"

// Keeps the copy of a package that is about to be installed beside the image that its installer keeps, on the disk, in
// place of the one that was kept for the device before. Throws std::runtime_error where that can't be done; the earlier
// one then stays.
void KeepPackage(const DeployOptions& options, const Offer& offer);

struct Backup
{
    std::filesystem::path Image;
    std::filesystem::path Packages;  // folder that holds the package, and no other
};

// The command that puts back what was kept of a device last.
std::string RestoreCommand(const std::string& device);

// What is kept under the name of a device, of the package that can put it back, or of the file of an image. Of several
// images it is the one that was kept last. Throws std::runtime_error where there is none.
Backup FindBackup(const DeployOptions& options, const std::string& name);

// True where something is kept that can be put back.
bool HasBackup(const DeployOptions& options, const std::string& name);
