#pragma once

#include <set>

#include <winsock2.h>
#include <windows.h>

/// Kernel handles that a process has open, out of the system's own table; 0 when the table can't be read.
unsigned long long CountHandles(DWORD dwProcessId);

/// The same of several processes together, less their registry keys.
unsigned long long CountHandlesButKeys(const std::set<DWORD>& processIds);
