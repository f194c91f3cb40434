#include "channel/MessageHandlers.h"

#include "Include/BoundedText.h"
#include "Include/LangUI.h"
#include "Include/UtilResource.h"
#include "channel/CTKSocket.h"
#include "channel/TrayMessages.h"
#include "startup/TKDAST.h"
#include "tray/DesktopOptions.h"
#include "tray/TKDASTWindow.h"

#include <string>

namespace
{
// Milliseconds until a notice is considered; a new arming puts it off.
constexpr UINT NOTICE_AFTER_INIT = 1000;
constexpr UINT NOTICE_AFTER_SETTINGS = 5000;
constexpr UINT SETTINGS_DIALOG_DELAY = 500; // milliseconds

bool WriteEffectsAcknowledgement(CHANNEL_CONTEXT& context, DWORD dwEffects)
{
    const MSG_TRAYICON_DESKTOP_EFFECTS acknowledgement = {MSG_TYPE_TRAYICON_DESKTOP_EFFECTS_ACK, dwEffects};
    return context.pSocket->WriteAll(reinterpret_cast<const char*>(&acknowledgement),
                                     sizeof(acknowledgement)) != 0;
}

bool WriteDesktopUser(CHANNEL_CONTEXT& context)
{
    MSG_TRAYICON_DESKTOP_USER_INFORMATION information = {};
    CTaskBarWindow::GetDesktopUserInformation(&information);
    information.dwType = MSG_TYPE_TRAYICON_DESKTOP_USER_INFORMATION;
    return context.pSocket->WriteAll(reinterpret_cast<const char*>(&information), sizeof(information)) != 0;
}

// The acknowledgement tells that the value was seen, not what came of it.
void ApplyDesktopEffects(CHANNEL_CONTEXT& context, DWORD dwEffects)
{
    if (dwEffects > DESKTOP_OPTIONS_NONE)
    {
        context.pWindow->SetDesktopOptions(dwEffects);
    }
}

void ReloadLanguage(const CTaskBarWindow& window)
{
    if (window.m_Settings.dwExitLock2 == 0)
    {
        g_ProfileReg.SetRootKey(HKEY_CURRENT_USER);
    }
    ReloadLanguageModule();
}
} // namespace

bool OnTrayIconInit(CHANNEL_CONTEXT& context)
{
    MSG_TRAYICON_INIT& init = RecordOf<MSG_TRAYICON_INIT>(context);
    g_bOtiInvitation = init.bOneTimeInvitation;
    CopyText(g_szOtiInvitation, FixedText(init.szInvitation));
    ApplyDesktopEffects(context, init.dwDesktopEffects);
    if (!WriteEffectsAcknowledgement(context, 0))
    {
        return false;
    }
    CheckDesktopState();
    init.dwDesktopState = g_dwDesktopState;
    init.dwSessionId = g_dwSessionId;
    if (!WriteRecord(context, sizeof(init)))
    {
        return false;
    }
    SetTimer(context.hWnd, TIMER_CONNECT_NOTICE, NOTICE_AFTER_INIT, nullptr);
    return true;
}

bool OnTrayIconExit(CHANNEL_CONTEXT& context)
{
    context.pWindow->RetoreDesktopOptions();
    context.pSocket->Close();
    PostMessageW(context.hWnd, WM_CLOSE, 0, 0);
    g_nExitCode = EXIT_ASKED_TO_END;
    return false;
}

bool OnSettings(CHANNEL_CONTEXT& context)
{
    CTaskBarWindow& window = *context.pWindow;
    window.m_Settings = RecordOf<MSG_TRAYICON_SETTINGS>(context);
    window.m_bAwaitingFirstSettings = 0;
    window.m_bServiceReplied = 1;
    window.m_dwConnectionType = window.m_Settings.dwDefaultConnectionType;
    window.SetTrayIcon();
    if (!WriteDesktopUser(context))
    {
        return false;
    }
    SetTimer(context.hWnd, TIMER_CONNECT_NOTICE, NOTICE_AFTER_SETTINGS, nullptr);
    return true;
}

// Overwrites the connection type even while a session runs; the next connection record mends it.
bool OnSettingsUpdate(CHANNEL_CONTEXT& context)
{
    CTaskBarWindow& window = *context.pWindow;
    window.m_Settings = RecordOf<MSG_TRAYICON_SETTINGS>(context);
    window.m_dwConnectionType = window.m_Settings.dwDefaultConnectionType;
    window.SetTrayIcon();
    window.m_bServiceReplied = 1;
    return true;
}

bool OnDesktopUserInformation(CHANNEL_CONTEXT& context)
{
    return WriteDesktopUser(context);
}

bool OnPosibleLockStateChange(CHANNEL_CONTEXT& context)
{
    CheckDesktopState();
    if (g_dwDesktopState != DESKTOP_STATE_LOCKED)
    {
        context.pWindow->NotifyConnect();
    }
    return true;
}

void BeforeDesktopEffects(CHANNEL_CONTEXT& context)
{
    context.pWindow->SetTrayIcon();
}

bool OnDesktopEffects(CHANNEL_CONTEXT& context)
{
    const DWORD dwEffects = RecordOf<MSG_TRAYICON_DESKTOP_EFFECTS>(context).dwDesktopEffects;
    ApplyDesktopEffects(context, dwEffects);
    return WriteEffectsAcknowledgement(context, dwEffects);
}

bool OnSettingsDialog(CHANNEL_CONTEXT& context)
{
    SetTimer(context.hWnd, TIMER_SETTINGS_DIALOG, SETTINGS_DIALOG_DELAY, nullptr);
    return true;
}

bool OnServerReconfigure(CHANNEL_CONTEXT& context)
{
    const MSG_TRAYICON_SERVER_RECONFIGURE& record = RecordOf<MSG_TRAYICON_SERVER_RECONFIGURE>(context);
    const std::wstring message(FixedText(record.szMessage));
    context.pWindow->SendTrayMsgServerReconfiguring(static_cast<int>(record.bReconfiguring), message.c_str());
    ReloadLanguage(*context.pWindow);
    return true;
}

bool OnIpAddresses(CHANNEL_CONTEXT& context)
{
    context.pWindow->m_IpAddresses = RecordOf<MSG_TRAYICON_IP_ADDRESSES>(context);
    context.pWindow->m_bServiceReplied = 1;
    return true;
}
