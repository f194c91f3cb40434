#pragma once

#include <winsock2.h>
#include <windows.h>

#include <string_view>

/*
 * The Join attended session dialog: takes an invitation's text. Modal; IDD_JOIN_ATTENDED_SESSION with a
 * zeroed MSG_REVERSE_CONNECTION as parameter. It ends with IDOK when the record holds the text, else with
 * IDCANCEL, also when the tray window finds that the service has taken over. Main thread.
 */

// The dialog's window while there is one, else null: there is one at a time.
extern HWND g_hJoinAttendedSessionDlg;

/// The procedure of IDD_JOIN_ATTENDED_SESSION, called by the system.
INT_PTR CALLBACK JoinAttendedSessionProc(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam);

/// An invitation without the blanks and line breaks at its ends; a tab belongs to the text. Any thread.
std::wstring_view TrimInvitation(std::wstring_view text);
