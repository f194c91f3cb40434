#include "dialogs/ClientPermissionDialog.h"

#include "Include/BoundedText.h"
#include "Include/TKLogging.h"
#include "Include/UtilFile.h"
#include "dialogs/GradientFill.h"
#include "dialogs/PermissionAnswer.h"
#include "resources/resource.h"
#include "startup/TKDAST.h"
#include "tests/support/ObjectCounts.h"
#include "tests/unit/LogCapture.h"
#include "tests/unit/PermissionHarness.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <climits>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

namespace
{
using Calls = std::vector<std::string>;
using testing::Contains;

constexpr DWORD COMMAND_COUNT = 65536;
constexpr WORD OTHER_NOTIFICATIONS[] = {1, BN_DBLCLK, BN_SETFOCUS, BN_KILLFOCUS};
constexpr int ROUNDS_WITHOUT_LEAKS = 50;

void Press(BYTE bKey)
{
    keybd_event(bKey, 0, 0, 0);
    keybd_event(bKey, 0, KEYEVENTF_KEYUP, 0);
}

void PressWithAlt(BYTE bKey)
{
    keybd_event(VK_MENU, 0, 0, 0);
    Press(bKey);
    keybd_event(VK_MENU, 0, KEYEVENTF_KEYUP, 0);
}

RECT WindowPlace(HWND hWnd)
{
    RECT rect = {};
    GetWindowRect(hWnd, &rect);
    return rect;
}

std::wstring AccountName()
{
    wchar_t szAccount[MAX_PATH] = {};
    GetAccountName(szAccount, MAX_PATH);
    return szAccount;
}

// What the dialog procedure answers for a control's colours, and what it leaves in the device context.
struct CONTROL_COLOR
{
    HBRUSH hBrush;
    int nBackgroundMode;
    COLORREF crBackground;
    COLORREF crText;
};

CONTROL_COLOR AskForColor(HWND hDlg, UINT uMessage, int nControl)
{
    const HDC hDC = GetDC(hDlg);
    const INT_PTR nAnswer = PermissionWndProc(hDlg, uMessage, reinterpret_cast<WPARAM>(hDC),
                                              reinterpret_cast<LPARAM>(GetDlgItem(hDlg, nControl)));
    const CONTROL_COLOR color = {reinterpret_cast<HBRUSH>(nAnswer), GetBkMode(hDC), GetBkColor(hDC),
                                 GetTextColor(hDC)};
    ReleaseDC(hDlg, hDC);
    return color;
}

// The pixels of a control's place as the dialog shows it.
std::vector<COLORREF> PixelsOf(HWND hDlg, int nControl)
{
    UpdateWindow(hDlg);
    RECT rect = WindowPlace(GetDlgItem(hDlg, nControl));
    MapWindowPoints(nullptr, hDlg, reinterpret_cast<POINT*>(&rect), 2);
    const HDC hDC = GetDC(hDlg);
    std::vector<COLORREF> pixels;
    for (LONG nY = rect.top; nY < rect.bottom; ++nY)
    {
        for (LONG nX = rect.left; nX < rect.right; ++nX)
        {
            pixels.push_back(GetPixel(hDC, nX, nY));
        }
    }
    ReleaseDC(hDlg, hDC);
    return pixels;
}

std::vector<std::string> g_steps; // of the dialog's making, in order

HWND WINAPI StepFindWindow(LPCWSTR, LPCWSTR)
{
    g_steps.emplace_back("look for the taskbar");
    return nullptr;
}

int WINAPI StepDeviceCaps(HDC, int nIndex)
{
    if (nIndex == NUMBRUSHES)
    {
        g_steps.emplace_back("gradient");
    }
    return USER_DEFAULT_SCREEN_DPI;
}

int g_nReads = 0;
int g_nReadError = 0; // of every read but the first, until g_nFailingReads are over
int g_nFailingReads = INT_MAX;
decltype(&recv) g_pfnReceive = nullptr;

// The first read is the prompt's.
int WINAPI FailingReceive(SOCKET hSocket, char* p, int n, int nFlags)
{
    const int nRead = g_nReads++;
    if (nRead == 0 || nRead > g_nFailingReads)
    {
        return g_pfnReceive(hSocket, p, n, nFlags);
    }
    WSASetLastError(g_nReadError);
    return g_nReadError == 0 ? 100 : SOCKET_ERROR; // without an error: a datagram that is too short
}

class ClientPermissionDialogTest : public PermissionHarness
{
  protected:
    /// The answer to a prompt that ends by that scenario.
    MSG_PERMISSION_PROMPT AnswerTo(const MSG_PERMISSION_PROMPT& prompt,
                                   const std::function<void(HWND)>& scenario)
    {
        m_trace.Forget();
        EXPECT_EQ(RunPrompt(prompt, scenario), 1);
        return OnlyAnswer();
    }

    void ExpectAnswer(const std::function<void(HWND)>& scenario, DWORD dwAnswer, DWORD bAnswered,
                      const std::string& end)
    {
        const MSG_PERMISSION_PROMPT answer = AnswerTo(Prompt(), scenario);
        EXPECT_EQ(answer.dwAnswer, dwAnswer);
        EXPECT_EQ(answer.bAnswered, bAnswered);
        EXPECT_EQ(m_trace.Calls("end "), Calls{end});
    }

    /// The answer of a person who has only a keyboard.
    DWORD Typed(const MSG_PERMISSION_PROMPT& prompt, const std::function<void()>& typing)
    {
        return AnswerTo(prompt,
                        [&](HWND hDlg) {
                            SetForegroundWindow(hDlg);
                            typing();
                        })
            .dwAnswer;
    }

