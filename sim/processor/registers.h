// The server's hardware registers: files of single bytes.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "sim/base/journal.h"
#include "sim/base/state.h"
#include "smif.h"

namespace sim
{

class CRegisters
{
  public:
    using Files = std::map<std::string, std::vector<std::uint8_t>>;

    // The files stand in registers.json in the folder once something was written; until then they are the shipped ones.
    CRegisters(const Files& shipped, CServerFolder& folder, CJournal& journal);

    // Does an IoAccessOp: reads into value or writes it. False when there is no such operation or register.
    bool Access(DWORD operation, DWORD index, BYTE& value);

  private:
    void Load();

    CStateFile m_State;
    CJournal& m_Journal;
    const Files m_Shipped;
    Files m_Files;
};

}  // namespace sim
