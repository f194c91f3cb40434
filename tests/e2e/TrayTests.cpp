#include "tests/e2e/TrayTest.h"

#include "Include/BoundedText.h"
#include <shellapi.h>
#include <wtsapi32.h>

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace
{
TEST_F(TrayTest, TheIconFollowsSettingsAndViewersAndIsDeletedAtTheEnd)
{
    ASSERT_TRUE(SendSettings(0));
    const std::vector<TrayCall> idle = Calls();
    ASSERT_EQ(idle.size(), 1u);
    EXPECT_EQ(idle[0].dwMessage, static_cast<DWORD>(NIM_ADD));
    EXPECT_EQ(idle[0].uID, 44444u);
    EXPECT_EQ(idle[0].tip, L"Kestrel...");
    ASSERT_FALSE(idle[0].iconBits.empty());

    ASSERT_TRUE(SendSettings(1));
    ASSERT_TRUE(SendConnect(MSG_TYPE_TRAYICON_CONNECT_COUNT, 2));
    ASSERT_TRUE(SendConnect(MSG_TYPE_TRAYICON_CONNECT_COUNT, 0));
    ASSERT_TRUE(SendSettings(0));
    const std::vector<TrayCall> calls = Calls();
    ASSERT_EQ(calls.size(), 5u);
    EXPECT_EQ(calls[1].dwMessage, static_cast<DWORD>(NIM_MODIFY));
    EXPECT_EQ(calls[1].tip, L"Permission required\r\nKestre...");
    EXPECT_NE(calls[1].iconBits, idle[0].iconBits);
    EXPECT_NE(calls[2].iconBits, idle[0].iconBits) << "active";
    EXPECT_NE(calls[2].iconBits, calls[1].iconBits);
    EXPECT_EQ(calls[3].iconBits, calls[1].iconBits);
    EXPECT_EQ(calls[4].iconBits, idle[0].iconBits);

    ExpectEndWithService();
    ASSERT_TRUE(m_catcher->WaitForCalls(6, PATIENCE_MS));
    EXPECT_EQ(m_catcher->Calls().back().dwMessage, static_cast<DWORD>(NIM_DELETE));
}

TEST_F(TrayTest, AShellThatRefusesIsAskedAgain)
{
    m_catcher->SetAnswer(false);
    ASSERT_TRUE(SendSettings(0));
    ASSERT_TRUE(m_catcher->WaitForCalls(2, PATIENCE_MS)) << "a second later";
    m_catcher->SetAnswer(true);
    ASSERT_TRUE(m_catcher->WaitForCalls(3, PATIENCE_MS));
    const std::vector<TrayCall> calls = Calls();
    EXPECT_TRUE(std::all_of(calls.begin(), calls.end(),
                            [](const TrayCall& call) { return call.dwMessage == NIM_ADD; }));
}

TEST_F(TrayTest, ARestartedShellGetsTheActiveIconBackEachOfTenTimes)
{
    ASSERT_TRUE(SendSettings(0));
    ASSERT_TRUE(SendConnect(MSG_TYPE_TRAYICON_CONNECT_COUNT, 1));
    const std::vector<TrayCall> before = Calls();
    ASSERT_EQ(before.size(), 2u);
    const HWND hWnd = m_agent->WaitForTrayWindow(PATIENCE_MS);
    const UINT uTaskbarCreated = RegisterWindowMessageW(L"TaskbarCreated");
    for (int nRestart = 1; nRestart <= 10; ++nRestart)
    {
        m_catcher.reset();
        m_catcher.emplace();
        ASSERT_TRUE(PostMessageW(hWnd, uTaskbarCreated, 0, 0));
        ASSERT_TRUE(m_catcher->WaitForCalls(1, PATIENCE_MS)) << nRestart;
        const std::vector<TrayCall> calls = Calls();
        EXPECT_EQ(calls.size(), 1u) << nRestart;
        EXPECT_EQ(calls[0].dwMessage, static_cast<DWORD>(NIM_ADD));
        EXPECT_EQ(calls[0].hWnd, hWnd);
        EXPECT_EQ(calls[0].iconBits, before[1].iconBits) << "active";
        EXPECT_NE(calls[0].iconBits, before[0].iconBits);
        EXPECT_EQ(calls[0].tip, L"Kestrel...");
    }
}

class TrayWayOutTest : public TrayTest, public testing::WithParamInterface<WAY_OUT>
{
};

TEST_P(TrayWayOutTest, TheGoingAgentTakesItsIconAlong)
{
    ASSERT_TRUE(SendSettings(0));
    ASSERT_TRUE(SendConnect(MSG_TYPE_TRAYICON_CONNECT_COUNT, 1));
    const std::vector<TrayCall> shown = Calls();
    ASSERT_EQ(shown.size(), 2u);
    Leave(GetParam());
    const std::vector<TrayCall> calls = m_catcher->Calls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[2].dwMessage, static_cast<DWORD>(NIM_DELETE));
    EXPECT_EQ(calls[2].hWnd, shown[0].hWnd);
    EXPECT_EQ(calls[2].uID, shown[0].uID);
}

