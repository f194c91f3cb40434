#include "dialogs/DialogBackground.h"

#include "Include/HighContrast.h"
#include "dialogs/DialogControls.h"
#include "dialogs/GradientFill.h"
#include "resources/resource.h"
#include "startup/TKDAST.h"

#include <commctrl.h>

namespace
{
constexpr COLORREF PLAIN_COLOR = 0xF6DAC4; // between the two of the gradient
constexpr UINT_PTR EDIT_SUBCLASS = 1;

int FillWithGradient(HDC hDC, const RECT& rect)
{
    return FillGradientRect(hDC, &rect, GRADIENT_TOP_COLOR, GRADIENT_BOTTOM_COLOR, FALSE);
}

// The brush is the system's own: it follows the scheme and is nobody's to free.
INT_PTR AnswerInSystemColors(HWND hDlg, HDC hDC)
{
    SetTextColor(hDC, GetSysColor(COLOR_WINDOWTEXT));
    SetBkColor(hDC, GetSysColor(COLOR_WINDOW));
    SetWindowLongPtrW(hDlg, DWLP_MSGRESULT, 1);
    return reinterpret_cast<INT_PTR>(GetSysColorBrush(COLOR_WINDOW));
}

// Messages after which an edit control has moved its text, or drawn over it, without erasing what was there.
bool MovesText(UINT uMessage, WPARAM wParam)
{
    switch (uMessage)
    {
    case WM_VSCROLL:
    case WM_HSCROLL:
    case WM_MOUSEWHEEL:
    case WM_KEYDOWN:
    case WM_CHAR:
    case WM_LBUTTONDOWN:
    case WM_LBUTTONUP:
    case WM_LBUTTONDBLCLK:
    case WM_TIMER: // a selection that is dragged beyond the edge
    case WM_SETFOCUS:
    case WM_KILLFOCUS:
    case WM_SETTEXT:
    case EM_SETSEL:
    case EM_SCROLL:
    case EM_LINESCROLL:
    case EM_SCROLLCARET:
        return true;
    case WM_MOUSEMOVE:
        return (wParam & MK_LBUTTON) != 0;
    default:
        return false;
    }
}
} // namespace

void CDialogBackground::Load()
{
    m_bGradient = LoadGradientFill() != 0;
    m_bHighContrast = IsHighContrast();
    // Its own: not every system shares the icons of a module that holds data alone.
    m_hIcon.reset(static_cast<HICON>(
        LoadImageW(g_hResourceModule, MAKEINTRESOURCEW(IDI_TRAY_IDLE), IMAGE_ICON, 0, 0, LR_DEFAULTSIZE)));
}

void CDialogBackground::Unload()
{
    m_hIcon.reset();
    m_hPlainBrush.reset();
    UnloadGradientFill();
}

void CDialogBackground::CreatePlainBrush()
{
    if (!m_hPlainBrush)
    {
        m_hPlainBrush.reset(CreateSolidBrush(PLAIN_COLOR));
    }
}

void CDialogBackground::Paint(HWND hDlg, HDC hDC)
{
    if (m_bHighContrast)
    {
        SetTextColor(hDC, GetSysColor(COLOR_WINDOWTEXT));
    }
    if (!ShowsGradient())
    {
        return;
    }
    RECT client = {};
    GetClientRect(hDlg, &client);
    m_bGradient = FillWithGradient(hDC, client) != 0;
    if (!m_bGradient)
    {
        InvalidateRect(hDlg, nullptr, TRUE); // nothing has been erased for the gradient's sake
    }
}

void CDialogBackground::FollowColors(HWND hDlg)
{
    m_bHighContrast = IsHighContrast();
    PaintAnew(hDlg);
}

void CDialogBackground::FollowSetting(HWND hDlg, WPARAM wSetting)
{
    if (wSetting == SPI_SETHIGHCONTRAST)
    {
        FollowColors(hDlg);
    }
}

void CDialogBackground::DrawProductIcon(HDC hDC, POINT at) const
{
    DrawIcon(hDC, at.x, at.y, m_hIcon.get());
}

void CDialogBackground::DrawProductIconAt(HWND hDlg, HDC hDC, int nControl) const
{
    if (GetDlgItem(hDlg, nControl) != nullptr)
    {
        const RECT place = ControlPlace(hDlg, nControl);
        DrawProductIcon(hDC, {place.left, place.top});
    }
}

INT_PTR CDialogBackground::AnswerControlColor(HWND hDlg, HDC hDC) const
{
    if (m_bHighContrast)
    {
        return AnswerInSystemColors(hDlg, hDC);
    }
    SetBkMode(hDC, TRANSPARENT);
    SetTextColor(hDC, m_crText);
    SetWindowLongPtrW(hDlg, DWLP_MSGRESULT, 1);
    return m_bGradient ? reinterpret_cast<INT_PTR>(GetStockObject(NULL_BRUSH)) : 0;
}

INT_PTR CDialogBackground::AnswerPlainControlColor(HWND hDlg, HDC hDC) const
{
    SetBkColor(hDC, PLAIN_COLOR);
    const INT_PTR nBrush = AnswerControlColor(hDlg, hDC);
    return m_bGradient || m_bHighContrast ? nBrush : reinterpret_cast<INT_PTR>(m_hPlainBrush.get());
}

void CDialogBackground::LayUnder(HWND hEdit)
{
    SetWindowSubclass(hEdit, EditProcedure, EDIT_SUBCLASS, reinterpret_cast<DWORD_PTR>(this));
}

LRESULT CALLBACK CDialogBackground::EditProcedure(HWND hEdit, UINT uMessage, WPARAM wParam, LPARAM lParam,
                                                  UINT_PTR uSubclass, DWORD_PTR dwBackground)
{
    const auto* const pBackground = reinterpret_cast<const CDialogBackground*>(dwBackground);
    if (uMessage == WM_NCDESTROY)
    {
        RemoveWindowSubclass(hEdit, EditProcedure, uSubclass);
        return DefSubclassProc(hEdit, uMessage, wParam, lParam);
    }
    if (!pBackground->ShowsGradient())
    {
        return DefSubclassProc(hEdit, uMessage, wParam, lParam);
    }
    if (uMessage == WM_ERASEBKGND)
    {
        pBackground->EraseEdit(hEdit, reinterpret_cast<HDC>(wParam));
        return 1;
    }
    const LRESULT lResult = DefSubclassProc(hEdit, uMessage, wParam, lParam);
    if (MovesText(uMessage, wParam))
    {
        InvalidateRect(hEdit, nullptr, TRUE);
    }
    return lResult;
}

void CDialogBackground::EraseEdit(HWND hEdit, HDC hDC) const
{
    const HWND hDlg = GetParent(hEdit);
    RECT rect = {};
    GetClientRect(hDlg, &rect);
    MapWindowPoints(hDlg, hEdit, reinterpret_cast<POINT*>(&rect), 2);
    if (!FillWithGradient(hDC, rect))
    {
        FillRect(hDC, &rect,
                 m_hPlainBrush ? static_cast<HBRUSH>(m_hPlainBrush.get()) : GetSysColorBrush(COLOR_3DFACE));
    }
}
