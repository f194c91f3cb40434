#include "dialogs/ConnectInProgressDialog.h"

#include "Include/TKLogging.h"
#include "dialogs/DialogControls.h"
#include "resources/resource.h"
#include "tray/TrayWindowMessages.h"

#include <commctrl.h>

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("ConnectInProgressDialog");

// Posted: the bar starts to move at its own pace when the dialog stands.
INT_PTR OnInitDialog(HWND hWnd)
{
    PostMessageW(GetDlgItem(hWnd, IDC_PROGRESS_BAR), PBM_SETMARQUEE, TRUE, 0);
    return TRUE;
}

void OnCommand(HWND hWnd, int nControl)
{
    if (nControl == IDCANCEL)
    {
        PostMessageW(GetParent(hWnd), WM_JOIN_SESSION_STATE, JOIN_SESSION_CANCEL, 0);
        EndDialog(hWnd, IDCANCEL);
    }
}
} // namespace

INT_PTR CALLBACK ConnectInProgressProc(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM)
{
    const TKLogBlock block(L"ConnectInProgressProc", g_pLogger);
    TK_LOG_DEBUG(g_pLogger, L"iMsg=" << uMessage);
    switch (uMessage)
    {
    case WM_INITDIALOG:
        return OnInitDialog(hWnd);
    case WM_COMMAND:
        OnCommand(hWnd, LOWORD(wParam));
        return TRUE;
    case WM_SYSCOLORCHANGE:
        PassColorsOn(hWnd);
        return FALSE;
    default:
        return FALSE;
    }
}
