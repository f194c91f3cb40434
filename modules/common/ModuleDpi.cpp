#include "modules/common/ModuleDpi.h"

#include "Include/SystemCall.h"

namespace
{
// In every process with a window; what it lacks on older systems is looked for by name.
template <typename Function>
Function FindUserCall(const char* pszName)
{
    return FindModuleEntry<Function>(GetModuleHandleW(L"user32.dll"), pszName);
}

UINT SystemDpi()
{
    const HDC hDC = GetDC(nullptr);
    const int nDpi = GetDeviceCaps(hDC, LOGPIXELSY);
    ReleaseDC(nullptr, hDC);
    return static_cast<UINT>(nDpi);
}

bool ReadMetrics(NONCLIENTMETRICSW& metrics, UINT uDpi)
{
    metrics.cbSize = sizeof(metrics);
    const auto pfnForDpi = FindUserCall<decltype(&SystemParametersInfoForDpi)>("SystemParametersInfoForDpi");
    if (pfnForDpi != nullptr && pfnForDpi(SPI_GETNONCLIENTMETRICS, sizeof(metrics), &metrics, 0, uDpi))
    {
        return true;
    }
    if (!SystemParametersInfoW(SPI_GETNONCLIENTMETRICS, sizeof(metrics), &metrics, 0))
    {
        return false;
    }
    LOGFONTW& font = metrics.lfMessageFont;
    font.lfHeight = MulDiv(font.lfHeight, static_cast<int>(uDpi), static_cast<int>(SystemDpi()));
    return true;
}
} // namespace

UINT WindowDpi(HWND hWnd)
{
    const auto pfnDpi = FindUserCall<decltype(&GetDpiForWindow)>("GetDpiForWindow");
    const UINT uDpi = pfnDpi != nullptr ? pfnDpi(hWnd) : 0;
    return uDpi != 0 ? uDpi : SystemDpi();
}

int ScaleForDpi(int nLength, UINT uDpi)
{
    return MulDiv(nLength, static_cast<int>(uDpi), USER_DEFAULT_SCREEN_DPI);
}

CGdiObject MakeMessageFont(UINT uDpi)
{
    NONCLIENTMETRICSW metrics = {};
    return CGdiObject(ReadMetrics(metrics, uDpi) ? CreateFontIndirectW(&metrics.lfMessageFont) : nullptr);
}

SIZE WindowSizeAround(SIZE client, DWORD dwStyle, DWORD dwExStyle, UINT uDpi)
{
    RECT rect = {0, 0, client.cx, client.cy};
    const auto pfnForDpi = FindUserCall<decltype(&AdjustWindowRectExForDpi)>("AdjustWindowRectExForDpi");
    if (pfnForDpi == nullptr || !pfnForDpi(&rect, dwStyle, FALSE, dwExStyle, uDpi))
    {
        AdjustWindowRectEx(&rect, dwStyle, FALSE, dwExStyle);
    }
    return {rect.right - rect.left, rect.bottom - rect.top};
}
