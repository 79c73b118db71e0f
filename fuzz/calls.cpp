#include "fuzz/calls.h"

#include <dlfcn.h>
#include <sanitizer/allocator_interface.h>

#include <vector>

#include "zalph/str.h"

namespace
{

// The functions whose first block is never released.
void* const pFormat = dlsym(RTLD_DEFAULT, "_ZN4CStr6FormatEPKcz");
void* const pStrArrayAdd = dlsym(RTLD_DEFAULT, "_ZN9CStrArray3AddERK4CStr");

struct CBlock
{
    const volatile void* pBlock;
    const void* pFunction;
};

std::uint64_t g_Calls;
void* g_pEntered;  // one of those functions, until it has its block
std::vector<CBlock> g_Blocks;

void OnAllocation(const volatile void* pBlock, std::size_t)
{
    if (!g_pEntered) return;
    const CBlock block = {pBlock, g_pEntered};
    g_pEntered = nullptr;
    g_Blocks.push_back(block);
}

}  // namespace

extern "C" __attribute__((visibility("default"))) void __cyg_profile_func_enter(void* pFunction, void*)
{
    g_Calls++;
    if (pFunction == pFormat || pFunction == pStrArrayAdd) g_pEntered = pFunction;
}

extern "C" __attribute__((visibility("default"))) void __cyg_profile_func_exit(void*, void*) {}

void BeginCalls()
{
    static const int installed = __sanitizer_install_malloc_and_free_hooks(OnAllocation, [](const volatile void*) {});
    static_cast<void>(installed);
    g_Calls = 0;
}

std::uint64_t EndCalls()
{
    for (const CBlock& block : g_Blocks) {
        void* pBlock = const_cast<void*>(block.pBlock);
        if (block.pFunction == pFormat)
            delete[] static_cast<TCHAR*>(pBlock);
        else
            delete static_cast<CStr*>(pBlock);
    }
    g_Blocks.clear();
    return g_Calls;
}
