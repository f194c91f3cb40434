#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstddef>

/// Which planted modules have been loaded, in whichever process, shared between the test and the modules
/// through a file mapping of this name. Without the mapping nobody learns of a load.
constexpr wchar_t PLANTED_TRACE_NAME[] = L"Local\\TkdastTestPlantedTrace";

constexpr size_t MAX_PLANTED_LOADS = 64;

struct PLANTED_TRACE
{
    volatile LONG nLoads;                          // all of them
    wchar_t aszPaths[MAX_PLANTED_LOADS][MAX_PATH]; // of the first ones, in the order of their loading
};
