#include "tests/gallery/Exhibits.h"

#include "Include/BoundedText.h"
#include "TKDAS/SimultanousSessionMutex.h"
#include "certificates/ValidateCertDialog.h"
#include "dialogs/AboutDialog.h"
#include "dialogs/ClientPermissionDialog.h"
#include "dialogs/ConnectToClientDialog.h"
#include "dialogs/CreateInvitationDialog.h"
#include "resources/resource.h"
#include "startup/TKDAST.h"
#include "tests/gallery/ChatExhibits.h"
#include "tests/gallery/SettingsExhibits.h"
#include "tests/support/ImportHook.h"
#include "tests/support/LoopbackPeer.h"
#include "tests/support/TestCertificates.h"
#include "tray/TrayMenu.h"

#include <string>
#include <thread>
#include <vector>

namespace
{
constexpr size_t LONGEST_NAME = 259; // characters
constexpr size_t LONGEST_PERMISSION_TEXT = 4096;
constexpr size_t LONGEST_FIRST_LINE = 779; // characters

std::wstring Words(size_t cch)
{
    std::wstring text;
    while (text.size() < cch)
    {
        text += L"The administrators of the head office may look at this computer. ";
    }
    return text.substr(0, cch);
}

std::wstring OneWord(size_t cch)
{
    std::wstring text;
    while (text.size() < cch)
    {
        text += L"Ambassador-of-Liechtenstein";
    }
    return text.substr(0, cch);
}

void FillRecords(CTaskBarWindow& window, DWORD dwConnectionType)
{
    CopyText(window.m_Settings.szNotifyText, L"Your help desk is at your service.");
    CopyText(window.m_Settings.szNotifyConnectText, L"A technician can now see your screen:");
    window.m_Connection.dwConnectionType = dwConnectionType;
    window.m_Connection.dwConnectCount = 1;
    CopyText(window.m_Connection.szClientName, L"Alice Müller & Sons");
    CopyText(window.m_Connection.szClientDetail1, L"Example Support Ltd");
    CopyText(window.m_Connection.szClientDetail2, L"HELPDESK-07 (192.168.17.4)");
}

void FillLongRecords(CTaskBarWindow& window)
{
    FillRecords(window, 2);
    CopyText(window.m_Settings.szNotifyText, Words(LONGEST_NAME));
    CopyText(window.m_Settings.szNotifyConnectText, Words(LONGEST_FIRST_LINE));
    CopyText(window.m_Connection.szClientName, OneWord(LONGEST_NAME));
    CopyText(window.m_Connection.szClientDetail1, Words(LONGEST_NAME));
    CopyText(window.m_Connection.szClientDetail2, OneWord(LONGEST_NAME));
}

void FillList(CTaskBarWindow& window, DWORD dwClientCount)
{
    FillRecords(window, 1);
    window.m_Connection.dwConnectCount = dwClientCount;
    window.m_ConnectedList.dwClientCount = dwClientCount;
    std::wstring list;
    for (DWORD dwClient = 1; dwClient <= dwClientCount; ++dwClient)
    {
        list += L"Technician " + std::to_wstring(dwClient) + L", Example Support Ltd, HELPDESK-0" +
                std::to_wstring(dwClient) + L"\r\n";
    }
    CopyText(window.m_ConnectedList.szClientList, list);
}

void Popup(CTaskBarWindow& window, NOTIFY_MODE mode)
{
    window.m_nNotifyMode = mode;
    SendMessageW(window.m_hWnd, WM_SHOW_DISCONNECT_DLG, 0, 0); // the one that the settings don't hold back
}

void ShowConnected(CTaskBarWindow& window)
{
    FillRecords(window, 1);
    Popup(window, NOTIFY_MODE_CONNECTED);
}

void ShowConnectedAlways(CTaskBarWindow& window)
{
    FillRecords(window, 0);
    Popup(window, NOTIFY_MODE_CONNECTED);
}

void ShowConnectedBySetting(CTaskBarWindow& window)
{
    FillRecords(window, 2);
    window.m_Settings.szNotifyText[0] = L'\0';
    Popup(window, NOTIFY_MODE_CONNECTED);
}

void ShowConnectedLong(CTaskBarWindow& window)
{
    FillLongRecords(window);
    Popup(window, NOTIFY_MODE_CONNECTED);
}

void ShowDisconnected(CTaskBarWindow& window)
{
    FillRecords(window, 1);
    Popup(window, NOTIFY_MODE_DISCONNECTED);
}

void ShowDisconnectedLong(CTaskBarWindow& window)
{
    FillLongRecords(window);
    Popup(window, NOTIFY_MODE_DISCONNECTED);
}

void ShowList(CTaskBarWindow& window)
{
    FillList(window, 9);
    Popup(window, NOTIFY_MODE_EVERYONE);
}

void ShowListFixed(CTaskBarWindow& window)
{
    FillList(window, 2);
    window.m_Connection.bListClients = 1;
    Popup(window, NOTIFY_MODE_EVERYONE);
}

void ShowListEmpty(CTaskBarWindow& window)
{
    FillList(window, 0);
    Popup(window, NOTIFY_MODE_EVERYONE);
}

void RunAbout(const MSG_TRAYICON_IP_ADDRESSES& addresses)
{
    DialogBoxParamW(g_hResourceModule, MAKEINTRESOURCEW(IDD_ABOUT), nullptr, AboutWndProc,
                    reinterpret_cast<LPARAM>(&addresses));
}

void ShowAbout(CTaskBarWindow& window)
{
    MSG_TRAYICON_IP_ADDRESSES& addresses = window.m_IpAddresses;
    CopyText(addresses.szInfo55, L"FRONT-DESK");
    CopyText(addresses.szInfo56, L"6129");
    CopyText(addresses.szInfo57, L"192.168.17.21\r\n10.0.3.9");
    CopyText(addresses.szInfo58, L"fe80::1c2d:3e4f:5a6b:7c8d");
    CopyText(addresses.szInfo60, L"203.0.113.77");
    CopyText(addresses.szInfo53, L"Windows 11 Pro 23H2");
    CopyText(addresses.szInfo54, L"EXAMPLE\\jdoe");
    CopyText(addresses.szInfo59, L"C:\\Program Files\\Tessaran\\Kestrel Desk Assist\\TKDAS.exe");
    CopyText(addresses.szInfo61, L"AES 256");
    addresses.bInfoFlag89 = 1;
    addresses.bInfoFlag117 = 1;
    RunAbout(addresses);
}

void ShowAboutUnanswered(CTaskBarWindow& window)
{
    RunAbout(window.m_IpAddresses);
}

// As it looks when an invitation has been made.
void CALLBACK FillInvitation(HWND, UINT, UINT_PTR uTimer, DWORD)
{
    const HWND hDlg = g_hCreateInvitationDlg;
    if (hDlg == nullptr)
    {
        return;
    }
    KillTimer(nullptr, uTimer);
    SetDlgItemTextW(hDlg, IDC_INVITE_NAME, L"Alice Müller & Sons");
    for (const int nBox : {IDC_INVITE_VIEW, IDC_INVITE_CONTROL, IDC_INVITE_USE_SECRET, IDC_INVITE_USE_PROXY})
    {
        SendDlgItemMessageW(hDlg, nBox, BM_CLICK, 0, 0);
    }
    SetDlgItemTextW(hDlg, IDC_INVITE_SECRET, L"not to be seen");
    SetDlgItemTextW(hDlg, IDC_INVITE_PROXY_HOST, L"proxy.example");
    SetDlgItemTextW(hDlg, IDC_INVITE_TEXT, Words(600).c_str());
    EnableCreateWindows(hDlg, TRUE);
}

void RunInvitation(CTaskBarWindow& window)
{
    DialogBoxParamW(g_hResourceModule, MAKEINTRESOURCEW(IDD_CREATE_INVITATION), nullptr,
                    CreateInvitationWndProc, reinterpret_cast<LPARAM>(&window));
}

void ShowInvitation(CTaskBarWindow& window)
{
    window.m_Settings.bInviteOption1015 = window.m_Settings.bInviteOption1016 = 1;
    window.m_Settings.bInviteOption1017 = window.m_Settings.bInviteOption1010 = 1;
    RunInvitation(window);
}

void ShowInvitationMade(CTaskBarWindow& window)
{
    SetTimer(nullptr, 0, USER_TIMER_MINIMUM, FillInvitation);
    ShowInvitation(window);
}

void ShowInvitationForbidden(CTaskBarWindow& window)
{
    RunInvitation(window);
}

void Ask(CTaskBarWindow& window, UINT uCommand)
{
    FillList(window, 2);
    SendMessageW(window.m_hWnd, WM_COMMAND, uCommand, 0);
}

void ShowDisconnectQuestion(CTaskBarWindow& window)
{
    Ask(window, ID_TRAY_DISCONNECT_ALL);
}

void ShowExitQuestion(CTaskBarWindow& window)
{
    Ask(window, ID_TRAY_EXIT);
}

void ShowJoinWarning(CTaskBarWindow& window)
{
    const CSimultanousSessionMutex session(false);
    g_bOtiInvitation = 1;
    SendMessageW(window.m_hWnd, WM_COMMAND, ID_TRAY_JOIN_SESSION, 0);
}

void ShowServiceMessage(CTaskBarWindow& window)
{
    CopyText(window.m_szServiceMessage, L"The viewer at 203.0.113.20 did not answer.");
    CopyText(window.m_szServiceMessageTitle, L"Tessaran Kestrel Desk Assist");
    window.m_bServiceMessageIsError = 1;
    SendMessageW(window.m_hWnd, WM_SHOW_SERVICE_MESSAGE, 0, 0);
}

void OpenMenu(CTaskBarWindow& window)
{
    MSG_TRAYICON_SETTINGS& settings = window.m_Settings;
    settings.bSettingsMenu = 1;
    settings.bInvitationMenu = 1;
    settings.dwFeatureFlags = FEATURE_CREATE_INVITATION;
    settings.bReverseConnectMenu = 1;
    SetCursorPos(300, 200);
    SendMessageW(window.m_hWnd, WM_TRAY_NOTIFY, TRAY_ICON_ID, WM_RBUTTONUP);
}

void ShowMenu(CTaskBarWindow& window)
{
    g_bOneTimeSession = 0;
    OpenMenu(window);
}

void ShowOneTimeMenu(CTaskBarWindow& window)
{
    g_bOneTimeSession = 1;
    OpenMenu(window);
}

void ShowConnectToClient(CTaskBarWindow& window)
{
    window.m_Settings.bReverseConnectMenu = 1;
    window.m_Settings.bProxyAllowed = 1;
    SendMessageW(window.m_hWnd, WM_COMMAND, ID_TRAY_CONNECT_TO_CLIENT, 0);
}

// In the loop of the dialog, as soon as it is there.
void CALLBACK FillConnectDialog(HWND, UINT, UINT_PTR uTimer, DWORD)
{
    const HWND hDlg = g_hConnectToClientDlg;
    if (hDlg == nullptr)
    {
        return;
    }
    KillTimer(nullptr, uTimer);
    for (const int nBox : {IDC_CONNECT_USE_PROXY, IDC_CONNECT_USE_PROXY_SECRET})
    {
        SendDlgItemMessageW(hDlg, nBox, BM_CLICK, 0, 0);
    }
    SetDlgItemTextW(hDlg, IDC_CONNECT_HOST, L"a-viewer-with-a-rather-long-name.support.example.com");
    SetDlgItemTextW(hDlg, IDC_CONNECT_PROXY_HOST, L"proxy.example.com");
    SetDlgItemTextW(hDlg, IDC_CONNECT_PROXY_SECRET, L"open sesame");
}

void ShowConnectThroughProxy(CTaskBarWindow& window)
{
    SetTimer(nullptr, 0, USER_TIMER_MINIMUM, FillConnectDialog);
    ShowConnectToClient(window);
}

void ShowJoin(CTaskBarWindow& window)
{
    g_bOtiInvitation = 0;
    SendMessageW(window.m_hWnd, WM_COMMAND, ID_TRAY_JOIN_SESSION, 0);
}

int WINAPI PretendFineScreen(HDC, int)
{
    constexpr int FINE_SCREEN = 144; // dots per inch
    return FINE_SCREEN;
}

void ShowJoinFine(CTaskBarWindow& window)
{
    const ImportHook<decltype(GetDeviceCaps)> hook("gdi32.dll", "GetDeviceCaps", &PretendFineScreen);
    ShowJoin(window);
}

void ShowConnectInProgress(CTaskBarWindow& window)
{
    SendMessageW(window.m_hWnd, WM_JOIN_SESSION_STATE, JOIN_SESSION_SHOW_WAIT, 0);
}

void ShowDropFor(CTaskBarWindow& window, const std::wstring& name)
{
    MSG_TRAYICON_SFT_DROP_CLIENT client = {};
    client.dwClientId = 1;
    CopyText(client.szClientName, name);
    window.SFT_AddDropWindow(client);
}

void ShowDrop(CTaskBarWindow& window)
{
    ShowDropFor(window, L"Alice Müller & Sons");
}

void ShowDropLong(CTaskBarWindow& window)
{
    ShowDropFor(window, OneWord(LONGEST_NAME + 1));
}

int WINAPI NameScreenSaver(HANDLE, int, PVOID pvName, DWORD cbName, LPDWORD)
{
    CopyText(static_cast<wchar_t*>(pvName), cbName / sizeof(wchar_t), L"Screen-saver");
    return TRUE;
}

// The prompt of a service that asks this, and doesn't care for the answer.
void RunPermission(const std::wstring& text, DWORD bDefaultDeny, DWORD bVariantText)
{
    constexpr DWORD PATIENCE = 10000; // milliseconds
    LoopbackResponder service;
    std::thread asking([&] {
        MSG_PERMISSION_PROMPT prompt = {};
        prompt.dwType = MSG_TYPE_PERMISSION_PROMPT;
        CopyText(prompt.szPrompt, text);
        prompt.bDefaultDeny = bDefaultDeny;
        prompt.bVariantText = bVariantText;
        if (service.Receive(PATIENCE))
        {
            service.Reply(&prompt, sizeof(prompt));
        }
    });
    // A desktop that needs no look at the session, which takes a second.
    const ImportHook hook("user32.dll", "GetUserObjectInformationW", &NameScreenSaver);
    CreatePermissionDialog(service.Port(), AF_INET);
    asking.join();
}

const wchar_t PERMISSION_TEXT[] =
    L"Alice Müller & Sons (Example Support Ltd) wants to connect from HELPDESK-07.";

void ShowPermission(CTaskBarWindow&)
{
    RunPermission(PERMISSION_TEXT, 0, 0);
}

void ShowPermissionDeny(CTaskBarWindow&)
{
    RunPermission(PERMISSION_TEXT, 1, 0);
}

void ShowPermissionView(CTaskBarWindow&)
{
    RunPermission(PERMISSION_TEXT, 0, 1);
}

void ShowPermissionLong(CTaskBarWindow&)
{
    RunPermission(Words(LONGEST_PERMISSION_TEXT), 1, 1);
}

// Without a name: no candidate has been found.
void RunCertificate(const char* pszName)
{
    const std::vector<BYTE> bytes = pszName != nullptr ? TestCertificate(pszName) : std::vector<BYTE>();
    g_CertContext =
        CertCreateCertificateContext(CERTIFICATE_ENCODING, bytes.data(), static_cast<DWORD>(bytes.size()));
    DialogBoxParamW(g_hResourceModule, MAKEINTRESOURCEW(IDD_VALIDATE_CERTIFICATE), nullptr, ValidateCertProc,
                    0);
}

void ShowCertificate(CTaskBarWindow&)
{
    RunCertificate("rsa");
}

void ShowCertificateLong(CTaskBarWindow&)
{
    RunCertificate("long");
}

void ShowCertificateNone(CTaskBarWindow&)
{
    RunCertificate(nullptr);
}
} // namespace

