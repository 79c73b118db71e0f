// The journal of a server: what was done to it, one line each.
#pragma once

#include <filesystem>

#include "sim/base/capture.h"
#include "sim/base/runoptions.h"
#include "support/descriptor.h"

namespace sim
{

class CJournal
{
  public:
    // Appends to journal.log in the server's folder, which the first line creates, or to the one that the run options
    // name.
    CJournal(const std::filesystem::path& folder, const RunOptions& options);

    // Adds a line: the virtual time in seconds since the epoch, then the printf-style text. It is in the file, whole,
    // when the call returns. Throws std::runtime_error with a sentence for the user.
    void Write(const char* format, ...) __attribute__((format(printf, 2, 3)));

    // Packets to and from the management processor are for a journal that was asked for.
    bool RecordsPackets() const { return m_bNamed; }
    void WritePacket(const char* format, ...) __attribute__((format(printf, 2, 3)));

    // Where what goes over the server's wires goes, and all lines but those of packets.
    CCapture& GetCapture() { return m_Capture; }

  private:
    void Append(const std::string& text);
    void Open();
    [[noreturn]] void ThrowCantWrite() const;

    bool m_bNamed;  // by the run options
    std::filesystem::path m_File;
    CDescriptor m_Descriptor;
    CCapture m_Capture;
};

}  // namespace sim
