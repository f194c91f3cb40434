#include "channel/DesktopWatch.h"

#include "Include/LastError.h"
#include "Include/UtilWTS.h"

#include "Include/BoundedText.h"
#include "startup/TKDAST.h"
#include "tests/support/ObjectCounts.h"
#include "tests/unit/AgentHarness.h"
#include "tests/unit/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <utility>
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
    EXPECT_EQ(dwAccess, static_cast<DWORD>(SYNCHRONIZE));
    EXPECT_FALSE(bInherit);
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
    const ImportHook sleep(
        "kernel32.dll", "Sleep", +[](DWORD) {}); // the threads settle first
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

namespace
{
// What one thread asks of the system, in order. Others may sleep meanwhile, and the runtime does.
Calls g_calls;
std::atomic<DWORD> g_dwWatchThread = 0;
decltype(&ResetEvent) g_pfnResetEvent = nullptr;
decltype(&send) g_pfnSend = nullptr;
const HDESK FAKE_DESKTOP = reinterpret_cast<HDESK>(static_cast<ULONG_PTR>(0x1234));

void AddCall(const std::string& call)
{
    if (GetCurrentThreadId() == g_dwWatchThread)
    {
        g_calls.push_back(call);
    }
}

void WINAPI RecordingSleep(DWORD dwMilliseconds)
{
    AddCall("sleep " + std::to_string(dwMilliseconds));
}

BOOL WINAPI RecordingResetEvent(HANDLE hEvent)
{
    AddCall("reset");
    return g_pfnResetEvent(hEvent);
}

HDESK WINAPI RecordingOpenInputDesktop(DWORD, BOOL, ACCESS_MASK)
{
    AddCall("look");
    return FAKE_DESKTOP;
}

// Of the two desktops whose names tell whether a person can be reached, without a question to the session.
const wchar_t* g_pszInputDesktop = nullptr;

BOOL WINAPI NameInputDesktop(HANDLE, int, PVOID pvInfo, DWORD cbInfo, LPDWORD)
{
    CopyText(static_cast<wchar_t*>(pvInfo), cbInfo / sizeof(wchar_t), g_pszInputDesktop);
    return TRUE;
}

BOOL WINAPI NothingToClose(HDESK)
{
    return TRUE;
}

int WSAAPI RecordingSend(SOCKET hSocket, const char* p, int n, int nFlags)
{
    AddCall("send " + std::to_string(n));
    return g_pfnSend(hSocket, p, n, nFlags);
}

CKernelHandle g_hLastTimer; // set when the second of the two timers is armed

UINT_PTR WINAPI RecordingSetTimer(HWND, UINT_PTR uTimer, UINT uPeriod, TIMERPROC)
{
    AddCall("timer " + std::to_string(uTimer) + " " + std::to_string(uPeriod));
    if (uTimer == TIMER_TRAY_RETRY)
    {
        SetEvent(g_hLastTimer.get());
    }
    return uTimer;
}

// A person at the desktop, and each call of the watching thread.
class WatchOrderTest : public DesktopWatchTest
{
  protected:
    void SetUp() override
    {
        g_pfnResetEvent = m_reset.Original();
        g_pfnSend = m_send.Original();
        g_hLastTimer.reset(NewEvent());
        g_pszInputDesktop = SCREEN_SAVER_DESKTOP_NAME;
        g_calls.clear();
        DesktopWatchTest::SetUp();
    }

    void StartWatched(unsigned int(__stdcall* pfnThread)(void*))
    {
        m_threads.emplace_back([this, pfnThread] {
            g_dwWatchThread = GetCurrentThreadId();
            pfnThread(&Window());
            g_dwWatchThread = 0;
        });
    }

    ImportHook<decltype(Sleep)> m_sleep{"kernel32.dll", "Sleep", &RecordingSleep};
    ImportHook<decltype(ResetEvent)> m_reset{"kernel32.dll", "ResetEvent", &RecordingResetEvent};
    ImportHook<decltype(OpenInputDesktop)> m_open{"user32.dll", "OpenInputDesktop",
                                                  &RecordingOpenInputDesktop};
    ImportHook<decltype(GetUserObjectInformationW)> m_name{"user32.dll", "GetUserObjectInformationW",
                                                           &NameInputDesktop};
    ImportHook<decltype(CloseDesktop)> m_close{"user32.dll", "CloseDesktop", &NothingToClose};
    ImportHook<decltype(send)> m_send{"ws2_32.dll", "send", &RecordingSend};
    ImportHook<decltype(SetTimer)> m_timer{"user32.dll", "SetTimer", &RecordingSetTimer};
};
} // namespace

