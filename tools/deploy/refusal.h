// Why a package is not run.
#pragma once

#include <stdexcept>
#include <string>

const char* const GetPackageAnew = "Get the package anew; if that does not help, tell its maker.";

// Something about a package speaks against running it. The sentences say what, and what to do.
class CRefusal : public std::runtime_error
{
  public:
    CRefusal(const std::string& what, const std::string& advice)
        : std::runtime_error(what + " Nothing of it was run. " + advice)
    {
    }
};
