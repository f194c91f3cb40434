#pragma once

#include <winsock2.h>
#include <windows.h>

/// The waiting window: a moving bar, and a button that gives the attempt up. Modeless;
/// IDD_CONNECT_IN_PROGRESS, owned by the tray window, which it tells by WM_JOIN_SESSION_STATE. Cancelling
/// hides it; the tray window destroys it when the service reports the attempt's end. Main thread.
INT_PTR CALLBACK ConnectInProgressProc(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam);
