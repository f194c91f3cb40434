#include "tray/TKDASTWindow.h"

#include "Include/Pause.h"
#include "Include/TKLogging.h"
#include "Include/UtilResource.h"
#include "Include/UtilWTS.h"
#include "dialogs/ConnectInProgressDialog.h"
#include "dialogs/JoinAttendedSessionDialog.h"
#include "dialogs/NotifyDialog.h"
#include "resources/resource.h"
#include "startup/TKDAST.h"

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("TKDASTWindow");

constexpr DWORD DESTROY_PAUSE = 250;       // milliseconds; lets the threads see the quit event
constexpr UINT SHELL_SETTLING_TIME = 2500; // milliseconds
constexpr size_t MAX_BALLOON_TEXT = 512;   // characters, terminator included

void DestroyOwnWindow(HWND* phWnd)
{
    if (IsWindow(*phWnd))
    {
        DestroyWindow(*phWnd);
        *phWnd = nullptr;
    }
}

bool IsDesktopEvent(WPARAM wSessionChange)
{
    switch (wSessionChange)
    {
    case WTS_CONSOLE_CONNECT:
    case WTS_CONSOLE_DISCONNECT:
    case WTS_SESSION_LOGON:
    case WTS_SESSION_LOCK:
    case WTS_SESSION_UNLOCK:
        return true;
    default:
        return false;
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
    case WM_QUERYENDSESSION:
        g_nExitCode = EXIT_ASKED_TO_END;
        break;
    case WM_ENDSESSION:
        pWindow->OnEndSession(wParam != FALSE);
        break;
    case WM_USERCHANGED:
        return 0;
    case WM_TIMER:
        pWindow->OnTimer(wParam);
        break;
    case WM_COMMAND:
        pWindow->OnCommand(LOWORD(wParam));
        return 0;
    case WM_TRAY_NOTIFY:
        return pWindow->OnTrayNotify(LOWORD(wParam), lParam);
    case WM_SHOW_SERVICE_MESSAGE:
        pWindow->OnShowServiceMessage();
        break;
    case WM_WTSSESSION_CHANGE:
        pWindow->OnSessionChange(wParam);
        break;
    case WM_SHOW_NOTIFY_DLG:
        if (!pWindow->OnShowNotifyDlg(wParam))
        {
            return 1;
        }
        break;
    case WM_CLOSE_NOTIFY_DLG:
        DestroyOwnWindow(&pWindow->m_hNotifyDlg);
        break;
    case WM_SHOW_DISCONNECT_DLG:
        pWindow->ReplaceNotifyDlg();
        break;
    case WM_SFT_DROP_WINDOW:
        pWindow->OnSftDropWindow(wParam, lParam);
        break;
    case WM_JOIN_SESSION_STATE:
        pWindow->OnJoinSessionState(wParam);
        break;
    case WM_RC_CHAT_MESSAGE_SENT:
        pWindow->OnChatMessageSent(reinterpret_cast<char*>(wParam), static_cast<unsigned int>(lParam));
        return 0;
    case WM_CHAT_OPEN:
        pWindow->OnChatOpen();
        return 0;
    case WM_CHAT_MESSAGE:
        pWindow->OnChatMessage(reinterpret_cast<const MSG_CHAT_MESSAGE*>(wParam));
        return 0;
    case WM_CHAT_CLOSE:
        pWindow->OnChatClose();
        return 0;
    case WM_CHAT_AGENT_ALIVE:
        return 1;
    case WM_CHAT_WINDOW_GONE:
        pWindow->m_hChatWindow = nullptr;
        return 0;
    case WM_SHOW_ONE_TIME_AGENT_BALLON:
        pWindow->OnShowOneTimeAgentBalloon();
        break;
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
    SetTrayIcon();
    return 1;
}

LRESULT CTaskBarWindow::OnDestroy()
{
    UnRegisterSessionNotification(m_hWnd);
    if (g_hQuitEvent)
    {
        SetEvent(g_hQuitEvent.get());
    }
    RetoreDesktopOptions(); // a going agent leaves the user's wallpaper and effects as they were
    CloseChannel();
    DestroyOwnWindow(&m_hNotifyDlg);
    CloseChatWindow();
    if (m_uTrayRetryTimer != 0)
    {
        KillTimer(m_hWnd, TIMER_TRAY_RETRY);
        m_uTrayRetryTimer = 0;
    }
    PauseThread(DESTROY_PAUSE);
    PostQuitMessage(EXIT_AGENT_ENDED);
    return 0;
}

void CTaskBarWindow::OnEndSession(bool bEnding)
{
    g_nExitCode = EXIT_ASKED_TO_END;
    if (!bEnding)
    {
        return;
    }
    SFT_RemoveDropWindow(ALL_DROP_WINDOWS);
    MSG_TRAYICON_SESSION_ENDING ending = {};
    ending.dwType = MSG_TYPE_TRAYICON_SESSION_ENDING;
    ending.dwSessionId = g_dwSessionId;
    ending.dwExitCode = static_cast<DWORD>(EXIT_ASKED_TO_END);
    SendRecord(ending);
}

void CTaskBarWindow::OnTimer(UINT_PTR uTimer)
{
    switch (uTimer)
    {
    case TIMER_CONNECT_NOTICE:
        KillTimer(m_hWnd, uTimer);
        OnConnectNoticeTimer();
        break;
    case TIMER_TRAY_RETRY:
        KillTimer(m_hWnd, uTimer);
        m_uTrayRetryTimer = 0;
        SetTrayIcon();
        break;
    case TIMER_SETTINGS_DIALOG:
        KillTimer(m_hWnd, uTimer);
        PostMessageW(m_hWnd, WM_COMMAND, ID_TRAY_SETTINGS, 0);
        break;
    case TIMER_DESKTOP_READY:
        OnDesktopReadyTimer();
        break;
    case TIMER_DESKTOP_OPTIONS:
        KillTimer(m_hWnd, uTimer);
        m_uDesktopReadyTimer = 0;
        SetDesktopOptions(m_dwRequestedOptions);
        break;
    default:
        break;
    }
}

void CTaskBarWindow::OnConnectNoticeTimer()
{
    if (m_Connection.bListClients != 0 && m_Connection.dwConnectCount > 0)
    {
        PostMessageW(m_hWnd, WM_COMMAND, ID_TRAY_SHOW_CONNECTED, 0);
    }
    else
    {
        NotifyConnect();
    }
}

// The shell's window exists before the shell has put up its desktop: it gets time to settle.
void CTaskBarWindow::OnDesktopReadyTimer()
{
    if (IsUserDesktopInitialized())
    {
        KillTimer(m_hWnd, TIMER_DESKTOP_READY);
        SetTimer(m_hWnd, TIMER_DESKTOP_OPTIONS, SHELL_SETTLING_TIME, nullptr);
    }
}

void CTaskBarWindow::OnSessionChange(WPARAM wSessionChange)
{
    if (IsDesktopEvent(wSessionChange) && m_hDesktopEvent)
    {
        SetEvent(m_hDesktopEvent.get());
    }
}

// False when the settings hold the notice back.
bool CTaskBarWindow::OnShowNotifyDlg(WPARAM wNoticeKind)
{
    if (wNoticeKind == SHOW_CONNECT_NOTICE && m_dwConnectionType == ORDINARY_CONNECTION_TYPE &&
        m_Settings.bNotifyConnect == 0)
    {
        return false;
    }
    if (ReplaceNotifyDlg())
    {
        m_bNotifyPending = 0;
    }
    return true;
}

// There is one popup at a time. False when there can be none now; a later notice tries again.
bool CTaskBarWindow::ReplaceNotifyDlg()
{
    DestroyOwnWindow(&m_hNotifyDlg);
    m_hNotifyDlg = CreateDialogParamW(g_hResourceModule, MAKEINTRESOURCEW(IDD_NOTIFY), m_hWnd, NotifyWndProc,
                                      reinterpret_cast<LPARAM>(this));
    if (!IsWindow(m_hNotifyDlg))
    {
        return false;
    }
    SetWindowLongPtrW(m_hNotifyDlg, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
    return true;
}

void CTaskBarWindow::OnSftDropWindow(WPARAM wAction, LPARAM lParam)
{
    if (wAction == DROP_WINDOW_CREATE)
    {
        OpenDropWindow(ListedDropRecord(lParam));
    }
    else if (wAction == DROP_WINDOW_FORGET)
    {
        const DWORD dwClientId = static_cast<DWORD>(lParam);
        SFT_EraseDropWindow(dwClientId != 0 ? dwClientId : ALL_DROP_WINDOWS);
    }
}

void CTaskBarWindow::OnShowOneTimeAgentBalloon()
{
    TK_LOG_DEBUG(g_pLogger, L"WM_SHOW_ONE_TIME_AGENT_BALLON");
    ShowTrayBalloonMsg(LoadResourceText(IDS_ONE_TIME_BALLOON, MAX_BALLOON_TEXT).c_str());
}

// The chat module has finished the record: it goes out as it stands.
void CTaskBarWindow::OnChatMessageSent(char* pRecord, unsigned int nBytes)
{
    TK_LOG_INFO(g_pLogger, L"WM_RC_CHAT_MESSAGE_SENT - local user hit send in the chat window");
    SendToService(pRecord, nBytes);
}

void CTaskBarWindow::OnChatOpen()
{
    TK_LOG_INFO(g_pLogger, L"WM_CHAT_OPEN");
    OpenChatWindow();
}

// The reader, whose record it is, waits for the return.
void CTaskBarWindow::OnChatMessage(const MSG_CHAT_MESSAGE* pMessage)
{
    TK_LOG_INFO(g_pLogger, L"WM_CHAT_MESSAGE");
    ShowChatMessage(pMessage);
}

void CTaskBarWindow::OnChatClose()
{
    TK_LOG_INFO(g_pLogger, L"WM_CHAT_CLOSE");
    CloseChatWindow();
}

// The service has taken over: whatever it says, an open join dialog has done its part.
void CTaskBarWindow::OnJoinSessionState(WPARAM wState)
{
    if (g_hJoinAttendedSessionDlg != nullptr)
    {
        TK_LOG_DEBUG(g_pLogger, L"PostMessage WM_HIDE_JOIN_INTERNET_SESSION_DLG.");
        PostMessageW(g_hJoinAttendedSessionDlg, WM_HIDE_JOIN_INTERNET_SESSION_DLG, 0, 0);
    }
    switch (wState)
    {
    case JOIN_SESSION_SHOW_WAIT:
        TK_LOG_INFO(g_pLogger, L"Displaying Join Internet Session Wait Dialog.");
        ShowJoinWaitDlg();
        break;
    case JOIN_SESSION_CLOSE_WAIT:
        TK_LOG_INFO(g_pLogger, L"Destroying Join Internet Session Wait Dialog.");
        DestroyOwnWindow(&m_hJoinWaitDlg);
        break;
    case JOIN_SESSION_CANCEL:
        TK_LOG_INFO(g_pLogger, L"Canceling OTI connection attempt.");
        CancelReverseConnection();
        break;
    default:
        break;
    }
}

void CTaskBarWindow::ShowJoinWaitDlg()
{
    DestroyOwnWindow(&m_hJoinWaitDlg);
    m_hJoinWaitDlg = CreateDialogParamW(g_hResourceModule, MAKEINTRESOURCEW(IDD_CONNECT_IN_PROGRESS), m_hWnd,
                                        ConnectInProgressProc, 0);
    ShowWindow(m_hJoinWaitDlg, SW_SHOW);
}

void CTaskBarWindow::CancelReverseConnection()
{
    MSG_REVERSE_CONNECTION record = {};
    record.dwType = MSG_TYPE_REVERSE_CONNECTION;
    record.dwReverseCode = REVERSE_CODE_CANCEL;
    SendRecord(record);
}
