// The management controller: answers IPMI commands and keeps the server event log.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/base/journal.h"
#include "sim/base/state.h"
#include "sim/bmc/ipmifaults.h"

namespace sim
{

struct EventLogEntry
{
    std::uint32_t Number;
    std::uint16_t Class;
    std::uint16_t Code;
    std::uint8_t Severity;
    std::string Time;  // "2026-11-24 20:15"
    std::string Text;
};

class CBmc
{
  public:
    // The log stands in vrl.bin in the folder: the entries as they came in, each with its number.
    CBmc(const IpmiFaults& faults, CServerFolder& folder, CJournal& journal);

    // The response to a command, its first byte the completion code (IPMI 2.0, 5.2).
    std::vector<std::uint8_t> Execute(std::uint8_t lun, std::uint8_t netFunction, std::uint8_t command,
                                      const std::vector<std::uint8_t>& request);

    std::vector<EventLogEntry> GetLog();

  private:
    std::vector<std::uint8_t> AccessNvram(const std::vector<std::uint8_t>& request);

    const IpmiFaults& m_Faults;
    CServerFolder& m_Folder;
    CStateFile m_State;
    CJournal& m_Journal;
    std::string m_Entries;  // as they came in
};

}  // namespace sim
