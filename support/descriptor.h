// Owns a file descriptor.
#pragma once

#include <unistd.h>

#include <utility>

// A descriptor that is closed with the object; -1: none.
class CDescriptor
{
  public:
    explicit CDescriptor(int descriptor = -1) : m_Descriptor(descriptor) {}
    ~CDescriptor() { Reset(-1); }
    CDescriptor(CDescriptor&& other) noexcept : m_Descriptor(std::exchange(other.m_Descriptor, -1)) {}
    CDescriptor& operator=(CDescriptor&& other) noexcept
    {
        Reset(std::exchange(other.m_Descriptor, -1));
        return *this;
    }

    int Get() const { return m_Descriptor; }

    // False with errno when what was written could not be kept.
    bool Close() { return close(std::exchange(m_Descriptor, -1)) == 0; }

    void Reset(int descriptor)
    {
        if (m_Descriptor >= 0) close(m_Descriptor);
        m_Descriptor = descriptor;
    }

  private:
    int m_Descriptor;
};
