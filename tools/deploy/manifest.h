// The list of what is in a package, which its author signs.
//
//     FlashLib package 1
//     name devicefw
//     version 1.3.2
//     2c26b46b68ffc68ff99b453c1d30413413422d706483bfa0f98a5e886266e7ae  200064  tamberline_1.3.2.fw
//
// A line for each file, in order of the names: its SHA-256, its size in bytes, its name, with two blanks between them.
// Names are of letters, digits and "._+-", and begin with a letter or a digit: a package has no folders. The installer
// is the file that has the package's name.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

extern const char* const ManifestFile;   // its name in the package
extern const char* const SignatureFile;  // that of its signature

const std::size_t MaxManifestSize = 64 << 10;  // bytes
const std::size_t MaxPackageFiles = 256;

struct ListedFile
{
    std::string Digest;
    std::size_t Size = 0;  // bytes
    std::string Name;
};

struct Manifest
{
    std::string Name;
    std::string Version;
    std::vector<ListedFile> Files;
};

// Reads a manifest. Throws std::runtime_error that says which line is wrong, and why, where it is not exactly as above.
Manifest ReadManifest(std::string_view text);

// The SHA-256 of the bytes as a manifest has it.
std::string Digest(std::string_view bytes);