    static MSG_PERMISSION_PROMPT DenyingPrompt()
    {
        MSG_PERMISSION_PROMPT prompt = Prompt();
        prompt.bDefaultDeny = 1;
        return prompt;
    }

    /// The labels that the dialog shows for these seconds.
    std::wstring Label(int nSeconds) const
    {
        std::wstring label = m_language.Text(IDS_PERMISSION_COUNTDOWN);
        return label.replace(label.find(L"%d"), 2, std::to_wstring(nSeconds));
    }
};
} // namespace

// ---- Answers, one each.

TEST_F(ClientPermissionDialogTest, TheAllowButtonAllows)
{
    ExpectAnswer(Allow, 1111, 1, "end 1");
}

TEST_F(ClientPermissionDialogTest, TheDenyButtonDenies)
{
    ExpectAnswer(Deny, 2222, 1, "end 2");
}

TEST_F(ClientPermissionDialogTest, TheCloseBoxDenies)
{
    ExpectAnswer([](HWND hDlg) { PostMessageW(hDlg, WM_SYSCOMMAND, SC_CLOSE, 0); }, 2222, 1, "end 2");
    ExpectAnswer([](HWND hDlg) { PostMessageW(hDlg, WM_CLOSE, 0, 0); }, 2222, 1, "end 2");
}

TEST_F(ClientPermissionDialogTest, AWithdrawalIsTakenBackToTheServiceAsNobodysAnswer)
{
    ExpectAnswer([this](HWND) { EXPECT_TRUE(Withdraw()); }, 4444, 0, "end 2");
}

TEST_F(ClientPermissionDialogTest, AWithdrawalInTheMiddleOfTheCountdownEndsIt)
{
    ExpectAnswer(
        [this](HWND hDlg) {
            Tick(hDlg, 60);
            EXPECT_TRUE(Withdraw());
        },
        4444, 0, "end 2");
}

TEST_F(ClientPermissionDialogTest, EnterGoesToAllowUnlessTheServiceWantsDeny)
{
    EXPECT_EQ(Typed(Prompt(), [] { Press(VK_RETURN); }), 1111U);
    EXPECT_EQ(Typed(DenyingPrompt(), [] { Press(VK_RETURN); }), 2222U);
}

TEST_F(ClientPermissionDialogTest, EscapeDeniesWhateverTheDefault)
{
    EXPECT_EQ(Typed(Prompt(), [] { Press(VK_ESCAPE); }), 2222U);
    EXPECT_EQ(Typed(DenyingPrompt(), [] { Press(VK_ESCAPE); }), 2222U);
}

TEST_F(ClientPermissionDialogTest, BothButtonsCanBeReachedByTheKeyboardAlone)
{
    EXPECT_EQ(Typed(Prompt(), [] { PressWithAlt('A'); }), 1111U);
    EXPECT_EQ(Typed(Prompt(), [] { PressWithAlt('D'); }), 2222U);
    EXPECT_EQ(Typed(DenyingPrompt(),
                    [] {
                        Press(VK_TAB);
                        Press(VK_SPACE);
                    }),
              1111U);
    EXPECT_EQ(Typed(Prompt(),
                    [] {
                        Press(VK_TAB);
                        Press(VK_TAB);
                        Press(VK_SPACE);
                    }),
              2222U);
    EXPECT_EQ(Typed(Prompt(), [] { PressWithAlt(VK_F4); }), 2222U);
}

TEST_F(ClientPermissionDialogTest, LettersAndBlanksThatWereMeantForAnotherWindowDecideNothing)
{
    EXPECT_EQ(Typed(Prompt(),
                    [] {
                        Press('A');
                        Press(VK_SPACE);
                        Press('A');
                        Press(VK_ESCAPE);
                    }),
              2222U);
}

TEST_F(ClientPermissionDialogTest, ThePromptDoesNotTakeTheKeyboardFromWhoeverTypes)
{
    const CWindow hOther(CreateWindowExW(0, L"EDIT", L"a letter", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0, 100,
                                         100, nullptr, nullptr, nullptr, nullptr));
    SetForegroundWindow(hOther.get());
    SetFocus(hOther.get());
    RunPrompt(Prompt(), [&](HWND hDlg) {
        PumpMessages();
        EXPECT_EQ(GetForegroundWindow(), hOther.get());
        EXPECT_EQ(GetFocus(), hOther.get());
        EXPECT_TRUE(IsWindowVisible(hDlg));
        Deny(hDlg);
    });
}

TEST_F(ClientPermissionDialogTest, OnlyTheFirstOfManyAnswersCounts)
{
    ExpectAnswer(
        [](HWND hDlg) {
            Command(hDlg, IDCANCEL);
            Command(hDlg, IDOK);
            Command(hDlg, IDC_PERMISSION_EXPIRED);
            PostMessageW(hDlg, WM_PERMISSION_WITHDRAWN, 0, 0);
        },
        2222, 1, "end 2");
    ExpectAnswer(
        [](HWND hDlg) { // these don't wait in the queue, which the end of the dialog empties
            SendMessageW(hDlg, WM_PERMISSION_WITHDRAWN, 0, 0);
            SendMessageW(hDlg, WM_COMMAND, IDOK, 0);
            Allow(hDlg);
            SendMessageW(hDlg, WM_COMMAND, IDC_PERMISSION_EXPIRED, 0);
        },
        4444, 0, "end 2");
}

TEST_F(ClientPermissionDialogTest, NoOtherCommandOrNotificationAnswersAnything)
{
    ExpectAnswer(
        [this](HWND hDlg) {
            for (DWORD dwCommand = 0; dwCommand < COMMAND_COUNT; ++dwCommand)
            {
                for (const WORD wNotification : OTHER_NOTIFICATIONS)
                {
                    SendMessageW(hDlg, WM_COMMAND, MAKEWPARAM(dwCommand, wNotification), 0);
                }
                if (dwCommand < IDOK || dwCommand > IDC_PERMISSION_EXPIRED)
                {
                    SendMessageW(hDlg, WM_COMMAND, dwCommand, 0);
                }
            }
            EXPECT_EQ(m_trace.Calls("end "), Calls());
            Deny(hDlg);
        },
        2222, 1, "end 2");
}

