#include "channel/NoticeMessages.h"

#include "Include/BoundedText.h"
#include "channel/MessageHandlers.h"
#include "channel/TrayMessages.h"
#include "tray/TKDASTWindow.h"

#include <string>

namespace
{
constexpr UINT NOTICE_AFTER_CONNECT = 2000; // milliseconds: a burst of messages gives one notice

const MSG_TRAYICON_CONNECT& KeepConnection(CHANNEL_CONTEXT& context)
{
    MSG_TRAYICON_CONNECT& connection = context.pWindow->m_Connection;
    connection = RecordOf<MSG_TRAYICON_CONNECT>(context);
    return connection;
}

// Without an open chat window the line is lost: it isn't kept for later.
void TellChatWindow(const CTaskBarWindow& window, bool bConnected)
{
    const HWND hChatWindow = window.m_hChatWindow;
    if (!IsWindow(hChatWindow))
    {
        return;
    }
    CHAT_CONNECT_NOTICE notice = {};
    notice.bConnected = bConnected ? 1 : 0;
    notice.dwConnectCount = window.m_Connection.dwConnectCount;
    std::wstring text(FixedText(window.m_Connection.szClientName));
    CopyText(notice.szNotice, text.append(bConnected ? L" connected" : L" disconnected"));
    SendMessageW(hChatWindow, bConnected ? WM_CHAT_USER_CONNECTED : WM_CHAT_USER_DISCONNECTED,
                 reinterpret_cast<WPARAM>(&notice), 0);
}
} // namespace

bool OnConnectCount(CHANNEL_CONTEXT& context)
{
    CTaskBarWindow& window = *context.pWindow;
    const MSG_TRAYICON_CONNECT& connection = KeepConnection(context);
    window.m_dwConnectionType = connection.dwConnectCount != 0 ? connection.dwConnectionType
                                                               : window.m_Settings.dwDefaultConnectionType;
    window.SetTrayIcon();
    return true;
}

bool OnConnectNotify(CHANNEL_CONTEXT& context)
{
    CTaskBarWindow& window = *context.pWindow;
    window.m_dwConnectionType = KeepConnection(context).dwConnectionType;
    window.SetTrayIcon();
    TellChatWindow(window, true);
    if (window.m_bAwaitingFirstSettings != 0)
    {
        // Without settings it can't be told whether a notice is wanted; their arrival arms the timer.
        MSG_TRAYICON_TYPE_ONLY request = {MSG_TYPE_TRAYICON_SETTINGS_REQUEST};
        window.SendToService(reinterpret_cast<char*>(&request), sizeof(request));
        window.m_bNotifyPending = 1;
        return true;
    }
    window.m_bNotifyPending = 1;
    SetTimer(context.hWnd, TIMER_CONNECT_NOTICE, NOTICE_AFTER_CONNECT, nullptr);
    return true;
}

bool OnDisconnectNotify(CHANNEL_CONTEXT& context)
{
    CTaskBarWindow& window = *context.pWindow;
    const MSG_TRAYICON_CONNECT& connection = KeepConnection(context);
    TellChatWindow(window, false);
    if (connection.dwConnectCount == 0)
    {
        window.SFT_RemoveDropWindow(ALL_DROP_WINDOWS);
        window.m_dwConnectionType = ORDINARY_CONNECTION_TYPE; // and not the default of the settings
    }
    else
    {
        window.SFT_RemoveDropWindow(connection.dwClientId);
    }
    window.NotifyDisconnect();
    return true;
}

bool OnConnectNotifyAll(CHANNEL_CONTEXT& context)
{
    context.pWindow->m_ConnectedList = RecordOf<MSG_TRAYICON_CONNECT_NOTIFY_ALL>(context);
    context.pWindow->NotifyAll();
    return true;
}

bool OnSftDropClient(CHANNEL_CONTEXT& context)
{
    context.pWindow->SFT_AddDropWindow(RecordOf<MSG_TRAYICON_SFT_DROP_CLIENT>(context));
    return true;
}
