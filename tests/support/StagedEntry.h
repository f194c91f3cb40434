#pragma once

#include "Include/SystemCall.h"

#include <cstdio>
#include <cstdlib>

/// The entry of a staged module. Ends the program when the module was not loaded or lacks the entry.
template <typename Function>
Function FindStagedEntry(HMODULE hModule, const char* pszName)
{
    const Function pfnEntry = hModule != nullptr ? FindModuleEntry<Function>(hModule, pszName) : nullptr;
    if (pfnEntry == nullptr)
    {
        std::fprintf(stderr, "no staged module with %s\n", pszName);
        std::abort();
    }
    return pfnEntry;
}
