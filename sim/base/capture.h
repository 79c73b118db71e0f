// The capture of a run: what went over the server's wires, in a pcapng file, which Wireshark and tshark read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <mutex>
#include <string>
#include <utility>

#include "types.h"

namespace sim
{

// What a frame is of: an interface of the file, of that number. Its link type is USER8 and so on but for IPMI, whose
// frames are those of HPM.2, which Wireshark knows.
enum Wire : DWORD
{
    Wire_Channel = 0,  // SMIF packets between host and management processor
    Wire_I2C =
        1,  // the two halves of transactions: CAPTURE_I2C and the bytes that are written; the bytes that are read
    Wire_Ipmi = 2,        // messages
    Wire_RomDriver = 3,   // requests to the ROM utility driver
    Wire_FlashTable = 4,  // operations of the flash-table driver library
    Wire_Journal = 5,     // lines of the journal
};

// Seen from the host.
enum Direction : BYTE
{
    Direction_None = 0,
    Direction_Request = 1,
    Direction_Reply = 2,
};

// Operations of the flash-table driver library.
enum FlashOperation : DWORD
{
    FlashOperation_Select = 0,
    FlashOperation_Query = 1,
    FlashOperation_ReadHeader = 2,
    FlashOperation_ReadTable = 3,
    FlashOperation_WriteTable = 4,
    FlashOperation_Execute = 5,
    FlashOperation_CorruptNvram = 6,
};

#pragma pack(push, 1)

// What every frame but those of IPMI begins with.
struct CAPTURE_HEADER
{
    BYTE Version;      // 1
    BYTE Direction;    // Direction
    BYTE PointerSize;  // bytes of a pointer in a record
    BYTE Reserved;
    DWORD Process;
    DWORD Channel;    // number of the channel or open device
    DWORD Operation;  // FlashOperation, RomDriverRequest
    DWORD Status;     // what the call was answered with; 0: done
};
FLASHLIB_LAYOUT(CAPTURE_HEADER, 20);

// Begins the first half of an I2C transaction.
struct CAPTURE_I2C
{
    BYTE Bus;
    WORD Address;
    BYTE ReadLength;  // bytes that are to be read
};
FLASHLIB_LAYOUT(CAPTURE_I2C, 4);

#pragma pack(pop)

// What is told of a frame beside its bytes.
struct Frame
{
    sim::Direction Direction = sim::Direction_None;
    DWORD Status = 0;
    DWORD Channel = 0;
    DWORD Operation = 0;
};

// The names of the faults that are there, with commas; empty for none.
std::string JoinFaults(std::initializer_list<std::pair<bool, const char*>> faults);

class CCapture
{
  public:
    // Adds to a file, which it makes if there is none; an empty name: to none, and the other functions do nothing.
    // Throws std::runtime_error with a sentence for the user, as the others do, also for a file that is no such
    // capture.
    explicit CCapture(const std::filesystem::path& file);

    bool IsOn() const { return !m_File.empty(); }

    // Faults that hit what is added next, by their names in a server's description.
    void NoteFault(const std::string& names);

    // Adds a frame with the virtual time. What is too long for one is cut; how long it was stands there, too. Any
    // number of processes may do so at once, forked ones too: frames stand one behind the other, and whole, also when a
    // process is killed meanwhile.
    void Add(Wire wire, const Frame& frame, const void* bytes, std::size_t size);

    // The same for what goes with a request and its reply, the two halves of an operation that ends at once.
    void AddRequest(Wire wire, DWORD operation, const void* bytes, std::size_t size);
    void AddReply(Wire wire, DWORD operation, DWORD status, const void* bytes, std::size_t size);

    // Adds an IPMI message as a KCS interface carries it (IPMI 2.0, 9.2 and 9.3): network function and LUN, command,
    // data. Its frame has the message id of the driver as its packet id.
    void AddIpmi(Direction direction, std::uint64_t messageId, const std::string& message);

    // Adds, between the lines of the journal, what has no frames of its own: a device that is opened, a channel that is
    // closed. The faults are those that hit this.
    void AddNote(const std::string& text, const std::string& faults = "");

    // Adds what happened on the IPMI interface in place of a message.
    void AddIpmiText(const std::string& text);

  private:
    void AddFrame(Wire wire, Direction direction, const std::string& bytes, std::size_t size,
                  const std::string& options = "");
    void AddHpm2(BYTE type, Direction direction, const std::string& data, const std::string& options = "");
    void Append(const std::string& block);

    std::filesystem::path m_File;
    std::string m_Faults;
    std::mutex m_Mutex;
};

}  // namespace sim
