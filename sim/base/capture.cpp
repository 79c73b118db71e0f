#include "sim/base/capture.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "sim/base/clock.h"
#include "support/descriptor.h"

namespace sim
{

namespace
{

// The format is that of draft-ietf-opsawg-pcapng: blocks of a type, their length, a body and their length again, with
// options behind the fixed fields of a body; everything in the byte order of the machine, on 4 bytes.
const DWORD Block_SectionHeader = 0x0A0D0D0A;
const DWORD Block_Interface = 1;
const DWORD Block_Names = 4;  // of network addresses
const DWORD Block_Packet = 6;
const WORD Option_End = 0;
const WORD Option_Comment = 1;
const WORD Option_Name = 2;         // of an interface
const WORD Option_PacketFlags = 2;  // of a packet
const WORD Option_Description = 3;  // of an interface
const WORD Option_Application = 4;  // of a section
const WORD Option_PacketId = 5;
const WORD Option_TimeResolution = 9;  // of an interface
const WORD Option_Local = 0x8000;      // one that only its writer knows
const DWORD PacketFlag_Inbound = 1;
const DWORD PacketFlag_Outbound = 2;
const WORD LinkType_User8 = 155;  // with USER9 and so on behind it; USER2 is something else to Wireshark
const WORD LinkType_IpmiHpm2 = 260;

// The kernel copies what is written page by page, and between two of them a process may be killed. So no block crosses
// from one page to the next, and a file that was cut off ends behind a block. Room that is left in a page gets a block
// without any names, which takes this at least.
const std::size_t PageSize = 4096;
const std::size_t SmallestBlock = 16;
const std::size_t MaxComment = 256;
const std::size_t MaxBytes = 3584;  // of a frame, its header included

const struct
{
    WORD LinkType;
    const char* Name;
    const char* Description;
} Interfaces[] = {
    {LinkType_User8, "smif", "SMIF packets between host and management processor"},
    {LinkType_User8 + 1, "i2c", "I2C transactions of the management processor"},
    {LinkType_IpmiHpm2, "ipmi", "IPMI messages between host and management controller"},
    {LinkType_User8 + 3, "driver", "Requests to the ROM utility driver"},
    {LinkType_User8 + 4, "flash", "Operations of the flash-table driver library"},
    {LinkType_User8 + 5, "journal", "The journal of the simulated server"},
};

#pragma pack(push, 1)

// A trace data block (PICMG HPM.2).
struct Hpm2Block
{
    BYTE Type;  // bits 0 to 3: the channel traced, 4 and 5: the packet type
    DWORD Seconds;
    WORD Milliseconds;
    BYTE Protocol;
    WORD ProtocolData;  // bit 7: to the controller
    BYTE Length;        // of the data, which follow
};

#pragma pack(pop)

const BYTE Hpm2Type_Message = 0;
const BYTE Hpm2Type_Text = 2;
const BYTE Hpm2Protocol_Kcs = 5;
const BYTE SystemInterface = 0x0F;  // its channel number

template <typename Value>
std::string Raw(const Value& value)
{
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

void Align(std::string& bytes)
{
    bytes.resize((bytes.size() + 3) / 4 * 4);
}

std::string Option(WORD code, const std::string& value)
{
    std::string option = Raw(code) + Raw(static_cast<WORD>(value.size())) + value;
    Align(option);
    return option;
}

std::string Block(DWORD type, const std::string& body)
{
    const auto length = static_cast<DWORD>(body.size() + 3 * sizeof(DWORD));
    return Raw(type) + Raw(length) + body + Raw(length);
}

// The section and its interfaces: the same in every file.
std::string FileHeader()
{
    const DWORD byteOrder = 0x1A2B3C4D;
    const WORD version[] = {1, 0};
    const std::int64_t unknownLength = -1;
    std::string header = Block(Block_SectionHeader, Raw(byteOrder) + Raw(version) + Raw(unknownLength) +
                                                        Option(Option_Application, "zalsim") + Option(Option_End, ""));
    for (const auto& interface : Interfaces) {
        const WORD link[] = {interface.LinkType, 0};
        header += Block(Block_Interface, Raw(link) + Raw(DWORD{MaxBytes}) + Option(Option_Name, interface.Name) +
                                             Option(Option_Description, interface.Description) +
                                             Option(Option_TimeResolution, Raw(BYTE{9})) + Option(Option_End, ""));
    }
    return header;
}

std::string PacketBlock(Wire wire, Direction direction, const std::string& captured, std::size_t size,
                        const std::string& faults, const std::string& options)
{
    const auto now = static_cast<std::uint64_t>(CClock::Instance().Now());
    std::string body = Raw(wire) + Raw(static_cast<DWORD>(now >> 32)) + Raw(static_cast<DWORD>(now)) +
                       Raw(static_cast<DWORD>(captured.size())) + Raw(static_cast<DWORD>(size)) + captured;
    Align(body);
    if (direction != Direction_None)
        body +=
            Option(Option_PacketFlags, Raw(direction == Direction_Request ? PacketFlag_Outbound : PacketFlag_Inbound));
    if (!faults.empty()) body += Option(Option_Comment, "fault: " + faults.substr(0, MaxComment));
    return Block(Block_Packet, body + options + Option(Option_End, ""));
}

// What comes between the end of the file and a block, so that the block is in one page and so is the next one.
std::string Padding(std::size_t end, std::size_t block)
{
    const std::size_t room = PageSize - end % PageSize;
    if (block == room || block + SmallestBlock <= room) return "";
    const DWORD endOfNames = 0;
    const std::size_t rest = room - SmallestBlock;
    return Block(Block_Names, Raw(endOfNames) + (rest == 0 ? "" : Option(Option_Local, std::string(rest - 4, ' '))));
}

// A frame's bytes, or as many as it has room for, behind their header.
std::string WithHeader(const Frame& frame, const void* bytes, std::size_t size)
{
    CAPTURE_HEADER header = {};
    header.Version = 1;
    header.Direction = static_cast<BYTE>(frame.Direction);
    header.PointerSize = sizeof(void*);
    header.Process = static_cast<DWORD>(getpid());
    header.Channel = frame.Channel;
    header.Operation = frame.Operation;
    header.Status = frame.Status;
    return Raw(header).append(static_cast<const char*>(bytes), std::min(size, MaxBytes - sizeof header));
}

// True for a file that begins as this one does.
bool IsCapture(int fd, const std::string& header)
{
    std::string begin(header.size(), '\0');
    return pread(fd, begin.data(), begin.size(), 0) == static_cast<ssize_t>(begin.size()) && begin == header;
}

[[noreturn]] void ThrowCant(const char* verb, const std::filesystem::path& file)
{
    throw std::runtime_error(std::string("Can't ") + verb + " the capture " + file.string() + ": " +
                             std::strerror(errno));
}

}  // namespace

std::string JoinFaults(std::initializer_list<std::pair<bool, const char*>> faults)
{
    std::string names;
    for (const auto& [hits, name] : faults)
        if (hits) names += (names.empty() ? "" : ", ") + std::string(name);
    return names;
}

CCapture::CCapture(const std::filesystem::path& file) : m_File(file)
{
    if (IsOn()) Append("");  // one that can't be written is refused before anything is done
}

void CCapture::NoteFault(const std::string& names)
{
    if (IsOn() && !names.empty()) m_Faults += (m_Faults.empty() ? "" : ", ") + names;
}

void CCapture::Add(Wire wire, const Frame& frame, const void* bytes, std::size_t size)
{
    if (IsOn()) AddFrame(wire, frame.Direction, WithHeader(frame, bytes, size), sizeof(CAPTURE_HEADER) + size);
}

void CCapture::AddNote(const std::string& text, const std::string& faults)
{
    if (!IsOn()) return;
    const std::string bytes = WithHeader({}, text.data(), text.size());
    Append(PacketBlock(Wire_Journal, Direction_None, bytes, bytes.size(), faults, ""));
}

void CCapture::AddFrame(Wire wire, Direction direction, const std::string& bytes, std::size_t size,
                        const std::string& options)
{
    Append(PacketBlock(wire, direction, bytes, size, m_Faults, options));
    // What the journal tells stands between a fault and the frame that it hits.
    if (wire != Wire_Journal) m_Faults.clear();
}

void CCapture::AddRequest(Wire wire, DWORD operation, const void* bytes, std::size_t size)
{
    Add(wire, {Direction_Request, 0, 0, operation}, bytes, size);
}

void CCapture::AddReply(Wire wire, DWORD operation, DWORD status, const void* bytes, std::size_t size)
{
    Add(wire, {Direction_Reply, status, 0, operation}, bytes, size);
}

void CCapture::AddIpmi(Direction direction, std::uint64_t messageId, const std::string& message)
{
    AddHpm2(Hpm2Type_Message, direction, message, Option(Option_PacketId, Raw(messageId)));
}

void CCapture::AddIpmiText(const std::string& text)
{
    AddHpm2(Hpm2Type_Text, Direction_None, text);
}

void CCapture::AddHpm2(BYTE type, Direction direction, const std::string& data, const std::string& options)
{
    if (!IsOn()) return;
    const std::int64_t now = CClock::Instance().Now();
    Hpm2Block block = {};
    block.Type = static_cast<BYTE>(type << 4 | SystemInterface);
    block.Seconds = static_cast<DWORD>(now / Second);
    block.Milliseconds = static_cast<WORD>(now % Second / Millisecond);
    block.Protocol = Hpm2Protocol_Kcs;
    block.ProtocolData = direction == Direction_Request ? 0x80 : 0;
    block.Length = static_cast<BYTE>(std::min<std::size_t>(data.size(), 255));
    const std::string bytes = Raw(block) + data;
    AddFrame(Wire_Ipmi, direction, bytes, bytes.size(), options);
}

// The file is opened each time, as a lock on it is shared with processes that were forked off since.
void CCapture::Append(const std::string& block)
{
    const std::lock_guard<std::mutex> guard(m_Mutex);
    const CDescriptor file(open(m_File.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY, 0666));
    if (file.Get() < 0) ThrowCant("open", m_File);
    struct stat status = {};
    if (flock(file.Get(), LOCK_EX) != 0 || fstat(file.Get(), &status) != 0) ThrowCant("lock", m_File);
    auto end = static_cast<std::size_t>(status.st_size);
    static const auto& header = *new std::string(FileHeader());
    if (end != 0 && block.empty() && !IsCapture(file.Get(), header))
        throw std::runtime_error("The file " + m_File.string() + " is there and is no capture of zalsim");
    std::string bytes = end == 0 ? header : "";
    if (!block.empty()) bytes += Padding(end + bytes.size(), block.size()) + block;
    if (bytes.empty()) return;
    const ssize_t written = write(file.Get(), bytes.data(), bytes.size());
    if (written == static_cast<ssize_t>(bytes.size())) return;
    if (written >= 0) errno = ENOSPC;
    const int error = errno;
    if (ftruncate(file.Get(), status.st_size) != 0) errno = error;
    errno = error;
    ThrowCant("write", m_File);
}

}  // namespace sim
