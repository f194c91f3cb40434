#pragma once

#include <winsock2.h>
#include <windows.h>

/*
 * The permission prompt: the person at the desktop allows or denies a connection. It lives in a process of
 * its own, which talks to the service over a datagram socket: request, prompt, and exactly one answer.
 * Whatever isn't the allow button is no consent; what a refusal or an expired countdown leads to is the
 * service's decision. Main thread, unless a line says otherwise.
 */

// Private messages of the dialog.
enum PERMISSION_MESSAGE : UINT
{
    WM_PERMISSION_WITHDRAWN = WM_USER + 11, // posted by the watcher: 0, 0
};
static_assert(WM_PERMISSION_WITHDRAWN == 1035);

constexpr UINT_PTR TIMER_PERMISSION_COUNTDOWN = 888; // a second is over

/// The whole exchange on that UDP port; nAfType is its address family. 1 when the prompt was shown, whatever
/// the answer; 0 otherwise, also when the service was told that nobody can be asked.
int CreatePermissionDialog(int nPort, int nAfType);

/// Starts the watcher for that dialog, on a thread that nobody joins. 1 when it runs, else 0.
int CreatePermissionThread(HWND hDlg);

/// The watcher: tells the dialog, its argument, when the service withdraws the prompt. It ends with the
/// socket, and touches nothing of the dialog but its message queue. A thread of its own; the result means
/// nothing.
unsigned int WINAPI PermissionThread(void* hDlg);

/// The procedure of IDD_PERMISSION, called by the system.
INT_PTR CALLBACK PermissionWndProc(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam);
