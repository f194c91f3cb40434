#include "dialogs/DialogControls.h"

#include "Include/BoundedText.h"
#include "Include/Product.h"
#include "Include/UtilResource.h"
#include "dialogs/PaintedFont.h"

#include <commctrl.h>

#include <cwchar>

namespace
{
constexpr int DECIMAL = 10;
constexpr int SECRET_FONT_HEIGHT = 14; // logical units
constexpr UINT_PTR LINK_SUBCLASS = 2;
constexpr UINT_PTR WALK_SUBCLASS = 3;
constexpr wchar_t KEY_MARK = L'&';
constexpr size_t MAX_BUTTON_TEXT = 260; // characters, terminator included
constexpr size_t MAX_COMPLAINT = 1024;  // characters, terminator included
constexpr size_t MAX_CLASS_NAME = 32;   // characters, terminator included

// Made once and never freed: a control goes on using it until its window is gone.
HFONT SecretFont()
{
    static const HFONT hFont = CreateFontW(SECRET_FONT_HEIGHT, 0, 0, 0, FW_BOLD, FALSE, FALSE, FALSE,
                                           ANSI_CHARSET, OUT_DEFAULT_PRECIS, CLIP_DEFAULT_PRECIS,
                                           DEFAULT_QUALITY, FIXED_PITCH | FF_MODERN, L"Microsoft Sans Serif");
    return hFont;
}

LONG LineHeight(HWND hControl)
{
    TEXTMETRICW metrics = {};
    const HDC hDC = GetDC(hControl);
    {
        const CSelectedFont font(hDC, reinterpret_cast<HGDIOBJ>(SendMessageW(hControl, WM_GETFONT, 0, 0)));
        GetTextMetricsW(hDC, &metrics);
    }
    ReleaseDC(hControl, hDC);
    return metrics.tmHeight;
}

LRESULT CALLBACK LinkProcedure(HWND hLink, UINT uMessage, WPARAM wParam, LPARAM lParam, UINT_PTR uSubclass,
                               DWORD_PTR)
{
    if (uMessage == WM_KEYDOWN && wParam == VK_RETURN)
    {
        NMHDR click = {hLink, static_cast<UINT_PTR>(GetDlgCtrlID(hLink)), static_cast<UINT>(NM_CLICK)};
        return SendMessageW(GetParent(hLink), WM_NOTIFY, click.idFrom, reinterpret_cast<LPARAM>(&click));
    }
    if (uMessage == WM_NCDESTROY)
    {
        RemoveWindowSubclass(hLink, LinkProcedure, uSubclass);
    }
    return DefSubclassProc(hLink, uMessage, wParam, lParam);
}

bool IsOfClass(HWND hWnd, const wchar_t* pszClass)
{
    wchar_t szClass[MAX_CLASS_NAME] = {};
    GetClassNameW(hWnd, szClass, static_cast<int>(MAX_CLASS_NAME));
    return lstrcmpiW(szClass, pszClass) == 0;
}

// Null where there is none. A button says itself what it is.
HWND LabelOf(HWND hControl)
{
    const HWND hBefore = GetWindow(hControl, GW_HWNDPREV);
    return IsOfClass(hBefore, WC_STATICW) && !IsOfClass(hControl, WC_BUTTONW) ? hBefore : nullptr;
}

wchar_t UpperCase(wchar_t chLetter)
{
    CharUpperBuffW(&chLetter, 1);
    return chLetter;
}

// The letter behind the mark; 0: none.
wchar_t MarkedLetter(const std::wstring& text)
{
    const size_t nMark = text.find(KEY_MARK);
    return nMark != std::wstring::npos && nMark + 1 < text.size() ? UpperCase(text[nMark + 1]) : L'\0';
}

// What else the letter may be for is left to the system.
bool PressMarkedButton(HWND hDlg, wchar_t chLetter)
{
    for (HWND hControl = GetWindow(hDlg, GW_CHILD); hControl != nullptr;
         hControl = GetWindow(hControl, GW_HWNDNEXT))
    {
        if (IsOfClass(hControl, WC_BUTTONW) && IsWindowVisible(hControl) && IsWindowEnabled(hControl) &&
            MarkedLetter(ReadControl(hDlg, GetDlgCtrlID(hControl), MAX_BUTTON_TEXT)) == UpperCase(chLetter))
        {
            SetFocus(hControl);
            SendMessageW(hControl, BM_CLICK, 0, 0);
            return true;
        }
    }
    return false;
}

// Whoever walks wants to see where.
void MoveFocusOn(HWND hDlg, bool bBack)
{
    SendMessageW(hDlg, WM_CHANGEUISTATE, MAKEWPARAM(UIS_CLEAR, UISF_HIDEFOCUS | UISF_HIDEACCEL), 0);
    SendMessageW(hDlg, WM_NEXTDLGCTL, bBack ? TRUE : FALSE, FALSE);
}

LRESULT CALLBACK WalkProcedure(HWND hControl, UINT uMessage, WPARAM wParam, LPARAM lParam, UINT_PTR uSubclass,
                               DWORD_PTR)
{
    switch (uMessage)
    {
    case WM_KEYDOWN:
        if (wParam == VK_TAB)
        {
            MoveFocusOn(GetParent(hControl), GetKeyState(VK_SHIFT) < 0);
            return 0;
        }
        break;
    case WM_CHAR:
        if (wParam == L'\t')
        {
            return 0; // of the key that has moved the focus
        }
        break;
    case WM_SYSCHAR:
        if (PressMarkedButton(GetParent(hControl), static_cast<wchar_t>(wParam)))
        {
            return 0;
        }
        break;
    case WM_NCDESTROY:
        RemoveWindowSubclass(hControl, WalkProcedure, uSubclass);
        break;
    default:
        break;
    }
    return DefSubclassProc(hControl, uMessage, wParam, lParam);
}
} // namespace

