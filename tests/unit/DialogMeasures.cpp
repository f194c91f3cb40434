#include "tests/unit/DialogMeasures.h"

#include <iterator>

namespace
{
constexpr double ROOM_TO_SPARE = 1.1;

std::wstring ClassOf(HWND hControl)
{
    wchar_t szClass[16] = {};
    GetClassNameW(hControl, szClass, static_cast<int>(std::size(szClass)));
    return szClass;
}

bool IsOfClass(HWND hControl, const wchar_t* pszClass)
{
    return lstrcmpiW(ClassOf(hControl).c_str(), pszClass) == 0;
}

bool HasShortcutKeys(HWND hControl)
{
    return IsOfClass(hControl, L"Button") ||
           (IsOfClass(hControl, L"Static") && (GetWindowLongPtrW(hControl, GWL_STYLE) & SS_NOPREFIX) == 0);
}

// What a text takes in the control's font; on several lines of that width where the flags say so.
SIZE MeasureText(HWND hControl, const std::wstring& text, LONG nWidth, UINT uFlags)
{
    const HDC hDC = GetDC(hControl);
    const HGDIOBJ hOldFont =
        SelectObject(hDC, reinterpret_cast<HGDIOBJ>(SendMessageW(hControl, WM_GETFONT, 0, 0)));
    RECT rect = {0, 0, nWidth, 0};
    DrawTextW(hDC, text.c_str(), static_cast<int>(text.size()), &rect, DT_CALCRECT | uFlags);
    SelectObject(hDC, hOldFont);
    ReleaseDC(hControl, hDC);
    return text.empty() ? SIZE{0, 0} : SIZE{rect.right, rect.bottom};
}
} // namespace

std::vector<HWND> ControlsOf(HWND hDialog)
{
    std::vector<HWND> controls;
    for (HWND hControl = GetWindow(hDialog, GW_CHILD); hControl != nullptr;
         hControl = GetWindow(hControl, GW_HWNDNEXT))
    {
        controls.push_back(hControl);
    }
    return controls;
}

std::wstring TextOf(HWND hControl)
{
    std::wstring text(static_cast<size_t>(GetWindowTextLengthW(hControl)) + 1, L'\0');
    text.resize(static_cast<size_t>(GetWindowTextW(hControl, text.data(), static_cast<int>(text.size()))));
    return text;
}

RECT PlaceInDialog(HWND hDialog, HWND hControl)
{
    RECT rect = {};
    GetWindowRect(hControl, &rect);
    MapWindowPoints(nullptr, hDialog, reinterpret_cast<POINT*>(&rect), 2);
    return rect;
}

wchar_t MarkedKey(const std::wstring& text)
{
    const size_t nMark = text.find(L'&');
    return nMark == std::wstring::npos || nMark + 1 >= text.size()
               ? L'\0'
               : static_cast<wchar_t>(reinterpret_cast<ULONG_PTR>(
                     CharLowerW(reinterpret_cast<LPWSTR>(static_cast<ULONG_PTR>(text[nMark + 1])))));
}

wchar_t ShortcutKey(HWND hControl)
{
    return HasShortcutKeys(hControl) ? MarkedKey(TextOf(hControl)) : L'\0';
}

// Where the control has room for more than one line, its text may take several.
bool HasRoomToSpare(HWND hControl)
{
    const std::wstring text = TextOf(hControl);
    RECT client = {};
    GetClientRect(hControl, &client);
    const LONG nLineHeight = MeasureText(hControl, L"X", client.right, DT_SINGLELINE).cy;
    const bool bWraps = IsOfClass(hControl, L"Static") && client.bottom >= 2 * nLineHeight;
    const SIZE needed = MeasureText(hControl, text, static_cast<LONG>(client.right / ROOM_TO_SPARE),
                                    bWraps ? UINT{DT_WORDBREAK} : 0);
    return needed.cx * ROOM_TO_SPARE <= client.right && needed.cy <= client.bottom;
}

bool HasRoomToSpareFor(HWND hControl, const std::wstring& text, LONG nWidth)
{
    return MeasureText(hControl, text, nWidth, DT_SINGLELINE | DT_NOPREFIX).cx * ROOM_TO_SPARE <= nWidth;
}
