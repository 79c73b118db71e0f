#include "zalph/evtlog.h"

#include <fcntl.h>
#include <linux/ipmi.h>
#include <poll.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "../bounded.h"
#include "../handles.h"
#include "zalph/system.h"

namespace
{

const int EntrySize = 256;
const int MaxTextLength = 227;  // kept: event-text-cut

const unsigned long SendCommand = IPMICTL_SEND_COMMAND;
const unsigned long ReceiveTruncated = IPMICTL_RECEIVE_MSG_TRUNC;
static_assert(sizeof(void*) != 4 || SendCommand == 0x8014690D, "the driver's send request");
static_assert(sizeof(void*) != 4 || ReceiveTruncated == 0xC018690B, "the driver's truncating receive request");

const long MessageId = 42;
const int PollTimeout = 10000;  // ms

const int NvramNetFunction = 0x36;
const int NvramCommand = 2;
const BYTE NvramLogEntry = 7;

// Builds an entry around a text and has it logged.
int LogText(CSystemCommon& system, WORD eventClass, WORD code, const CStr& text)
{
    union
    {
        _evtLogEntry Entry;
        BYTE Bytes[EntrySize];
    } event = {};
    event.Entry.bSeverity = 2;
    event.Entry.wClass = eventClass;
    event.Entry.wCode = code;
    char* pszText = reinterpret_cast<char*>(event.Bytes + sizeof(_evtLogHdr));
    std::strncpy(pszText, text.GetAnsiString(), MaxTextLength);
    event.Bytes[EntrySize - 1] = 0;
    event.Entry.wEvtLength = static_cast<WORD>(std::strlen(pszText) + sizeof(_evtLogHdr) + 1);
    return system.LogEventToVRL(&event.Entry);
}

_evtTimeStamp LocalTime()
{
    const std::time_t now = std::time(nullptr);
    const std::tm* pTime = std::localtime(&now);
    const int year = pTime->tm_year + 1900;
    return {static_cast<BYTE>(year / 100),     static_cast<BYTE>(year % 100),     static_cast<BYTE>(pTime->tm_mon + 1),
            static_cast<BYTE>(pTime->tm_mday), static_cast<BYTE>(pTime->tm_hour), static_cast<BYTE>(pTime->tm_min)};
}

bool SendRequest(int fd, int netFunction, int command, void* request, int requestLength)
{
    ipmi_system_interface_addr address = {};
    address.addr_type = IPMI_SYSTEM_INTERFACE_ADDR_TYPE;
    address.channel = IPMI_BMC_CHANNEL;

    ipmi_req message = {};
    message.addr = reinterpret_cast<unsigned char*>(&address);
    message.addr_len = sizeof address;
    message.msgid = MessageId;
    message.msg.netfn = static_cast<unsigned char>(netFunction);
    message.msg.cmd = static_cast<unsigned char>(command);
    message.msg.data_len = static_cast<unsigned short>(requestLength);
    message.msg.data = static_cast<unsigned char*>(request);
    return ioctl(fd, SendCommand, &message) >= 0;
}

// Waits for an answer; false when that fails. After a time-out it returns true, and the receive that follows fails.
bool WaitForAnswer(int fd)
{
    for (;;) {
        pollfd descriptor = {fd, POLLIN | POLLERR, 0};
        if (poll(&descriptor, 1, PollTimeout) >= 0) return true;
        if (errno != EINTR) return false;
    }
}

// Receives into buffer; the number of bytes received, 0 when there is no answer to the request.
int ReceiveAnswer(int fd, unsigned char* buffer, unsigned short size)
{
    ipmi_system_interface_addr address = {};
    ipmi_recv message = {};
    message.addr = reinterpret_cast<unsigned char*>(&address);
    message.addr_len = sizeof address;
    message.msg.data = buffer;
    message.msg.data_len = size;
    if (ioctl(fd, ReceiveTruncated, &message) < 0) return 0;
    if (message.recv_type != IPMI_RESPONSE_RECV_TYPE || message.msgid != MessageId) return 0;
    return message.msg.data_len < size ? message.msg.data_len : size;
}

// Exchanges a request for its answer; the number of bytes received, 0 when nothing could be exchanged.
int Exchange(int netFunction, int command, void* request, int requestLength, unsigned char* buffer, unsigned short size)
{
    const CDescriptor device(open("/dev/ipmi0", O_RDWR));
    if (!device.IsOpen()) return 0;
    if (!SendRequest(device.Get(), netFunction, command, request, requestLength)) return 0;
    return WaitForAnswer(device.Get()) ? ReceiveAnswer(device.Get(), buffer, size) : 0;
}

}  // namespace

int CSystemCommon::LogFlashEventToVRL(const CStr& text)
{
    return LogText(*this, 0x20, 1, text);
}

int CSystemCommon::LogMaintenanceNoteToVRL(const CStr& text)
{
    return LogText(*this, 0x21, 2, text);
}

BOOL CSystem::LogEventToVRL(_evtLogEntry* entry)
{
    LOG_VRL_REQUEST request = {};
    request.Header.SubType = NvramLogEntry;
    request.Header.Size = entry->wEvtLength;
    BoundedCopyBytes("an event log entry", request.VRLEntry, sizeof request.VRLEntry, entry, entry->wEvtLength);

    _evtLogHdr* pHeader = reinterpret_cast<_evtLogHdr*>(request.VRLEntry);
    pHeader->bHdrRev = 1;
    pHeader->dwCount = 1;
    pHeader->InitTime = LocalTime();
    pHeader->UpdateTime = pHeader->InitTime;

    LOG_VRL_RESPONSE response = {};
    int responseLength = 0;
    int completionCode = 0;
    if (!IpmiCommand(NvramNetFunction, NvramCommand, &request, entry->wEvtLength + 5, &response, sizeof response,
                     &responseLength, &completionCode))
        return FALSE;
    return completionCode == 0 && response.Header.Status == 0;
}

int CSystem::IpmiCommand(int netFunction, int command, void* request, int requestLength, void* response, int capacity,
                         int* responseLength, int* completionCode)
{
    unsigned char answer[512];
    const int received = Exchange(netFunction, command, request, requestLength, answer, sizeof answer);
    if (received == 0) return 0;

    const int length = received - 1;
    if (completionCode) *completionCode = answer[0];
    if (responseLength) *responseLength = length;
    const int copied = length < capacity ? length : capacity;
    if (copied > 0) std::memcpy(response, answer + 1, static_cast<std::size_t>(copied));
    return 1;
}
