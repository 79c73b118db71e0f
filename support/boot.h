// The start of the server that this process runs on.
#pragma once

#include <fcntl.h>

#include <string>

#include "support/descriptor.h"

// Its name, which the next one has not; empty where the system tells none.
inline std::string ReadBoot()
{
    char szBoot[64] = "";
    const CDescriptor file(open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC));
    const ssize_t length = read(file.Get(), szBoot, sizeof szBoot);
    const std::string boot(szBoot, static_cast<std::size_t>(length < 0 ? 0 : length));
    return boot.substr(0, boot.find('\n'));
}
