#include "dialogs/ConnectToClientDialog.h"

#include "Include/BoundedText.h"
#include "Include/TKLogging.h"
#include "channel/TrayMessages.h"
#include "dialogs/DialogControls.h"
#include "dialogs/HostList.h"
#include "resources/resource.h"

#include <iterator>
#include <string>

HWND g_hConnectToClientDlg = nullptr;

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("ConnectToClientDialog");

constexpr wchar_t LIST_KEY[] = L"Software\\Tessaran Development\\Kestrel Desk Assist\\Reverse Connection";
constexpr size_t MAX_HOST = std::size(decltype(MSG_REVERSE_CONNECTION::szHost){});
constexpr size_t MAX_PORT_TEXT = 120; // characters, terminator included

// The port of a host that was stored without one is a proxy's, deliberately.
constexpr HOST_LIST s_hosts = {LIST_KEY, L"Host %d",      L"Host %d",         L"Port %d",
                               L"Last",  L"Port",         DEFAULT_PROXY_PORT, DEFAULT_CLIENT_PORT,
                               MAX_HOST, IDC_CONNECT_PORT};
constexpr PROXY_LIST s_proxies = {ProxyHosts(LIST_KEY, MAX_HOST, IDC_CONNECT_PROXY_PORT),
                                  IDC_CONNECT_PROXY_HOST, IDC_CONNECT_PROXY_SECRET, IDC_CONNECT_USE_PROXY,
                                  IDC_CONNECT_USE_PROXY_SECRET};

struct CONNECT_STATE
{
    MSG_REVERSE_CONNECTION* pRecord = nullptr;
};

CONNECT_STATE g_state;

void ShowDefaultPorts(HWND hWnd)
{
    ShowNumber(hWnd, IDC_CONNECT_PORT, DEFAULT_CLIENT_PORT);
    ShowNumber(hWnd, IDC_CONNECT_PROXY_PORT, DEFAULT_PROXY_PORT);
}

void UntickProxyBoxes(HWND hWnd)
{
    CheckDlgButton(hWnd, IDC_CONNECT_USE_PROXY, BST_UNCHECKED);
    CheckDlgButton(hWnd, IDC_CONNECT_USE_PROXY_SECRET, BST_UNCHECKED);
}

INT_PTR OnInitDialog(HWND hWnd, MSG_REVERSE_CONNECTION* pRecord)
{
    g_hConnectToClientDlg = hWnd;
    g_state = CONNECT_STATE();
    g_state.pRecord = pRecord;
    SetSecretFont(hWnd, IDC_CONNECT_PROXY_SECRET);
    ShowDefaultPorts(hWnd);
    LoadHostList(GetDlgItem(hWnd, IDC_CONNECT_HOST), hWnd);
    LoadProxyList(GetDlgItem(hWnd, IDC_CONNECT_PROXY_HOST), hWnd);
    if (pRecord != nullptr && pRecord->bProxyAllowed == 0)
    {
        // What the boxes govern stays as the list has left it, deliberately.
        UntickProxyBoxes(hWnd);
        EnableControl(hWnd, IDC_CONNECT_USE_PROXY, false);
        EnableControl(hWnd, IDC_CONNECT_USE_PROXY_SECRET, false);
    }
    return TRUE;
}

// An item that is selected counts, and without one what was typed. The name of a computer may be typed with
// the backslashes that stand before it elsewhere.
std::wstring TakeHost(HWND hWnd)
{
    const HWND hCombo = GetDlgItem(hWnd, IDC_CONNECT_HOST);
    const LRESULT nItem = SendMessageW(hCombo, CB_GETCURSEL, 0, 0);
    std::wstring host;
    if (nItem >= 0)
    {
        host = ItemText(hCombo, static_cast<WPARAM>(nItem), MAX_HOST);
    }
    if (host.empty())
    {
        host = ReadControl(hWnd, IDC_CONNECT_HOST, MAX_HOST);
    }
    if (host.starts_with(L'\\'))
    {
        host.erase(0, host.find_first_not_of(L'\\'));
        SetDlgItemTextW(hWnd, IDC_CONNECT_HOST, host.c_str());
    }
    return host;
}

bool TakePort(HWND hWnd, int nControl, UINT uEmpty, DWORD& dwPort)
{
    const std::wstring port = ReadControl(hWnd, nControl, MAX_PORT_TEXT);
    if (port.empty())
    {
        AskFor(hWnd, uEmpty, nControl);
        return false;
    }
    dwPort = ParseNumber(port);
    return true;
}

bool TakeTarget(HWND hWnd, MSG_REVERSE_CONNECTION& record)
{
    ReplaceText(record.szHost, TakeHost(hWnd));
    if (record.szHost[0] == L'\0')
    {
        AskFor(hWnd, IDS_CONNECT_HOST_EMPTY, IDC_CONNECT_HOST);
        return false;
    }
    return TakePort(hWnd, IDC_CONNECT_PORT, IDS_CONNECT_PORT_EMPTY, record.dwPort);
}

// A refused attempt may have left something.
void ForgetProxy(MSG_REVERSE_CONNECTION& record)
{
    record.bUseProxy = 0;
    ReplaceText(record.szProxyHost, std::wstring_view());
    record.dwProxyPort = 0;
    SecureZeroMemory(record.szProxySecret, sizeof(record.szProxySecret));
}

