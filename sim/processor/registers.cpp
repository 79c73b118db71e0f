#include "sim/processor/registers.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace sim
{

namespace
{

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

CRegisters::CRegisters(const Files& shipped, const std::filesystem::path& folder, CJournal& journal)
    : m_File(folder / "registers.json"), m_Journal(journal), m_Files(shipped)
{
    std::ifstream file(m_File);
    if (!file) return;
    try {
        m_Files = nlohmann::json::parse(file).get<Files>();
    } catch (const nlohmann::json::exception&) {
        throw std::runtime_error(m_File.string() + " does not hold registers");
    }
}

bool CRegisters::Access(DWORD operation, DWORD index, BYTE& value)
{
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
    Save();
    return true;
}

void CRegisters::Save() const
{
    if (!(std::ofstream(m_File) << nlohmann::json(m_Files).dump() << '\n').flush())
        throw std::runtime_error("Can't write " + m_File.string());
}

}  // namespace sim
