#include "tests/e2e/AgentTest.h"

#include "Include/BoundedText.h"

#include <wtsapi32.h>

AgentTest::AgentTest() : m_noPort(HKEY_LOCAL_MACHINE, SERVICE_SETTINGS_KEY, L"Port") {}

void AgentTest::StartAgent()
{
    StartAgent(ServicePort());
}

void AgentTest::StartAgent(const AgentStart& start)
{
    m_agent = std::make_unique<AgentProcess>(m_folder, start);
    ASSERT_TRUE(m_agent->IsStarted())
        << "can't start " << m_folder.Program() << ", error " << m_agent->StartError();
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

void AgentTest::MeetLockedAgent(const AgentStart& start)
{
    m_session->nConnectState = WTSDisconnected;
    StartAgent(start);
    AcceptAgent();
    ShakeHands();
    ASSERT_EQ(TakeDesktopState(), static_cast<DWORD>(DESKTOP_STATE_LOCKED));
}

void AgentTest::MeetLockedAgent()
{
    AgentStart start;
    start.commandLine = ServicePort();
    MeetLockedAgent(start);
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

void AgentTest::Leave(WAY_OUT wayOut)
{
    const HWND hWnd = m_agent->WaitForTrayWindow(PATIENCE_MS);
    MSG_TRAYICON_EXIT leave = {};
    leave.dwType = MSG_TYPE_TRAYICON_EXIT;
    switch (wayOut)
    {
    case WAY_OUT::ServiceGoes:
        m_channel.reset();
        break;
    case WAY_OUT::ServiceSendsExit:
        ASSERT_TRUE(m_channel->Send(leave));
        break;
    case WAY_OUT::WindowIsClosed:
        ASSERT_TRUE(PostMessageW(hWnd, WM_CLOSE, 0, 0));
        break;
    case WAY_OUT::SessionEnds:
        SendMessageW(hWnd, WM_QUERYENDSESSION, 0, 0);
        SendMessageW(hWnd, WM_ENDSESSION, TRUE, 0);
        ASSERT_TRUE(PostMessageW(hWnd, WM_CLOSE, 0, 0));
        break;
    }
    const bool bAsked = wayOut == WAY_OUT::ServiceSendsExit || wayOut == WAY_OUT::SessionEnds;
    ExpectExit(*m_agent, bAsked ? EXIT_CODE_ASKED_TO_END : EXIT_CODE_ENDED);
}

bool AgentTest::SendSettings(DWORD bPermissionRequired, const wchar_t* pszTip)
{
    MSG_TRAYICON_SETTINGS settings = PlainSettings();
    settings.bPermissionRequired = bPermissionRequired;
    CopyText(settings.szTrayTip, pszTip);
    return m_channel->Send(settings) &&
           m_channel->TakeRecord(MSG_TYPE_TRAYICON_DESKTOP_USER_INFORMATION, PATIENCE_MS).has_value();
}

bool AgentTest::SendConnect(DWORD dwType, DWORD dwConnectCount)
{
    MSG_TRAYICON_CONNECT connection = {};
    connection.dwType = dwType;
    connection.dwConnectCount = dwConnectCount;
    connection.dwConnectionType = 1;
    CopyText(connection.szClientName, L"Alice");
    return m_channel->Send(connection);
}

bool AgentTest::SendDesktopEffects(DWORD dwEffects)
{
    return m_channel->Send(MSG_TRAYICON_DESKTOP_EFFECTS{MSG_TYPE_TRAYICON_DESKTOP_EFFECTS, dwEffects}) &&
           m_channel->TakeRecord(MSG_TYPE_TRAYICON_DESKTOP_EFFECTS_ACK, PATIENCE_MS).has_value();
}

DWORD AgentTest::TakeDesktopState()
{
    const auto bytes = m_channel->TakeRecord(MSG_TYPE_TRAYICON_DESKTOP_STATE, PATIENCE_MS);
    EXPECT_TRUE(bytes.has_value());
    return bytes ? RecordAs<MSG_TRAYICON_DESKTOP_STATE>(*bytes).dwDesktopState : 0;
}

std::ostream& operator<<(std::ostream& stream, WAY_OUT wayOut)
{
    switch (wayOut)
    {
    case WAY_OUT::ServiceGoes:
        return stream << "ServiceGoes";
    case WAY_OUT::ServiceSendsExit:
        return stream << "ServiceSendsExit";
    case WAY_OUT::WindowIsClosed:
        return stream << "WindowIsClosed";
    case WAY_OUT::SessionEnds:
        break;
    }
    return stream << "SessionEnds";
}

MSG_TRAYICON_SETTINGS PlainSettings(DWORD dwType)
{
    MSG_TRAYICON_SETTINGS settings = {};
    settings.dwType = dwType;
    settings.dwTrayIcon = 1;
    settings.dwDefaultConnectionType = 1;
    settings.dwExitLock2 = 1;
    CopyText(settings.szTrayTip, L"Kestrel");
    return settings;
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
