#pragma once

#include <winsock2.h>
#include <windows.h>

/*
 * Private messages and timers of the tray window; its commands are numbered beside its menus in
 * resources/resource.h. A line each: who sends it, what wParam and lParam carry, who frees them. Posted
 * unless the line says sent.
 */
enum TRAY_WINDOW_MESSAGE : UINT
{
    WM_TRAY_NOTIFY = WM_USER + 1,           // the shell: icon id, mouse message
    WM_SHOW_NOTIFY_DLG = WM_USER + 2,       // NotifyConnect, NotifyAll: NOTICE_KIND, 0
    WM_AGENT_INIT = WM_USER + 6,            // WM_CREATE: 0, 0
    WM_CLOSE_NOTIFY_DLG = WM_USER + 7,      // NotifyDisconnect, sent: 0, 1
    WM_SHOW_SERVICE_MESSAGE = WM_USER + 8,  // the reader, when m_szServiceMessage is filled: 0, 0
    WM_SHOW_DISCONNECT_DLG = WM_USER + 10,  // NotifyDisconnect: 0, 0
    WM_SERVICE_CHANNEL_LOST = WM_USER + 12, // the reader as it ends: 0, 0
    WM_SFT_DROP_WINDOW = WM_USER + 14, // sent: DROP_WINDOW_ACTION, the list's record or its client's id. To a
                                       // drop window: 0, 0, and it means close
    WM_JOIN_SESSION_STATE = WM_USER + 17,     // the reader, the wait dialog: JOIN_SESSION_STATE, 0
    WM_RC_CHAT_MESSAGE_SENT = WM_USER + 1059, // the chat window, sent: its record, bytes
    WM_CHAT_OPEN = WM_USER + 1060,            // the reader, sent: its MSG_TRAYICON_CHAT_OPEN, 0
    WM_CHAT_MESSAGE = WM_USER + 1061,         // the reader, sent: its MSG_CHAT_MESSAGE, 0
    WM_CHAT_CLOSE = WM_USER + 1062,           // the reader, sent: 0, 0
    WM_CHAT_AGENT_ALIVE = WM_USER + 1064,     // whoever asks, sent: answered with 1
    WM_CHAT_WINDOW_GONE = WM_USER + 1065,     // the chat window as it closes, sent: 0, 0
    WM_CHAT_USER_DISCONNECTED =
        WM_USER + 1066,                      // to the chat window, sent: the reader's CHAT_CONNECT_NOTICE, 0
    WM_CHAT_USER_CONNECTED = WM_USER + 1067, // to the chat window, sent: the reader's CHAT_CONNECT_NOTICE, 0
    WM_HIDE_JOIN_INTERNET_SESSION_DLG = WM_APP + 1, // to the join dialog: 0, 0
    WM_SHOW_ONE_TIME_AGENT_BALLON = WM_APP + 2,     // AddTrayIcon: 0, 0
};
static_assert(WM_TRAY_NOTIFY == 1025 && WM_SHOW_NOTIFY_DLG == 1026 && WM_AGENT_INIT == 1030 &&
              WM_CLOSE_NOTIFY_DLG == 1031 && WM_SHOW_SERVICE_MESSAGE == 1032 &&
              WM_SHOW_DISCONNECT_DLG == 1034 && WM_SERVICE_CHANNEL_LOST == 1036 &&
              WM_SFT_DROP_WINDOW == 1038 && WM_JOIN_SESSION_STATE == 1041);
static_assert(WM_RC_CHAT_MESSAGE_SENT == 2083 && WM_CHAT_OPEN == 2084 && WM_CHAT_MESSAGE == 2085 &&
              WM_CHAT_CLOSE == 2086 && WM_CHAT_AGENT_ALIVE == 2088 && WM_CHAT_WINDOW_GONE == 2089 &&
              WM_CHAT_USER_DISCONNECTED == 2090 && WM_CHAT_USER_CONNECTED == 2091);
static_assert(WM_HIDE_JOIN_INTERNET_SESSION_DLG == 32769 && WM_SHOW_ONE_TIME_AGENT_BALLON == 32770);

// WM_SHOW_NOTIFY_DLG
enum NOTICE_KIND : WPARAM
{
    SHOW_CONNECT_NOTICE = 0,
    SHOW_EVERYONE_NOTICE = 1,
};

// WM_SFT_DROP_WINDOW
enum DROP_WINDOW_ACTION : WPARAM
{
    DROP_WINDOW_CREATE = 1000, // for the record in lParam
    DROP_WINDOW_FORGET = 1001, // the client's whose id is in lParam; 0: all
};

// WM_JOIN_SESSION_STATE
enum JOIN_SESSION_STATE : WPARAM
{
    JOIN_SESSION_SHOW_WAIT = 0,
    JOIN_SESSION_CLOSE_WAIT = 1,
    JOIN_SESSION_CANCEL = 2,
};

// Timers of the tray window. Each is killed as it fires; only TIMER_DESKTOP_READY goes on until its condition
// holds.
enum TRAY_WINDOW_TIMER : UINT_PTR
{
    TIMER_CONNECT_NOTICE = 1002,  // the burst of messages is over: tell who connected
    TIMER_TRAY_RETRY = 1006,      // try the icon again
    TIMER_SETTINGS_DIALOG = 1010, // open the settings
    TIMER_DESKTOP_READY = 1025,   // look for the shell
    TIMER_DESKTOP_OPTIONS = 1026, // the shell has had time to settle: apply the desktop options
};
