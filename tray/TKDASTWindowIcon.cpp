#include "tray/TKDASTWindow.h"

#include "Include/BoundedText.h"
#include "Include/Product.h"
#include "Include/TKLogging.h"
#include "Include/UtilResource.h"
#include "Include/UtilWTS.h"
#include "resources/resource.h"
#include "startup/TKDAST.h"

#include <iterator>
#include <string>

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("TKDASTWindow");

constexpr size_t MAX_TIP_PREFIX = 128;  // characters, terminator included
constexpr UINT BALLOON_TIMEOUT = 10000; // milliseconds
constexpr wchar_t LINE_END[] = L"\r\n";

// The sizes that shells of different age take; they know the structure by nothing else.
static_assert(NOTIFYICONDATAW_V1_SIZE == 168 && NOTIFYICONDATAW_V2_SIZE == 952);
} // namespace

int CTaskBarWindow::SetTrayIcon()
{
    const bool bConnected = m_Connection.dwConnectCount != 0;
    switch (
        DecideTrayIconPresence(m_Settings.dwTrayIcon, m_dwConnectionType, g_bOneTimeSession != 0, bConnected))
    {
    case TRAY_ICON_PRESENCE::Hidden:
        if (m_bIconAdded != 0)
        {
            DelTrayIcon();
        }
        return 1;
    case TRAY_ICON_PRESENCE::HiddenAlways:
        DelTrayIcon();
        return 1;
    case TRAY_ICON_PRESENCE::Shown:
        break;
    }
    if (m_bIconAdded != 0)
    {
        return SendTrayMsg(NIM_MODIFY, bConnected ? 1 : 0);
    }
    AddTrayIcon();
    return 1;
}

int CTaskBarWindow::AddTrayIcon()
{
    m_bIconAdded = SendTrayMsg(NIM_ADD, m_Connection.dwConnectCount != 0 ? 1 : 0);
    if (m_uTrayRetryTimer != 0)
    {
        KillTimer(m_hWnd, TIMER_TRAY_RETRY);
    }
    if (m_bIconAdded != 0)
    {
        m_nTrayRetries = 0;
        if (g_bOneTimeSession != 0)
        {
            PostMessageW(m_hWnd, WM_SHOW_ONE_TIME_AGENT_BALLON, 0, 0);
        }
    }
    else
    {
        ++m_nTrayRetries;
        m_uTrayRetryTimer = SetTimer(m_hWnd, TIMER_TRAY_RETRY, GetTrayRetryPeriod(m_nTrayRetries), nullptr);
    }
    return static_cast<int>(m_bIconAdded);
}

int CTaskBarWindow::ChangeTrayIcon(int bActive)
{
    return SendTrayMsg(NIM_MODIFY, bActive);
}

int CTaskBarWindow::DelTrayIcon()
{
    const int bDeleted = SendTrayMsg(NIM_DELETE, 0);
    if (bDeleted != 0)
    {
        m_bIconAdded = 0;
    }
    return bDeleted;
}

// Once the shell has been seen it isn't looked for again. A miss counts as an attempt of its own, so that a
// shell that stays away is asked slowly after half a minute.
bool CTaskBarWindow::IsShellReady()
{
    if (m_bDesktopReady == 0)
    {
        m_bDesktopReady = IsUserDesktopInitialized() ? 1 : 0;
        m_nTrayRetries = m_bDesktopReady != 0 ? 0 : m_nTrayRetries + 1;
    }
    return m_bDesktopReady != 0;
}

void CTaskBarWindow::FillNotifyIconData()
{
    m_NotifyIconData.cbSize = m_bShellV5 != 0 ? NOTIFYICONDATAW_V2_SIZE : NOTIFYICONDATAW_V1_SIZE;
    m_NotifyIconData.hWnd = m_hWnd;
    m_NotifyIconData.uID = TRAY_ICON_ID;
    m_NotifyIconData.uCallbackMessage = WM_TRAY_NOTIFY;
}

HICON CTaskBarWindow::ChooseTrayIcon(bool bConnected) const
{
    switch (ChooseTrayIconImage(bConnected, m_Settings.bPermissionRequired != 0))
    {
    case TRAY_ICON_IMAGE::Active:
        return m_hIconActive;
    case TRAY_ICON_IMAGE::Permission:
        return m_hIconPermission;
    case TRAY_ICON_IMAGE::Idle:
        break;
    }
    return m_hIconIdle;
}

