#pragma once

#include <winsock2.h>
#include <windows.h>

#include "channel/TrayMessages.h"

#include <memory>

/*
 * The drop window: files that are dropped on it, or copied and pasted into it, are sent to one client.
 * Modeless; IDD_DROP with the client's record as parameter, which whoever creates it stores in GWLP_USERDATA
 * as well. WM_SFT_DROP_WINDOW closes it; when it closes by itself it tells the tray window. Main thread.
 *
 * What it paints and what it offers to OLE is of the window that came last: one window at a time works in
 * full, and when the earlier of two closes nothing can be dropped on the later any more.
 */
INT_PTR CALLBACK SFTDropWndProc(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam);

/// Keeps a drop window's record for as long as the window is there. Main thread.
void HoldDropRecord(HWND hWnd, std::shared_ptr<const MSG_TRAYICON_SFT_DROP_CLIENT> pRecord);
