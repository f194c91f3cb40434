#include "channel/DesktopWatch.h"

#include "Include/LastError.h"
#include "Include/UtilWTS.h"

#include "startup/TKDAST.h"
#include "tests/support/ObjectCounts.h"
#include "tests/unit/AgentHarness.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace
{
using Calls = std::vector<std::string>;

HANDLE NewEvent()
{
    return CreateEventW(nullptr, TRUE, FALSE, nullptr);
}

// What would be the system's own event; this test system has none.
CKernelHandle CreateSwitchEvent()
{
    return CKernelHandle(CreateEventW(nullptr, FALSE, FALSE, L"WinSta0_DesktopSwitch"));
}

// What the threads open, so that a test knows how far they have come.
std::atomic<int> g_nEventsOpened = 0;
decltype(&OpenEventW) g_pfnOpenEvent = nullptr;

HANDLE WINAPI CountingOpenEvent(DWORD dwAccess, BOOL bInherit, LPCWSTR pszName)
{
    const HANDLE hEvent = g_pfnOpenEvent(dwAccess, bInherit, pszName);
    const CKeepLastError keepLastError;
    ++g_nEventsOpened;
    return hEvent;
}

class DesktopWatchTest : public AgentHarness
{
  protected:
    void SetUp() override
    {
        AgentHarness::SetUp();
        g_nEventsOpened = 0;
        g_pfnOpenEvent = m_openEvent.Original();
        g_hQuitEvent.reset(NewEvent());
        Window().m_hReaderThread.reset(NewEvent()); // stands for the thread: it is only waited for
        Window().m_hDesktopEvent.reset(NewEvent());
    }

    void TearDown() override
    {
        SetEvent(g_hQuitEvent.get());
        for (std::thread& thread : m_threads)
        {
            thread.join();
        }
        AgentHarness::TearDown();
        g_hQuitEvent.reset();
    }

    void Start(unsigned int(__stdcall* pfnThread)(void*))
    {
        m_threads.emplace_back([this, pfnThread] { pfnThread(&Window()); });
    }

    void JoinThreads()
    {
        for (std::thread& thread : m_threads)
        {
            thread.join();
        }
        m_threads.clear();
    }

    void SignalDesktop() { SetEvent(Window().m_hDesktopEvent.get()); }

    // Signals until both threads are past the handshake: the one that reports clears the signal again, and
    // the other may have come too late for it.
    void PassHandshake()
    {
        do
        {
            SignalDesktop();
            ReceiveState();
        } while (g_nEventsOpened == 0 && !HasFailure());
    }

    DWORD ReceiveState()
    {
        const auto report = Receive<MSG_TRAYICON_DESKTOP_STATE>();
        EXPECT_EQ(report.dwType, static_cast<DWORD>(MSG_TYPE_TRAYICON_DESKTOP_STATE));
        return report.dwDesktopState;
    }

    std::vector<std::thread> m_threads;
    ImportHook<decltype(OpenEventW)> m_openEvent{"kernel32.dll", "OpenEventW", &CountingOpenEvent};
};
} // namespace

TEST_F(DesktopWatchTest, TheFirstSignalGivesOneReportAndEachLaterOneAnother)
{
    Start(DesktopHaveChanged);
    EXPECT_TRUE(m_service.StaysSilent(100)) << "nothing before the handshake's signal";
    SignalDesktop();
    const DWORD dwFirst = ReceiveState();
    EXPECT_EQ(dwFirst, g_dwDesktopState);
    EXPECT_TRUE(m_service.StaysSilent(100)) << "the event is cleared";
    SignalDesktop();
    ReceiveState();
    EXPECT_TRUE(m_trace.Calls("timer").empty()) << "nobody is connected";
}

TEST_F(DesktopWatchTest, TwoSignalsBeforeTheThreadWakesGiveOneReport)
{
    SignalDesktop();
    SignalDesktop();
    Start(DesktopHaveChanged);
    ReceiveState();
    EXPECT_TRUE(m_service.StaysSilent(200));
}

