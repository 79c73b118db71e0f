#include "sim/smbios/smbiosnode.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace sim
{

namespace
{

class CSmbiosNode : public IDevice
{
  public:
    CSmbiosNode(const SmbiosTables& tables, SmbiosFault fault, CCapture& capture)
        : m_Fault(fault), m_Capture(capture), m_Position(0)
    {
        SMBIOSEntryPoint entry = tables.Entry;
        if (fault == SmbiosFault_NoAnchor) std::memcpy(entry.sAnchorString, "_sm_", 4);
        if (fault == SmbiosFault_ZeroAddress) entry.dwSTAddr = 0;
        if (fault == SmbiosFault_Unreadable) entry.dwSTAddr = 0xFFFFFF00;
        // Cuts the last structures off, in the middle of one.
        if (fault == SmbiosFault_Truncated) entry.wSTLength = static_cast<WORD>(entry.wSTLength * 2 / 3);
        if (fault == SmbiosFault_Misaligned) m_Region.resize(2);
        if (fault == SmbiosFault_FalseAnchor) m_Region = {'_', 'S', 'M', '_', 0, 0, 0, 0};
        const BYTE* pEntry = reinterpret_cast<const BYTE*>(&entry);
        if (fault != SmbiosFault_Empty) m_Region.insert(m_Region.end(), pEntry, pEntry + sizeof entry);
    }

    ssize_t Read(void* buffer, std::size_t size) override
    {
        const bool fails = m_Fault == SmbiosFault_ReadError;
        const std::size_t length = fails ? 0 : std::min(size, m_Region.size() - m_Position);
        m_Capture.AddNote("smbios read bytes=" + std::to_string(length), FindFaults(m_Fault));
        if (fails) return Errno(EIO);
        std::copy_n(m_Region.begin() + static_cast<std::ptrdiff_t>(m_Position), length, static_cast<BYTE*>(buffer));
        m_Position += length;
        return static_cast<ssize_t>(length);
    }

  private:
    SmbiosFault m_Fault;
    CCapture& m_Capture;
    std::vector<BYTE> m_Region;
    std::size_t m_Position;
};

}  // namespace

std::unique_ptr<IDevice> OpenSmbiosNode(const SmbiosTables& tables, SmbiosFault fault, CCapture& capture)
{
    if (fault == SmbiosFault_Missing) {
        errno = ENOENT;
        return nullptr;
    }
    return std::make_unique<CSmbiosNode>(tables, fault, capture);
}

}  // namespace sim
