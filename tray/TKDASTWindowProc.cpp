#include "tray/TKDASTWindow.h"

#include "Include/Pause.h"
#include "Include/TKLogging.h"
#include "Include/UtilWTS.h"
#include "startup/TKDAST.h"

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("TKDASTWindow");

constexpr DWORD DESTROY_PAUSE = 250; // milliseconds; lets the threads see the quit event

void DestroyOwnedWindow(HWND* phWnd)
{
    if (IsWindow(*phWnd))
    {
        DestroyWindow(*phWnd);
        *phWnd = nullptr;
    }
}
} // namespace

LRESULT CALLBACK CTaskBarWindow::WndProc(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam)
{
    const TKLogBlock block(L"CTaskBarWindow::WndProc", g_pLogger);
    // Null until the constructor has stored it: until then only WM_CREATE is handled.
    CTaskBarWindow* const pWindow = reinterpret_cast<CTaskBarWindow*>(GetWindowLongPtrW(hWnd, GWLP_USERDATA));
    if (pWindow == nullptr)
    {
        return uMessage == WM_CREATE ? OnCreate(hWnd) : DefWindowProcW(hWnd, uMessage, wParam, lParam);
    }
    if (uMessage == g_uTaskbarCreatedMessage)
    {
        return pWindow->OnTaskbarCreated();
    }
    switch (uMessage)
    {
    case WM_AGENT_INIT:
        return pWindow->OnAgentInit();
    case WM_SERVICE_CHANNEL_LOST:
        DestroyWindow(hWnd);
        break;
    case WM_DESTROY:
        return pWindow->OnDestroy();
    default:
        break;
    }
    return DefWindowProcW(hWnd, uMessage, wParam, lParam);
}

// Runs while the constructor still does: it must not touch the object, and posts to reach it afterwards.
LRESULT CTaskBarWindow::OnCreate(HWND hWnd)
{
    g_uTaskbarCreatedMessage = RegisterWindowMessageW(L"TaskbarCreated");
    PostMessageW(hWnd, WM_AGENT_INIT, 0, 0);
    return 0;
}

LRESULT CTaskBarWindow::OnAgentInit()
{
    g_dwDesktopState = DESKTOP_STATE_LOCKED;
    CheckDesktopState();
    RegisterSessionNotification(m_hWnd);
    OnInit();
    return 1;
}

// A new shell has forgotten the icon.
LRESULT CTaskBarWindow::OnTaskbarCreated()
{
    m_bIconAdded = 0;
    return 1;
}

LRESULT CTaskBarWindow::OnDestroy()
{
    UnRegisterSessionNotification(m_hWnd);
    if (g_hQuitEvent)
    {
        SetEvent(g_hQuitEvent.get());
    }
    CloseChannel();
    DestroyOwnedWindow(&m_hNotifyDlg);
    DestroyOwnedWindow(&m_hChatWindow);
    if (m_uTrayRetryTimer != 0)
    {
        KillTimer(m_hWnd, m_uTrayRetryTimer);
        m_uTrayRetryTimer = 0;
    }
    PauseThread(DESTROY_PAUSE);
    PostQuitMessage(EXIT_AGENT_ENDED);
    return 0;
}
