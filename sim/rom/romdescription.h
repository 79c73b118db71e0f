// What a server's flash part and ROM utility driver are: "rom", "flash_tables", "driver" and their faults in its
// server.json.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "sim/images/romimage.h"

namespace sim
{

class CFields;

struct FlashFaults
{
    int FailsAtTable;      // this table reports an error after half of its work; -1: none does
    int FailsAtRun;        // ... when it is run for that time, from 1; 0: each time
    int PowerLostAtTable;  // power goes while this table runs, after so many blocks of 64 KiB; -1: never
    int PowerLostAfterBlocks;
    int StuckBlock;  // this block keeps what it holds when it is programmed; -1: none
    bool NoHeader;   // the driver library tells a table but no header
    bool NoTable;    // it tells a header but no table
};

struct FlashPartDescription
{
    RomDescription Rom;          // as it was shipped
    std::size_t Size;            // bytes
    std::filesystem::path Area;  // in the server's folder: the part's last BiosAreaSize bytes; empty: they are built
    std::vector<std::string> Tables;  // names of the table sets
    FlashFaults Faults;
};

enum DriverFault
{
    DriverFault_None,
    DriverFault_Missing,  // no device node
    DriverFault_Refuses,  // does not know the version query
    DriverFault_Fails,    // answers every request with an error
};

struct RomDriverDescription
{
    // Hypervisor, major and minor; driver, version and build. Nothing: the host has no ROM utility driver.
    std::optional<std::array<std::uint16_t, 4>> Version;
    DriverFault Fault;
};

// Read them: from the members of "rom" and of "faults.flash", and from the whole and "faults". Throw std::runtime_error
// with a sentence for the user.
FlashPartDescription DescribeFlashPart(CFields& rom, CFields& faults);
RomDriverDescription DescribeRomDriver(CFields& server, CFields& faults);

}  // namespace sim
