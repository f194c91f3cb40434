#pragma once

#include <winsock2.h>
#include <windows.h>

#include <string_view>

/// Puts a taskbar at one edge of the screen ("left", "top", "right", "bottom"): a window to look at, and what
/// the agent is answered when it asks where the taskbar and the work area are. False for any other word.
/// Once, to the end of the process. Main thread.
bool ShowFakeTaskbar(std::wstring_view edge);

/// Whether this is that taskbar's window. Any thread.
bool IsFakeTaskbar(HWND hWnd);
