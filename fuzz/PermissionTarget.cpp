#include "fuzz/FuzzTarget.h"

#include "channel/TrayMessages.h"
#include "dialogs/ClientPermissionDialog.h"
#include "dialogs/PermissionAnswer.h"
#include "fuzz/PlayedNetwork.h"
#include "fuzz/PlayedSystem.h"
#include "fuzz/RecordMutator.h"
#include "resources/resource.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <optional>

namespace
{
constexpr std::uint32_t MOST_PROMPTS = 16; // of one round
constexpr std::uint32_t MOST_EVENTS = 140; // of one prompt: its countdown may run out
constexpr int SOME_PORT = 5000;

// What a prompt has come to.
struct PROMPT
{
    std::optional<INT_PTR> result;
    std::vector<DWORD> answers; // that were sent
    bool bAllowed = false;      // somebody has clicked the allow button
};
PROMPT g_prompt;

HWND MakeControl(HWND hParent, const wchar_t* pszText, int nId)
{
    return CreateWindowExW(0, L"STATIC", pszText, WS_CHILD, 0, 0, 0, 0, hParent,
                           reinterpret_cast<HMENU>(static_cast<INT_PTR>(nId)), nullptr, nullptr);
}

// Takes what the dialog says and does nothing of its own.
HWND StandInDialog()
{
    static HWND s_hDlg = nullptr;
    if (s_hDlg == nullptr)
    {
        s_hDlg = CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr);
        for (const int nId : {IDC_PERMISSION_TEXT, IDC_PERMISSION_REQUEST, IDC_PERMISSION_ICON,
                              IDC_PERMISSION_COUNTDOWN, IDOK, IDCANCEL})
        {
            MakeControl(s_hDlg, L"Somebody %s", nId);
        }
    }
    return s_hDlg;
}

BOOL WINAPI TakeEnd(HWND, INT_PTR nResult)
{
    Expect(!g_prompt.result, "a prompt ends once");
    g_prompt.result = nResult;
    return TRUE;
}

BOOL WINAPI KeepPlace(HWND, HWND, int, int, int, int, UINT)
{
    return TRUE;
}

BOOL WINAPI NoBeep(UINT)
{
    return TRUE;
}

BOOL WINAPI NoFlash(HWND, BOOL)
{
    return TRUE;
}

// The watcher's whole life, there and then.
uintptr_t __cdecl RunAtOnce(void*, unsigned, unsigned(__stdcall* pfnThread)(void*), void* pParameter,
                            unsigned, unsigned*)
{
    pfnThread(pParameter);
    return 0;
}

void PlayEvent(CChoices& choices, HWND hDlg, DLGPROC pfnDialog)
{
    constexpr WORD COMMANDS[] = {IDOK, IDCANCEL, IDC_PERMISSION_TEXT, IDC_PERMISSION_EXPIRED, 0, MAXWORD};
    constexpr WORD NOTIFICATIONS[] = {BN_CLICKED, BN_SETFOCUS, EN_SETFOCUS, MAXWORD};
    WORD wCommand = 0;
    WORD wNotification = 0;
    switch (choices.Below(64))
    {
    case 1:
        wCommand = COMMANDS[choices.Below(static_cast<std::uint32_t>(std::size(COMMANDS)))];
        wNotification = NOTIFICATIONS[choices.Below(static_cast<std::uint32_t>(std::size(NOTIFICATIONS)))];
        g_prompt.bAllowed = g_prompt.bAllowed || (wCommand == IDOK && wNotification == BN_CLICKED);
        pfnDialog(hDlg, WM_COMMAND, MAKEWPARAM(wCommand, wNotification), 0);
        break;
    case 2:
        pfnDialog(hDlg, WM_CLOSE, 0, 0);
        break;
    case 3:
        pfnDialog(hDlg, WM_PERMISSION_WITHDRAWN, 0, 0);
        break;
    case 4:
        pfnDialog(hDlg, choices.Number(), choices.Number(), choices.OneIn(2) ? 0 : 1);
        break;
    default:
        pfnDialog(hDlg, WM_TIMER, TIMER_PERMISSION_COUNTDOWN, 0);
        break;
    }
}