TEST_F(ClientPermissionDialogTest, TheAnswerIsThePromptWithThreeFieldsChanged)
{
    const MSG_PERMISSION_PROMPT prompt = Prompt();
    RunPrompt(prompt, Allow);
    const std::vector<std::vector<BYTE>> datagrams = Datagrams();
    ASSERT_EQ(datagrams.size(), 1U);
    ASSERT_EQ(datagrams.front().size(), 8740U);
    MSG_PERMISSION_PROMPT answer = {};
    std::memcpy(&answer, datagrams.front().data(), sizeof(answer));
    EXPECT_EQ(answer.dwAnswer, 1111U);
    EXPECT_EQ(answer.szUsername, AccountName());
    EXPECT_FALSE(AccountName().empty());
    wchar_t* const pBehindName = answer.szUsername + AccountName().size();
    EXPECT_EQ(std::count(pBehindName, std::end(answer.szUsername), L'\0'),
              std::end(answer.szUsername) - pBehindName);
    std::copy(std::begin(prompt.szUsername), std::end(prompt.szUsername), std::begin(answer.szUsername));
    answer.bAnswered = prompt.bAnswered;
    answer.dwAnswer = prompt.dwAnswer;
    EXPECT_EQ(std::memcmp(&answer, &prompt, sizeof(answer)), 0);
}

TEST_F(ClientPermissionDialogTest, TheRequestHoldsItsTypeAndZerosEachTime)
{
    MSG_PERMISSION_PROMPT request = {};
    request.dwType = 70006;
    for (int nRound = 0; nRound < 2; ++nRound)
    {
        RunPrompt(Prompt(), Deny);
        ASSERT_EQ(m_request.size(), 8740U);
        EXPECT_EQ(std::memcmp(m_request.data(), &request, sizeof(request)), 0);
    }
}

TEST_F(ClientPermissionDialogTest, WhatTheServiceLeftInTheAnswersPlaceIsNoAnswer)
{
    MSG_PERMISSION_PROMPT prompt = Prompt();
    ASSERT_EQ(prompt.dwAnswer, 1111U);
    EXPECT_EQ(AnswerTo(prompt, Deny).dwAnswer, 2222U);
    m_desktop = L"Winlogon";
    EXPECT_EQ(RunPrompt(prompt, nullptr), 0);
    EXPECT_EQ(OnlyAnswer().dwAnswer, 6666U);
}

// ---- No prompt.

TEST_F(ClientPermissionDialogTest, WhereNobodyCanBeReachedTheServiceIsToldAndNoWindowOpens)
{
    m_desktop = L"Winlogon";
    EXPECT_EQ(RunPrompt(Prompt(), nullptr), 0);
    const MSG_PERMISSION_PROMPT answer = OnlyAnswer();
    EXPECT_EQ(answer.dwAnswer, 6666U);
    EXPECT_EQ(answer.bAnswered, 1U);
    EXPECT_EQ(answer.szUsername, AccountName());
    EXPECT_EQ(m_trace.Calls("timer 888"), Calls());
    EXPECT_EQ(m_trace.Calls("end "), Calls());
}

TEST_F(ClientPermissionDialogTest, AReplyOfAnotherSizeIsNoPrompt)
{
    const std::vector<BYTE> reply(sizeof(MSG_PERMISSION_PROMPT) + 1, BYTE('x'));
    for (const size_t cbReply : {reply.size() - 2, reply.size(), size_t(0), size_t(1)})
    {
        EXPECT_EQ(RunReply(reply.data(), cbReply, nullptr), 0) << cbReply;
        EXPECT_EQ(Datagrams().size(), 0U) << cbReply;
    }
}

TEST_F(ClientPermissionDialogTest, AServiceThatStaysSilentForFiveSecondsGetsNoAnswer)
{
    LoopbackResponder service;
    const ULONGLONG qwStart = GetTickCount64();
    EXPECT_EQ(CreatePermissionDialog(service.Port(), AF_INET), 0);
    EXPECT_GE(GetTickCount64() - qwStart, 4500U);
    EXPECT_TRUE(service.Receive(0).has_value()) << "the request";
    EXPECT_FALSE(service.Receive(20).has_value());
}

TEST_F(ClientPermissionDialogTest, WithoutAServiceOrAnAddressFamilyThereIsNoPrompt)
{
    EXPECT_EQ(CreatePermissionDialog(UnusedPort(), AF_INET), 0);
    for (const int nAfType : {-1, 1, 99, 65535, INT_MAX, INT_MIN})
    {
        LoopbackResponder service;
        EXPECT_EQ(CreatePermissionDialog(service.Port(), nAfType), 0) << nAfType;
        EXPECT_FALSE(service.Receive(0).has_value()) << nAfType;
    }
    EXPECT_EQ(CreatePermissionDialog(-1, AF_INET), 0);
}

TEST_F(ClientPermissionDialogTest, WithoutATemplateThereIsNoPromptAndNoAnswer)
{
    g_hResourceModule = GetModuleHandleW(nullptr);
    EXPECT_EQ(RunPrompt(Prompt(), nullptr), 0);
    EXPECT_EQ(Datagrams().size(), 0U);
}

// ---- What the prompt shows.