TEST_F(DesktopWatchTest, AnUnlockWithAViewerBringsNoticeAndIconUpToDate)
{
    Window().m_Connection.dwConnectCount = 1;
    g_dwSessionId = GetSessionID();
    Start(DesktopHaveChanged);
    SignalDesktop();
    ASSERT_EQ(ReceiveState(), static_cast<DWORD>(DESKTOP_STATE_UNLOCKED));
    EXPECT_TRUE(m_trace.WaitFor("timer 1006 250"));
    EXPECT_EQ(m_trace.Calls("timer"), (Calls{"timer 1002 250", "timer 1006 250"}));
}

TEST_F(DesktopWatchTest, ADesktopSwitchBecomesAReportFromTheHandshakeOn)
{
    const CKernelHandle hSwitch = CreateSwitchEvent();
    Start(DesktopHaveChanged);
    Start(DesktopChange);
    SetEvent(hSwitch.get());
    EXPECT_TRUE(m_service.StaysSilent(100)) << "the handshake isn't done";
    ResetEvent(hSwitch.get());
    PassHandshake();
    // Until the thread waits for it a switch leaves the event set.
    SetEvent(hSwitch.get());
    ReceiveState();
}

TEST_F(DesktopWatchTest, WithoutTheSwitchEventTheSessionsSignalsStillReport)
{
    Start(DesktopHaveChanged);
    Start(DesktopChange);
    PassHandshake();
    m_threads.back().join(); // has nothing to wait for
    m_threads.pop_back();
    SignalDesktop();
    ReceiveState();
}

TEST_F(DesktopWatchTest, BothThreadsEndWithTheReader)
{
    const CKernelHandle hSwitch = CreateSwitchEvent();
    Start(DesktopHaveChanged);
    Start(DesktopChange);
    PassHandshake();
    SetEvent(Window().m_hReaderThread.get());
    JoinThreads();
}

TEST_F(DesktopWatchTest, WithoutAHandshakeTheWatchEndsWithTheReaderAndTheAgent)
{
    Start(DesktopHaveChanged);
    SetEvent(Window().m_hReaderThread.get());
    JoinThreads();
    Start(DesktopChange);
    SetEvent(g_hQuitEvent.get());
    JoinThreads();
    EXPECT_TRUE(m_service.StaysSilent(50));
}

TEST_F(DesktopWatchTest, SessionNoticesThatConcernTheDesktopSignalIt)
{
    for (const WPARAM wChange : {1, 2, 3, 4, 5, 6, 7, 8, 9})
    {
        ResetEvent(Window().m_hDesktopEvent.get());
        SendMessageW(Window().m_hWnd, WM_WTSSESSION_CHANGE, wChange, 0);
        const bool bConcerns = wChange == 1 || wChange == 2 || wChange == 5 || wChange == 7 || wChange == 8;
        EXPECT_EQ(WaitForSingleObject(Window().m_hDesktopEvent.get(), 0) == WAIT_OBJECT_0, bConcerns)
            << wChange;
    }
    EXPECT_TRUE(m_trace.Calls("timer").empty());
}

TEST_F(DesktopWatchTest, TwoHundredRoundsLeaveNoHandlesAndNoThreads)
{
    const CKernelHandle hSwitch = CreateSwitchEvent();
    const auto round = [&] {
        ResetEvent(g_hQuitEvent.get());
        ResetEvent(Window().m_hReaderThread.get());
        Start(DesktopHaveChanged);
        Start(DesktopChange);
        SetEvent(Window().m_hReaderThread.get());
        SetEvent(g_hQuitEvent.get());
        JoinThreads();
    };
    round();
    const ObjectCounts before = CountObjects();
    for (int nRound = 0; nRound < 200; ++nRound)
    {
        round();
    }
    const ObjectCounts after = CountObjects();
    EXPECT_LE(after.dwThreads, before.dwThreads);
    EXPECT_LE(after.dwHandles, before.dwHandles + HANDLES_OF_LOCKS);
}
