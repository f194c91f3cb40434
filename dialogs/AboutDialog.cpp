#include "dialogs/AboutDialog.h"

#include "Include/BoundedText.h"
#include "Include/Clipboard.h"
#include "Include/Handles.h"
#include "Include/Product.h"
#include "Include/TKLogging.h"
#include "Include/UtilFile.h"
#include "Include/UtilVersion.h"
#include "channel/TrayMessages.h"
#include "dialogs/AboutText.h"
#include "dialogs/DialogBackground.h"
#include "dialogs/DialogPlacement.h"
#include "resources/resource.h"
#include "startup/TKDAST.h"

#include <iterator>
#include <string>
#include <utility>

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("AboutDialog");

constexpr UINT CLOSE_PERIOD = 30000;     // milliseconds
constexpr size_t MAX_VERSION = 260;      // characters, terminator included
constexpr int MAX_CLIPBOARD_TEXT = 4096; // characters, terminator included

struct ABOUT_STATE
{
    CDialogBackground background;
};

ABOUT_STATE g_state;

void FillVersion(HWND hWnd)
{
    wchar_t szVersion[MAX_VERSION] = {};
    if (!GetExeVersion(szVersion, std::size(szVersion)))
    {
        return;
    }
    wchar_t szProgram[MAX_PATH] = {};
    GetModuleFileNameW(g_hInstance, szProgram, MAX_PATH);
    const std::wstring copyright = ReadVersionText(ReadVersionBlock(szProgram), L"LegalCopyright");
    SetDlgItemTextW(hWnd, IDC_ABOUT_VERSION, ComposeVersionText(szVersion, copyright).c_str());
}

void FillAddresses(HWND hWnd, const MSG_TRAYICON_IP_ADDRESSES* pAddresses)
{
    if (pAddresses != nullptr)
    {
        SetDlgItemTextW(hWnd, IDC_ABOUT_TEXT, ComposeAboutText(*pAddresses, g_bOneTimeSession != 0).c_str());
    }
}

INT_PTR OnInitDialog(HWND hWnd, const MSG_TRAYICON_IP_ADDRESSES* pAddresses)
{
    g_state = ABOUT_STATE();
    g_state.background.Load();
    if (g_state.background.HasGradient()) // a template may show a picture of its own there
    {
        ShowWindow(GetDlgItem(hWnd, IDC_ABOUT_ICON), SW_HIDE);
    }
    g_state.background.LayUnder(GetDlgItem(hWnd, IDC_ABOUT_TEXT));
    FillVersion(hWnd);
    SetTimer(hWnd, TIMER_CLOSE_ABOUT, CLOSE_PERIOD, nullptr);
    FillAddresses(hWnd, pAddresses);
    ShowTopmost(hWnd);
    // Only a dialog that has been active can notice that it is left.
    SetFocus(GetDlgItem(hWnd, IDOK));
    return FALSE;
}

void OnCommand(HWND hWnd, int nControl)
{
    switch (nControl)
    {
    case IDOK:
    case IDCANCEL:
        EndDialog(hWnd, 0);
        break;
    case IDC_ABOUT_COPY:
        CopyToClipboard(hWnd);
        break;
    default:
        break;
    }
}

void OnActivate(HWND hWnd, WORD wActive)
{
    if (wActive == WA_INACTIVE)
    {
        PostMessageW(hWnd, WM_CLOSE, 0, 0);
    }
}

void OnDestroy(HWND hWnd)
{
    KillTimer(hWnd, TIMER_CLOSE_ABOUT);
    g_state.background.Unload();
}

void OnPaint(HWND hWnd)
{
    PAINTSTRUCT paint = {};
    const HDC hDC = BeginPaint(hWnd, &paint);
    g_state.background.Paint(hWnd, hDC);
    g_state.background.DrawProductIconAt(hWnd, hDC, IDC_ABOUT_ICON);
    EndPaint(hWnd, &paint);
}

// Null without memory, or when the control can't be read into it.
CGlobalBlock TakeAboutText(HWND hWnd)
{
    CGlobalBlock hText(GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, MAX_CLIPBOARD_TEXT * sizeof(wchar_t)));
    wchar_t* const pszText = hText ? static_cast<wchar_t*>(GlobalLock(hText.get())) : nullptr;
    if (pszText == nullptr)
    {
        return CGlobalBlock();
    }
    GetDlgItemTextW(hWnd, IDC_ABOUT_TEXT, pszText, MAX_CLIPBOARD_TEXT);
    GlobalUnlock(hText.get());
    return hText;
}
} // namespace

INT_PTR CALLBACK AboutWndProc(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam)
{
    const TKLogBlock block(L"AboutWndProc", g_pLogger);
    TK_LOG_DEBUG(g_pLogger, L"iMsg=" << uMessage);
    switch (uMessage)
    {
    case WM_INITDIALOG:
        return OnInitDialog(hWnd, reinterpret_cast<const MSG_TRAYICON_IP_ADDRESSES*>(lParam));
    case WM_TIMER:
    case WM_CLOSE:
        EndDialog(hWnd, 0);
        return TRUE;
    case WM_COMMAND:
        OnCommand(hWnd, LOWORD(wParam));
        return TRUE;
    case WM_ACTIVATE:
        OnActivate(hWnd, LOWORD(wParam));
        return FALSE;
    case WM_DESTROY:
        OnDestroy(hWnd);
        return TRUE;
    case WM_PAINT:
        OnPaint(hWnd);
        return TRUE;
    case WM_SYSCOLORCHANGE:
    case WM_THEMECHANGED:
        g_state.background.FollowColors(hWnd);
        return FALSE;
    case WM_SETTINGCHANGE:
        g_state.background.FollowSetting(hWnd, wParam);
        return FALSE;
    case WM_CTLCOLORDLG:
    case WM_CTLCOLORSTATIC:
        return g_state.background.AnswerControlColor(hWnd, reinterpret_cast<HDC>(wParam));
    default:
        return FALSE;
    }
}

int CopyToClipboard(HWND hWnd)
{
    const TKLogBlock block(L"CopyToClipboard", g_pLogger);
    const CClipboard clipboard(hWnd);
    if (!clipboard || !EmptyClipboard())
    {
        return 0;
    }
    CGlobalBlock hText = TakeAboutText(hWnd);
    return hText && GiveToClipboard(CF_UNICODETEXT, std::move(hText)) ? 1 : 0;
}

int GetExeVersion(wchar_t* pszVersion, size_t cchVersion)
{
    const TKLogBlock block(L"GetExeVersion", g_pLogger);
    wchar_t szService[MAX_PATH] = {};
    GetProgramDirectory(szService, std::size(szService));
    const std::vector<std::byte> version =
        ReadVersionBlock((std::wstring(szService) + SERVICE_EXECUTABLE).c_str());
    if (version.empty())
    {
        return 0;
    }
    const std::wstring text = ReadVersionText(version, L"FileVersion");
    if (!text.empty())
    {
        CopyText(pszVersion, cchVersion, DotVersion(text));
    }
    return 1;
}
