#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstddef>

/*
 * The About dialog: versions and addresses for whoever helps on the telephone. Modal; IDD_ABOUT with the
 * MSG_TRAYICON_IP_ADDRESSES as parameter. It closes by itself, after a while or when it is left. Main thread.
 */

constexpr UINT_PTR TIMER_CLOSE_ABOUT = 111; // close the dialog

/// The procedure of IDD_ABOUT, called by the system.
INT_PTR CALLBACK AboutWndProc(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam);

/// Puts the dialog's lines on the clipboard. 1, or 0 with the last error of the step that failed.
int CopyToClipboard(HWND hWnd);

/// The version of the service's program, in dotted form, in a buffer of cchVersion characters. 0 when the
/// program has no version block, else 1; the buffer stays as it was where the block holds no version.
int GetExeVersion(wchar_t* pszVersion, size_t cchVersion);
