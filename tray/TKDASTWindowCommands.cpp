#include "tray/TKDASTWindow.h"

#include "Include/BoundedText.h"
#include "Include/Pause.h"
#include "Include/TKLogging.h"
#include "Include/UtilResource.h"
#include "Include/UtilSettings.h"
#include "Include/UtilTimedMessageBox.h"
#include "TKDAS/SimultanousSessionMutex.h"
#include "dialogs/AboutDialog.h"
#include "dialogs/ConnectToClientDialog.h"
#include "dialogs/JoinAttendedSessionDialog.h"
#include "dialogs/CreateInvitationDialog.h"
#include "resources/resource.h"
#include "startup/TKDAST.h"
#include "tray/TrayMenu.h"

#include <algorithm>
#include <string>

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("TKDASTWindow");

constexpr size_t MAX_QUESTION = 260;             // characters, terminator included
constexpr DWORD QUESTION_TIMEOUT = 10000;        // milliseconds
constexpr DWORD SERVICE_MESSAGE_TIMEOUT = 20000; // milliseconds
constexpr int REPLY_ROUNDS = 500;
constexpr DWORD REPLY_ROUND_PAUSE = 10; // milliseconds

bool IsMenuGesture(LPARAM lMouseMessage)
{
    return lMouseMessage == WM_RBUTTONUP || lMouseMessage == WM_LBUTTONDOWN ||
           lMouseMessage == WM_CONTEXTMENU;
}

std::wstring QuestionText(UINT uString)
{
    return LoadResourceText(uString, MAX_QUESTION);
}
} // namespace

LRESULT CTaskBarWindow::OnTrayNotify(UINT uIconId, LPARAM lMouseMessage)
{
    // While a balloon of this shell version is up the shell adds to the upper half.
    if (m_NotifyIconData.uTimeout != 0)
    {
        lMouseMessage = LOWORD(lMouseMessage);
    }
    // A second click would take the open menu's handle away.
    if (uIconId == LOWORD(m_uTrayIconId) && IsMenuGesture(lMouseMessage) && !m_hTrayMenu)
    {
        ShowTrayMenu();
    }
    return 0;
}

void CTaskBarWindow::ShowTrayMenu()
{
    m_hTrayMenu.reset(LoadMenuW(g_hResourceModule,
                                MAKEINTRESOURCEW(g_bOneTimeSession != 0 ? IDM_TRAY_ONE_TIME : IDM_TRAY)));
    const HMENU hMenu = GetSubMenu(m_hTrayMenu.get(), 0);
    if (hMenu != nullptr)
    {
        PrepareTrayMenu(hMenu, m_Settings,
                        {m_Connection.dwConnectCount, m_dwConnectionType, m_bReverseInProgress});
        POINT cursor = {};
        GetCursorPos(&cursor);
        // Without these two the menu wouldn't close when the user clicks elsewhere.
        SetForegroundWindow(m_hWnd);
        TrackPopupMenu(hMenu, 0, cursor.x, cursor.y, 0, m_hWnd, nullptr);
        PostMessageW(m_hWnd, WM_NULL, 0, 0);
    }
    m_hTrayMenu.reset();
}

void CTaskBarWindow::OnCommand(UINT uCommand)
{
    const auto language =
        std::find_if(TRAY_LANGUAGES.begin(), TRAY_LANGUAGES.end(),
                     [uCommand](const TRAY_LANGUAGE& row) { return row.uCommand == uCommand; });
    if (language != TRAY_LANGUAGES.end())
    {
        OnChooseLanguage(language->code);
        return;
    }
    switch (uCommand)
    {
    case ID_TRAY_SHOW_CONNECTED:
        OnShowConnected();
        break;
    case ID_TRAY_DISCONNECT_ALL:
        OnDisconnectAll();
        break;
    case ID_TRAY_CONNECT_TO_CLIENT:
        OnConnectToClient();
        break;
    case ID_TRAY_EXIT:
        OnExit();
        break;
    case ID_TRAY_ABOUT:
        OnAbout();
        break;
    case ID_TRAY_SETTINGS:
        OnSettings();
        break;
    case ID_TRAY_CREATE_INVITATION:
        OnCreateInvitation();
        break;
    case ID_TRAY_JOIN_SESSION:
        OnJoinSession();
        break;
    default:
        break;
    }
}