TEST_F(WatchOrderTest, AReportClearsTheEventLooksSendsAndOnlyThenArmsNoticeAndIcon)
{
    Window().m_Connection.dwConnectCount = 1;
    SignalDesktop();
    StartWatched(DesktopHaveChanged);
    EXPECT_EQ(ReceiveState(), static_cast<DWORD>(DESKTOP_STATE_UNLOCKED));
    EXPECT_EQ(WaitForSingleObject(g_hLastTimer.get(), PATIENCE_MS), WAIT_OBJECT_0);
    SetEvent(Window().m_hReaderThread.get());
    JoinThreads();
    EXPECT_EQ(g_calls, (Calls{"sleep 0", "sleep 25", "sleep 0", "sleep 25", "reset", "sleep 0", "look",
                              "send 8", "timer 1002 250", "timer 1006 250"}));
}

TEST_F(WatchOrderTest, NothingIsArmedWithoutAViewerOrBehindALock)
{
    for (const auto& [dwViewers, pszDesktop] :
         {std::pair<DWORD, const wchar_t*>(0, SCREEN_SAVER_DESKTOP_NAME),
          std::pair<DWORD, const wchar_t*>(1, SECURE_DESKTOP_NAME)})
    {
        Window().m_Connection.dwConnectCount = dwViewers;
        g_pszInputDesktop = pszDesktop;
        g_calls.clear();
        ResetEvent(Window().m_hReaderThread.get());
        SignalDesktop();
        StartWatched(DesktopHaveChanged);
        ReceiveState();
        SetEvent(Window().m_hReaderThread.get());
        JoinThreads();
        EXPECT_EQ(g_calls.back(), "send 8") << dwViewers;
    }
}

TEST_F(WatchOrderTest, AReportThatCannotBeSentHindersNothing)
{
    Window().m_Connection.dwConnectCount = 1;
    const std::shared_ptr<CTKSocket> pSocket = Window().m_pSocket.exchange(nullptr);
    SignalDesktop();
    StartWatched(DesktopHaveChanged);
    EXPECT_EQ(WaitForSingleObject(g_hLastTimer.get(), PATIENCE_MS), WAIT_OBJECT_0);
    SetEvent(Window().m_hReaderThread.get());
    JoinThreads();
    Window().m_pSocket = pSocket;
}

TEST_F(WatchOrderTest, TheSwitchEventIsOpenedBehindTheFirstSignalAndWaitedForAPauseLater)
{
    const CKernelHandle hSwitch = CreateSwitchEvent();
    SignalDesktop();
    SetEvent(Window().m_hReaderThread.get());
    StartWatched(DesktopChange);
    JoinThreads();
    EXPECT_EQ(g_nEventsOpened, 1);
    EXPECT_EQ(g_calls, (Calls{"sleep 0", "sleep 25", "sleep 0", "sleep 25"}));
}

TEST_F(WatchOrderTest, AQuitBeforeTheFirstSignalEndsTheWatchBeforeItOpensTheSwitchEvent)
{
    const CKernelHandle hSwitch = CreateSwitchEvent();
    SetEvent(g_hQuitEvent.get());
    StartWatched(DesktopChange);
    JoinThreads();
    EXPECT_EQ(g_nEventsOpened, 0);
}

TEST_F(DesktopWatchTest, BothThreadsAreTracedUnderTheirNames)
{
    Settle(); // the reader logs nothing more
    const LogCapture capture("ConnectionInfo");
    SetEvent(g_hQuitEvent.get());
    SetEvent(Window().m_hReaderThread.get());
    Start(DesktopHaveChanged);
    JoinThreads();
    Start(DesktopChange);
    JoinThreads();
    EXPECT_THAT(capture.Texts(), testing::ElementsAre("TRACE DesktopHaveChangedThread entering.",
                                                      "TRACE DesktopHaveChangedThread exiting.",
                                                      "TRACE DesktopChangeThread entering.",
                                                      "TRACE DesktopChangeThread exiting."));
    ASSERT_EQ(capture.Lines().size(), 4U);
    EXPECT_TRUE(capture.Lines()[0].threadName.starts_with("DesktopHaveChanged@"));
    EXPECT_TRUE(capture.Lines()[2].threadName.starts_with("DesktopChange@"));
}
