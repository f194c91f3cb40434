#pragma once

#include <winsock2.h>
#include <windows.h>

/// A message box that goes away after a time-out, in milliseconds. hWnd may be null. Returns what MessageBoxW
/// returned: never IDYES after a time-out. Messages of the thread's windows are handled meanwhile, and they
/// must not open a second box; a dialog that they open belongs into a CModalDialogScope. On a thread with a
/// message loop, which goes on afterwards.
int TimedMessageBox(HWND hWnd, const wchar_t* pszText, const wchar_t* pszCaption, UINT uType,
                    DWORD dwTimeoutMs);

/// The time-out: ends the box's own message loop, or waits until the dialog over it has gone. Called by the
/// system.
void CALLBACK MessageBoxTimer(HWND hWnd, UINT uMessage, UINT_PTR uTimer, DWORD dwTime);

/// A modal dialog is up for as long as the object lives. What ends a box ends the innermost loop of the
/// thread, so a box that lies under a dialog keeps waiting: nobody loses what they are typing. Main thread.
class CModalDialogScope
{
  public:
    CModalDialogScope();
    ~CModalDialogScope();
    CModalDialogScope(const CModalDialogScope&) = delete;
    CModalDialogScope& operator=(const CModalDialogScope&) = delete;
};
