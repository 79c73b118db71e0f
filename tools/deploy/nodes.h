// The device nodes through which installers reach the hardware.
#pragma once

#include <fcntl.h>

#include <cerrno>

#include "support/descriptor.h"

const char* const SmbiosNode = "/vmfs/devices/char/mem/smbios";
const char* const RomDriverNode = "/dev/qvrcru";
const char* const IpmiNode = "/dev/ipmi0";

// Why a node can't be opened with these flags, as errno; 0: it can.
inline int TryNode(const char* node, int flags)
{
    const CDescriptor descriptor(open(node, flags | O_CLOEXEC));
    return descriptor.Get() < 0 ? errno : 0;
}

// There is no such device, whatever stands in the file system.
inline bool IsNoDevice(int error)
{
    return error == ENOENT || error == ENXIO || error == ENODEV;
}
