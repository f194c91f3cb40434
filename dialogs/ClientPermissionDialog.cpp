#include "dialogs/ClientPermissionDialog.h"

#include "Include/BoundedText.h"
#include "Include/Handles.h"
#include "Include/TKLogging.h"
#include "Include/UtilResource.h"
#include "channel/CTKSocket.h"
#include "channel/TrayMessages.h"
#include "dialogs/Announcement.h"
#include "dialogs/DialogBackground.h"
#include "dialogs/DialogControls.h"
#include "dialogs/DialogPlacement.h"
#include "dialogs/PaintedFont.h"
#include "dialogs/PermissionAnswer.h"
#include "resources/resource.h"
#include "startup/TKDAST.h"

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <process.h>

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("ClientPermissionDialog");

constexpr unsigned int SOCKET_TIMEOUT = 5000; // milliseconds
constexpr UINT COUNTDOWN_PERIOD = 1000;       // milliseconds
constexpr size_t MAX_REQUEST_TEXT = 8000;     // characters, terminator included
constexpr size_t MAX_COUNTDOWN_TEXT = 260;    // characters, terminator included
constexpr UINT COUNTDOWN_FORMAT = DT_SINGLELINE | DT_VCENTER;
static_assert(COUNTDOWN_FORMAT == 36);

struct PERMISSION_STATE
{
    MSG_PERMISSION_PROMPT record = {}; // the request, the prompt and the answer: one image
    int nSecondsLeft = 0;
    bool bAnswered = false; // the one answer is out
};

PERMISSION_STATE g_state;

// Not of one dialog: its brush is made once.
CDialogBackground g_background;

// Lives for ever: nobody joins the watcher, which may look here while the process ends.
std::atomic<std::shared_ptr<CTKSocket>>& g_pSocket = *new std::atomic<std::shared_ptr<CTKSocket>>;

void SendAnswer(const PERMISSION_OUTCOME& outcome)
{
    FillAnswer(g_state.record, outcome);
    if (const std::shared_ptr<CTKSocket> pSocket = g_pSocket.load(); pSocket != nullptr)
    {
        pSocket->WriteDatagram(&g_state.record, sizeof(g_state.record));
    }
}

// The first way to end wins: a command that still waits, or comes from another program, is too late.
void EndPrompt(HWND hDlg, const PERMISSION_OUTCOME& outcome)
{
    if (!std::exchange(g_state.bAnswered, true))
    {
        SendAnswer(outcome);
        EndDialog(hDlg, outcome.nResult);
    }
}

// Request and prompt.
bool OpenExchange(CTKSocket& socket, int nPort, int nAfType)
{
    if (socket.Connect(SERVICE_HOST, static_cast<unsigned int>(nPort), SOCK_DGRAM, nAfType) == 0)
    {
        return false;
    }
    socket.SetTimeouts(SOCKET_TIMEOUT);
    MSG_PERMISSION_PROMPT& record = g_state.record;
    record.dwType = MSG_TYPE_PERMISSION_PROMPT;
    return socket.WriteDatagram(&record, sizeof(record)) != 0 &&
           socket.ReadDatagram(reinterpret_cast<char*>(&record), sizeof(record)) != 0;
}

int RunExchange(CTKSocket& socket, int nPort, int nAfType)
{
    if (!OpenExchange(socket, nPort, nAfType))
    {
        return 0;
    }
    if (CheckDesktopState() != DESKTOP_REACHABLE)
    {
        SendAnswer(PERMISSION_UNUSABLE);
        return 0;
    }
    g_state.record.bAnswered = 0;
    g_state.record.dwAnswer = 0;
    const INT_PTR nResult =
        DialogBoxParamW(g_hResourceModule, MAKEINTRESOURCEW(IDD_PERMISSION), nullptr, PermissionWndProc, 0);
    return nResult > 0 ? 1 : 0; // without a template there was no prompt, and there is no answer
}

void ShowRequest(HWND hDlg)
{
    const std::wstring format = ReadControl(hDlg, IDC_PERMISSION_REQUEST, MAX_REQUEST_TEXT);
    if (format.empty())
    {
        return;
    }
    const UINT uPhrase = g_state.record.bVariantText == 0 ? IDS_PERMISSION_CONTROL : IDS_PERMISSION_VIEW;
    const std::wstring phrase = LoadResourceText(uPhrase, MAX_REQUEST_TEXT);
    if (!phrase.empty())
    {
        SetDlgItemTextW(hDlg, IDC_PERMISSION_REQUEST, FillPlaceholders(format, {phrase}).c_str());
    }
}

