#include "dialogs/CreateInvitationDialog.h"

#include "Include/Product.h"
#include "Include/TKLogging.h"
#include "Include/UtilResource.h"
#include "Include/WipeAtEnd.h"
#include "dialogs/DialogControls.h"
#include "dialogs/HostList.h"
#include "dialogs/InvitationExchange.h"
#include "dialogs/InvitationOutput.h"
#include "resources/resource.h"
#include "tray/TKDASTWindow.h"

#include <iterator>

HWND g_hCreateInvitationDlg = nullptr;

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("CreateInvitationDialog");

constexpr size_t MAX_LIST_HOST = 260;   // characters, terminator included
constexpr size_t MAX_PORT_TEXT = 64;    // characters, terminator included
constexpr size_t MAX_TEXT = 1024;       // of the language module; characters, terminator included
constexpr DWORD RESULT_TIMEOUT = 30000; // milliseconds
constexpr WPARAM FIRST_EXPIRY_CHOICE = IDS_EXPIRES_1_HOUR - IDS_EXPIRES_15_MINUTES;

constexpr PROXY_LIST s_proxies = {
    ProxyHosts(L"Software\\Tessaran Development\\Kestrel Desk Assist\\Invitations", MAX_LIST_HOST,
               IDC_INVITE_PROXY_PORT),
    IDC_INVITE_PROXY_HOST, IDC_INVITE_PROXY_SECRET, IDC_INVITE_USE_PROXY, IDC_INVITE_USE_PROXY_SECRET};

constexpr int ALLOWANCES[] = {IDC_INVITE_VIEW, IDC_INVITE_CONTROL, IDC_INVITE_FILES, IDC_INVITE_CHAT};
constexpr int OUTPUTS[] = {IDC_INVITE_TEXT, IDC_INVITE_SAVE, IDC_INVITE_COPY_FILE, IDC_INVITE_COPY_TEXT};

struct INVITATION_STATE
{
    CTaskBarWindow* pWindow = nullptr;
};

INVITATION_STATE g_state;

// What is typed beyond these lengths would be lost without a word.
void LimitTexts(HWND hDlg)
{
    const MSG_UDP_CREATE_INVITATION record = {};
    SendDlgItemMessageW(hDlg, IDC_INVITE_NAME, EM_LIMITTEXT, std::size(record.szInvitationName) - 1, 0);
    SendDlgItemMessageW(hDlg, IDC_INVITE_SECRET, EM_LIMITTEXT, std::size(record.szInvitationSecret) - 1, 0);
    SendDlgItemMessageW(hDlg, IDC_INVITE_PROXY_HOST, CB_LIMITTEXT, std::size(record.szProxyHost) - 1, 0);
    SendDlgItemMessageW(hDlg, IDC_INVITE_PROXY_PORT, EM_LIMITTEXT, MAX_PORT_TEXT - 1, 0);
    SendDlgItemMessageW(hDlg, IDC_INVITE_PROXY_SECRET, EM_LIMITTEXT, std::size(record.szProxySecret) - 1, 0);
}

void FillExpiryList(HWND hCombo)
{
    for (UINT uString = IDS_EXPIRES_15_MINUTES; uString <= IDS_EXPIRES_NEVER; ++uString)
    {
        SendMessageW(hCombo, CB_ADDSTRING, 0,
                     reinterpret_cast<LPARAM>(LoadResourceText(uString, MAX_TEXT).c_str()));
    }
    SendMessageW(hCombo, CB_SETCURSEL, FIRST_EXPIRY_CHOICE, 0);
}

void ForbidUnless(HWND hDlg, int nBox, DWORD bAllowed)
{
    if (bAllowed == 0)
    {
        CheckDlgButton(hDlg, nBox, BST_UNCHECKED);
        EnableControl(hDlg, nBox, false);
    }
}

