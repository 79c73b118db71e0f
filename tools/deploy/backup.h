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

// What is kept under that name: of a device, or of the file of an image. Of several images of a device it is the one
// that an interrupted installation was to replace. Throws std::runtime_error where that is none, or more than one.
Backup FindBackup(const DeployOptions& options, const std::string& name);
