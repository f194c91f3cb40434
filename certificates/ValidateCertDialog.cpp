#include "certificates/ValidateCertDialog.h"

#include "Include/SystemCall.h"
#include "Include/TKLogging.h"
#include "Include/UtilResource.h"
#include "dialogs/DialogBanner.h"
#include "dialogs/DialogControls.h"
#include "resources/resource.h"
#include "startup/TKDAST.h"
#include "tray/TrayWindowMessages.h"

#include <commctrl.h>
#include <cryptuiapi.h>
#include <shellapi.h>

#include <iterator>

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("ValidateCertDialog");

constexpr size_t MAX_SHOWN_NAME = 256;    // characters, terminator included
constexpr size_t MAX_HELP_ADDRESS = 2048; // characters, terminator included

struct VALIDATE_STATE
{
    CDialogBanner banner;
};

VALIDATE_STATE g_state;

// The template says what stands there when there is no name.
void ShowName(HWND hWnd)
{
    wchar_t szName[MAX_SHOWN_NAME] = {};
    if (g_CertContext != nullptr &&
        CertGetNameStringW(g_CertContext, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0, nullptr, szName,
                           static_cast<DWORD>(std::size(szName))) > 1)
    {
        SetDlgItemTextW(hWnd, IDC_VALIDATE_NAME, szName);
    }
}

void OnInitDialog(HWND hWnd)
{
    g_state = VALIDATE_STATE();
    if (!g_state.banner.Show(hWnd, IDC_VALIDATE_BANNER))
    {
        TK_LOG_DEBUG(g_pLogger, L"Failed to load IDB_BITMAP_INTERNET_SESSION_BANNER scale bitmap.");
    }
    ClickLinkByEnter(hWnd, IDC_VALIDATE_HELP);
    ShowName(hWnd);
}

// The viewer is loaded only now, as the agent's start would pay for it each time.
void OnShow(HWND hWnd)
{
    if (g_CertContext == nullptr)
    {
        MessageBoxW(hWnd,
                    L"There was an error when displaying certificate, certificate wasn't properly "
                    L"processed",
                    L"Error displaying certificate", MB_OKCANCEL);
        TK_LOG_ERROR(g_pLogger, L"Certificate context is null, cert hasn't been shown in "
                                L"CryptUIDlgViewContext dialog.");
        return;
    }
    const CSystemCall<decltype(&CryptUIDlgViewContext)> view(L"cryptui.dll", "CryptUIDlgViewContext");
    if (view)
    {
        view(CERT_STORE_CERTIFICATE_CONTEXT, g_CertContext, nullptr, nullptr, 0, nullptr);
    }
}

void Remember()
{
    if (g_CertContext == nullptr)
    {
        TK_LOG_WARN(g_pLogger, L"Certificate not assigned, OK clicked - no cert hash is saved");
        return;
    }
    SaveCertToRegistry(g_CertContext);
}

void OnAccept(HWND hWnd)
{
    if (IsTicked(hWnd, IDC_VALIDATE_REMEMBER))
    {
        Remember();
    }
    EndDialog(hWnd, IDYES);
}

// The word that ends a wait goes to whatever the dialog belongs to; in a run of its own that is nobody.
void OnDecline(HWND hWnd)
{
    PostMessageW(GetParent(hWnd), WM_JOIN_SESSION_STATE, JOIN_SESSION_CANCEL, 0);
    EndDialog(hWnd, IDNO);
}

INT_PTR OnCommand(HWND hWnd, int nControl)
{
    switch (nControl)
    {
    case IDC_VALIDATE_SHOW:
        OnShow(hWnd);
        return TRUE;
    case IDYES:
        OnAccept(hWnd);
        return TRUE;
    case IDNO:
        OnDecline(hWnd);
        return TRUE;
    default:
        return FALSE;
    }
}

INT_PTR OnNotify(const NMHDR& notification)
{
    if (notification.idFrom != IDC_VALIDATE_HELP || notification.code != static_cast<UINT>(NM_CLICK))
    {
        return FALSE;
    }
    ShellExecuteW(nullptr, L"open", LoadResourceText(IDS_VALIDATE_HELP_ADDRESS, MAX_HELP_ADDRESS).c_str(),
                  nullptr, nullptr, SW_SHOWNORMAL);
    return TRUE;
}

void OnDestroy(HWND hWnd)
{
    g_state.banner.TakeOff(hWnd, IDC_VALIDATE_BANNER);
    g_state = VALIDATE_STATE();
}
} // namespace

bool ValidateCertDialog()
{
    const TKLogBlock block(L"ValidateCertSession", g_pLogger);
    GetCertFromACRegistry();
    if (IsCertInRegistry(g_CertContext))
    {
        TK_LOG_TRACE(g_pLogger, L"ValidateCertDialog; Certificate found in HKCU registry store.");
        return true;
    }
    return DialogBoxParamW(g_hResourceModule, MAKEINTRESOURCEW(IDD_VALIDATE_CERTIFICATE), nullptr,
                           ValidateCertProc, reinterpret_cast<LPARAM>(g_CertContext)) == IDYES;
}

INT_PTR CALLBACK ValidateCertProc(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam)
{
    const TKLogBlock block(L"ValidateCertProc", g_pLogger);
    TK_LOG_DEBUG(g_pLogger, L"iMsg=" << uMessage);
    switch (uMessage)
    {
    case WM_INITDIALOG:
        OnInitDialog(hWnd);
        return TRUE;
    case WM_COMMAND:
        return OnCommand(hWnd, LOWORD(wParam));
    case WM_NOTIFY:
        return OnNotify(*reinterpret_cast<const NMHDR*>(lParam));
    case WM_CLOSE:
        EndDialog(hWnd, IDCANCEL);
        return TRUE;
    case WM_SYSCOLORCHANGE:
        PassColorsOn(hWnd);
        return FALSE;
    case WM_DESTROY:
        OnDestroy(hWnd);
        return FALSE;
    default:
        return FALSE;
    }
}