void ApplySettings(HWND hDlg, const MSG_TRAYICON_SETTINGS& settings)
{
    ForbidUnless(hDlg, IDC_INVITE_CHAT, settings.bInviteOption1010);
    ForbidUnless(hDlg, IDC_INVITE_VIEW, settings.bInviteOption1015);
    ForbidUnless(hDlg, IDC_INVITE_FILES, settings.bInviteOption1017);
    ForbidUnless(hDlg, IDC_INVITE_CONTROL, settings.bInviteOption1016);
}

INT_PTR OnInitDialog(HWND hDlg, CTaskBarWindow* pWindow)
{
    g_hCreateInvitationDlg = hDlg;
    g_state = INVITATION_STATE();
    g_state.pWindow = pWindow;
    SetSecretFont(hDlg, IDC_INVITE_SECRET);
    SetSecretFont(hDlg, IDC_INVITE_PROXY_SECRET);
    LimitTexts(hDlg);
    ShowNumber(hDlg, IDC_INVITE_PROXY_PORT, DEFAULT_PROXY_PORT);
    CheckDlgButton(hDlg, IDC_INVITE_ONCE, BST_CHECKED);
    CheckDlgButton(hDlg, IDC_INVITE_USE_SECRET, BST_UNCHECKED);
    CheckDlgButton(hDlg, IDC_INVITE_CHAT, BST_UNCHECKED);
    EnableControl(hDlg, IDC_INVITE_SECRET, false);
    const HWND hExpiry = GetDlgItem(hDlg, IDC_INVITE_EXPIRY);
    if (hExpiry == nullptr)
    {
        return TRUE;
    }
    FillExpiryList(hExpiry);
    ApplySettings(hDlg, pWindow->m_Settings);
    if (const HWND hProxy = GetDlgItem(hDlg, IDC_INVITE_PROXY_HOST); hProxy != nullptr)
    {
        LoadInvitationProxyList(hProxy, hDlg);
    }
    return TRUE;
}

// Straight into the record, without a copy that would have to be wiped. False when there is no text.
template <size_t N>
bool TakeText(HWND hDlg, int nControl, wchar_t (&szField)[N])
{
    return GetDlgItemTextW(hDlg, nControl, szField, static_cast<int>(N)) != 0;
}

DWORD TickedFlag(HWND hDlg, int nBox)
{
    return IsTicked(hDlg, nBox) ? 1 : 0;
}

bool TakeName(HWND hDlg, MSG_UDP_CREATE_INVITATION& record)
{
    if (!TakeText(hDlg, IDC_INVITE_NAME, record.szInvitationName))
    {
        AskFor(hDlg, IDS_INVITE_NAME_EMPTY, IDC_INVITE_NAME);
        return false;
    }
    return true;
}

bool TakeSecret(HWND hDlg, MSG_UDP_CREATE_INVITATION& record)
{
    record.bUseInvitationSecret = TickedFlag(hDlg, IDC_INVITE_USE_SECRET);
    if (record.bUseInvitationSecret != 0 && !TakeText(hDlg, IDC_INVITE_SECRET, record.szInvitationSecret))
    {
        // The text's number stands where the control's should, so that the focus stays where it is.
        AskFor(hDlg, IDS_INVITE_SECRET_EMPTY, IDS_INVITE_SECRET_EMPTY);
        return false;
    }
    return true;
}

void TakeExpiry(HWND hDlg, MSG_UDP_CREATE_INVITATION& record)
{
    const LRESULT nChoice = SendDlgItemMessageW(hDlg, IDC_INVITE_EXPIRY, CB_GETCURSEL, 0, 0);
    if (nChoice != CB_ERR)
    {
        record.dwExpirySelection = static_cast<DWORD>(nChoice);
    }
}

bool TakeAllowances(HWND hDlg, MSG_UDP_CREATE_INVITATION& record)
{
    record.bOption1015 = TickedFlag(hDlg, IDC_INVITE_VIEW);
    record.bOption1016 = TickedFlag(hDlg, IDC_INVITE_CONTROL);
    record.bOption1017 = TickedFlag(hDlg, IDC_INVITE_FILES);
    for (const int nBox : ALLOWANCES)
    {
        if (IsTicked(hDlg, nBox))
        {
            return true;
        }
    }
    AskFor(hDlg, IDS_INVITE_NOTHING_ALLOWED, IDC_INVITE_VIEW);
    return false;
}

