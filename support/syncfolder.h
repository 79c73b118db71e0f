// Folders and files that are still there after a power cut.
#pragma once

#include <filesystem>
#include <string_view>

// Writes a new file that its owner may run, and has the disk keep what is in it; not its name. Throws
// std::runtime_error with a sentence.
void WriteSyncedFile(const std::filesystem::path& file, std::string_view bytes);

// Makes a folder, and those above it that are missing, and has the disk keep that. Throws std::runtime_error with a
// sentence.
void MakeSyncedFolder(const std::filesystem::path& folder);

// Has the disk keep what stands in the folder: the names that files got, and those that are gone. Throws
// std::runtime_error with a sentence.
void SyncFolder(const std::filesystem::path& folder);