TEST_F(ClientPermissionDialogTest, ShowsTheServicesTextAndWhatIsAskedFor)
{
    MSG_PERMISSION_PROMPT prompt = Prompt();
    CopyText(prompt.szPrompt, L"Alice & Bob 100% %s\r\nsecond line");
    for (const auto& [bVariant, uPhrase] : {std::pair<DWORD, UINT>{0, IDS_PERMISSION_CONTROL},
                                            {1, IDS_PERMISSION_VIEW},
                                            {7, IDS_PERMISSION_VIEW}})
    {
        prompt.bVariantText = bVariant;
        RunPrompt(prompt, [&, uText = uPhrase](HWND hDlg) {
            EXPECT_EQ(ControlText(hDlg, IDC_PERMISSION_TEXT), L"Alice & Bob 100% %s\r\nsecond line");
            EXPECT_EQ(ControlText(hDlg, IDC_PERMISSION_REQUEST),
                      L"Do you want to let this person " + m_language.Text(uText) + L"?");
            EXPECT_EQ(ControlText(hDlg, IDC_PERMISSION_COUNTDOWN), Label(120));
            Deny(hDlg);
        });
    }
}

TEST_F(ClientPermissionDialogTest, WithoutAPhraseTheRequestKeepsTheTemplatesText)
{
    const ImportHook hook(
        "user32.dll", "LoadStringW", +[](HINSTANCE, UINT, LPWSTR, int) -> int { return 0; });
    RunPrompt(Prompt(), [](HWND hDlg) {
        EXPECT_EQ(ControlText(hDlg, IDC_PERMISSION_REQUEST), L"Do you want to let this person %s?");
        Deny(hDlg);
    });
}

TEST_F(ClientPermissionDialogTest, ATextThatFillsItsFieldIsShownToItsEndAndNotFurther)
{
    MSG_PERMISSION_PROMPT prompt = Prompt();
    std::fill(std::begin(prompt.szPrompt), std::end(prompt.szPrompt), L'm');
    prompt.bKeepPlace = prompt.bDefaultDeny = prompt.bVariantText = 0x00580058; // "XX"
    RunPrompt(prompt, [](HWND hDlg) {
        EXPECT_EQ(ControlText(hDlg, IDC_PERMISSION_TEXT), std::wstring(4096, L'm'));
        Deny(hDlg);
    });
}

TEST_F(ClientPermissionDialogTest, OnlyATextThatDoesNotFitHasAScrollBar)
{
    MSG_PERMISSION_PROMPT prompt = Prompt();
    RunPrompt(prompt, [](HWND hDlg) {
        EXPECT_EQ(GetWindowLongW(GetDlgItem(hDlg, IDC_PERMISSION_TEXT), GWL_STYLE) & WS_VSCROLL, 0);
        Deny(hDlg);
    });
    std::fill(std::begin(prompt.szPrompt), std::end(prompt.szPrompt), L'm');
    RunPrompt(prompt, [](HWND hDlg) {
        const HWND hText = GetDlgItem(hDlg, IDC_PERMISSION_TEXT);
        EXPECT_NE(GetWindowLongW(hText, GWL_STYLE) & WS_VSCROLL, 0);
        EXPECT_NE(GetWindowLongW(hText, GWL_STYLE) & WS_TABSTOP, 0) << "to be read by the keyboard";
        Deny(hDlg);
    });
}

TEST_F(ClientPermissionDialogTest, TheTextIsNotMarkedWhenThePromptIsActivated)
{
    RunPrompt(Prompt(), [](HWND hDlg) {
        SetForegroundWindow(hDlg);
        PumpMessages();
        const HWND hText = GetDlgItem(hDlg, IDC_PERMISSION_TEXT);
        EXPECT_EQ(GetFocus(), hText);
        DWORD dwStart = 0;
        DWORD dwEnd = 0;
        SendMessageW(hText, EM_GETSEL, reinterpret_cast<WPARAM>(&dwStart), reinterpret_cast<LPARAM>(&dwEnd));
        EXPECT_EQ(dwStart, dwEnd);
        Deny(hDlg);
    });
}

TEST_F(ClientPermissionDialogTest, DenyIsTheDefaultWhereTheServiceWantsIt)
{
    const auto isDefault = [](HWND hDlg, int nButton) {
        return (SendDlgItemMessageW(hDlg, nButton, WM_GETDLGCODE, 0, 0) & DLGC_DEFPUSHBUTTON) != 0;
    };
    for (const bool bDeny : {false, true})
    {
        RunPrompt(bDeny ? DenyingPrompt() : Prompt(), [&](HWND hDlg) {
            EXPECT_EQ(LOWORD(SendMessageW(hDlg, DM_GETDEFID, 0, 0)), bDeny ? IDCANCEL : IDOK);
            EXPECT_EQ(isDefault(hDlg, IDOK), !bDeny);
            EXPECT_EQ(isDefault(hDlg, IDCANCEL), bDeny);
            Deny(hDlg);
        });
    }
}

TEST_F(ClientPermissionDialogTest, TheDefaultGoesFromAllowToDenyStepByStep)
{
    static decltype(&SendDlgItemMessageW) s_pfnSendToItem = nullptr;
    static decltype(&SendMessageW) s_pfnSend = nullptr;
    const ImportHook toItem(
        "user32.dll", "SendDlgItemMessageW",
        +[](HWND hDlg, int nControl, UINT uMessage, WPARAM wParam, LPARAM lParam) -> LRESULT {
            if (uMessage == BM_SETSTYLE)
            {
                g_steps.emplace_back("style " + std::to_string(nControl) + " " + std::to_string(wParam) +
                                     " " + std::to_string(lParam));
            }
            return s_pfnSendToItem(hDlg, nControl, uMessage, wParam, lParam);
        });
    s_pfnSendToItem = toItem.Original();
    const ImportHook toDialog(
        "user32.dll", "SendMessageW", +[](HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam) -> LRESULT {
            if (uMessage == DM_SETDEFID)
            {
                g_steps.emplace_back("default " + std::to_string(wParam));
            }
            return s_pfnSend(hWnd, uMessage, wParam, lParam);
        });
    s_pfnSend = toDialog.Original();
    g_steps.clear();
    RunPrompt(Prompt(), Deny);
    EXPECT_EQ(g_steps, Calls());
    RunPrompt(DenyingPrompt(), Deny);
    EXPECT_EQ(g_steps, (Calls{"style 1 0 1", "default 2", "style 2 1 1"}));
}

