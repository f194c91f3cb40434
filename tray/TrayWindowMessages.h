#pragma once

#include <winsock2.h>
#include <windows.h>

/*
 * Private messages of the tray window. A line each: who sends it, what wParam and lParam carry, who frees
 * them.
 */
enum TRAY_WINDOW_MESSAGE : UINT
{
    WM_AGENT_INIT = WM_USER + 6,            // WM_CREATE, posted: 0, 0
    WM_SERVICE_CHANNEL_LOST = WM_USER + 12, // the reader thread as it ends, posted: 0, 0
};
static_assert(WM_AGENT_INIT == 1030 && WM_SERVICE_CHANNEL_LOST == 1036);