std::wstring ReadControl(HWND hDlg, int nControl, size_t cchText)
{
    std::wstring text(cchText, L'\0');
    text.resize(GetDlgItemTextW(hDlg, nControl, text.data(), static_cast<int>(cchText)));
    return text;
}

std::wstring ItemText(HWND hCombo, WPARAM wItem, size_t cchText)
{
    const LRESULT cchItem = SendMessageW(hCombo, CB_GETLBTEXTLEN, wItem, 0);
    if (cchItem <= 0)
    {
        return std::wstring();
    }
    std::wstring text(static_cast<size_t>(cchItem) + 1, L'\0');
    SendMessageW(hCombo, CB_GETLBTEXT, wItem, reinterpret_cast<LPARAM>(text.data()));
    return std::wstring(FixedText(text.data(), text.size()).substr(0, cchText - 1));
}

void ShowNumber(HWND hDlg, int nControl, DWORD dwNumber)
{
    SetDlgItemTextW(hDlg, nControl, std::to_wstring(dwNumber).c_str());
}

DWORD ParseNumber(const std::wstring& text)
{
    return static_cast<DWORD>(std::wcstol(text.c_str(), nullptr, DECIMAL));
}

RECT ControlPlace(HWND hDlg, int nControl)
{
    RECT rect = {};
    GetWindowRect(GetDlgItem(hDlg, nControl), &rect);
    MapWindowPoints(nullptr, hDlg, reinterpret_cast<POINT*>(&rect), 2);
    return rect;
}

void HideIdleScrollBar(HWND hEdit)
{
    RECT room = {};
    SendMessageW(hEdit, EM_GETRECT, 0, reinterpret_cast<LPARAM>(&room));
    if (SendMessageW(hEdit, EM_GETLINECOUNT, 0, 0) * LineHeight(hEdit) <= room.bottom - room.top)
    {
        ShowScrollBar(hEdit, SB_VERT, FALSE);
    }
}

bool IsTicked(HWND hDlg, int nBox)
{
    return IsDlgButtonChecked(hDlg, nBox) == BST_CHECKED;
}

void EnableControl(HWND hDlg, int nControl, bool bEnable)
{
    const HWND hControl = GetDlgItem(hDlg, nControl);
    EnableWindow(hControl, bEnable ? TRUE : FALSE);
    const HWND hLabel = LabelOf(hControl);
    if (hLabel != nullptr && (IsWindowEnabled(hLabel) != FALSE) != bEnable)
    {
        EnableWindow(hLabel, bEnable ? TRUE : FALSE);
    }
}

void SetSecretFont(HWND hDlg, int nControl)
{
    SendDlgItemMessageW(hDlg, nControl, WM_SETFONT, reinterpret_cast<WPARAM>(SecretFont()), TRUE);
}

void AskFor(HWND hDlg, UINT uString, int nControl)
{
    MessageBoxW(hDlg, LoadResourceText(uString, MAX_COMPLAINT).c_str(), PRODUCT_NAME, MB_ICONINFORMATION);
    if (const HWND hControl = GetDlgItem(hDlg, nControl); hControl != nullptr)
    {
        SetFocus(hControl); // with nothing there the keyboard would have no focus at all
    }
}

void TellNewText(HWND hDlg, int nControl)
{
    NotifyWinEvent(EVENT_OBJECT_NAMECHANGE, GetDlgItem(hDlg, nControl), OBJID_CLIENT, CHILDID_SELF);
}

void PassColorsOn(HWND hDlg)
{
    for (HWND hControl = GetWindow(hDlg, GW_CHILD); hControl != nullptr;
         hControl = GetWindow(hControl, GW_HWNDNEXT))
    {
        SendMessageW(hControl, WM_SYSCOLORCHANGE, 0, 0);
    }
}

void WalkByKeyboard(HWND hDlg)
{
    for (HWND hControl = GetWindow(hDlg, GW_CHILD); hControl != nullptr;
         hControl = GetWindow(hControl, GW_HWNDNEXT))
    {
        SetWindowSubclass(hControl, WalkProcedure, WALK_SUBCLASS, 0);
    }
}

void ClickLinkByEnter(HWND hDlg, int nLink)
{
    SetWindowSubclass(GetDlgItem(hDlg, nLink), LinkProcedure, LINK_SUBCLASS, 0);
}

void PaintAnew(HWND hDlg)
{
    InvalidateRect(hDlg, nullptr, TRUE);
    UpdateWindow(hDlg);
}