INT_PTR PlayDialog(CPlayedSystem& system, DLGPROC pfnDialog, LPARAM lParam)
{
    CChoices& choices = system.Choices();
    if (choices.OneIn(8))
    {
        return -1; // there is no template
    }
    const HWND hDlg = StandInDialog();
    pfnDialog(hDlg, WM_INITDIALOG, 0, lParam);
    for (std::uint32_t nLeft = choices.Below(MOST_EVENTS); nLeft > 0 && !g_prompt.result; --nLeft)
    {
        MSG message = {};
        if (system.TakePosted(hDlg, message))
        {
            pfnDialog(hDlg, message.message, message.wParam, message.lParam);
        }
        else
        {
            PlayEvent(choices, hDlg, pfnDialog);
        }
    }
    if (!g_prompt.result)
    {
        pfnDialog(hDlg, WM_COMMAND, IDCANCEL, 0);
    }
    pfnDialog(hDlg, WM_DESTROY, 0, 0);
    MSG message = {};
    while (system.TakePosted(hDlg, message)) // goes with the window
    {
    }
    Expect(g_prompt.result.has_value(), "a prompt comes to its end");
    return *g_prompt.result;
}

// As recv of a datagram: what doesn't fit is an error.
int GiveDatagram(const std::vector<BYTE>& datagram, char* pTo, int nMost)
{
    const size_t nPart = std::min(datagram.size(), static_cast<size_t>(nMost));
    std::copy_n(datagram.begin(), nPart, pTo);
    if (datagram.size() > nPart)
    {
        WSASetLastError(WSAEMSGSIZE);
        return SOCKET_ERROR;
    }
    return static_cast<int>(nPart);
}

int Give(CChoices& choices, char* pTo, int nMost)
{
    constexpr int ERRORS[] = {WSAETIMEDOUT, WSAECONNRESET, WSAENOTSOCK, WSAEMSGSIZE, 0};
    if (choices.OneIn(4))
    {
        WSASetLastError(ERRORS[choices.Below(static_cast<std::uint32_t>(std::size(ERRORS)))]);
        return SOCKET_ERROR;
    }
    std::vector<BYTE> datagram = MakeBadRecord(choices, *FindRecordDescription(L"MSG_PERMISSION_PROMPT"));
    if (choices.OneIn(6))
    {
        datagram.resize(choices.OneIn(2) ? datagram.size() + choices.Below(3) - 1 : choices.Number() % 70000);
    }
    return GiveDatagram(datagram, pTo, nMost);
}

void TakeSent(const char* pBytes, int nBytes)
{
    Expect(nBytes == sizeof(MSG_PERMISSION_PROMPT), "request and answer have the record's size");
    MSG_PERMISSION_PROMPT record;
    std::memcpy(&record, pBytes, sizeof(record));
    g_prompt.answers.push_back(record.dwAnswer);
    Expect(wcsnlen(record.szUsername, std::size(record.szUsername)) < std::size(record.szUsername),
           "the account's name has an end");
}

// The first that is sent is the request, whose answer is none.
void CheckAnswers()
{
    Expect(g_prompt.answers.size() <= 2, "there is one answer");
    const bool bYes = g_prompt.answers.size() == 2 && g_prompt.answers[1] == PERMISSION_ANSWER_ALLOWED;
    Expect(!bYes || g_prompt.bAllowed, "only a click is consent");
}
} // namespace

size_t FuzzPermission(CChoices& choices)
{
    StandInDialog();
    CPlayedSystem system(choices);
    system.m_pfnDialog = PlayDialog;
    const ImportHook end("user32.dll", "EndDialog", &TakeEnd);
    const ImportHook place("user32.dll", "SetWindowPos", &KeepPlace);
    const ImportHook beep("user32.dll", "MessageBeep", &NoBeep);
    const ImportHook flash("user32.dll", "FlashWindow", &NoFlash);
    const ImportHook begin("msvcrt.dll", "_beginthreadex", &RunAtOnce);
    const CPlayedNetwork network([&](char* pTo, int nMost) { return Give(choices, pTo, nMost); }, TakeSent);
    const std::uint32_t nPrompts = 1 + choices.Below(MOST_PROMPTS);
    for (std::uint32_t nPrompt = 0; nPrompt < nPrompts; ++nPrompt)
    {
        choices.Step("prompt");
        g_prompt = PROMPT();
        CreatePermissionDialog(SOME_PORT, AF_INET);
        CheckAnswers();
    }
    return nPrompts;
}