TEST_F(ClientPermissionDialogTest, ComesToTheCornerUnlessItIsToKeepItsPlace)
{
    g_taskbarAnswer = {true, ABE_BOTTOM, {0, 770, 1280, 800}, 0, 0};
    MSG_PERMISSION_PROMPT prompt = Prompt();
    RECT corner = {};
    RunPrompt(prompt, [&](HWND hDlg) {
        corner = WindowPlace(hDlg);
        EXPECT_EQ(corner.bottom, 770 - 4);
        EXPECT_NE(GetWindowLongPtrW(hDlg, GWL_EXSTYLE) & WS_EX_TOPMOST, 0);
        Deny(hDlg);
    });
    prompt.bKeepPlace = 1;
    RunPrompt(prompt, [&](HWND hDlg) {
        const RECT place = WindowPlace(hDlg);
        EXPECT_NE(place.left, corner.left);
        EXPECT_NE(place.top, corner.top);
        EXPECT_NE(GetWindowLongPtrW(hDlg, GWL_EXSTYLE) & WS_EX_TOPMOST, 0);
        Deny(hDlg);
    });
}

TEST_F(ClientPermissionDialogTest, HasNoOwner)
{
    RunPrompt(Prompt(), [](HWND hDlg) {
        EXPECT_EQ(GetWindow(hDlg, GW_OWNER), nullptr);
        Deny(hDlg);
    });
}

TEST_F(ClientPermissionDialogTest, EveryControlButTheCountdownHasTheDialogsColours)
{
    for (const bool bGradient : {true, false})
    {
        if (!bGradient)
        {
            UnloadGradientFill();
            m_binding.SetMissing("GradientFill");
        }
        RunPrompt(Prompt(), [&](HWND hDlg) {
            for (const UINT uMessage : {WM_CTLCOLOREDIT, WM_CTLCOLORDLG, WM_CTLCOLORSTATIC})
            {
                const CONTROL_COLOR color = AskForColor(hDlg, uMessage, IDC_PERMISSION_REQUEST);
                LOGBRUSH brush = {};
                GetObjectW(color.hBrush, sizeof(brush), &brush);
                EXPECT_EQ(color.nBackgroundMode, TRANSPARENT);
                EXPECT_EQ(color.crBackground, 0xF6DAC4U);
                EXPECT_EQ(color.crText, 0U);
                EXPECT_EQ(brush.lbStyle, static_cast<UINT>(bGradient ? BS_NULL : BS_SOLID));
                EXPECT_TRUE(bGradient || brush.lbColor == 0xF6DAC4U);
                EXPECT_EQ(GetWindowLongPtrW(hDlg, DWLP_MSGRESULT), 1);
            }
            const CONTROL_COLOR color = AskForColor(hDlg, WM_CTLCOLORSTATIC, IDC_PERMISSION_COUNTDOWN);
            EXPECT_EQ(color.hBrush, nullptr);
            EXPECT_EQ(color.nBackgroundMode, OPAQUE) << "as it was";
            Deny(hDlg);
        });
    }
}

TEST_F(ClientPermissionDialogTest, ThePlainBrushIsMadeOnceForAllPrompts)
{
    m_binding.SetMissing("GradientFill");
    HBRUSH hFirst = nullptr;
    RunPrompt(Prompt(), [&](HWND hDlg) {
        hFirst = AskForColor(hDlg, WM_CTLCOLORDLG, 0).hBrush;
        Deny(hDlg);
    });
    RunPrompt(Prompt(), [&](HWND hDlg) {
        EXPECT_EQ(AskForColor(hDlg, WM_CTLCOLORDLG, 0).hBrush, hFirst);
        Deny(hDlg);
    });
}

TEST_F(ClientPermissionDialogTest, AGradientThatFailsIsNotTriedAgain)
{
    static int s_nFills = 0;
    s_nFills = 0;
    m_binding.Set(
        "GradientFill", +[](HDC, TRIVERTEX*, ULONG, void*, ULONG, ULONG) -> BOOL {
            ++s_nFills;
            return FALSE;
        });
    RunPrompt(Prompt(), [](HWND hDlg) {
        PumpMessages();
        EXPECT_EQ(s_nFills, 1);
        InvalidateRect(hDlg, nullptr, TRUE);
        UpdateWindow(hDlg);
        EXPECT_EQ(s_nFills, 1);
        const HDC hDC = GetDC(hDlg);
        EXPECT_EQ(GetPixel(hDC, 1, 1), 0xF6DAC4U);
        ReleaseDC(hDlg, hDC);
        EXPECT_NE(AskForColor(hDlg, WM_CTLCOLORDLG, 0).hBrush, GetStockObject(NULL_BRUSH));
        Deny(hDlg);
    });
}

TEST_F(ClientPermissionDialogTest, TheIconStandsInItsPlace)
{
    RunPrompt(Prompt(), [](HWND hDlg) {
        const std::vector<COLORREF> pixels = PixelsOf(hDlg, IDC_PERMISSION_ICON);
        const auto nOrange = std::count_if(pixels.begin(), pixels.end(), [](COLORREF cr) {
            return GetRValue(cr) > 200 && GetBValue(cr) < 100;
        });
        EXPECT_GT(nOrange, 20) << "the kestrel's wings";
        Deny(hDlg);
    });
}