// There is no wait: the service reconfigures itself, and its announcement reloads the language module.
void CTaskBarWindow::OnChooseLanguage(std::wstring_view code)
{
    CopyText(m_Settings.szLanguage, code);
    m_bServiceReplied = 0;
    MSG_TRAYICON_LANGUAGE record = {};
    record.dwType = MSG_TYPE_TRAYICON_LANGUAGE;
    CopyText(record.szLanguage, code);
    GetDesktopUserInformation(&record.DesktopUser);
    SendRecord(record);
}

void CTaskBarWindow::OnShowConnected()
{
    MSG_TRAYICON_CONNECT_NOTIFY_ALL request = {};
    request.dwType = MSG_TYPE_TRAYICON_CONNECT_NOTIFY_ALL;
    SendRecord(request);
}

void CTaskBarWindow::OnDisconnectAll()
{
    if (m_Connection.dwConnectCount == 0 || !ConfirmByBox(IDS_ASK_DISCONNECT_ALL))
    {
        return;
    }
    MSG_TRAYICON_DISCONNECT_ALL record = {};
    record.dwType = MSG_TYPE_TRAYICON_DISCONNECT_ALL;
    GetDesktopUserInformation(&record.DesktopUser);
    SendRecord(record);
}

void CTaskBarWindow::OnExit()
{
    if (m_Connection.dwConnectCount > 0 && !ConfirmByBox(IDS_ASK_EXIT))
    {
        return;
    }
    MSG_TRAYICON_EXIT record = {};
    GetDesktopUserInformation(&record.DesktopUser);
    record.dwType = MSG_TYPE_TRAYICON_EXIT;
    SendRecord(record);
    g_nExitCode = EXIT_ASKED_TO_END;
    DelTrayIcon();
    DestroyWindow(m_hWnd);
}

// pParameter goes to the dialog as its initial parameter. Returns what the dialog ended with.
INT_PTR CTaskBarWindow::RunDialog(UINT uTemplate, DLGPROC pfnDialog, void* pParameter) const
{
    const CModalDialogScope scope;
    return DialogBoxParamW(g_hResourceModule, MAKEINTRESOURCEW(uTemplate), m_hWnd, pfnDialog,
                           reinterpret_cast<LPARAM>(pParameter));
}

void CTaskBarWindow::OnAbout()
{
    m_bServiceReplied = 0;
    MSG_TRAYICON_TYPE_ONLY request = {MSG_TYPE_TRAYICON_IP_ADDRESSES};
    SendRecord(request);
    AwaitServiceReply();
    RunDialog(IDD_ABOUT, AboutWndProc, &m_IpAddresses);
    m_bDialogReserved = 0;
}

void CTaskBarWindow::OnConnectToClient()
{
    if (m_Settings.bReverseConnectMenu == 0 || m_bReverseInProgress != 0)
    {
        return;
    }
    if (g_hConnectToClientDlg != nullptr)
    {
        BringWindowToTop(g_hConnectToClientDlg);
        return;
    }
    MSG_REVERSE_CONNECTION record = {};
    record.bProxyAllowed = m_Settings.bProxyAllowed;
    if (RunDialog(IDD_CONNECT_TO_CLIENT, ConnectToClient, &record) == IDOK)
    {
        RequestReverseConnection(record);
    }
    SecureZeroMemory(record.szProxySecret, sizeof(record.szProxySecret));
}

// A window that nobody sees can't own what asks for consent.
void CTaskBarWindow::OnSettings() const
{
    const HWND hForeground = GetForegroundWindow();
    const HWND hOwner = hForeground == nullptr || IsIconic(hForeground) ? m_hWnd : hForeground;
    const bool bElevate = m_Settings.dwExitLock2 != 0 || m_Settings.dwExitLock1 != 0;
    ExecuteSettingsDialog(hOwner, bElevate ? 1 : 0);
}

// The menu works while the dialog is up, and there is one dialog at a time.
void CTaskBarWindow::OnCreateInvitation()
{
    if (g_hCreateInvitationDlg != nullptr)
    {
        BringWindowToTop(g_hCreateInvitationDlg);
        return;
    }
    m_bServiceReplied = 0;
    MSG_TRAYICON_TYPE_ONLY request = {MSG_TYPE_TRAYICON_SETTINGS_REQUEST};
    SendRecord(request);
    AwaitServiceReply();
    RunDialog(IDD_CREATE_INVITATION, CreateInvitationWndProc, this);
}

void CTaskBarWindow::OnJoinSession()
{
    if (m_bReverseInProgress != 0)
    {
        return;
    }
    MSG_REVERSE_CONNECTION record = {};
    record.bProxyAllowed = m_Settings.bProxyAllowed;
    if (TakeInvitation(record) && IsJoinWanted())
    {
        RequestReverseConnection(record);
    }
}