INSTANTIATE_TEST_SUITE_P(WaysOut, TrayWayOutTest, testing::ValuesIn(WAYS_OUT),
                         testing::PrintToStringParamName());

TEST_F(TrayTest, AReconfigurationIsAnnouncedInABalloon)
{
    ASSERT_TRUE(SendSettings(0));
    MSG_TRAYICON_SERVER_RECONFIGURE record = {MSG_TYPE_TRAYICON_SERVER_RECONFIGURE, 1, {}};
    CopyText(record.szMessage, L"Please wait");
    ASSERT_TRUE(m_channel->Send(record));
    std::vector<TrayCall> calls = Calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[1].tip, L"Please wait");
    EXPECT_EQ(calls[1].info, L"Please wait");
    EXPECT_EQ(calls[1].infoTitle, L"Tessaran Kestrel Desk Assist");
    record.bReconfiguring = 0;
    ASSERT_TRUE(m_channel->Send(record));
    calls = Calls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[2].iconBits, calls[0].iconBits);
    EXPECT_EQ(calls[2].info, L"");
}

TEST_F(TrayTest, EachSessionNoticeBringsAReportOfTheDesktop)
{
    const HWND hWnd = m_agent->WaitForTrayWindow(PATIENCE_MS);
    m_session->nConnectState = WTSActive;
    ASSERT_TRUE(PostMessageW(hWnd, WM_WTSSESSION_CHANGE, WTS_CONSOLE_CONNECT, 0));
    EXPECT_EQ(TakeDesktopState(), static_cast<DWORD>(DESKTOP_STATE_UNLOCKED));
    m_session->nConnectState = WTSDisconnected;
    ASSERT_TRUE(PostMessageW(hWnd, WM_WTSSESSION_CHANGE, WTS_CONSOLE_DISCONNECT, 0));
    EXPECT_EQ(TakeDesktopState(), static_cast<DWORD>(DESKTOP_STATE_LOCKED));
}

TEST_F(TrayTest, TheEndOfTheSessionIsReported)
{
    const HWND hWnd = m_agent->WaitForTrayWindow(PATIENCE_MS);
    SendMessageW(hWnd, WM_QUERYENDSESSION, 0, 0);
    SendMessageW(hWnd, WM_ENDSESSION, TRUE, 0);
    const auto bytes = m_channel->TakeRecord(MSG_TYPE_TRAYICON_SESSION_ENDING, PATIENCE_MS);
    ASSERT_TRUE(bytes.has_value());
    const auto ending = RecordAs<MSG_TRAYICON_SESSION_ENDING>(*bytes);
    EXPECT_EQ(ending.dwExitCode, EXIT_CODE_ASKED_TO_END);
    ASSERT_TRUE(PostMessageW(hWnd, WM_CLOSE, 0, 0));
    ExpectExit(*m_agent, EXIT_CODE_ASKED_TO_END);
}

TEST_F(TrayTest, EachOfThreeAgentsGetsItsOwnRecordsOnly)
{
    ASSERT_TRUE(SendSettings(0, L"first"));
    const HWND hFirst = m_agent->WaitForTrayWindow(PATIENCE_MS);
    std::vector<std::unique_ptr<AgentProcess>> agents;
    std::vector<std::unique_ptr<ServiceChannel>> channels;
    const auto keepAgent = [&] {
        agents.push_back(std::move(m_agent));
        channels.push_back(std::move(m_channel));
    };
    keepAgent();
    std::vector<HWND> windows = {hFirst};
    for (const wchar_t* const pszTip : {L"second", L"third"})
    {
        StartAgent(L"-onetimesession " + ServicePort()); // may run beside a resident one
        AcceptAgent();
        ShakeHands();
        ASSERT_TRUE(SendSettings(0, pszTip));
        windows.push_back(m_agent->WaitForTrayWindow(PATIENCE_MS));
        keepAgent();
    }
    const std::vector<TrayCall> calls = m_catcher->Calls();
    const std::wstring_view aTips[] = {L"first...", L"One-time support: secon...",
                                       L"One-time support: thir..."};
    for (size_t nAgent = 0; nAgent < windows.size(); ++nAgent)
    {
        for (const TrayCall& call : calls)
        {
            EXPECT_EQ(call.hWnd == windows[nAgent] && call.dwMessage == NIM_ADD,
                      call.dwMessage == NIM_ADD && call.tip == aTips[nAgent]);
        }
        m_channel = std::move(channels[nAgent]);
        ExpectEcho();
        channels[nAgent] = std::move(m_channel);
    }
    m_agent = std::move(agents.front());
    m_channel = std::move(channels.front());
    ExpectEndWithService();
    EXPECT_TRUE(agents[1]->IsRunning() && agents[2]->IsRunning()) << "each has a channel of its own";
}
} // namespace