TEST_F(ClientPermissionDialogTest, IconAndCountdownAreDrawnInTheirControlsPlaces)
{
    static POINT s_icon;
    static RECT s_place;
    static std::wstring s_text;
    static UINT s_uFormat;
    static HGDIOBJ s_hFont;
    s_icon = {-1, -1};
    const ImportHook icon(
        "user32.dll", "DrawIcon", +[](HDC, int nX, int nY, HICON hIcon) -> BOOL {
            EXPECT_NE(hIcon, nullptr);
            s_icon = {nX, nY};
            return TRUE;
        });
    const ImportHook text(
        "user32.dll", "DrawTextW",
        +[](HDC hDC, LPCWSTR pszText, int cchText, LPRECT pPlace, UINT uFormat) -> int {
            s_text.assign(pszText, static_cast<size_t>(cchText));
            s_place = *pPlace;
            s_uFormat = uFormat;
            s_hFont = GetCurrentObject(hDC, OBJ_FONT);
            return 1;
        });
    RunPrompt(Prompt(), [&](HWND hDlg) {
        InvalidateRect(hDlg, nullptr, TRUE);
        UpdateWindow(hDlg);
        const auto placeOf = [hDlg](int nControl) {
            RECT rect = WindowPlace(GetDlgItem(hDlg, nControl));
            MapWindowPoints(nullptr, hDlg, reinterpret_cast<POINT*>(&rect), 2);
            return rect;
        };
        const RECT iconPlace = placeOf(IDC_PERMISSION_ICON);
        const RECT textPlace = placeOf(IDC_PERMISSION_COUNTDOWN);
        EXPECT_EQ(s_icon.x, iconPlace.left);
        EXPECT_EQ(s_icon.y, iconPlace.top);
        EXPECT_TRUE(EqualRect(&s_place, &textPlace));
        EXPECT_EQ(s_text, Label(120));
        EXPECT_EQ(s_uFormat, 36U);
        EXPECT_EQ(s_hFont, GetStockObject(ANSI_VAR_FONT));
        Deny(hDlg);
    });
}

TEST_F(ClientPermissionDialogTest, ANewNumberReplacesTheOneBefore)
{
    std::vector<COLORREF> drawnOnce;
    RunPrompt(Prompt(), [&](HWND hDlg) {
        Tick(hDlg, 100);
        drawnOnce = PixelsOf(hDlg, IDC_PERMISSION_COUNTDOWN);
        Deny(hDlg);
    });
    RunPrompt(Prompt(), [&](HWND hDlg) {
        std::vector<COLORREF> before;
        for (int nSecond = 0; nSecond < 100; ++nSecond)
        {
            before = PixelsOf(hDlg, IDC_PERMISSION_COUNTDOWN);
            Tick(hDlg, 1);
        }
        EXPECT_NE(before, drawnOnce) << "the number before";
        EXPECT_EQ(PixelsOf(hDlg, IDC_PERMISSION_COUNTDOWN), drawnOnce);
        Deny(hDlg);
    });
}

// ---- The countdown.

TEST_F(ClientPermissionDialogTest, ACountdownThatNobodyTouchesAnswersOnceAtItsEnd)
{
    const MSG_PERMISSION_PROMPT answer = AnswerTo(Prompt(), [this](HWND hDlg) {
        EXPECT_EQ(m_trace.Calls("timer 888"), Calls{"timer 888 1000"});
        m_trace.Forget(); // and with it the beep at the beginning
        for (int nSeconds = 119; nSeconds >= 0; --nSeconds)
        {
            Tick(hDlg, 1);
            EXPECT_EQ(ControlText(hDlg, IDC_PERMISSION_COUNTDOWN), Label(nSeconds));
            EXPECT_EQ(m_trace.Calls("kill 888").size(), nSeconds == 0 ? 1U : 0U) << nSeconds;
        }
        EXPECT_EQ(m_trace.Calls(),
                  (Calls{"beep 0", "flash 1", "beep 0", "flash 0", "beep 0", "flash 1", "beep 0", "flash 0",
                         "beep 0", "flash 1", "beep 0", "flash 0", "kill 888"}));
    });
    EXPECT_EQ(answer.dwAnswer, 3333U);
    EXPECT_EQ(answer.bAnswered, 1U);
    EXPECT_EQ(m_trace.Calls("end "), Calls{"end 3"});
}

TEST_F(ClientPermissionDialogTest, TicksBeyondTheEndAnswerNothingMore)
{
    const MSG_PERMISSION_PROMPT answer = AnswerTo(Prompt(), [](HWND hDlg) { Tick(hDlg, 150); });
    EXPECT_EQ(answer.dwAnswer, 3333U);
    EXPECT_EQ(m_trace.Calls("end "), Calls{"end 3"});
}

TEST_F(ClientPermissionDialogTest, TheCountdownExpiresWhateverTheDefault)
{
    EXPECT_EQ(AnswerTo(DenyingPrompt(), [](HWND hDlg) { Tick(hDlg, 120); }).dwAnswer, 3333U);
}

TEST_F(ClientPermissionDialogTest, AClickBehindTheLastTickIsTooLateAndOneBeforeItIsNot)
{
    EXPECT_EQ(AnswerTo(Prompt(),
                       [](HWND hDlg) {
                           Tick(hDlg, 120);
                           Command(hDlg, IDOK);
                       })
                  .dwAnswer,
              3333U);
    EXPECT_EQ(AnswerTo(Prompt(),
                       [](HWND hDlg) {
                           Tick(hDlg, 119);
                           Command(hDlg, IDCANCEL);
                           Tick(hDlg, 1);
                       })
                  .dwAnswer,
              2222U);
}

