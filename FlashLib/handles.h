// Owners of what the C library hands out: each closes or frees it at the end of its scope.
#pragma once

#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "types.h"

// Calls a function of the C library on what an owner holds.
template <auto Function>
struct CRelease
{
    template <typename Held>
    void operator()(Held* pHeld) const
    {
        Function(pHeld);
    }
};

using CFile = std::unique_ptr<std::FILE, CRelease<std::fclose>>;    // of fopen
using CPipe = std::unique_ptr<std::FILE, CRelease<pclose>>;         // of popen
using CDirectory = std::unique_ptr<DIR, CRelease<closedir>>;        // of opendir
using CRecordList = std::unique_ptr<BYTE*[], CRelease<std::free>>;  // pointers to records, in memory of realloc

// A file descriptor of open; negative: none.
class CDescriptor
{
  public:
    explicit CDescriptor(int fd) : m_Fd(fd) {}
    ~CDescriptor()
    {
        if (IsOpen()) close(m_Fd);
    }
    CDescriptor(const CDescriptor&) = delete;
    CDescriptor& operator=(const CDescriptor&) = delete;

    bool IsOpen() const { return m_Fd >= 0; }
    int Get() const { return m_Fd; }

  private:
    const int m_Fd;
};
