#include "Include/UtilTimedMessageBox.h"

#include "Include/TKLogging.h"

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("UtilTimedMessageBox");

HWND g_hWndToEnable = nullptr;
bool g_bTimedOut = false;
int g_nDialogs = 0;         // that are up now
int g_nDialogsBelow = 0;    // that were up when the box came
bool g_bTimeOutDue = false; // it came while a dialog lay over the box

void EndBox()
{
    TK_LOG_INFO(g_pLogger, L"MessageBoxTimer fired. Posting WM_QUIT.");
    g_bTimedOut = true;
    if (g_hWndToEnable != nullptr)
    {
        EnableWindow(g_hWndToEnable, TRUE);
    }
    PostQuitMessage(0);
}

// The box ends on the quit message and leaves it in the queue, where it would end the caller's loop as well.
void EatQuitMessage()
{
    TK_LOG_DEBUG(g_pLogger, L"Timed out. Looking for WM_QUIT message to eat.");
    MSG message = {};
    while (GetMessageW(&message, nullptr, 0, 0) > 0)
    {
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
}
} // namespace

int TimedMessageBox(HWND hWnd, const wchar_t* pszText, const wchar_t* pszCaption, UINT uType,
                    DWORD dwTimeoutMs)
{
    const TKLogBlock block(L"TimedMessageBox", g_pLogger);
    g_hWndToEnable = hWnd != nullptr && IsWindowEnabled(hWnd) ? hWnd : nullptr;
    g_bTimedOut = false;
    g_bTimeOutDue = false;
    g_nDialogsBelow = g_nDialogs;
    const UINT_PTR uTimer = SetTimer(nullptr, 0, dwTimeoutMs, MessageBoxTimer);
    const int nResult = MessageBoxW(hWnd, pszText, pszCaption, uType);
    KillTimer(nullptr, uTimer);
    g_bTimeOutDue = false;
    if (g_bTimedOut)
    {
        EatQuitMessage();
    }
    return nResult;
}

void CALLBACK MessageBoxTimer(HWND, UINT, UINT_PTR, DWORD)
{
    g_bTimeOutDue = g_nDialogs > g_nDialogsBelow;
    if (!g_bTimeOutDue)
    {
        EndBox();
    }
}

CModalDialogScope::CModalDialogScope()
{
    ++g_nDialogs;
}

CModalDialogScope::~CModalDialogScope()
{
    --g_nDialogs;
    if (g_bTimeOutDue && g_nDialogs <= g_nDialogsBelow)
    {
        g_bTimeOutDue = false;
        EndBox();
    }
}
