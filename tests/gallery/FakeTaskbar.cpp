#include "tests/gallery/FakeTaskbar.h"

#include "tests/support/ImportHook.h"

#include <shellapi.h>

#include <string>

namespace
{
constexpr LONG THICKNESS = 48; // pixels

UINT g_uEdge = ABE_BOTTOM;
RECT g_taskbar = {};
RECT g_workArea = {};
HWND g_hTaskbar = nullptr;

UINT_PTR WINAPI AnswerAppBar(DWORD, APPBARDATA* pData)
{
    pData->uEdge = g_uEdge;
    pData->rc = g_taskbar;
    return TRUE;
}

BOOL WINAPI AnswerMonitorInfo(HMONITOR, MONITORINFO* pInfo)
{
    pInfo->rcWork = g_workArea;
    return TRUE;
}

FARPROC WINAPI FindFakeEntry(HMODULE hModule, LPCSTR pszName);

ImportHook<decltype(GetProcAddress)>& Hook()
{
    static ImportHook<decltype(GetProcAddress)> s_hook("kernel32.dll", "GetProcAddress", &FindFakeEntry);
    return s_hook;
}

FARPROC WINAPI FindFakeEntry(HMODULE hModule, LPCSTR pszName)
{
    const std::string_view name = IS_INTRESOURCE(pszName) ? "" : pszName;
    if (name == "SHAppBarMessage")
    {
        return reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(&AnswerAppBar));
    }
    if (name == "GetMonitorInfoW")
    {
        return reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(&AnswerMonitorInfo));
    }
    return Hook().Original()(hModule, pszName);
}

bool PlaceTaskbar(std::wstring_view edge, LONG nWidth, LONG nHeight)
{
    g_taskbar = g_workArea = {0, 0, nWidth, nHeight};
    if (edge == L"left")
    {
        g_uEdge = ABE_LEFT;
        g_taskbar.right = g_workArea.left = THICKNESS;
    }
    else if (edge == L"top")
    {
        g_uEdge = ABE_TOP;
        g_taskbar.bottom = g_workArea.top = THICKNESS;
    }
    else if (edge == L"right")
    {
        g_uEdge = ABE_RIGHT;
        g_taskbar.left = g_workArea.right = nWidth - THICKNESS;
    }
    else
    {
        g_uEdge = ABE_BOTTOM;
        g_taskbar.top = g_workArea.bottom = nHeight - THICKNESS;
    }
    return edge == L"left" || edge == L"top" || edge == L"right" || edge == L"bottom";
}
} // namespace

bool ShowFakeTaskbar(std::wstring_view edge)
{
    if (!PlaceTaskbar(edge, GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN)))
    {
        return false;
    }
    Hook();
    g_hTaskbar = CreateWindowExW(WS_EX_TOPMOST | WS_EX_NOACTIVATE | WS_EX_TOOLWINDOW, L"STATIC", nullptr,
                                 WS_POPUP | SS_GRAYRECT, g_taskbar.left, g_taskbar.top,
                                 g_taskbar.right - g_taskbar.left, g_taskbar.bottom - g_taskbar.top, nullptr,
                                 nullptr, nullptr, nullptr);
    ShowWindow(g_hTaskbar, SW_SHOWNOACTIVATE);
    return true;
}

bool IsFakeTaskbar(HWND hWnd)
{
    return g_hTaskbar != nullptr && hWnd == g_hTaskbar;
}
