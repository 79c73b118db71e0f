// Files that decide what runs as root.
#pragma once

#include <filesystem>

// Makes sure that nobody but root and the user that runs this process can change what a path leads to: all that stands
// on the way down from top, except for top, is theirs, can't be written by others, and is no link. Throws
// std::runtime_error that names what is not so, and what to do.
void RequireGuarded(const std::filesystem::path& path, const std::filesystem::path& top);
