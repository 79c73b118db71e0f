#include "sim/base/conduct.h"

#include <cxxabi.h>
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>

namespace sim
{

namespace
{

// "CSystem::IpmiCommand in libflash.so", or "systemrom+0x12AB" where no exported function has the address.
std::string PlaceOf(const void* address)
{
    Dl_info info = {};
    if (!dladdr(address, &info) || !info.dli_fname) return "somebody";
    const std::string file = std::filesystem::path(info.dli_fname).filename().string();
    if (!info.dli_sname) {
        char szOffset[32];
        std::snprintf(
            szOffset, sizeof szOffset, "+0x%zX",
            static_cast<std::size_t>(static_cast<const char*>(address) - static_cast<const char*>(info.dli_fbase)));
        return file + szOffset;
    }
    const std::unique_ptr<char, decltype(&std::free)> pName(
        abi::__cxa_demangle(info.dli_sname, nullptr, nullptr, nullptr), std::free);
    const std::string function = pName ? pName.get() : info.dli_sname;
    return function.substr(0, function.find('(')) + " in " + file;
}

}  // namespace

CConduct& CConduct::Instance()
{
    static auto& conduct = *new CConduct;  // calls come in until the very end of the process
    return conduct;
}

void CConduct::Complain(const void* caller, const std::string& what)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Complaints.push_back({caller, what});
}

void CConduct::Take(Held kind, std::intptr_t thing, const void* caller, const std::string& what)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Held[{kind, thing}] = {caller, what};
}

void CConduct::GiveBack(Held kind, std::intptr_t thing)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Held.erase({kind, thing});
}

bool CConduct::IsOwn(const void* caller)
{
    static const auto baseOf = [](const void* place) {
        Dl_info info = {};
        return dladdr(place, &info) ? info.dli_fbase : nullptr;
    };
    static const void* const pOwn = baseOf(reinterpret_cast<const void*>(&CConduct::IsOwn));
    return baseOf(caller) == pOwn;
}

std::vector<std::string> CConduct::Finish()
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    for (const auto& [thing, complaint] : m_Held) m_Complaints.push_back(complaint);
    std::vector<std::string> sentences;
    for (const Complaint& complaint : m_Complaints)
        sentences.push_back(PlaceOf(complaint.Caller) + " " + complaint.What + ".");
    m_Complaints.clear();
    m_Held.clear();
    return sentences;
}

}  // namespace sim