void CTaskBarWindow::SetNotifyIconTip(bool bOneTimeSession)
{
    const std::wstring_view text = FixedText(m_Settings.szTrayTip);
    if (text.empty())
    {
        return;
    }
    const bool bPermission = m_Settings.bPermissionRequired != 0;
    std::wstring prefix;
    if (bOneTimeSession)
    {
        prefix += LoadResourceText(IDS_TIP_ONE_TIME, MAX_TIP_PREFIX);
    }
    if (bPermission)
    {
        prefix += LoadResourceText(IDS_TIP_PERMISSION, MAX_TIP_PREFIX) + LINE_END;
    }
    const size_t cchTip = m_bShellV5 != 0 ? TIP_LENGTH : TIP_LENGTH_OF_OLD_SHELL;
    CopyText(m_NotifyIconData.szTip, ComposeTrayTip(text, prefix, bOneTimeSession || bPermission, cchTip));
    m_NotifyIconData.uFlags |= NIF_TIP;
}

void CTaskBarWindow::ClearBalloon()
{
    m_NotifyIconData.dwInfoFlags = 0;
    m_NotifyIconData.uTimeout = 0;
    m_NotifyIconData.szInfoTitle[0] = L'\0';
    m_NotifyIconData.szInfo[0] = L'\0';
}

void CTaskBarWindow::SetBalloon(std::wstring_view text, UINT uTimeout)
{
    m_NotifyIconData.uFlags |= NIF_INFO | NIF_REALTIME;
    m_NotifyIconData.dwInfoFlags = NIIF_INFO;
    CopyText(m_NotifyIconData.szInfoTitle, PRODUCT_NAME);
    CopyText(m_NotifyIconData.szInfo, text);
    m_NotifyIconData.uTimeout = uTimeout;
}

int CTaskBarWindow::SendTrayMsg(DWORD dwMessage, int bActive)
{
    const TKLogBlock block(L"CTaskBarWindow::SendTrayMsg", g_pLogger);
    TK_LOG_INFO(g_pLogger, L"dwMsg=" << dwMessage << L" bActive=" << bActive);
    if (m_hWnd == nullptr || !IsShellReady())
    {
        return 0;
    }
    FillNotifyIconData();
    if (m_bShellV5 != 0)
    {
        ClearBalloon();
    }
    m_NotifyIconData.uFlags = NIF_ICON | NIF_MESSAGE;
    m_NotifyIconData.hIcon = ChooseTrayIcon(bActive != 0);
    SetNotifyIconTip(g_bOneTimeSession != 0);
    return Shell_NotifyIconW(dwMessage, &m_NotifyIconData);
}

int CTaskBarWindow::SendTrayMsgServerReconfiguring(int bReconfiguring, const wchar_t* pszText)
{
    if (m_hWnd == nullptr)
    {
        return 0;
    }
    if (m_Settings.dwTrayIcon == TRAY_ICON_HIDDEN || m_Settings.dwTrayIcon == TRAY_ICON_WHILE_CONNECTED)
    {
        return 1;
    }
    if (bReconfiguring != 0 && m_NotifyIconData.hIcon == m_hIconReconfiguring)
    {
        return 1; // announced already: a second balloon would tell nothing new
    }
    const std::wstring_view text = pszText != nullptr ? pszText : std::wstring_view();
    FillNotifyIconData();
    if (bReconfiguring != 0)
    {
        m_NotifyIconData.uFlags = NIF_ICON | NIF_MESSAGE | NIF_TIP;
        m_NotifyIconData.hIcon = m_hIconReconfiguring;
        if (pszText != nullptr)
        {
            CopyText(m_NotifyIconData.szTip, text);
        }
        if (m_bShellV5 != 0)
        {
            SetBalloon(text, BALLOON_TIMEOUT);
        }
    }
    else
    {
        m_NotifyIconData.uFlags = NIF_ICON | NIF_MESSAGE;
        m_NotifyIconData.hIcon = ChooseTrayIcon(m_Connection.dwConnectCount != 0);
        if (m_bShellV5 != 0)
        {
            m_NotifyIconData.uFlags |= NIF_INFO | NIF_REALTIME; // an empty balloon takes the old one away
            ClearBalloon();
        }
        SetNotifyIconTip(false);
    }
    return Shell_NotifyIconW(NIM_MODIFY, &m_NotifyIconData);
}

int CTaskBarWindow::ShowTrayBalloonMsg(const wchar_t* pszText)
{
    TK_LOG_DEBUG(g_pLogger, L"ShowTrayBalloon");
    if (pszText == nullptr || m_hWnd == nullptr)
    {
        return 0;
    }
    if (m_Settings.dwTrayIcon != TRAY_ICON_SHOWN)
    {
        return 1;
    }
    if (m_bShellV5 == 0)
    {
        return 0;
    }
    FillNotifyIconData();
    m_NotifyIconData.uFlags = 0;
    SetBalloon(pszText, 0);
    return Shell_NotifyIconW(NIM_MODIFY, &m_NotifyIconData);
}
