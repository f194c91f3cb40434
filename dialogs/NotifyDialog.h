#pragma once

#include <winsock2.h>
#include <windows.h>

/*
 * The notification popup: who has connected, who has left, or who is connected now. Modeless; IDD_NOTIFY with
 * the CTaskBarWindow as parameter, which whoever creates it stores in GWLP_USERDATA as well. One at a time.
 * Main thread.
 */

// Private messages of the popup.
enum NOTIFY_MESSAGE : UINT
{
    WM_PLAY_NOTIFY_SOUND = WM_USER + 3, // posted by the popup to itself: 0, NOTIFY_SOUND
};
static_assert(WM_PLAY_NOTIFY_SOUND == 1027);

// WM_PLAY_NOTIFY_SOUND
enum NOTIFY_SOUND : LPARAM
{
    CONNECT_SOUND = 0,
    DISCONNECT_SOUND = 1,
};

constexpr UINT_PTR TIMER_CLOSE_NOTIFY = 222; // one at a time: close the popup

/// The procedure of IDD_NOTIFY, called by the system.
INT_PTR CALLBACK NotifyWndProc(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam);
