#pragma once

#include <winsock2.h>
#include <windows.h>

/*
 * The Connect to client dialog: where the service shall connect to, perhaps through a proxy. It remembers the
 * hosts and proxies that were used; a secret it never stores. Modal; IDD_CONNECT_TO_CLIENT with a zeroed
 * MSG_REVERSE_CONNECTION as parameter, its bProxyAllowed filled in. It ends with IDOK when the record is
 * filled, else with IDCANCEL. The secret then stands in the record: whoever owns that wipes it. Main thread.
 */

// The dialog's window while there is one, else null: there is one at a time.
extern HWND g_hConnectToClientDlg;

/// The procedure of IDD_CONNECT_TO_CLIENT, called by the system.
INT_PTR CALLBACK ConnectToClient(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam);

/// Fills the box with the hosts of the current user, selects the last one and shows the last port. 1, or 0
/// when the key can't be opened.
int LoadHostList(HWND hCombo, HWND hDlg);

/// Adds the host to the box if it isn't there, and stores the box with the last host and port. 1, or 0 when
/// the key can't be made.
int SaveHostList(HWND hCombo, const wchar_t* pszHost, DWORD dwPort);

/// As LoadHostList for the proxies; also ticks the boxes that were ticked, and enables what they govern.
int LoadProxyList(HWND hCombo, HWND hDlg);

/// As SaveHostList for the proxies; also stores the state of the boxes.
int SaveProxyList(HWND hCombo, HWND hDlg, const wchar_t* pszHost, DWORD dwPort);
