// The host that the library sees in a fuzz target: its device nodes are the target's, and time passes in waits alone.
#pragma once

#include <cstdint>

#include "sim/base/device.h"

// The library is on that host while one exists; everything else in the process stays on the real one.
class CHost
{
  public:
    CHost();
    ~CHost();
    CHost(const CHost&) = delete;
    CHost& operator=(const CHost&) = delete;
};

// Every device node that the library opens from now on is this one. Null: none can be opened.
void PlayNode(sim::IDevice* pNode);

// A node that is also the ROM utility driver: answers its read-memory request.
class CMemoryNode : public sim::IDevice
{
  public:
    int Ioctl(unsigned long request, void* argument) final;

    // True with the bytes at a physical address in buffer.
    virtual bool ReadMemory(std::uint32_t address, std::uint8_t* pBuffer, std::uint32_t size) = 0;
};