// From the service, or else from the person at the desktop. False when there is none.
bool CTaskBarWindow::TakeInvitation(MSG_REVERSE_CONNECTION& record) const
{
    if (g_bOtiInvitation != 0)
    {
        record.bOneTime = 1;
        CopyText(record.szInvitation, FixedText(g_szOtiInvitation));
        return true;
    }
    if (g_hJoinAttendedSessionDlg != nullptr)
    {
        TK_LOG_INFO(g_pLogger, L"Join Internet Session dialog exists, bringing to top.");
        BringWindowToTop(g_hJoinAttendedSessionDlg);
        return false;
    }
    return RunDialog(IDD_JOIN_ATTENDED_SESSION, JoinAttendedSessionProc, &record) == IDOK;
}

// In progress it is even when the service can't be told: only its word ends the attempt.
void CTaskBarWindow::RequestReverseConnection(MSG_REVERSE_CONNECTION& record)
{
    record.dwType = MSG_TYPE_REVERSE_CONNECTION;
    SendRecord(record);
    m_bReverseInProgress = 1;
}

bool CTaskBarWindow::IsJoinWanted() const
{
    if (!CSimultanousSessionMutex::IsOtiSession() && !CSimultanousSessionMutex::IsLocalSession())
    {
        return true;
    }
    const CModalDialogScope scope;
    return MessageBoxW(m_hWnd, QuestionText(IDS_ASK_JOIN_IN_SESSION).c_str(),
                       QuestionText(IDS_ASK_TITLE).c_str(),
                       MB_TOPMOST | MB_YESNO | MB_ICONWARNING | MB_DEFBUTTON2) == IDYES;
}

// Of the texts only copies are shown: the reader may write the next message meanwhile.
void CTaskBarWindow::OnShowServiceMessage()
{
    if (m_bBoxOpen)
    {
        m_bServiceMessageDue = true;
        return;
    }
    ShowBox(nullptr, std::wstring(FixedText(m_szServiceMessage)),
            std::wstring(FixedText(m_szServiceMessageTitle)),
            MB_TOPMOST | (m_bServiceMessageIsError != 0 ? MB_ICONHAND : MB_ICONINFORMATION),
            SERVICE_MESSAGE_TIMEOUT);
    if (g_bOneTimeSession != 0 && g_bOtiInvitation != 0)
    {
        PostMessageW(m_hWnd, WM_COMMAND, ID_TRAY_EXIT, 0);
    }
}

// An unanswered question is a No, and so is one that comes while another box is up.
bool CTaskBarWindow::ConfirmByBox(UINT uQuestion)
{
    return !m_bBoxOpen &&
           ShowBox(nullptr,
                   FillPlaceholders(QuestionText(uQuestion), {std::to_wstring(m_Connection.dwConnectCount)}),
                   QuestionText(IDS_ASK_TITLE), MB_YESNO | MB_ICONQUESTION, QUESTION_TIMEOUT) == IDYES;
}

// While a box is up the icon's menu, the service's messages and a dialog still work.
int CTaskBarWindow::ShowBox(HWND hOwner, const std::wstring& text, const std::wstring& title, UINT uType,
                            DWORD dwTimeoutMs)
{
    if (m_bBoxOpen)
    {
        return MessageBoxW(hOwner, text.c_str(), title.c_str(), uType);
    }
    m_bBoxOpen = true;
    const int nAnswer = TimedMessageBox(hOwner, text.c_str(), title.c_str(), uType, dwTimeoutMs);
    m_bBoxOpen = false;
    if (!IsWindow(m_hWnd)) // it went while the box timed out, and its quit message was taken for the box's
    {
        PostQuitMessage(EXIT_AGENT_ENDED);
    }
    if (m_bServiceMessageDue)
    {
        m_bServiceMessageDue = false;
        PostMessageW(m_hWnd, WM_SHOW_SERVICE_MESSAGE, 0, 0);
    }
    return nAnswer;
}

// Holds the main thread up on purpose: the reader thread sets the flag. No answer in time is no error, the
// dialog then shows what is known.
void CTaskBarWindow::AwaitServiceReply() const
{
    for (int nRound = 0; nRound < REPLY_ROUNDS && m_bServiceReplied == 0; ++nRound)
    {
        PauseThread(REPLY_ROUND_PAUSE);
    }
}
