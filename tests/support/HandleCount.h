#pragma once

#include <optional>
#include <set>

#include <winsock2.h>
#include <windows.h>

/// Kernel handles that a process has open, or that all have, out of the system's own table; 0 when the table
/// can't be read.
unsigned long long CountHandles(std::optional<DWORD> processId);

/// Those of several processes together, less their registry keys.
unsigned long long CountHandlesButKeys(const std::set<DWORD>& processIds);