// The secret goes from the control into the record, without a copy that would have to be wiped.
bool TakeSecret(HWND hWnd, MSG_REVERSE_CONNECTION& record)
{
    if (GetDlgItemTextW(hWnd, IDC_CONNECT_PROXY_SECRET, record.szProxySecret,
                        static_cast<int>(std::size(record.szProxySecret))) == 0)
    {
        AskFor(hWnd, IDS_PROXY_SECRET_EMPTY, IDC_CONNECT_PROXY_SECRET);
        return false;
    }
    return true;
}

// bUseProxySecret stays zero, deliberately: the service goes by the secret.
bool TakeProxy(HWND hWnd, MSG_REVERSE_CONNECTION& record)
{
    ForgetProxy(record);
    if (!IsTicked(hWnd, IDC_CONNECT_USE_PROXY))
    {
        return true;
    }
    ReplaceText(record.szProxyHost, ReadControl(hWnd, IDC_CONNECT_PROXY_HOST, MAX_HOST));
    record.bUseProxy = 1;
    if (IsTicked(hWnd, IDC_CONNECT_USE_PROXY_SECRET) && !TakeSecret(hWnd, record))
    {
        return false;
    }
    return TakePort(hWnd, IDC_CONNECT_PROXY_PORT, IDS_PROXY_PORT_EMPTY, record.dwProxyPort);
}

void OnOk(HWND hWnd)
{
    if (g_state.pRecord == nullptr)
    {
        return;
    }
    MSG_REVERSE_CONNECTION& record = *g_state.pRecord;
    if (!TakeTarget(hWnd, record) || !TakeProxy(hWnd, record))
    {
        return;
    }
    SaveHostList(GetDlgItem(hWnd, IDC_CONNECT_HOST), record.szHost, record.dwPort);
    SaveProxyList(GetDlgItem(hWnd, IDC_CONNECT_PROXY_HOST), hWnd, record.szProxyHost, record.dwProxyPort);
    EndDialog(hWnd, IDOK);
}

void OnBoxClicked(HWND hWnd, int nBox)
{
    const bool bTicked = IsTicked(hWnd, nBox);
    if (nBox == IDC_CONNECT_USE_PROXY)
    {
        EnableControl(hWnd, IDC_CONNECT_PROXY_HOST, bTicked);
        EnableControl(hWnd, IDC_CONNECT_PROXY_PORT, bTicked);
    }
    else
    {
        EnableControl(hWnd, IDC_CONNECT_PROXY_SECRET, bTicked);
    }
}

void OnHostSelected(HWND hWnd, int nCombo, UINT uNotification)
{
    if (uNotification == CBN_SELENDOK)
    {
        ShowItemPort(nCombo == IDC_CONNECT_HOST ? s_hosts : s_proxies.hosts, GetDlgItem(hWnd, nCombo), hWnd);
    }
}

void OnCommand(HWND hWnd, int nControl, UINT uNotification)
{
    switch (nControl)
    {
    case IDOK:
        OnOk(hWnd);
        break;
    case IDCANCEL:
        EndDialog(hWnd, IDCANCEL);
        break;
    case IDC_CONNECT_HOST:
    case IDC_CONNECT_PROXY_HOST:
        OnHostSelected(hWnd, nControl, uNotification);
        break;
    case IDC_CONNECT_USE_PROXY:
    case IDC_CONNECT_USE_PROXY_SECRET:
        OnBoxClicked(hWnd, nControl);
        break;
    case IDC_CONNECT_DEFAULT_PORTS:
        // What the boxes govern stays enabled, deliberately.
        ShowDefaultPorts(hWnd);
        UntickProxyBoxes(hWnd);
        break;
    default:
        break;
    }
}

void OnDestroy()
{
    g_hConnectToClientDlg = nullptr;
    g_state = CONNECT_STATE();
}
} // namespace

INT_PTR CALLBACK ConnectToClient(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam)
{
    const TKLogBlock block(L"ConnectToClient", g_pLogger);
    TK_LOG_DEBUG(g_pLogger, L"iMsg=" << uMessage);
    switch (uMessage)
    {
    case WM_INITDIALOG:
        return OnInitDialog(hWnd, reinterpret_cast<MSG_REVERSE_CONNECTION*>(lParam));
    case WM_COMMAND:
        OnCommand(hWnd, LOWORD(wParam), HIWORD(wParam));
        return TRUE;
    case WM_CLOSE:
        EndDialog(hWnd, IDCANCEL);
        return TRUE;
    case WM_DESTROY:
        OnDestroy();
        return TRUE;
    default:
        return FALSE;
    }
}

int LoadHostList(HWND hCombo, HWND hDlg)
{
    const TKLogBlock block(L"LoadHostList", g_pLogger);
    return LoadHosts(s_hosts, hCombo, hDlg);
}

int SaveHostList(HWND hCombo, const wchar_t* pszHost, DWORD dwPort)
{
    const TKLogBlock block(L"SaveHostList", g_pLogger);
    return SaveHosts(s_hosts, hCombo, pszHost, dwPort);
}

int LoadProxyList(HWND hCombo, HWND hDlg)
{
    const TKLogBlock block(L"LoadProxyList", g_pLogger);
    return LoadProxies(s_proxies, hCombo, hDlg);
}

int SaveProxyList(HWND hCombo, HWND hDlg, const wchar_t* pszHost, DWORD dwPort)
{
    const TKLogBlock block(L"SaveProxyList", g_pLogger);
    return SaveProxies(s_proxies, hCombo, hDlg, pszHost, dwPort);
}
