// How a call of the C library is taken over.
#pragma once

#include <dlfcn.h>

#define ENTRY_POINT extern "C" __attribute__((visibility("default")))

// Who called the entry point that this stands in.
#define CALLER __builtin_return_address(0)

namespace sim
{

// The function that would have been called but for us.
template <typename Function>
Function* Next(Function*, const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace sim

#define NEXT(function) static auto* const next = sim::Next(static_cast<decltype(&(function))>(nullptr), #function)
