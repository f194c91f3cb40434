#pragma once

#include <winsock2.h>
#include <windows.h>

/*
 * Questions to Windows about the logon session. Each works on systems that lack the functions behind it, with
 * the answer that its line gives. Most clear the last error; none leaves one with a meaning.
 */

/// The session on the console. False, with *pdwId untouched, when there is none. Takes a second, so it is not
/// for a thread that owns windows.
bool GetActiveConsoleID(unsigned long* pdwId);

/// The first session that is active. False, with *pdwId untouched, when there is none. Any thread.
bool GetActiveSessionID(unsigned long* pdwId);

/// The session of this process; 0 when the system can't tell. Any thread.
DWORD GetSessionID();

/// Whether somebody is connected to this process's session. Takes a second where the session's state can't be
/// asked for; any thread for which that is no harm.
bool IsSessionActive();

/// Whether this process's session is locked, which Windows 10 and later can tell; false when the question
/// can't be put. Takes a second, so it is not for a thread that owns windows.
bool IsSessionLockedWindows10();

/// Whether the shell has come up in this session. Any thread.
bool IsUserDesktopInitialized();

/// Asks the system to send hWnd the changes of this session (WM_WTSSESSION_CHANGE). Result: whether it will.
/// The window's thread.
bool RegisterSessionNotification(HWND hWnd);

/// Takes RegisterSessionNotification back. The window's thread.
void UnRegisterSessionNotification(HWND hWnd);
