#include "dialogs/JoinAttendedSessionDialog.h"

#include "Include/BoundedText.h"
#include "Include/TKLogging.h"
#include "Include/UtilResource.h"
#include "channel/TrayMessages.h"
#include "dialogs/DialogBanner.h"
#include "dialogs/DialogControls.h"
#include "resources/resource.h"
#include "startup/TKDAST.h"
#include "tray/TrayWindowMessages.h"

#include <commctrl.h>
#include <shellapi.h>

#include <iterator>

HWND g_hJoinAttendedSessionDlg = nullptr;

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("JoinAttendedSessionDialog");

constexpr size_t MAX_HELP_ADDRESS = 2048; // characters, terminator included
constexpr wchar_t TRIMMED[] = L"\n\r ";

struct JOIN_STATE
{
    MSG_REVERSE_CONNECTION* pRecord = nullptr;
    CDialogBanner banner;
};

JOIN_STATE g_state;

INT_PTR OnInitDialog(HWND hWnd, MSG_REVERSE_CONNECTION* pRecord)
{
    g_hJoinAttendedSessionDlg = hWnd;
    g_state = JOIN_STATE();
    g_state.pRecord = pRecord;
    if (pRecord == nullptr)
    {
        TK_LOG_ERROR(g_pLogger, L"WM_INITDIALOG: pJoinAttendedSession is NULL");
    }
    if (!g_state.banner.Show(hWnd, IDC_JOIN_BANNER))
    {
        TK_LOG_DEBUG(g_pLogger, L"Failed to load IDB_BITMAP_INTERNET_SESSION_BANNER scale bitmap.");
    }
    return TRUE;
}

void OnOk(HWND hWnd)
{
    if (g_state.pRecord == nullptr)
    {
        return;
    }
    MSG_REVERSE_CONNECTION& record = *g_state.pRecord;
    record.bOneTime = 1;
    ReplaceText(record.szInvitation,
                TrimInvitation(ReadControl(hWnd, IDC_JOIN_INVITATION, std::size(record.szInvitation))));
    if (record.szInvitation[0] == L'\0')
    {
        AskFor(hWnd, IDS_JOIN_TEXT_EMPTY, IDC_JOIN_INVITATION);
        return;
    }
    EndDialog(hWnd, IDOK);
}

void OnCommand(HWND hWnd, int nControl)
{
    switch (nControl)
    {
    case IDOK:
        OnOk(hWnd);
        break;
    case IDCANCEL:
        EndDialog(hWnd, IDCANCEL);
        break;
    default:
        break;
    }
}

// The Enter key is a click to whoever works by keyboard.
void OnNotify(HWND hWnd, const NMHDR& notification)
{
    if (notification.idFrom == IDC_JOIN_HELP && (notification.code == static_cast<UINT>(NM_CLICK) ||
                                                 notification.code == static_cast<UINT>(NM_RETURN)))
    {
        ShellExecuteW(hWnd, L"open", LoadResourceText(IDS_JOIN_HELP_ADDRESS, MAX_HELP_ADDRESS).c_str(),
                      nullptr, nullptr, SW_SHOWNORMAL);
    }
}

INT_PTR OnStaticColor(HWND hControl, HDC hDC)
{
    if (GetDlgCtrlID(hControl) != IDC_JOIN_HINT)
    {
        return 0;
    }
    SetTextColor(hDC, GetSysColor(COLOR_GRAYTEXT));
    SetBkMode(hDC, TRANSPARENT);
    return reinterpret_cast<INT_PTR>(GetStockObject(NULL_BRUSH));
}

void OnDestroy(HWND hWnd)
{
    g_hJoinAttendedSessionDlg = nullptr;
    g_state.banner.TakeOff(hWnd, IDC_JOIN_BANNER);
    g_state = JOIN_STATE();
}
} // namespace

INT_PTR CALLBACK JoinAttendedSessionProc(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam)
{
    const TKLogBlock block(L"JoinAttendedSessionProc", g_pLogger);
    TK_LOG_DEBUG(g_pLogger, L"iMsg=" << uMessage);
    switch (uMessage)
    {
    case WM_INITDIALOG:
        return OnInitDialog(hWnd, reinterpret_cast<MSG_REVERSE_CONNECTION*>(lParam));
    case WM_COMMAND:
        OnCommand(hWnd, LOWORD(wParam));
        return TRUE;
    case WM_HIDE_JOIN_INTERNET_SESSION_DLG:
        TK_LOG_DEBUG(g_pLogger, L"WM_HIDE_JOIN_INTERNET_SESSION_DLG");
        EndDialog(hWnd, IDCANCEL);
        return TRUE;
    case WM_CLOSE:
        EndDialog(hWnd, IDCANCEL);
        return TRUE;
    case WM_NOTIFY:
        OnNotify(hWnd, *reinterpret_cast<const NMHDR*>(lParam));
        return TRUE;
    case WM_CTLCOLORSTATIC:
        return OnStaticColor(reinterpret_cast<HWND>(lParam), reinterpret_cast<HDC>(wParam));
    case WM_SYSCOLORCHANGE:
        PassColorsOn(hWnd);
        return FALSE;
    case WM_DESTROY:
        OnDestroy(hWnd);
        return TRUE;
    default:
        return FALSE;
    }
}

std::wstring_view TrimInvitation(std::wstring_view text)
{
    const size_t nFirst = text.find_first_not_of(TRIMMED);
    if (nFirst == std::wstring_view::npos)
    {
        return std::wstring_view();
    }
    return text.substr(nFirst, text.find_last_not_of(TRIMMED) + 1 - nFirst);
}
