#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstddef>
#include <string>
#include <vector>

/*
 * Which Windows this is, which versions files have, and with which rights the process runs. Any thread.
 */

/// The true version, which the documented functions hide from programs that don't declare it. False when the
/// system won't tell; pVersion is then of no use.
bool GetRtlVersion(OSVERSIONINFOEXW* pVersion);

/// Whether the system is at least that version, the service pack counting only in the same version. False
/// also when the version isn't known.
bool IsWindowsVersionEqualOrGreater(unsigned short major, unsigned short minor, unsigned short servicePack);

/// The same for Windows 10.
bool IsWindows10OrGreater();

/// A file's version block; empty when it has none.
std::vector<std::byte> ReadVersionBlock(const wchar_t* pszPath);

/// A text of a version block ("FileVersion") in the block's first language and code page; empty when there is
/// none.
std::wstring ReadVersionText(const std::vector<std::byte>& block, const wchar_t* pszName);

/// The first number of a file's version block; 0 when it can't be read.
int GetFileMajorVersion(const wchar_t* pszPath);

/// Whether the process runs with an administrator's rights; true as well on a system that can't tell.
bool IsUserAdmin();
