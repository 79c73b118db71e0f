// What SMBIOS tells of a server: members of its server.json, and "faults.smbios".
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace sim
{

class CFields;

// A firmware that the tables tell of in a version record.
struct FirmwareDescription
{
    std::uint16_t Type;
    std::string Name;
    std::string Version;
    std::uint8_t Format;
    std::vector<std::uint8_t> Data;  // at most 12 bytes
};

enum SmbiosFault
{
    SmbiosFault_None,
    SmbiosFault_Missing,      // no device node
    SmbiosFault_Empty,        // the node has nothing to read
    SmbiosFault_ReadError,    // reading it fails
    SmbiosFault_NoAnchor,     // it holds something else
    SmbiosFault_FalseAnchor,  // an anchor without the rest of an entry point, then a true one
    SmbiosFault_Misaligned,   // the entry point is not at a multiple of 4
    SmbiosFault_ZeroAddress,  // the entry point tells no address
    SmbiosFault_Truncated,    // the table is shorter than its structure count says
    SmbiosFault_Unreadable,   // the entry point tells an address at which there is no memory
};

// Marks the reserved memory that is for flashing: the characters "$SRB", in the one order or the other.
const std::uint32_t FlashBufferSignature = 0x42525324;
const std::uint32_t ReversedFlashBufferSignature = 0x24535242;

struct SmbiosDescription
{
    std::string Product;
    std::string Manufacturer;
    std::string Serial;
    int Generation;  // from 8 on, version records tell of the firmware

    std::string RedundantRomDate;
    std::string BootBlockDate;
    std::string OemRomName;
    std::string OemRomDate;
    std::string PowerMicroVersion;
    std::vector<FirmwareDescription> Firmware;

    std::string SystemId;
    std::uint16_t PlatformId;
    std::uint8_t TpmStatus;
    std::uint32_t BufferSignature;
    std::uint64_t FlashBufferAddress;
    std::uint32_t FlashBufferSize;  // bytes; 0: the firmware reserves none

    std::filesystem::path Dump;  // in the server's folder; empty: the tables are built from the above
    SmbiosFault Fault;
};

// Reads it from the whole, "rom" and "faults". Throws std::runtime_error with a sentence for the user.
SmbiosDescription DescribeSmbios(CFields& server, CFields& rom, CFields& faults);

// The fault with its name; empty for none.
std::string FindFaults(SmbiosFault fault);

}  // namespace sim
