#include "dialogs/NotifyDialog.h"

#include "Include/BoundedText.h"
#include "Include/TKLogging.h"
#include "Include/UtilResource.h"
#include "dialogs/Announcement.h"
#include "dialogs/DialogBackground.h"
#include "dialogs/DialogControls.h"
#include "dialogs/DialogPlacement.h"
#include "dialogs/NotifyLayout.h"
#include "dialogs/NotifySound.h"
#include "dialogs/NotifyText.h"
#include "resources/resource.h"
#include "startup/TKDAST.h"
#include "tray/TKDASTWindow.h"

#include <mmsystem.h>

#include <string>
#include <string_view>
#include <utility>

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("NotifyDialog");

constexpr POINT ICON_PLACE = {2, 2};
constexpr size_t MAX_LIST_TEXT = 260;                                 // characters, terminator included
constexpr DWORD SOUND_FLAGS = SND_ALIAS | SND_NOWAIT | SND_NODEFAULT; // and heard to its end
static_assert(SOUND_FLAGS == 73730);

struct NOTIFY_STATE
{
    CDialogBackground background;
};

NOTIFY_STATE g_state;

void SetControlText(HWND hWnd, int nControl, std::wstring_view text)
{
    SetDlgItemTextW(hWnd, nControl, std::wstring(text).c_str());
}

// In a form that paints its body.
void HideBody(HWND hWnd)
{
    ShowWindow(GetDlgItem(hWnd, IDC_NOTIFY_BODY), SW_HIDE);
}

void FillPaintedBody(HWND hWnd, const std::wstring& text, NOTIFY_SOUND sound)
{
    FitNotifyDialog(hWnd, text);
    SetControlText(hWnd, IDC_NOTIFY_BODY, text);
    PostMessageW(hWnd, WM_PLAY_NOTIFY_SOUND, 0, sound);
}

void FillConnected(HWND hWnd, const CTaskBarWindow& window)
{
    HideBody(hWnd);
    const std::wstring_view head = FixedText(window.m_Settings.szNotifyText);
    if (!head.empty())
    {
        SetControlText(hWnd, IDC_NOTIFY_HEAD, head);
    }
    FillPaintedBody(hWnd, ComposeConnectedText(window.m_Settings, window.m_Connection), CONNECT_SOUND);
}

void FillDisconnected(HWND hWnd, const CTaskBarWindow& window)
{
    HideBody(hWnd);
    SetControlText(hWnd, IDC_NOTIFY_HEAD, FixedText(window.m_Settings.szNotifyText));
    FillPaintedBody(hWnd, ComposeDisconnectedText(window.m_Connection), DISCONNECT_SOUND);
}

// The form that only the service takes down.
void FixPopup(HWND hWnd)
{
    SetWindowLongPtrW(hWnd, GWL_STYLE,
                      GetWindowLongPtrW(hWnd, GWL_STYLE) & ~static_cast<LONG_PTR>(WS_SYSMENU));
    SetWindowPos(hWnd, nullptr, 0, 0, 0, 0,
                 SWP_NOSIZE | SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE | SWP_FRAMECHANGED);
    ShowWindow(GetDlgItem(hWnd, IDC_NOTIFY_DISCONNECT), SW_SHOWNA);
}

void FillEveryone(HWND hWnd, const CTaskBarWindow& window)
{
    const bool bFixed = window.m_Connection.bListClients != 0;
    if (bFixed)
    {
        FixPopup(hWnd);
    }
    SetControlText(hWnd, IDC_NOTIFY_HEAD, ComposeConnectedCount(window.m_ConnectedList.dwClientCount));
    FitNotifyDialog(hWnd, std::wstring());
    const HWND hBody = GetDlgItem(hWnd, IDC_NOTIFY_BODY);
    const bool bAnyone = window.m_Connection.dwConnectCount != 0;
    SetControlText(hWnd, IDC_NOTIFY_BODY,
                   bAnyone ? std::wstring(FixedText(window.m_ConnectedList.szClientList))
                           : LoadResourceText(IDS_NOTIFY_NOBODY, MAX_LIST_TEXT));
    ShowScrollBar(hBody, SB_VERT, bAnyone);
    if (!bAnyone)
    {
        return;
    }
    SendMessageW(hBody, EM_SETSEL, 0, 0);
    if (!bFixed)
    {
        SetFocus(hBody);
    }
}

void Fill(HWND hWnd, const CTaskBarWindow& window)
{
    switch (window.m_nNotifyMode)
    {
    case NOTIFY_MODE_CONNECTED:
        FillConnected(hWnd, window);
        break;
    case NOTIFY_MODE_DISCONNECTED:
        FillDisconnected(hWnd, window);
        break;
    case NOTIFY_MODE_EVERYONE:
        FillEveryone(hWnd, window);
        break;
    default:
        break;
    }
}

// What no control shows.
std::wstring PaintedBody(HWND hWnd)
{
    return IsWindowVisible(GetDlgItem(hWnd, IDC_NOTIFY_BODY))
               ? std::wstring()
               : ReadControl(hWnd, IDC_NOTIFY_BODY, MAX_NOTIFY_TEXT);
}

