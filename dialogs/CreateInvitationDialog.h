#pragma once

#include <winsock2.h>
#include <windows.h>

/*
 * The dialog in which the person at the desktop makes an invitation: it collects what the invitation is to
 * allow, has the service make it, and shows the finished text, to be copied or saved. It may make any number
 * in a row. Modal; IDD_CREATE_INVITATION with the CTaskBarWindow, whose settings say what may be allowed, as
 * parameter. One at a time. Main thread.
 */

// The dialog's window while there is one, else null.
extern HWND g_hCreateInvitationDlg;

/// The procedure of IDD_CREATE_INVITATION, called by the system.
INT_PTR CALLBACK CreateInvitationWndProc(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam);

/// Enables (bEnable non-zero) or disables the text and the ways out for it; the focus leaves what is
/// disabled.
void EnableCreateWindows(HWND hDlg, int bEnable);

/// Has the service delete all invitations and shows what became of them, in a box that goes away by itself.
/// hDlg is the dialog, and open. 1 when a good answer came, else 0, and nothing is shown.
int DeleteAllInvitations(HWND hDlg);

/// Fills the box with the proxies of the current user, selects the last one and shows the last port; ticks
/// the boxes that were ticked, and enables what they govern. 1, or 0 when the key can't be opened.
int LoadInvitationProxyList(HWND hCombo, HWND hDlg);

/// Adds the proxy to the box if it isn't there, and stores the box with the last proxy and port and the state
/// of the boxes. 1, or 0 when the key can't be made.
int SaveInvitationProxyList(HWND hCombo, HWND hDlg, const wchar_t* pszHost, DWORD dwPort);
