#include "Include/UtilTimedMessageBox.h"

#include "Include/Handles.h"
#include "tests/support/ImportHook.h"
#include "tests/unit/LogCapture.h"
#include "tests/unit/ModalScenario.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace
{
constexpr DWORD SOON = 200;     // milliseconds
constexpr DWORD LATER = 600000; // milliseconds: never in a test

struct BOX
{
    HWND hOwner;
    std::wstring text;
    std::wstring caption;
    UINT uType;
};

BOX g_box;
int g_nReads = 0;
decltype(&GetMessageW) g_pfnGetMessage = nullptr;
UINT_PTR g_uTimer = 0;
UINT_PTR g_uKilled = 0;
decltype(&SetTimer) g_pfnSetTimer = nullptr;
decltype(&KillTimer) g_pfnKillTimer = nullptr;

int WINAPI RecordBox(HWND hOwner, LPCWSTR pszText, LPCWSTR pszCaption, UINT uType)
{
    g_box = {hOwner, pszText, pszCaption, uType};
    return 42;
}

BOOL WINAPI CountReads(LPMSG pMessage, HWND hWnd, UINT uFirst, UINT uLast)
{
    ++g_nReads;
    return g_pfnGetMessage(pMessage, hWnd, uFirst, uLast);
}

UINT_PTR WINAPI RememberTimer(HWND hWnd, UINT_PTR uId, UINT uPeriod, TIMERPROC pfnTimer)
{
    EXPECT_EQ(hWnd, nullptr);
    g_uTimer = g_pfnSetTimer(hWnd, uId, uPeriod, pfnTimer);
    return g_uTimer;
}

BOOL WINAPI RememberKill(HWND hWnd, UINT_PTR uId)
{
    g_uKilled = uId;
    return g_pfnKillTimer(hWnd, uId);
}

bool IsQuitWaiting()
{
    MSG message = {};
    bool bQuit = false;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
    {
        bQuit = bQuit || message.message == WM_QUIT;
        DispatchMessageW(&message);
    }
    return bQuit;
}

INT_PTR CALLBACK EndWithTimersResult(HWND hDlg, UINT uMessage, WPARAM wParam, LPARAM lParam)
{
    if (uMessage == WM_INITDIALOG)
    {
        SetTimer(hDlg, 1, static_cast<UINT>(LOWORD(lParam)), nullptr);
        SetWindowLongPtrW(hDlg, GWLP_USERDATA, HIWORD(lParam));
    }
    if (uMessage == WM_TIMER && wParam == 1)
    {
        EndDialog(hDlg, GetWindowLongPtrW(hDlg, GWLP_USERDATA));
    }
    return FALSE;
}

// A dialog without controls that ends by itself with that result.
INT_PTR RunDialogFor(WORD wMilliseconds, WORD wResult)
{
    struct
    {
        DLGTEMPLATE dialog;
        WORD awNothing[3]; // menu, class, title
    } dialogTemplate = {{WS_POPUP | WS_VISIBLE | WS_CAPTION, 0, 0, 0, 0, 60, 20}, {}};
    const CModalDialogScope scope;
    return DialogBoxIndirectParamW(nullptr, &dialogTemplate.dialog, nullptr, EndWithTimersResult,
                                   MAKELONG(wMilliseconds, wResult));
}

class TimedMessageBoxTest : public testing::Test
{
  protected:
    void SetUp() override
    {
        IsQuitWaiting();
        g_nReads = 0;
        g_pfnGetMessage = m_getMessage.Original();
        m_hOwner.reset(CreateWindowExW(0, L"STATIC", L"owner", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0, 200,
                                       100, nullptr, nullptr, nullptr, nullptr));
    }

    static int Ask(HWND hOwner, DWORD dwTimeoutMs)
    {
        return TimedMessageBox(hOwner, L"Question", L"Title", MB_YESNO | MB_ICONQUESTION, dwTimeoutMs);
    }

    CWindow m_hOwner;
    ImportHook<decltype(GetMessageW)> m_getMessage{"user32.dll", "GetMessageW", &CountReads};
};
} // namespace

TEST_F(TimedMessageBoxTest, HandsEverythingToTheSystemsBoxAndItsAnswerBack)
{
    const ImportHook hook("user32.dll", "MessageBoxW", &RecordBox);
    EXPECT_EQ(Ask(m_hOwner.get(), LATER), 42);
    EXPECT_EQ(g_box.hOwner, m_hOwner.get());
    EXPECT_EQ(g_box.text, L"Question");
    EXPECT_EQ(g_box.caption, L"Title");
    EXPECT_EQ(g_box.uType, 36U);
}

TEST_F(TimedMessageBoxTest, ABoxThatTimesOutReturnsAndLeavesNoQuitMessage)
{
    EXPECT_NE(Ask(nullptr, SOON), IDYES);
    EXPECT_FALSE(IsQuitWaiting());
    EXPECT_EQ(FindWindowW(L"#32770", L"Title"), nullptr);
}

TEST_F(TimedMessageBoxTest, TheCallersLoopGoesOnAfterATimeOut)
{
    Ask(nullptr, SOON);
    PostMessageW(m_hOwner.get(), WM_APP, 0, 0);
    MSG message = {};
    while (GetMessageW(&message, nullptr, 0, 0) > 0 && message.message != WM_APP)
    {
        DispatchMessageW(&message);
    }
    EXPECT_EQ(message.message, static_cast<UINT>(WM_APP));
}