TEST_F(ClientPermissionDialogTest, TheCountdownGoesBySeconds)
{
    constexpr int SECONDS = 4;
    constexpr ULONGLONG SECOND_MS = 1000;
    RunPrompt(Prompt(), [this](HWND hDlg) {
        const ULONGLONG qwStart = GetTickCount64();
        MSG message = {};
        while (ControlText(hDlg, IDC_PERMISSION_COUNTDOWN) != Label(PERMISSION_SECONDS - SECONDS) &&
               GetMessageW(&message, nullptr, 0, 0) > 0)
        {
            DispatchMessageW(&message);
        }
        const ULONGLONG qwTime = GetTickCount64() - qwStart;
        EXPECT_GE(qwTime, 3500U);
        EXPECT_LT(qwTime, 2 * SECONDS * SECOND_MS);
        Deny(hDlg);
    });
}

TEST_F(ClientPermissionDialogTest, TheDialogTakesItsTimerAlongHoweverItEnds)
{
    AnswerTo(Prompt(), Deny);
    EXPECT_EQ(m_trace.Calls("kill 888"), Calls{"kill 888"});
}

// ---- The watcher.

TEST_F(ClientPermissionDialogTest, AReadErrorEndsTheWatcherAndLeavesTheDialog)
{
    for (const int nError : {WSAECONNRESET, WSAEINVAL, 0})
    {
        const ImportHook hook("ws2_32.dll", "recv", &FailingReceive);
        g_pfnReceive = hook.Original();
        g_nReads = 0;
        g_nReadError = nError;
        g_nFailingReads = INT_MAX;
        const MSG_PERMISSION_PROMPT answer = AnswerTo(Prompt(), [this](HWND hDlg) {
            EXPECT_TRUE(m_threads.JoinAll(PATIENCE_MS));
            PumpMessages();
            EXPECT_TRUE(IsWindowVisible(hDlg));
            EXPECT_EQ(m_trace.Calls("end "), Calls());
            Allow(hDlg);
        });
        EXPECT_EQ(answer.dwAnswer, 1111U) << nError;
    }
}

TEST_F(ClientPermissionDialogTest, AWatcherThatTimesOutGoesOnWatching)
{
    const ImportHook hook("ws2_32.dll", "recv", &FailingReceive);
    g_pfnReceive = hook.Original();
    g_nReads = 0;
    g_nReadError = WSAETIMEDOUT;
    g_nFailingReads = 3;
    const MSG_PERMISSION_PROMPT answer = AnswerTo(Prompt(), [this](HWND) { EXPECT_TRUE(Withdraw()); });
    EXPECT_EQ(answer.dwAnswer, 4444U);
    EXPECT_EQ(g_nReads, 5);
}

TEST_F(ClientPermissionDialogTest, AnAnswerThatCannotBeSentEndsTheDialogAllTheSame)
{
    static int s_nSends = 0;
    static decltype(&send) s_pfnSend = nullptr;
    s_nSends = 0;
    const ImportHook hook(
        "ws2_32.dll", "send", +[](SOCKET hSocket, const char* p, int n, int nFlags) -> int {
            return s_nSends++ == 0 ? s_pfnSend(hSocket, p, n, nFlags) : SOCKET_ERROR;
        });
    s_pfnSend = hook.Original();
    EXPECT_EQ(RunPrompt(Prompt(), Allow), 1);
    EXPECT_EQ(s_nSends, 2);
    EXPECT_EQ(m_trace.Calls("end "), Calls{"end 1"});
}

TEST_F(ClientPermissionDialogTest, WithoutAnExchangeTheWatcherSaysThatThereIsNoPrompt)
{
    const CWindow hWnd(
        CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr));
    EXPECT_NE(CreatePermissionThread(hWnd.get()), 0);
    EXPECT_TRUE(m_threads.JoinAll(PATIENCE_MS));
    MSG message = {};
    ASSERT_TRUE(PeekMessageW(&message, hWnd.get(), 1035, 1035, PM_REMOVE));
    EXPECT_EQ(message.wParam, 0U);
    EXPECT_EQ(message.lParam, 0);
}

TEST_F(ClientPermissionDialogTest, WithoutAWatcherThePromptCanStillBeAnswered)
{
    m_threads.m_bRefuse = true;
    EXPECT_EQ(CreatePermissionThread(nullptr), 0);
    EXPECT_EQ(AnswerTo(Prompt(), Deny).dwAnswer, 2222U);
}

TEST_F(ClientPermissionDialogTest, TheWatcherEndsWithTheDialogAndNotWithItsTimeOut)
{
    ULONGLONG qwClick = 0;
    RunPrompt(Prompt(), [&](HWND hDlg) {
        EXPECT_EQ(m_threads.Count(), 1U);
        qwClick = GetTickCount64();
        Deny(hDlg);
    });
    EXPECT_LT(GetTickCount64() - qwClick, 4000U) << "RunPrompt has joined it";
}

// ---- Order, log, leftovers.