bool TakeProxy(HWND hDlg, MSG_UDP_CREATE_INVITATION& record)
{
    record.bUseProxy = TickedFlag(hDlg, IDC_INVITE_USE_PROXY);
    if (record.bUseProxy == 0)
    {
        return true;
    }
    if (!TakeText(hDlg, IDC_INVITE_PROXY_HOST, record.szProxyHost))
    {
        AskFor(hDlg, IDS_PROXY_HOST_EMPTY, IDC_INVITE_PROXY_HOST);
        return false;
    }
    const std::wstring port = ReadControl(hDlg, IDC_INVITE_PROXY_PORT, MAX_PORT_TEXT);
    if (port.empty())
    {
        AskFor(hDlg, IDS_PROXY_PORT_EMPTY, IDC_INVITE_PROXY_PORT);
        return false;
    }
    record.dwProxyPort = ParseNumber(port);
    return true;
}

// Asked for without a proxy, too: the service keeps it apart from the proxy.
bool TakeProxySecret(HWND hDlg, MSG_UDP_CREATE_INVITATION& record)
{
    record.bUseProxySecret = TickedFlag(hDlg, IDC_INVITE_USE_PROXY_SECRET);
    if (record.bUseProxySecret != 0 && !TakeText(hDlg, IDC_INVITE_PROXY_SECRET, record.szProxySecret))
    {
        AskFor(hDlg, IDS_PROXY_SECRET_EMPTY, IDC_INVITE_PROXY_SECRET);
        return false;
    }
    return true;
}

// The first thing that is missing is asked for.
bool TakeRequest(HWND hDlg, MSG_UDP_CREATE_INVITATION& record)
{
    if (!TakeName(hDlg, record))
    {
        return false;
    }
    record.bOption1006 = TickedFlag(hDlg, IDC_INVITE_ONCE);
    record.bOption1010 = TickedFlag(hDlg, IDC_INVITE_CHAT);
    if (!TakeSecret(hDlg, record))
    {
        return false;
    }
    TakeExpiry(hDlg, record);
    return TakeAllowances(hDlg, record) && TakeProxy(hDlg, record) && TakeProxySecret(hDlg, record);
}

// Until the next success nothing can be copied or saved, deliberately: what stands there is an older one.
void OnCreate(HWND hDlg)
{
    EnableCreateWindows(hDlg, FALSE);
    MSG_UDP_CREATE_INVITATION record = {};
    const CWipeAtEnd wipe(&record, sizeof(record));
    if (!TakeRequest(hDlg, record))
    {
        return;
    }
    SaveInvitationProxyList(GetDlgItem(hDlg, IDC_INVITE_PROXY_HOST), hDlg, record.szProxyHost,
                            record.dwProxyPort);
    if (CreateInvitationViaUDP(hDlg, record) != 0)
    {
        EnableCreateWindows(hDlg, TRUE);
    }
}

void OnDeleteAll(HWND hDlg)
{
    if (MessageBoxW(hDlg, LoadResourceText(IDS_INVITE_ASK_DELETE, MAX_TEXT).c_str(), PRODUCT_NAME,
                    MB_YESNO | MB_ICONQUESTION | MB_DEFBUTTON2) == IDYES)
    {
        DeleteAllInvitations(hDlg);
    }
}

void OnUseProxy(HWND hDlg)
{
    const bool bUse = IsTicked(hDlg, IDC_INVITE_USE_PROXY);
    EnableControl(hDlg, IDC_INVITE_PROXY_HOST, bUse);
    EnableControl(hDlg, IDC_INVITE_PROXY_PORT, bUse);
}

