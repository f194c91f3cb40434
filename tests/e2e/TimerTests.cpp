#include "tests/e2e/TrayTest.h"

#include <shellapi.h>
#include <wtsapi32.h>

#include <vector>

namespace
{
// A timer of the system may come up to a step of its clock before its time.
constexpr ULONGLONG CLOCK_STEP_MS = 32;

/// The agent's timers as the shell sees them: each refreshes the icon when it fires.
class TimerTest : public TrayTest
{
  protected:
    /// Counts from now on.
    void Begin()
    {
        m_catcher->Forget();
        m_qwBegin = GetTickCount64();
    }

    /// The calls of the shell since Begin: so many at once, the last of them at a timer of that period.
    void ExpectRefreshAfter(ULONGLONG qwPeriod, size_t nCallsAtOnce, DWORD dwMessage = NIM_MODIFY)
    {
        ASSERT_TRUE(m_catcher->WaitForCalls(nCallsAtOnce + 1, PATIENCE_MS));
        const TrayCall refresh = m_catcher->Calls()[nCallsAtOnce];
        EXPECT_EQ(refresh.dwMessage, dwMessage);
        EXPECT_GE(refresh.qwTime - m_qwBegin, qwPeriod - CLOCK_STEP_MS);
    }

    void ExpectNoMoreCallsThan(size_t nCalls)
    {
        EXPECT_FALSE(m_catcher->WaitForCalls(nCalls + 1, SILENCE_MS));
        EXPECT_EQ(m_catcher->Calls().size(), nCalls);
    }

    ULONGLONG m_qwBegin = 0;
};

TEST_F(TimerTest, TheFirstRecordIsFollowedUpASecondLater)
{
    MSG_TRAYICON_INIT init = {};
    init.dwType = MSG_TYPE_TRAYICON_INIT;
    Begin();
    ASSERT_TRUE(m_channel->Send(init));
    ExpectRefreshAfter(1000, 0, NIM_ADD);
    ExpectNoMoreCallsThan(1);
}

TEST_F(TimerTest, ConnectsInARowAreFollowedUpOnceTwoSecondsBehindTheLast)
{
    constexpr size_t BURST = 5;
    ASSERT_TRUE(SendSettings());
    ASSERT_EQ(Calls().size(), 1u);
    Begin();
    for (DWORD dwCount = 1; dwCount < BURST; ++dwCount)
    {
        ASSERT_TRUE(SendConnect(MSG_TYPE_TRAYICON_CONNECT_NOTIFY, dwCount));
    }
    EXPECT_TRUE(m_catcher->WaitForCalls(BURST - 1, PATIENCE_MS));
    m_qwBegin = GetTickCount64();
    ASSERT_TRUE(SendConnect(MSG_TYPE_TRAYICON_CONNECT_NOTIFY, BURST));
    ExpectRefreshAfter(2000, BURST);
    // Nor is anything left of the five seconds behind the settings.
    EXPECT_FALSE(m_catcher->WaitForCalls(BURST + 2, 3500));
}

TEST_F(TimerTest, SettingsInARowAreFollowedUpOnceFiveSecondsBehindTheLast)
{
    ASSERT_TRUE(SendSettings());
    ASSERT_TRUE(m_catcher->WaitForCalls(1, PATIENCE_MS));
    EXPECT_FALSE(m_catcher->WaitForCalls(2, 1000));
    Begin();
    ASSERT_TRUE(SendSettings());
    ExpectRefreshAfter(5000, 1);
    ExpectNoMoreCallsThan(2);
}

TEST_F(TimerTest, AnUnlockWithAViewerIsFollowedUpByNoticeAndIconAQuarterOfASecondLater)
{
    ASSERT_TRUE(m_channel->Send(PlainSettings(MSG_TYPE_TRAYICON_SETTINGS_UPDATE)));
    ASSERT_TRUE(SendConnect(MSG_TYPE_TRAYICON_CONNECT_COUNT, 1));
    ASSERT_EQ(Calls().size(), 2u);
    const HWND hWnd = m_agent->WaitForTrayWindow(PATIENCE_MS);
    Begin();
    ASSERT_TRUE(PostMessageW(hWnd, WM_WTSSESSION_CHANGE, WTS_SESSION_LOCK, 0));
    EXPECT_EQ(TakeDesktopState(), static_cast<DWORD>(DESKTOP_STATE_LOCKED));
    ExpectNoMoreCallsThan(0);
    m_session->nConnectState = WTSActive;
    Begin();
    ASSERT_TRUE(PostMessageW(hWnd, WM_WTSSESSION_CHANGE, WTS_SESSION_UNLOCK, 0));
    EXPECT_EQ(TakeDesktopState(), static_cast<DWORD>(DESKTOP_STATE_UNLOCKED));
    ExpectRefreshAfter(250, 0);
    ExpectRefreshAfter(250, 1);
    ExpectNoMoreCallsThan(2);
}

TEST_F(TimerTest, AnUnlockWithoutAViewerIsReportedAndNothingElse)
{
    ASSERT_TRUE(m_channel->Send(PlainSettings(MSG_TYPE_TRAYICON_SETTINGS_UPDATE)));
    ASSERT_EQ(Calls().size(), 1u);
    const HWND hWnd = m_agent->WaitForTrayWindow(PATIENCE_MS);
    m_session->nConnectState = WTSActive;
    Begin();
    ASSERT_TRUE(PostMessageW(hWnd, WM_WTSSESSION_CHANGE, WTS_SESSION_UNLOCK, 0));
    EXPECT_EQ(TakeDesktopState(), static_cast<DWORD>(DESKTOP_STATE_UNLOCKED));
    ExpectNoMoreCallsThan(0);
}
} // namespace
