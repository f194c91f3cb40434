#pragma once

#include <winsock2.h>
#include <windows.h>

constexpr size_t MAX_DESKTOP_NAME = 260; // characters, terminator included

constexpr wchar_t SECURE_DESKTOP_NAME[] = L"Winlogon";
constexpr wchar_t SCREEN_SAVER_DESKTOP_NAME[] = L"Screen-saver";

/// The name of a desktop into a buffer of cbName bytes, terminator included. False, with the last error, when
/// it can't be read or doesn't fit; the buffer is then as it was. Any thread.
bool ReadDesktopName(HDESK hDesktop, wchar_t* pszName, DWORD cbName);

/// The name of the desktop that has the user's input now. False, with the last error, when there is none that
/// this process may look at. Any thread.
bool ReadInputDesktopName(wchar_t (&szName)[MAX_DESKTOP_NAME]);

/// True while a screen saver runs; false as well when the system can't tell. Any thread.
bool IsScreenSaverRunning();
