#pragma once

#include <winsock2.h>
#include <windows.h>

#include "Include/Handles.h"

/// What the painted dialogs have in common: the gradient behind their controls, and the product's icon. In
/// high contrast there is neither gradient nor colour of their own, but the system's for a window and its
/// text. One object a dialog; it must outlive the dialog's window. Main thread.
class CDialogBackground
{
  public:
    /// At WM_INITDIALOG: loads the gradient and the icon, as far as the system has them.
    void Load();

    /// At WM_DESTROY. The gradient goes for all dialogs.
    void Unload();

    /// Makes the brush that stands in when the gradient has become unavailable, if there is none yet.
    void CreatePlainBrush();

    /// Whether the gradient is painted; it can become unavailable while the dialog is there.
    bool HasGradient() const { return m_bGradient; }

    /// At WM_PAINT, before anything else is drawn. When the gradient fails, the dialog is painted again in
    /// the plain colours of its kind. In high contrast the device context gets the colour for text.
    void Paint(HWND hDlg, HDC hDC);

    /// At WM_SYSCOLORCHANGE and its kin: paints the dialog again at once, in the colours of now.
    void FollowColors(HWND hDlg);

    /// At WM_SETTINGCHANGE, with its wParam: the same where the setting is that of high contrast.
    void FollowSetting(HWND hDlg, WPARAM wSetting);

    /// With its top left corner at that place of the device context.
    void DrawProductIcon(HDC hDC, POINT at) const;

    /// The same in the top left corner of a control, where the dialog has it.
    void DrawProductIconAt(HWND hDlg, HDC hDC, int nControl) const;

    /// The dialog procedure's answer to WM_CTLCOLORDLG and WM_CTLCOLORSTATIC.
    INT_PTR AnswerControlColor(HWND hDlg, HDC hDC) const;

    /// The same for a dialog that has the plain colour of its own where there is no gradient.
    INT_PTR AnswerPlainControlColor(HWND hDlg, HDC hDC) const;

    /// Lets a read-only edit control stand on the gradient: it has no background of its own to scroll, so its
    /// part of the dialog's is drawn under it whenever its text moves.
    void LayUnder(HWND hEdit);

  private:
    static LRESULT CALLBACK EditProcedure(HWND hEdit, UINT uMessage, WPARAM wParam, LPARAM lParam,
                                          UINT_PTR uSubclass, DWORD_PTR dwBackground);
    void EraseEdit(HWND hEdit, HDC hDC) const;
    bool ShowsGradient() const { return m_bGradient && !m_bHighContrast; }

    bool m_bGradient = false;
    bool m_bHighContrast = false; // as the system has said last
    CIcon m_hIcon;
    COLORREF m_crText = 0;
    CGdiObject m_hPlainBrush;
};