const EXHIBIT g_exhibits[] = {
    {L"connected", L"popup: somebody has connected", ShowConnected},
    {L"connected-always", L"popup: a connection of the kind that is always told", ShowConnectedAlways},
    {L"connected-setting", L"popup: a connection of the second kind, no head text from the service",
     ShowConnectedBySetting},
    {L"connected-long", L"popup: the longest texts that a record can hold", ShowConnectedLong},
    {L"disconnected", L"popup: somebody has left", ShowDisconnected},
    {L"disconnected-long", L"popup: the same with the longest texts", ShowDisconnectedLong},
    {L"list", L"popup: everyone connected", ShowList},
    {L"list-fixed", L"popup: everyone connected, can't be closed", ShowListFixed},
    {L"list-empty", L"popup: nobody is connected", ShowListEmpty},
    {L"about", L"About", ShowAbout},
    {L"about-unanswered", L"About without an answer of the service", ShowAboutUnanswered},
    {L"permission", L"may somebody connect?", ShowPermission},
    {L"permission-deny", L"the same with Deny as the default button", ShowPermissionDeny},
    {L"permission-view", L"the same for somebody who may only see", ShowPermissionView},
    {L"permission-long", L"the same with the longest text that a record can hold", ShowPermissionLong},
    {L"menu", L"menu of the icon", ShowMenu},
    {L"menu-one-time", L"menu of a one-time agent", ShowOneTimeMenu},
    {L"ask-disconnect", L"question before everyone is disconnected", ShowDisconnectQuestion},
    {L"ask-exit", L"question before the agent ends", ShowExitQuestion},
    {L"ask-join", L"warning that a session is in progress", ShowJoinWarning},
    {L"service-message", L"message of the service", ShowServiceMessage},
    {L"connect", L"Connect to client", ShowConnectToClient},
    {L"connect-proxy", L"the same with a proxy and all fields full", ShowConnectThroughProxy},
    {L"join", L"Join attended session", ShowJoin},
    {L"join-fine", L"the same with the banner for finer screens", ShowJoinFine},
    {L"connecting", L"the waiting window", ShowConnectInProgress},
    {L"invitation", L"Create invitation, as it opens", ShowInvitation},
    {L"invitation-made", L"Create invitation with a finished text", ShowInvitationMade},
    {L"invitation-forbidden", L"Create invitation where the settings allow nothing", ShowInvitationForbidden},
    {L"certificate", L"may this certificate be trusted?", ShowCertificate},
    {L"certificate-long", L"the same with a name of 250 characters", ShowCertificateLong},
    {L"certificate-none", L"the same without a certificate", ShowCertificateNone},
    {L"chat", L"the chat window in the middle of a conversation", ShowChat},
    {L"chat-empty", L"the chat window as it opens", ShowChatEmpty},
    {L"chat-long", L"the chat window with long names and texts, as small as it gets", ShowChatLong},
    {L"chat-rtl", L"the chat window with texts that are written from right to left", ShowChatRightToLeft},
    {L"drop", L"the drop window", ShowDrop},
    {L"drop-long", L"the same with the longest name that a record can hold", ShowDropLong},
    {L"settings", L"the settings", ShowSettings},
    {L"settings-user", L"the same in application mode", ShowSettingsForUser},
    {L"settings-no-rights", L"the same without administrator rights", ShowSettingsNoRights},
    {L"settings-user-no-rights", L"the same in application mode and without administrator rights",
     ShowSettingsUserNoRights},
    {L"settings-bad-port", L"the complaint of a port that is none", ShowSettingsBadPort},
    {L"settings-refused", L"what could not be stored, and why", ShowSettingsRefused},
    {nullptr, nullptr, nullptr},
};
