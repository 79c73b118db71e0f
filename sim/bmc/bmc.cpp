#include "sim/bmc/bmc.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <optional>

#include "zalph/evtlog.h"

namespace sim
{

namespace
{

using Bytes = std::vector<std::uint8_t>;

// Completion codes (IPMI 2.0, table 5-2).
const std::uint8_t Completion_OK = 0x00;
const std::uint8_t Completion_InvalidCommand = 0xC1;
const std::uint8_t Completion_InvalidLun = 0xC2;
const std::uint8_t Completion_BadLength = 0xC7;
const std::uint8_t Completion_BadField = 0xCC;

const std::uint8_t NetFunction_App = 0x06;
const std::uint8_t Command_GetDeviceId = 0x01;
const std::uint8_t NetFunction_Nvram = 0x36;
const std::uint8_t Command_NvramAccess = 0x02;
const std::uint8_t SubType_LogVrl = 7;

// Get Device ID (IPMI 2.0, 20.1): an IPMI 2.0 controller with firmware 2.70.
const Bytes DeviceId = {Completion_OK, 0x13, 0x01, 0x02, 0x70, 0x02, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 0};

const std::size_t MaxLog = std::size_t{16} << 20;  // bytes
const std::size_t RequestHeader = offsetof(LOG_VRL_REQUEST, VRLEntry);

bool operator==(const _evtTimeStamp& one, const _evtTimeStamp& other)
{
    return std::memcmp(&one, &other, sizeof one) == 0;
}

bool IsTime(const _evtTimeStamp& time)
{
    return time.bYear < 100 && time.bMonth >= 1 && time.bMonth <= 12 && time.bDay >= 1 && time.bDay <= 31 &&
           time.bHour < 24 && time.bMinute < 60;
}

// An entry as a host may send it: the controller gives it its number, and it has occurred once. Its data is a text.
bool IsNewEntry(const _evtLogHdr& entry, const BYTE* bytes)
{
    return entry.dwEvtNumber == 0 && entry.bHdrRev == 1 && entry.dwCount == 1 && IsTime(entry.InitTime) &&
           entry.UpdateTime == entry.InitTime && bytes[entry.wEvtLength - 1] == 0;
}

std::string TimeText(const _evtTimeStamp& time)
{
    char szTime[40];
    std::snprintf(szTime, sizeof szTime, "%02d%02d-%02d-%02d %02d:%02d", time.bCentury, time.bYear, time.bMonth,
                  time.bDay, time.bHour, time.bMinute);
    return szTime;
}

}  // namespace

CBmc::CBmc(const IpmiFaults& faults, CServerFolder& folder, CJournal& journal)
    : m_Faults(faults), m_Folder(folder), m_State(folder, "vrl.bin", MaxLog), m_Journal(journal)
{
}

Bytes CBmc::Execute(std::uint8_t lun, std::uint8_t netFunction, std::uint8_t command, const Bytes& request)
{
    char szName[16];
    std::snprintf(szName, sizeof szName, "0x%02X-0x%02X", netFunction, command);
    CStep step(m_Folder.GetSteps(), "ipmi", szName);
    Bytes response = {Completion_InvalidCommand};
    if (m_Faults.CompletionCode != 0)
        response = {static_cast<std::uint8_t>(m_Faults.CompletionCode)};
    else if (lun != 0)
        response = {Completion_InvalidLun};
    else if (netFunction == NetFunction_App && command == Command_GetDeviceId)
        response = request.empty() ? DeviceId : Bytes{Completion_BadLength};
    else if (netFunction == NetFunction_Nvram && command == Command_NvramAccess)
        response = AccessNvram(request);
    m_Journal.Write("ipmi netfn=0x%02X command=0x%02X request=%zu completion=0x%02X response=%zu", netFunction, command,
                    request.size(), response[0], response.size() - 1);
    step.End();
    return response;
}

Bytes CBmc::AccessNvram(const Bytes& request)
{
    const CServerFolder::Lock lock(m_Folder);
    LOG_VRL_REQUEST access = {};
    if (request.size() < RequestHeader || request.size() > sizeof access) return {Completion_BadLength};
    std::memcpy(&access, request.data(), request.size());
    _evtLogHdr entry = {};
    std::memcpy(&entry, access.VRLEntry, sizeof entry);
    if (access.Header.SubType != SubType_LogVrl || access.MatchCode != 0) return {Completion_BadField};
    if (entry.wEvtLength <= sizeof entry || entry.wEvtLength != request.size() - RequestHeader ||
        access.Header.Size != entry.wEvtLength)
        return {Completion_BadLength};
    if (!IsNewEntry(entry, access.VRLEntry)) return {Completion_BadField};

    LOG_VRL_RESPONSE response = {};
    response.Header.SubType = SubType_LogVrl;
    response.Header.Status = static_cast<BYTE>(m_Faults.Status);
    response.Header.Size = sizeof response.AssignedEventNumber;
    if (m_Faults.Status == 0) {
        response.AssignedEventNumber = static_cast<DWORD>(GetLog().size() + 1);
        entry.dwEvtNumber = response.AssignedEventNumber;
        std::memcpy(access.VRLEntry, &entry, sizeof entry);
        m_Entries.append(reinterpret_cast<const char*>(access.VRLEntry), entry.wEvtLength);
        m_State.Write(m_Entries);
    }
    Bytes bytes(1 + sizeof response, Completion_OK);
    std::memcpy(bytes.data() + 1, &response, sizeof response);
    return bytes;
}

std::vector<EventLogEntry> CBmc::GetLog()
{
    const CServerFolder::Lock lock(m_Folder);
    std::optional<std::string> read;
    if (m_State.Refresh(read)) m_Entries = read.value_or("");
    const std::string& bytes = m_Entries;
    std::vector<EventLogEntry> log;
    for (std::size_t offset = 0; offset < bytes.size();) {
        _evtLogHdr entry = {};
        std::memcpy(&entry, bytes.data() + offset, std::min(bytes.size() - offset, sizeof entry));
        if (entry.wEvtLength <= sizeof entry || entry.wEvtLength > bytes.size() - offset)
            m_State.RefuseContents("an entry is not whole");
        const char* pszText = bytes.data() + offset + sizeof entry;
        log.push_back({entry.dwEvtNumber, entry.wClass, entry.wCode, entry.bSeverity, TimeText(entry.InitTime),
                       std::string(pszText, strnlen(pszText, entry.wEvtLength - sizeof entry))});
        offset += entry.wEvtLength;
    }
    return log;
}

}  // namespace sim
