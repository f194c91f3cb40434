#include "channel/TrayMessages.h"
#include "startup/TKDAST.h"
#include "tests/support/AgentFolder.h"
#include "tests/support/ImportHook.h"
#include "tests/support/LoopbackPeer.h"
#include "tests/support/ObjectCounts.h"
#include "tests/support/Patience.h"
#include "tests/support/Watchdog.h"
#include "tests/support/StartedThreads.h"
#include "tray/TKDASTWindow.h"

#include <gtest/gtest.h>

#include <iostream>
#include <memory>
#include <optional>

namespace
{
constexpr DWORD ROUNDS_LIMIT_MS = 300000;
constexpr int WARMING_ROUNDS = 5;
constexpr int ROUNDS = 200;

decltype(&Sleep) g_pfnSleep = nullptr;

// The agent's pauses give threads time to end; the test waits for the threads themselves.
void WINAPI ShortSleep(DWORD dwMilliseconds)
{
    g_pfnSleep(dwMilliseconds != 0 ? 1 : 0);
}

/// The test as service, and the main thread of agents that come and go.
class AgentLifeTest : public testing::Test
{
  protected:
    void SetUp() override
    {
        g_pfnSleep = m_sleep.Original();
        // Not as data, as the agent loads it: from data the test system makes a new icon at each load, where
        // Windows gives the one that is there. The agent itself loads its icons once.
        m_hModule.reset(LoadLibraryW((StageFolder() / L"TKDASTRES.dll").c_str()));
        ASSERT_TRUE(m_hModule);
        g_hResourceModule = m_hModule.get();
    }

    /// One agent from its window's birth to its end, with a viewer that comes in between.
    void LiveOnce()
    {
        g_hQuitEvent.reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        auto pWindow = std::make_unique<CTaskBarWindow>(m_listener.Port());
        MSG message = {};
        ASSERT_TRUE(PeekMessageW(&message, pWindow->m_hWnd, WM_AGENT_INIT, WM_AGENT_INIT, PM_REMOVE));
        DispatchMessageW(&message);
        ASSERT_EQ(m_threads.Count(), 3U) << "the reader and two that watch the desktop";
        std::optional<LoopbackConnection> service = m_listener.Accept(PATIENCE_MS);
        ASSERT_TRUE(service.has_value());
        Talk(*service);
        EXPECT_EQ(pWindow->m_bIconAdded, 1U);
        PostMessageW(pWindow->m_hWnd, WM_CLOSE, 0, 0);
        while (GetMessageW(&message, nullptr, 0, 0) > 0)
        {
            DispatchMessageW(&message);
        }
        EXPECT_TRUE(service->WaitForEnd(PATIENCE_MS));
        EXPECT_TRUE(m_threads.JoinAll(PATIENCE_MS));
        pWindow.reset();
        g_hQuitEvent.reset();
    }

    static void Talk(LoopbackConnection& service)
    {
        MSG_VERSION version = {};
        version.dwType = MSG_TYPE_VERSION;
        ASSERT_TRUE(service.SendAll(&version, sizeof(version)));
        ASSERT_TRUE(service.ReceiveExactly(&version, sizeof(version), PATIENCE_MS));
        MSG_TRAYICON_DESKTOP_STATE state = {};
        ASSERT_TRUE(service.ReceiveExactly(&state, sizeof(state), PATIENCE_MS));
        MSG_TRAYICON_SETTINGS settings = {};
        settings.dwType = MSG_TYPE_TRAYICON_SETTINGS;
        settings.dwTrayIcon = TRAY_ICON_SHOWN;
        settings.dwDefaultConnectionType = ORDINARY_CONNECTION_TYPE;
        settings.szTrayTip[0] = L'K';
        ASSERT_TRUE(service.SendAll(&settings, sizeof(settings)));
        MSG_TRAYICON_DESKTOP_USER_INFORMATION user = {};
        ASSERT_TRUE(service.ReceiveExactly(&user, sizeof(user), PATIENCE_MS));
        MSG_TRAYICON_CONNECT connection = {};
        connection.dwType = MSG_TYPE_TRAYICON_CONNECT_NOTIFY;
        connection.dwConnectionType = ORDINARY_CONNECTION_TYPE;
        connection.dwConnectCount = 1;
        ASSERT_TRUE(service.SendAll(&connection, sizeof(connection)));
        DWORD dwEcho = MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE;
        ASSERT_TRUE(service.SendAll(&dwEcho, sizeof(dwEcho)));
        ASSERT_TRUE(service.ReceiveExactly(&dwEcho, sizeof(dwEcho), PATIENCE_MS));
        EXPECT_EQ(dwEcho, static_cast<DWORD>(MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE));
    }

    LoopbackListener m_listener;
    CModule m_hModule;
    // What would be the system's own event, so that the thread that waits for it lives as long as the agent.
    CKernelHandle m_hSwitch{CreateEventW(nullptr, FALSE, FALSE, L"WinSta0_DesktopSwitch")};
    ImportHook<decltype(ShortSleep)> m_sleep{"kernel32.dll", "Sleep", &ShortSleep};
    StartedThreads m_threads;
};
} // namespace

TEST_F(AgentLifeTest, TwoHundredLivesLeaveNothingBehind)
{
    Watchdog::Allow(ROUNDS_LIMIT_MS);
    for (int nRound = 0; nRound < WARMING_ROUNDS; ++nRound)
    {
        LiveOnce();
    }
    const ObjectCounts before = CountObjects();
    const ULONGLONG qwStart = GetTickCount64();
    for (int nRound = 0; nRound < ROUNDS && !HasFailure(); ++nRound)
    {
        LiveOnce();
    }
    const ULONGLONG qwTime = GetTickCount64() - qwStart;
    const ObjectCounts after = CountObjects();
    std::cout << "before: " << before << "\nafter " << ROUNDS << " lives in " << qwTime << " ms: " << after
              << std::endl;
    // Fewer handles and threads are left when one of the system's own threads has gone to rest.
    EXPECT_LE(after.dwHandles, before.dwHandles + HANDLES_OF_LOCKS);
    EXPECT_LE(after.dwThreads, before.dwThreads);
    EXPECT_EQ(after.dwGdiObjects, before.dwGdiObjects);
    EXPECT_EQ(after.dwWindows, before.dwWindows);
    EXPECT_EQ(after.dwMenus, before.dwMenus);
    EXPECT_EQ(after.dwIcons, before.dwIcons);
}
