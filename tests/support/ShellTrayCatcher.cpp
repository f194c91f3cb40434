#include "tests/support/ShellTrayCatcher.h"

#include "tests/support/ShelllessDesktop.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <shellapi.h>

namespace
{
constexpr wchar_t TRAY_CLASS[] = L"Shell_TrayWnd";

/// What the test system's shell sends: fixed widths, so that programs of either word size can send it. The
/// bits of the icon follow.
struct NOTIFY_IMAGE
{
    LONG hWnd;
    UINT uID;
    UINT uFlags;
    UINT uCallbackMessage;
    wchar_t szTip[128];
    DWORD dwState;
    DWORD dwStateMask;
    wchar_t szInfo[256];
    UINT uVersion;
    wchar_t szInfoTitle[64];
    DWORD dwInfoFlags;
    GUID guidItem;
    UINT nIconWidth;
    UINT nIconHeight;
    UINT nIconPlanes;
    UINT nIconBitsPerPixel;
};

template <size_t N>
std::wstring TextOf(const wchar_t (&szField)[N])
{
    return std::wstring(szField, wcsnlen(szField, N));
}
} // namespace

ShellTrayCatcher::ShellTrayCatcher(const ShelllessDesktop* pDesktop)
    : m_pDesktop(pDesktop), m_hReady(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      m_hThread(CreateThread(nullptr, 0, Run, this, 0, nullptr))
{
    WaitForSingleObject(m_hReady, INFINITE);
    if (!m_bInFront)
    {
        std::fputs("ShellTrayCatcher: another tray window stands in front\n", stderr);
        std::abort();
    }
}

ShellTrayCatcher::~ShellTrayCatcher()
{
    PostMessageW(m_hWnd, WM_CLOSE, 0, 0);
    WaitForSingleObject(m_hThread, INFINITE);
    CloseHandle(m_hThread);
    CloseHandle(m_hReady);
}

void ShellTrayCatcher::SetAnswer(bool bSuccess)
{
    const std::lock_guard guard(m_lock);
    m_bAnswer = bSuccess;
}

std::vector<TrayCall> ShellTrayCatcher::Calls() const
{
    const std::lock_guard guard(m_lock);
    return m_calls;
}

bool ShellTrayCatcher::WaitForCalls(size_t nCalls, DWORD dwTimeoutMs) const
{
    std::unique_lock guard(m_lock);
    return m_arrived.wait_for(guard, std::chrono::milliseconds(dwTimeoutMs),
                              [&] { return m_calls.size() >= nCalls; });
}

void ShellTrayCatcher::Forget()
{
    const std::lock_guard guard(m_lock);
    m_calls.clear();
}

DWORD WINAPI ShellTrayCatcher::Run(void* pThis)
{
    static_cast<ShellTrayCatcher*>(pThis)->Loop();
    return 0;
}

void ShellTrayCatcher::Loop()
{
    if (m_pDesktop != nullptr && !m_pDesktop->TakeThread())
    {
        SetEvent(m_hReady);
        return;
    }
    WNDCLASSW windowClass = {};
    windowClass.lpfnWndProc = WindowProcedure;
    windowClass.hInstance = GetModuleHandleW(nullptr);
    windowClass.lpszClassName = TRAY_CLASS;
    RegisterClassW(&windowClass);
    const HWND hWnd = CreateWindowExW(WS_EX_TOPMOST | WS_EX_TOOLWINDOW, TRAY_CLASS, L"", WS_POPUP, 0, 0, 0, 0,
                                      nullptr, nullptr, windowClass.hInstance, nullptr);
    SetWindowLongPtrW(hWnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
    SetWindowPos(hWnd, HWND_TOPMOST, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
    m_hWnd = hWnd;
    m_bInFront = hWnd != nullptr && FindWindowW(TRAY_CLASS, nullptr) == hWnd;
    SetEvent(m_hReady);
    MSG message;
    while (hWnd != nullptr && GetMessageW(&message, nullptr, 0, 0) > 0)
    {
        DispatchMessageW(&message);
    }
    UnregisterClassW(TRAY_CLASS, windowClass.hInstance);
}

LRESULT CALLBACK ShellTrayCatcher::WindowProcedure(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam)
{
    auto* pThis = reinterpret_cast<ShellTrayCatcher*>(GetWindowLongPtrW(hWnd, GWLP_USERDATA));
    switch (uMessage)
    {
    case WM_COPYDATA:
        return pThis != nullptr ? pThis->Record(*reinterpret_cast<const COPYDATASTRUCT*>(lParam)) : FALSE;
    case WM_DESTROY:
        PostQuitMessage(0);
        return 0;
    default:
        return DefWindowProcW(hWnd, uMessage, wParam, lParam);
    }
}

LRESULT ShellTrayCatcher::Record(const COPYDATASTRUCT& data)
{
    if (data.cbData < sizeof(NOTIFY_IMAGE))
    {
        return FALSE;
    }
    NOTIFY_IMAGE image;
    std::memcpy(&image, data.lpData, sizeof(image));
    const auto* pBits = static_cast<const BYTE*>(data.lpData) + sizeof(image);
    TrayCall call;
    call.qwTime = GetTickCount64();
    call.dwMessage = static_cast<DWORD>(data.dwData);
    call.hWnd = reinterpret_cast<HWND>(static_cast<std::intptr_t>(image.hWnd));
    call.uID = image.uID;
    call.uFlags = image.uFlags;
    call.uCallbackMessage = image.uCallbackMessage;
    call.tip = TextOf(image.szTip);
    call.dwState = image.dwState;
    call.dwStateMask = image.dwStateMask;
    call.info = TextOf(image.szInfo);
    call.infoTitle = TextOf(image.szInfoTitle);
    call.dwInfoFlags = image.dwInfoFlags;
    call.uVersion = image.uVersion;
    call.nIconWidth = image.nIconWidth;
    call.nIconHeight = image.nIconHeight;
    call.iconBits.assign(pBits, pBits + (data.cbData - sizeof(image)));
    const std::lock_guard guard(m_lock);
    m_calls.push_back(std::move(call));
    m_arrived.notify_all();
    return m_bAnswer;
}