void OnCommand(HWND hDlg, int nControl)
{
    switch (nControl)
    {
    case IDOK:
    case IDCANCEL:
        EndDialog(hDlg, 0);
        break;
    case IDC_INVITE_CREATE:
        OnCreate(hDlg);
        break;
    case IDC_INVITE_SAVE:
        SaveAsFile(hDlg);
        break;
    case IDC_INVITE_COPY_TEXT:
        CopyAsBlob(hDlg);
        break;
    case IDC_INVITE_COPY_FILE:
        CopyAsFile(hDlg);
        break;
    case IDC_INVITE_DELETE_ALL:
        OnDeleteAll(hDlg);
        break;
    case IDC_INVITE_USE_SECRET:
        EnableControl(hDlg, IDC_INVITE_SECRET, IsTicked(hDlg, IDC_INVITE_USE_SECRET));
        break;
    case IDC_INVITE_USE_PROXY:
        OnUseProxy(hDlg);
        break;
    case IDC_INVITE_USE_PROXY_SECRET:
        EnableControl(hDlg, IDC_INVITE_PROXY_SECRET, IsTicked(hDlg, IDC_INVITE_USE_PROXY_SECRET));
        break;
    default:
        break;
    }
}

void OnDestroy()
{
    g_hCreateInvitationDlg = nullptr;
    g_state = INVITATION_STATE();
}
} // namespace

INT_PTR CALLBACK CreateInvitationWndProc(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam)
{
    const TKLogBlock block(L"CreateInvitationWndProc", g_pLogger);
    TK_LOG_DEBUG(g_pLogger, L"iMsg=" << uMessage);
    switch (uMessage)
    {
    case WM_INITDIALOG:
        return OnInitDialog(hWnd, reinterpret_cast<CTaskBarWindow*>(lParam));
    case WM_COMMAND:
        OnCommand(hWnd, LOWORD(wParam));
        return TRUE;
    case WM_CLOSE:
        EndDialog(hWnd, 0);
        return TRUE;
    case WM_DESTROY:
        OnDestroy();
        return TRUE;
    default:
        return FALSE;
    }
}

void EnableCreateWindows(HWND hDlg, int bEnable)
{
    const TKLogBlock block(L"EnableCreateWindows", g_pLogger);
    TK_LOG_DEBUG(g_pLogger, L"bEnable=" << bEnable);
    for (const int nOutput : OUTPUTS)
    {
        const HWND hOutput = GetDlgItem(hDlg, nOutput);
        if (bEnable == 0 && hOutput != nullptr && hOutput == GetFocus())
        {
            // A window that can't be used takes the keyboard with it.
            SendMessageW(hDlg, WM_NEXTDLGCTL, reinterpret_cast<WPARAM>(GetDlgItem(hDlg, IDC_INVITE_CREATE)),
                         TRUE);
        }
        EnableControl(hDlg, nOutput, bEnable != 0);
    }
}

int DeleteAllInvitations(HWND hDlg)
{
    const TKLogBlock block(L"DeleteAllInvitations", g_pLogger);
    MSG_UDP_DELETE_INVITATIONS answer = {};
    if (DeleteInvitationsViaUDP(answer) == 0)
    {
        return 0;
    }
    const UINT uResult =
        answer.dwStatus == UDP_DELETE_STATUS_BUSY ? IDS_INVITE_DELETED_BUSY : IDS_INVITE_DELETED;
    g_state.pWindow->ShowBox(
        hDlg, FillPlaceholders(LoadResourceText(uResult, MAX_TEXT), {std::to_wstring(answer.dwCount)}),
        PRODUCT_NAME, MB_ICONINFORMATION, RESULT_TIMEOUT);
    return 1;
}

int LoadInvitationProxyList(HWND hCombo, HWND hDlg)
{
    const TKLogBlock block(L"LoadInvitationProxyList", g_pLogger);
    return LoadProxies(s_proxies, hCombo, hDlg);
}

int SaveInvitationProxyList(HWND hCombo, HWND hDlg, const wchar_t* pszHost, DWORD dwPort)
{
    const TKLogBlock block(L"SaveInvitationProxyList", g_pLogger);
    return SaveProxies(s_proxies, hCombo, hDlg, pszHost, dwPort);
}