void ShowPromptText(HWND hDlg)
{
    SetDlgItemTextW(hDlg, IDC_PERMISSION_TEXT, std::wstring(FixedText(g_state.record.szPrompt)).c_str());
    HideIdleScrollBar(GetDlgItem(hDlg, IDC_PERMISSION_TEXT));
}

void ShowSecondsLeft(HWND hDlg)
{
    const std::wstring format = LoadResourceText(IDS_PERMISSION_COUNTDOWN, MAX_COUNTDOWN_TEXT);
    SetDlgItemTextW(hDlg, IDC_PERMISSION_COUNTDOWN,
                    FillPlaceholders(format, {std::to_wstring(g_state.nSecondsLeft)}).c_str());
    const RECT place = ControlPlace(hDlg, IDC_PERMISSION_COUNTDOWN);
    InvalidateRect(hDlg, &place, TRUE); // the dialog itself has painted the old number there
    TellNewText(hDlg, IDC_PERMISSION_COUNTDOWN);
}

void MakeDenyTheDefault(HWND hDlg)
{
    SendDlgItemMessageW(hDlg, IDOK, BM_SETSTYLE, BS_PUSHBUTTON, TRUE);
    SendMessageW(hDlg, DM_SETDEFID, IDCANCEL, 0);
    SendDlgItemMessageW(hDlg, IDCANCEL, BM_SETSTYLE, BS_DEFPUSHBUTTON, TRUE);
}

void ShowPrompt(HWND hDlg)
{
    if (g_state.record.bDefaultDeny != 0)
    {
        MakeDenyTheDefault(hDlg);
    }
    if (g_state.record.bKeepPlace == 0)
    {
        SetNotifyDialogLocation(hDlg);
    }
    ShowTopmost(hDlg);
    SetTimer(hDlg, TIMER_PERMISSION_COUNTDOWN, COUNTDOWN_PERIOD, nullptr);
}

// The keyboard stays with whoever types: it could answer for a person who hasn't seen the question yet.
INT_PTR OnInitDialog(HWND hDlg)
{
    ShowRequest(hDlg);
    CreatePermissionThread(hDlg);
    g_background.Load();
    g_background.LayUnder(GetDlgItem(hDlg, IDC_PERMISSION_TEXT));
    LoadAppBarMessage();
    g_background.CreatePlainBrush();
    g_state.nSecondsLeft = PERMISSION_SECONDS;
    ShowPromptText(hDlg);
    ShowSecondsLeft(hDlg);
    if (IsWindow(hDlg))
    {
        ShowPrompt(hDlg);
    }
    MessageBeep(MB_OK);
    AnnounceWindow(hDlg, std::wstring());
    return FALSE;
}

void OnTimer(HWND hDlg)
{
    const COUNTDOWN_STEP step = DecideCountdownStep(--g_state.nSecondsLeft);
    if (step.bExpired)
    {
        KillTimer(hDlg, TIMER_PERMISSION_COUNTDOWN);
        PostMessageW(hDlg, WM_COMMAND, IDC_PERMISSION_EXPIRED, 0);
    }
    ShowSecondsLeft(hDlg);
    if (step.bBeep)
    {
        MessageBeep(MB_OK);
        FlashWindow(hDlg, step.bInvertCaption ? TRUE : FALSE);
    }
}

// The dialog manager marks all of a text that it gives the keyboard to.
void UnmarkText(HWND hDlg)
{
    SendDlgItemMessageW(hDlg, IDC_PERMISSION_TEXT, EM_SETSEL, static_cast<WPARAM>(-1), 0);
}

void OnCommand(HWND hDlg, WORD wCommand, WORD wNotification)
{
    if (wCommand == IDC_PERMISSION_TEXT && wNotification == EN_SETFOCUS)
    {
        UnmarkText(hDlg);
    }
    const std::optional<PERMISSION_OUTCOME> outcome = AnswerToCommand(wCommand, wNotification);
    if (outcome)
    {
        EndPrompt(hDlg, *outcome);
    }
}

void DrawCountdown(HWND hDlg, HDC hDC)
{
    if (GetDlgItem(hDlg, IDC_PERMISSION_COUNTDOWN) == nullptr)
    {
        return;
    }
    RECT place = ControlPlace(hDlg, IDC_PERMISSION_COUNTDOWN);
    const std::wstring text = ReadControl(hDlg, IDC_PERMISSION_COUNTDOWN, MAX_COUNTDOWN_TEXT);
    SetBkMode(hDC, TRANSPARENT);
    const CPaintedFont paintedFont(hDC);
    const CSelectedFont font(hDC, paintedFont.get());
    DrawTextW(hDC, text.c_str(), static_cast<int>(text.size()), &place, COUNTDOWN_FORMAT);
}