TEST_F(TimedMessageBoxTest, AnAnsweredBoxLeavesNoTimerAndEatsNoMessage)
{
    const ImportHook setTimer("user32.dll", "SetTimer", &RememberTimer);
    const ImportHook killTimer("user32.dll", "KillTimer", &RememberKill);
    g_pfnSetTimer = setTimer.Original();
    g_pfnKillTimer = killTimer.Original();
    const ModalScenario scenario([](HWND hBox) { PostMessageW(hBox, WM_COMMAND, IDYES, 0); });
    g_uTimer = g_uKilled = 0;
    EXPECT_EQ(Ask(m_hOwner.get(), LATER), IDYES);
    EXPECT_TRUE(scenario.HasRun());
    EXPECT_NE(g_uTimer, 0U);
    EXPECT_EQ(g_uKilled, g_uTimer);
    EXPECT_EQ(g_nReads, 0);
    EXPECT_FALSE(IsQuitWaiting());
    EXPECT_TRUE(IsWindowEnabled(m_hOwner.get()));
}

TEST_F(TimedMessageBoxTest, AnAnswerAtTheLastMomentStillLeavesNoQuitMessage)
{
    const ModalScenario scenario([](HWND hBox) {
        MessageBoxTimer(nullptr, WM_TIMER, 0, 0);
        SendMessageW(hBox, WM_COMMAND, IDYES, 0);
    });
    Ask(nullptr, LATER);
    EXPECT_FALSE(IsQuitWaiting());
}

TEST_F(TimedMessageBoxTest, AnEnabledOwnerIsEnabledAgain)
{
    bool bDisabledMeanwhile = false;
    const ModalScenario scenario(
        [&](HWND) { bDisabledMeanwhile = IsWindowEnabled(m_hOwner.get()) == FALSE; });
    Ask(m_hOwner.get(), SOON);
    EXPECT_TRUE(bDisabledMeanwhile);
    EXPECT_TRUE(IsWindowEnabled(m_hOwner.get()));
}

TEST_F(TimedMessageBoxTest, ADisabledOwnerStaysDisabled)
{
    EnableWindow(m_hOwner.get(), FALSE);
    // The system's box enables whatever owner it has had; what counts is what this one does.
    const ImportHook hook(
        "user32.dll", "MessageBoxW", +[](HWND, LPCWSTR, LPCWSTR, UINT) {
            MessageBoxTimer(nullptr, WM_TIMER, 0, 0);
            return 0;
        });
    Ask(m_hOwner.get(), LATER);
    EXPECT_FALSE(IsWindowEnabled(m_hOwner.get()));
    EXPECT_FALSE(IsQuitWaiting());
    EnableWindow(m_hOwner.get(), TRUE);
    Ask(m_hOwner.get(), LATER);
    EXPECT_TRUE(IsWindowEnabled(m_hOwner.get()));
}

TEST_F(TimedMessageBoxTest, ATimeOutOfOneBoxDoesNotReachIntoTheNext)
{
    Ask(m_hOwner.get(), SOON);
    g_nReads = 0;
    const ModalScenario scenario([](HWND hBox) { PostMessageW(hBox, WM_COMMAND, IDNO, 0); });
    EXPECT_EQ(Ask(nullptr, LATER), IDNO);
    EXPECT_EQ(g_nReads, 0);
}

// The whole of it: a box, a real dialog that a message of the box's loop opens, and the box's time-out
// meanwhile.
TEST_F(TimedMessageBoxTest, ADialogOverABoxLivesThroughTheBoxsTimeOut)
{
    INT_PTR nDialog = 0;
    const ModalScenario scenario([&](HWND) { nDialog = RunDialogFor(5 * SOON, 77); });
    EXPECT_NE(Ask(nullptr, SOON), IDYES);
    EXPECT_EQ(nDialog, 77);
    EXPECT_FALSE(IsQuitWaiting());
    EXPECT_EQ(FindWindowW(L"#32770", L"Title"), nullptr);
}

TEST_F(TimedMessageBoxTest, ABoxOverADialogTimesOutAsEver)
{
    const CModalDialogScope below;
    EXPECT_NE(Ask(nullptr, SOON), IDYES);
    EXPECT_FALSE(IsQuitWaiting());
}

TEST_F(TimedMessageBoxTest, ABoxThatIsAnsweredBehindADialogTakesNoTimeOutWithIt)
{
    const ModalScenario scenario([](HWND hBox) {
        const CModalDialogScope over;
        MessageBoxTimer(nullptr, WM_TIMER, 0, 0);
        SendMessageW(hBox, WM_COMMAND, IDYES, 0);
    });
    Ask(nullptr, LATER);
    EXPECT_FALSE(IsQuitWaiting());
    {
        const CModalDialogScope later;
    }
    EXPECT_FALSE(IsQuitWaiting());
}

TEST_F(TimedMessageBoxTest, LogsTheTimeOut)
{
    const LogCapture capture("UtilTimedMessageBox", log4cxx::Level::getDebug());
    Ask(nullptr, SOON);
    EXPECT_THAT(capture.Texts(),
                testing::ElementsAre("INFO MessageBoxTimer fired. Posting WM_QUIT.",
                                     "DEBUG Timed out. Looking for WM_QUIT message to eat."));
}
