// SHA-256 (FIPS 180-4).
#pragma once

#include <cstddef>
#include <string>

// The digest as sha256sum prints it: 64 digits in lower case.
std::string Sha256(const void* bytes, std::size_t size);
