#include "dialogs/NotifyLayout.h"

#include "dialogs/DialogControls.h"
#include "dialogs/DialogPlacement.h"
#include "dialogs/NotifyText.h"
#include "dialogs/PaintedFont.h"
#include "resources/resource.h"

#include <algorithm>
#include <string>
#include <string_view>

namespace
{
constexpr UINT BODY_FORMAT = DT_WORDBREAK | DT_EDITCONTROL;
constexpr UINT HEAD_FORMAT = DT_WORDBREAK | DT_EDITCONTROL | DT_NOPREFIX | DT_EXPANDTABS;
static_assert(BODY_FORMAT == 8208);

constexpr LONG SCREEN_GAP = 8;         // pixels left free around the largest popup
constexpr LONG WIDTH_STEPS[] = {3, 4}; // halves of the template's width that are tried when the popup is tall

LONG WidthOf(const RECT& rect)
{
    return rect.right - rect.left;
}

LONG HeightOf(const RECT& rect)
{
    return rect.bottom - rect.top;
}

void MoveControl(HWND hWnd, int nControl, const RECT& rect)
{
    MoveWindow(GetDlgItem(hWnd, nControl), rect.left, rect.top, WidthOf(rect), HeightOf(rect), TRUE);
}

bool IsShown(HWND hWnd, int nControl)
{
    // The popup itself may not be on the screen yet.
    return (GetWindowLongPtrW(GetDlgItem(hWnd, nControl), GWL_STYLE) & WS_VISIBLE) != 0;
}

LONG MeasureText(HDC hDC, const std::wstring& text, LONG nWidth, UINT uFormat)
{
    RECT rect = {0, 0, nWidth, 0};
    DrawTextW(hDC, text.c_str(), static_cast<int>(text.size()), &rect, uFormat | DT_CALCRECT);
    return rect.bottom;
}

NOTIFY_LAYOUT ReadLayout(HWND hWnd)
{
    RECT client = {};
    GetClientRect(hWnd, &client);
    return {{client.right, client.bottom},
            ControlPlace(hWnd, IDC_NOTIFY_HEAD),
            ControlPlace(hWnd, IDC_NOTIFY_BODY),
            ControlPlace(hWnd, IDC_NOTIFY_DISCONNECT)};
}

NOTIFY_NEED MeasureNeed(HWND hWnd, HDC hDC, const NOTIFY_LAYOUT& layout, const std::wstring& paintedBody)
{
    NOTIFY_NEED need = {0, 0, IsShown(hWnd, IDC_NOTIFY_DISCONNECT)};
    {
        const CSelectedFont font(
            hDC, reinterpret_cast<HGDIOBJ>(SendDlgItemMessageW(hWnd, IDC_NOTIFY_HEAD, WM_GETFONT, 0, 0)));
        need.nHeadHeight = MeasureText(hDC, ReadControl(hWnd, IDC_NOTIFY_HEAD, MAX_NOTIFY_TEXT),
                                       WidthOf(layout.head), HEAD_FORMAT);
    }
    const CPaintedFont bodyFont(hDC);
    const CSelectedFont font(hDC, bodyFont.get());
    need.nBodyHeight = MeasureText(hDC, DoubleAmpersands(paintedBody), WidthOf(layout.body), BODY_FORMAT);
    return need;
}

NOTIFY_LAYOUT FitLayout(HWND hWnd, HDC hDC, const NOTIFY_LAYOUT& original, SIZE maximum,
                        const std::wstring& paintedBody)
{
    NOTIFY_LAYOUT layout = StretchNotifyLayout(original, original.client.cx,
                                               MeasureNeed(hWnd, hDC, original, paintedBody), maximum.cy);
    for (const LONG nStep : WIDTH_STEPS)
    {
        if (layout.client.cy <= maximum.cy / 2)
        {
            break;
        }
        const LONG nWidth = std::min(original.client.cx * nStep / 2, maximum.cx);
        const NOTIFY_LAYOUT wide = StretchNotifyLayout(original, nWidth, {}, maximum.cy);
        layout = StretchNotifyLayout(original, nWidth, MeasureNeed(hWnd, hDC, wide, paintedBody), maximum.cy);
    }
    return layout;
}

SIZE WorkAreaSize(HWND hWnd)
{
    MONITORINFO info = {};
    info.cbSize = sizeof(info);
    GetMonitorInfoW(MonitorFromWindow(hWnd, MONITOR_DEFAULTTONEAREST), &info);
    return {WidthOf(info.rcWork), HeightOf(info.rcWork)};
}
} // namespace

NOTIFY_LAYOUT StretchNotifyLayout(const NOTIFY_LAYOUT& original, LONG nWidth, const NOTIFY_NEED& need,
                                  LONG nMaxHeight)
{
    const LONG nWider = nWidth - original.client.cx;
    const LONG nMargin = original.client.cy - original.body.bottom;
    const LONG nButtonRow = original.button.bottom - original.body.bottom;
    NOTIFY_LAYOUT layout = original;
    layout.head.right += nWider;
    layout.head.bottom = layout.head.top + std::max(HeightOf(original.head), need.nHeadHeight);
    const LONG nLower = layout.head.bottom - original.head.bottom;
    OffsetRect(&layout.body, 0, nLower);
    layout.body.right += nWider;
    layout.body.bottom = layout.body.top + std::max(HeightOf(original.body), need.nBodyHeight);

    const LONG nBelowBody = nMargin + (need.bButton ? nButtonRow : 0);
    layout.body.bottom = std::max(layout.body.top, std::min(layout.body.bottom, nMaxHeight - nBelowBody));
    layout.client = {nWidth, layout.body.bottom + nBelowBody};
    OffsetRect(&layout.button, nWider, layout.body.bottom - original.body.bottom);
    return layout;
}

void FitNotifyDialog(HWND hWnd, const std::wstring& paintedBody)
{
    const NOTIFY_LAYOUT original = ReadLayout(hWnd);
    RECT window = {};
    GetWindowRect(hWnd, &window);
    const SIZE frame = {WidthOf(window) - original.client.cx, HeightOf(window) - original.client.cy};
    const SIZE workArea = WorkAreaSize(hWnd);
    const SIZE maximum = {workArea.cx - frame.cx - SCREEN_GAP, workArea.cy - frame.cy - SCREEN_GAP};

    const HDC hDC = GetDC(hWnd);
    const NOTIFY_LAYOUT layout = FitLayout(hWnd, hDC, original, maximum, paintedBody);
    ReleaseDC(hWnd, hDC);
    if (layout.client.cx == original.client.cx && layout.client.cy == original.client.cy)
    {
        return;
    }
    MoveControl(hWnd, IDC_NOTIFY_HEAD, layout.head);
    MoveControl(hWnd, IDC_NOTIFY_BODY, layout.body);
    MoveControl(hWnd, IDC_NOTIFY_DISCONNECT, layout.button);
    SetWindowPos(hWnd, nullptr, 0, 0, layout.client.cx + frame.cx, layout.client.cy + frame.cy,
                 SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
    SetNotifyDialogLocation(hWnd);
}

void DrawNotifyBody(HWND hWnd, HDC hDC)
{
    DrawControlText(hWnd, hDC, IDC_NOTIFY_BODY, BODY_FORMAT, MAX_NOTIFY_TEXT);
}
