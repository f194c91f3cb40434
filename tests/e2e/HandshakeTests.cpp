#include "tests/e2e/AgentTest.h"

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

namespace
{
constexpr std::uint64_t AGENT_VERSION_BITS = 0x407BC00000000000; // 444.0

DWORD OwnSession()
{
    DWORD dwSession = 0;
    EXPECT_TRUE(ProcessIdToSessionId(GetCurrentProcessId(), &dwSession));
    return dwSession;
}

using HandshakeTest = AgentTest;

TEST_F(HandshakeTest, AgentIsSilentUntilTheServiceHasSpoken)
{
    StartAgent();
    std::optional<LoopbackConnection> connection = m_listener.Accept(PATIENCE_MS);
    ASSERT_TRUE(connection.has_value());
    EXPECT_TRUE(connection->StaysSilent(SILENCE_MS));
}

TEST_F(HandshakeTest, AnswerCarriesTheAgentsVersionsAndSessionAndEchoesTheRest)
{
    StartAgent();
    AcceptAgent();
    const MSG_VERSION sent = OddVersion();
    ASSERT_TRUE(m_channel->Send(sent));
    const auto bytes = m_channel->TakeRecord(MSG_TYPE_VERSION, PATIENCE_MS);
    ASSERT_TRUE(bytes.has_value());
    const auto answer = RecordAs<MSG_VERSION>(*bytes);
    EXPECT_EQ(answer.dwType, 4400u);
    EXPECT_EQ(std::bit_cast<std::uint64_t>(answer.dblAgentVersion), AGENT_VERSION_BITS);
    EXPECT_EQ(std::bit_cast<std::uint64_t>(answer.dblAgentVersion2), AGENT_VERSION_BITS);
    EXPECT_EQ(answer.dwSessionId, OwnSession());
    EXPECT_EQ(answer.dwVersionWord, sent.dwVersionWord);
    EXPECT_EQ(std::memcmp(answer.abVersionTail, sent.abVersionTail, sizeof(sent.abVersionTail)), 0);
}

TEST_F(HandshakeTest, NoVersionOfTheServiceMakesItFail)
{
    StartAgent();
    AcceptAgent();
    for (const BYTE bFill : {0x00, 0x7F, 0xFF})
    {
        std::array<BYTE, sizeof(MSG_VERSION)> image;
        image.fill(bFill);
        auto version = std::bit_cast<MSG_VERSION>(image);
        version.dwType = MSG_TYPE_VERSION;
        ASSERT_TRUE(m_channel->Send(version));
        const auto bytes = m_channel->TakeRecord(MSG_TYPE_VERSION, PATIENCE_MS);
        ASSERT_TRUE(bytes.has_value());
        EXPECT_EQ(std::bit_cast<std::uint64_t>(RecordAs<MSG_VERSION>(*bytes).dblAgentVersion),
                  AGENT_VERSION_BITS);
    }
}

TEST_F(HandshakeTest, SettingsBeforeTheGreetingAreTakenLikeAnyOther)
{
    StartAgent();
    AcceptAgent();
    MSG_TRAYICON_SETTINGS settings = {};
    settings.dwType = MSG_TYPE_TRAYICON_SETTINGS;
    ASSERT_TRUE(m_channel->Send(settings));
    ShakeHands();
    EXPECT_TRUE(m_folder.WaitForLog("Received message type 40003", PATIENCE_MS));
}

TEST_F(HandshakeTest, ServiceThatGoesTakesTheAgentAlongWithCodeZero)
{
    StartAgent();
    AcceptAgent();
    ShakeHands();
    ASSERT_NE(m_agent->WaitForTrayWindow(PATIENCE_MS), nullptr);
    ExpectEndWithService();
}

TEST_F(HandshakeTest, WindowThatIsClosedFromOutsideEndsTheChannelAndTheAgent)
{
    StartAgent();
    AcceptAgent();
    ShakeHands();
    const HWND hWnd = m_agent->WaitForTrayWindow(PATIENCE_MS);
    ASSERT_NE(hWnd, nullptr);
    ASSERT_TRUE(PostMessageW(hWnd, WM_CLOSE, 0, 0));
    EXPECT_TRUE(m_channel->WaitForEnd(PATIENCE_MS));
    ExpectExit(*m_agent, EXIT_CODE_ENDED);
}

TEST_F(HandshakeTest, HiddenWindowHasItsClassAndTitle)
{
    StartAgent();
    AcceptAgent();
    const HWND hWnd = m_agent->WaitForTrayWindow(PATIENCE_MS);
    ASSERT_NE(hWnd, nullptr);
    wchar_t szTitle[64] = {};
    GetWindowTextW(hWnd, szTitle, ARRAYSIZE(szTitle));
    EXPECT_STREQ(szTitle, L"Tessaran KDA Tray Icon");
    EXPECT_FALSE(IsWindowVisible(hWnd));
    EXPECT_EQ(GetParent(hWnd), nullptr);
}
} // namespace
