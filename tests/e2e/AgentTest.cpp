#include "tests/e2e/AgentTest.h"

AgentTest::AgentTest() : m_noPort(HKEY_LOCAL_MACHINE, SERVICE_SETTINGS_KEY, L"Port") {}

void AgentTest::StartAgent()
{
    StartAgent(ServicePort());
}

void AgentTest::StartAgent(const AgentStart& start)
{
    m_agent = std::make_unique<AgentProcess>(m_folder, start);
    ASSERT_TRUE(m_agent->IsStarted()) << "can't start " << m_folder.Program();
}

void AgentTest::StartAgent(const std::wstring& commandLine)
{
    AgentStart start;
    start.commandLine = commandLine;
    StartAgent(start);
}

void AgentTest::AcceptAgent(LoopbackListener& listener)
{
    ASSERT_TRUE(listener.IsListening()) << "the port is taken by another program";
    std::optional<LoopbackConnection> connection = listener.Accept(PATIENCE_MS);
    ASSERT_TRUE(connection.has_value()) << "no agent has connected; its log:\n" << m_folder.Log();
    m_channel = std::make_unique<ServiceChannel>(std::move(*connection));
}

void AgentTest::ShakeHands()
{
    ASSERT_NE(m_channel, nullptr);
    ASSERT_TRUE(m_channel->Send(OddVersion()));
    ASSERT_TRUE(m_channel->TakeRecord(MSG_TYPE_VERSION, PATIENCE_MS).has_value())
        << "no answer to the greeting; the agent's log:\n"
        << m_folder.Log();
}

void AgentTest::ExpectEcho()
{
    ASSERT_NE(m_channel, nullptr);
    const DWORD dwType = MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE;
    ASSERT_TRUE(m_channel->Send(dwType));
    EXPECT_TRUE(m_channel->TakeRecord(dwType, PATIENCE_MS).has_value());
}

void AgentTest::ExpectEndWithService()
{
    m_channel.reset();
    ExpectExit(*m_agent, EXIT_CODE_ENDED);
}

void AgentTest::ExpectExit(const AgentProcess& agent, DWORD dwExitCode)
{
    const std::optional<DWORD> exitCode = agent.WaitForExit(PATIENCE_MS);
    ASSERT_TRUE(exitCode.has_value()) << "the agent still runs; its log:\n" << m_folder.Log();
    EXPECT_EQ(*exitCode, dwExitCode) << "the agent's log:\n" << m_folder.Log();
    EXPECT_EQ(agent.FindTrayWindow(), nullptr);
}

MSG_VERSION OddVersion()
{
    MSG_VERSION version = {};
    version.dwType = MSG_TYPE_VERSION;
    version.dwVersionWord = 0xDEADBEEF;
    version.dblAgentVersion = -1.5;
    version.dblAgentVersion2 = 1e300;
    BYTE bNext = 0xF1;
    for (BYTE& bTail : version.abVersionTail)
    {
        bTail = bNext--;
    }
    version.dwSessionId = 0xFFFFFFFE;
    return version;
}