void OnPaint(HWND hDlg)
{
    PAINTSTRUCT paint = {};
    const HDC hDC = BeginPaint(hDlg, &paint);
    g_background.Paint(hDlg, hDC);
    g_background.DrawProductIconAt(hDlg, hDC, IDC_PERMISSION_ICON);
    DrawCountdown(hDlg, hDC);
    EndPaint(hDlg, &paint);
}

INT_PTR OnControlColor(HWND hDlg, HDC hDC, HWND hControl)
{
    if (GetDlgCtrlID(hControl) == IDC_PERMISSION_COUNTDOWN)
    {
        return 0; // draws nothing itself
    }
    return g_background.AnswerPlainControlColor(hDlg, hDC);
}
} // namespace

int CreatePermissionDialog(int nPort, int nAfType)
{
    const TKLogBlock block(L"CreatePermissionDialog", g_pLogger);
    TK_LOG_INFO(g_pLogger, L"nPort=" << nPort << L" nAfType=" << nAfType);
    const std::shared_ptr<CTKSocket> pSocket = CreateSharedSocket();
    if (pSocket == nullptr)
    {
        return 0;
    }
    g_state = PERMISSION_STATE();
    g_pSocket.store(pSocket);
    const int nResult = RunExchange(*pSocket, nPort, nAfType);
    g_pSocket.store(nullptr);
    pSocket->Close(); // what wakes the watcher
    return nResult;
}

int CreatePermissionThread(HWND hDlg)
{
    const TKLogBlock block(L"CreatePermissionThread", g_pLogger);
    const CKernelHandle hThread(
        reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, PermissionThread, hDlg, 0, nullptr)));
    return hThread ? 1 : 0;
}

unsigned int WINAPI PermissionThread(void* hDlg)
{
    SetThreadLogName(L"PermissionThread");
    const TKLogBlock block(L"PermissionThread", g_pLogger);
    MSG_PERMISSION_PROMPT withdrawal = {}; // whose content says nothing more
    while (const std::shared_ptr<CTKSocket> pSocket = g_pSocket.load())
    {
        if (pSocket->ReadDatagram(reinterpret_cast<char*>(&withdrawal), sizeof(withdrawal)) != 0)
        {
            break;
        }
        if (WSAGetLastError() != WSAETIMEDOUT)
        {
            return 0;
        }
    }
    PostMessageW(static_cast<HWND>(hDlg), WM_PERMISSION_WITHDRAWN, 0, 0);
    return 0;
}

INT_PTR CALLBACK PermissionWndProc(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam)
{
    const TKLogBlock block(L"PermissionWndProc", g_pLogger);
    TK_LOG_DEBUG(g_pLogger, L"iMsg=" << uMessage);
    switch (uMessage)
    {
    case WM_INITDIALOG:
        return OnInitDialog(hWnd);
    case WM_TIMER:
        OnTimer(hWnd);
        return TRUE;
    case WM_COMMAND:
        OnCommand(hWnd, LOWORD(wParam), HIWORD(wParam));
        return TRUE;
    case WM_CLOSE:
        PostMessageW(hWnd, WM_COMMAND, IDCANCEL, 0);
        return TRUE;
    case WM_PERMISSION_WITHDRAWN:
        EndPrompt(hWnd, PERMISSION_WITHDRAWN);
        return TRUE;
    case WM_DESTROY:
        KillTimer(hWnd, TIMER_PERMISSION_COUNTDOWN);
        return TRUE;
    case WM_PAINT:
        OnPaint(hWnd);
        return TRUE;
    case WM_SYSCOLORCHANGE:
    case WM_THEMECHANGED:
        g_background.FollowColors(hWnd);
        return FALSE;
    case WM_SETTINGCHANGE:
        g_background.FollowSetting(hWnd, wParam);
        return FALSE;
    case WM_CTLCOLOREDIT:
    case WM_CTLCOLORDLG:
    case WM_CTLCOLORSTATIC:
        return OnControlColor(hWnd, reinterpret_cast<HDC>(wParam), reinterpret_cast<HWND>(lParam));
    default:
        return FALSE;
    }
}
