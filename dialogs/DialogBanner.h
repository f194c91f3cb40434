#pragma once

#include <winsock2.h>
#include <windows.h>

#include "Include/Handles.h"

/// The banner of a dialog: the template's own picture, or a finer one on screens of more than 96 dots per
/// inch. One object a dialog. Main thread.
class CDialogBanner
{
  public:
    /// At WM_INITDIALOG. False when the finer picture is wanted and isn't there; the template's own stays.
    bool Show(HWND hDlg, int nControl);

    /// At WM_DESTROY: frees whatever is shown.
    void TakeOff(HWND hDlg, int nControl);

  private:
    CGdiObject m_hFine;
};