TEST_F(ClientPermissionDialogTest, TheExchangeGoesStepByStep)
{
    g_steps.clear();
    const ImportHook connecting(
        "ws2_32.dll", "connect", +[](SOCKET, const sockaddr*, int) -> int {
            g_steps.emplace_back("connect");
            return 0;
        });
    const ImportHook limiting(
        "ws2_32.dll", "setsockopt", +[](SOCKET, int, int, const char* pValue, int) -> int {
            DWORD dwValue = 0;
            std::memcpy(&dwValue, pValue, sizeof(dwValue));
            g_steps.emplace_back("limit " + std::to_string(dwValue));
            return SOCKET_ERROR; // which nobody looks at
        });
    const ImportHook sending(
        "ws2_32.dll", "send", +[](SOCKET, const char* p, int n, int) -> int {
            MSG_PERMISSION_PROMPT record = {};
            std::memcpy(&record, p, sizeof(record));
            g_steps.emplace_back("send " + std::to_string(record.dwType) + " " +
                                 std::to_string(record.dwAnswer));
            return n;
        });
    const ImportHook receiving(
        "ws2_32.dll", "recv", +[](SOCKET, char*, int n, int) -> int {
            g_steps.emplace_back("receive");
            return n;
        });
    const ImportHook looking(
        "user32.dll", "OpenInputDesktop", +[](DWORD, BOOL, ACCESS_MASK) -> HDESK {
            g_steps.emplace_back("look at the desktop");
            return nullptr;
        });
    const ImportHook closing(
        "ws2_32.dll", "closesocket", +[](SOCKET) -> int {
            g_steps.emplace_back("close");
            return 0;
        });
    EXPECT_EQ(CreatePermissionDialog(5, AF_INET), 0);
    EXPECT_EQ(g_steps, (Calls{"connect", "limit 5000", "send 70006 0", "receive", "look at the desktop",
                              "send 70006 6666", "close", "close"}));
}

TEST_F(ClientPermissionDialogTest, TheDialogIsMadeStepByStep)
{
    AnswerTo(Prompt(), Deny); // leaves its prompt to the dialog, which is made without an exchange
    UnloadGradientFill();
    g_steps.clear();
    static decltype(&SetDlgItemTextW) s_pfnSetText = nullptr;
    static decltype(&SetWindowPos) s_pfnSetPos = nullptr;
    const ImportHook text(
        "user32.dll", "SetDlgItemTextW", +[](HWND hDlg, int nControl, LPCWSTR pszText) -> BOOL {
            g_steps.emplace_back("text " + std::to_string(nControl));
            return s_pfnSetText(hDlg, nControl, pszText);
        });
    s_pfnSetText = text.Original();
    const ImportHook thread(
        "msvcrt.dll", "_beginthreadex",
        +[](void*, unsigned, unsigned(__stdcall*)(void*), void*, unsigned, unsigned*) -> uintptr_t {
            g_steps.emplace_back("watch");
            return 0;
        });
    const ImportHook caps("gdi32.dll", "GetDeviceCaps", &StepDeviceCaps);
    const ImportHook find("user32.dll", "FindWindowW", &StepFindWindow);
    const ImportHook move(
        "user32.dll", "MoveWindow", +[](HWND, int, int, int, int, BOOL) -> BOOL {
            g_steps.emplace_back("move");
            return TRUE;
        });
    const ImportHook place(
        "user32.dll", "SetWindowPos", +[](HWND hWnd, HWND hAfter, int, int, int, int, UINT uFlags) -> BOOL {
            g_steps.emplace_back("place " + std::to_string(reinterpret_cast<LONG_PTR>(hAfter)) + " " +
                                 std::to_string(uFlags));
            return s_pfnSetPos(hWnd, hAfter, 0, 0, 0, 0, uFlags);
        });
    s_pfnSetPos = place.Original();
    const ImportHook timer(
        "user32.dll", "SetTimer", +[](HWND, UINT_PTR uTimer, UINT uPeriod, TIMERPROC) -> UINT_PTR {
            g_steps.emplace_back("timer " + std::to_string(uTimer) + " " + std::to_string(uPeriod));
            return 1;
        });
    const ImportHook beep(
        "user32.dll", "MessageBeep", +[](UINT uType) -> BOOL {
            g_steps.emplace_back("beep " + std::to_string(uType));
            return TRUE;
        });
    const CWindow hDlg(CreateDialogParamW(g_hResourceModule, MAKEINTRESOURCEW(IDD_PERMISSION), nullptr,
                                          PermissionWndProc, 0));
    EXPECT_EQ(g_steps,
              (Calls{"text 1002", "watch", "gradient", "look for the taskbar", "text 1001", "text 1014",
                     "move", "place -1 595", "place -1 595", "timer 888 1000", "beep 0"}));
}

TEST_F(ClientPermissionDialogTest, LogsItsArgumentsAndEveryMessage)
{
    const LogCapture capture("ClientPermissionDialog", log4cxx::Level::getDebug());
    EXPECT_EQ(CreatePermissionDialog(UnusedPort(), 99), 0);
    EXPECT_THAT(capture.Texts(), Contains(testing::AllOf(testing::StartsWith("INFO nPort="),
                                                         testing::EndsWith(" nAfType=99"))));
    m_threads.m_bRefuse = true; // the capture takes lines of one thread at a time
    RunPrompt(Prompt(), Deny);
    EXPECT_THAT(capture.Texts(), Contains("DEBUG iMsg=272"));
    EXPECT_THAT(capture.Texts(), Contains("DEBUG iMsg=2"));
}

TEST_F(ClientPermissionDialogTest, TheWatcherNamesItselfInTheLog)
{
    const LogCapture capture("ClientPermissionDialog");
    EXPECT_EQ(PermissionThread(nullptr), 0U);
    SetMainThreadLogName();
    ASSERT_EQ(capture.Lines().size(), 2U);
    EXPECT_EQ(capture.Lines()[0].message, "PermissionThread entering.");
    EXPECT_EQ(capture.Lines()[0].threadName, "PermissionThread@" + std::to_string(GetCurrentThreadId()));
}

TEST_F(ClientPermissionDialogTest, ManyInARowLeaveNothingBehind)
{
    ExpectNothingLeftBy(ROUNDS_WITHOUT_LEAKS,
                        [this](int nRound) { RunPrompt(Prompt(), nRound % 2 == 0 ? Deny : Allow); });
}
