#include "sim/processor/registers.h"

#include <algorithm>
#include <iterator>

namespace sim
{

namespace
{

const std::size_t MaxState = 65536;  // bytes of registers.json

const struct
{
    const char* File;
    DWORD Operation;
    bool Writes;
} Accesses[] = {
    {"MEMID", IoAccessOp_GetMEMID, false}, {"GPI", IoAccessOp_GetGPI, false},    {"CPLD", IoAccessOp_GetCPLD, false},
    {"GPO", IoAccessOp_PutGPO, true},      {"CPLD", IoAccessOp_PutCPLD, true},   {"GPIEN", IoAccessOp_GetGPIEN, false},
    {"GPIST", IoAccessOp_GetGPIST, false}, {"GPIEN", IoAccessOp_PutGPIEN, true}, {"GPIST", IoAccessOp_PutGPIST, true},
    {"GPO", IoAccessOp_GetGPO, false},     {"XPLD", IoAccessOp_GetXPLD, false},  {"XPLD", IoAccessOp_PutXPLD, true},
};

}  // namespace

CRegisters::CRegisters(const Files& shipped, CServerFolder& folder, CJournal& journal)
    : m_State(folder, "registers.json", MaxState), m_Journal(journal), m_Shipped(shipped), m_Files(shipped)
{
    Load();
}

void CRegisters::Load()
{
    m_State.RefreshFields([this](CFields& fields) {
        m_Files = m_Shipped;
        for (const std::string& name : fields.Keys()) m_Files[name] = fields.Numbers<std::uint8_t>(name.c_str());
    });
}

bool CRegisters::Access(DWORD operation, DWORD index, BYTE& value)
{
    Load();
    const auto access = std::find_if(std::begin(Accesses), std::end(Accesses),
                                     [=](const auto& candidate) { return candidate.Operation == operation; });
    if (access == std::end(Accesses)) return false;
    const auto file = m_Files.find(access->File);
    if (file == m_Files.end() || index >= file->second.size()) return false;
    if (!access->Writes) {
        // One operation wants the index in the place of the value too.
        if (value != (operation == IoAccessOp_GetGPO ? static_cast<BYTE>(index) : 0)) return false;
        value = file->second[index];
        return true;
    }
    m_Journal.Write("register %s[%u] = 0x%02X", access->File, index, value);
    file->second[index] = value;
    m_State.WriteObject(Json(m_Files));
    return true;
}

}  // namespace sim