INT_PTR OnInitDialog(HWND hWnd, const CTaskBarWindow* pWindow)
{
    if (pWindow == nullptr)
    {
        return FALSE;
    }
    g_state = NOTIFY_STATE();
    g_state.background.Load();
    LoadAppBarMessage();
    g_state.background.CreatePlainBrush();
    g_state.background.LayUnder(GetDlgItem(hWnd, IDC_NOTIFY_BODY));
    const UINT uPeriod = GetNotifyPeriod(pWindow->m_Settings.dwNotifySeconds);
    if (uPeriod != 0)
    {
        SetTimer(hWnd, TIMER_CLOSE_NOTIFY, uPeriod, nullptr);
    }
    const std::wstring_view title = FixedText(pWindow->m_Settings.szNotifyTitle);
    if (!title.empty())
    {
        SetWindowTextW(hWnd, std::wstring(title).c_str());
    }
    SetNotifyDialogLocation(hWnd);
    Fill(hWnd, *pWindow);
    WalkByKeyboard(hWnd);
    AnnounceWindow(hWnd, PaintedBody(hWnd));
    return FALSE;
}

// The popup must be seen before the sound holds this thread.
void OnPlaySound(HWND hWnd, const CTaskBarWindow& window, LPARAM lSound)
{
    PaintAnew(hWnd);
    if (!IsNotifySoundWanted(window.m_Settings, IsSystemAccount()))
    {
        return;
    }
    if (!KDAPlaySound(lSound == CONNECT_SOUND ? L"WindowsLogon" : L"WindowsLogoff", nullptr, SOUND_FLAGS))
    {
        MessageBeep(MB_OK);
    }
    UpdateWindow(hWnd);
}

void OnTimeToClose(HWND hWnd, CTaskBarWindow& window)
{
    if (!MayNotifyClose(window.m_Settings, window.m_Connection))
    {
        return;
    }
    KillTimer(hWnd, TIMER_CLOSE_NOTIFY);
    const HWND hNotifyDlg = std::exchange(window.m_hNotifyDlg, nullptr);
    if (hNotifyDlg != hWnd)
    {
        DestroyWindow(hWnd);
    }
    if (hNotifyDlg != nullptr)
    {
        DestroyWindow(hNotifyDlg);
    }
}

// A popup that may not close yet isn't tried again: it stays until it is replaced, taken down or closed.
void OnTimer(HWND hWnd, CTaskBarWindow& window, UINT_PTR uTimer)
{
    KillTimer(hWnd, uTimer);
    OnTimeToClose(hWnd, window);
}

void OnCommand(const CTaskBarWindow& window, int nControl)
{
    if (nControl == IDC_NOTIFY_DISCONNECT)
    {
        PostMessageW(window.m_hWnd, WM_COMMAND, ID_TRAY_DISCONNECT_ALL, 0);
    }
}

void OnDestroy(HWND hWnd, CTaskBarWindow* pWindow)
{
    KillTimer(hWnd, TIMER_CLOSE_NOTIFY);
    if (pWindow != nullptr)
    {
        pWindow->m_hNotifyDlg = nullptr;
    }
    g_state.background.Unload();
}

void OnPaint(HWND hWnd)
{
    PAINTSTRUCT paint = {};
    const HDC hDC = BeginPaint(hWnd, &paint);
    g_state.background.Paint(hWnd, hDC);
    g_state.background.DrawProductIcon(hDC, ICON_PLACE);
    if (!IsWindowVisible(GetDlgItem(hWnd, IDC_NOTIFY_BODY)))
    {
        if (!g_state.background.HasGradient())
        {
            SetTextColor(hDC, GetSysColor(COLOR_WINDOWTEXT)); // the ground is the system's, too
        }
        DrawNotifyBody(hWnd, hDC);
    }
    EndPaint(hWnd, &paint);
}

} // namespace

INT_PTR CALLBACK NotifyWndProc(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam)
{
    const TKLogBlock block(L"NotifyWndProc", g_pLogger);
    TK_LOG_DEBUG(g_pLogger, L"NotifyWndProc iMsg=" << uMessage);
    // Null until whoever creates the popup has stored it.
    CTaskBarWindow* const pWindow = reinterpret_cast<CTaskBarWindow*>(GetWindowLongPtrW(hWnd, GWLP_USERDATA));
    switch (uMessage)
    {
    case WM_INITDIALOG:
        return OnInitDialog(hWnd, reinterpret_cast<const CTaskBarWindow*>(lParam));
    case WM_PLAY_NOTIFY_SOUND:
        if (pWindow != nullptr)
        {
            OnPlaySound(hWnd, *pWindow, lParam);
        }
        return TRUE;
    case WM_TIMER:
        if (pWindow != nullptr)
        {
            OnTimer(hWnd, *pWindow, wParam);
        }
        return TRUE;
    case WM_CLOSE:
        if (pWindow != nullptr)
        {
            OnTimeToClose(hWnd, *pWindow);
        }
        return TRUE;
    case WM_COMMAND:
        if (pWindow != nullptr)
        {
            OnCommand(*pWindow, LOWORD(wParam));
        }
        return TRUE;
    case WM_DESTROY:
        OnDestroy(hWnd, pWindow);
        return TRUE;
    case WM_DISPLAYCHANGE:
        SetNotifyDialogLocation(hWnd);
        return TRUE;
    case WM_SYSCOLORCHANGE:
    case WM_PALETTECHANGED:
    case WM_DWMCOMPOSITIONCHANGED:
    case WM_THEMECHANGED:
        g_state.background.FollowColors(hWnd);
        return TRUE;
    case WM_SETTINGCHANGE:
        g_state.background.FollowSetting(hWnd, wParam);
        return FALSE;
    case WM_PAINT:
        OnPaint(hWnd);
        return TRUE;
    case WM_CTLCOLORDLG:
    case WM_CTLCOLORSTATIC:
        return g_state.background.AnswerControlColor(hWnd, reinterpret_cast<HDC>(wParam));
    default:
        return FALSE;
    }
}
