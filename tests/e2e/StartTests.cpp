#include "tests/e2e/AgentTest.h"

#include "tests/support/LogonSession.h"

#include <wtsapi32.h>

namespace
{
/// A desktop of the test's window station, there as long as the object.
class TestDesktop
{
  public:
    explicit TestDesktop(const wchar_t* pszName)
        : m_name(pszName), m_hDesktop(CreateDesktopW(pszName, nullptr, nullptr, 0, GENERIC_ALL, nullptr))
    {
    }
    bool IsThere() const { return static_cast<bool>(m_hDesktop); }
    AgentStart StartOn(const std::wstring& commandLine) const
    {
        AgentStart start;
        start.commandLine = commandLine;
        start.desktop = m_name;
        return start;
    }

  private:
    std::wstring m_name;
    CDesktop m_hDesktop;
};

using InstanceTest = AgentTest;

TEST_F(InstanceTest, SecondAgentOnADesktopLeavesAtOnce)
{
    StartAgent();
    AcceptAgent();
    ShakeHands();
    AgentStart start;
    start.commandLine = ServicePort();
    const AgentProcess second(m_folder, start);
    ExpectExit(second, EXIT_CODE_ALREADY_RUNNING);
    EXPECT_FALSE(m_listener.Accept(0).has_value());
    ExpectEcho();
}

TEST_F(InstanceTest, AgentThatHasEndedMakesRoomForTheNext)
{
    StartAgent();
    AcceptAgent();
    ExpectEndWithService();
    StartAgent();
    AcceptAgent();
    ShakeHands();
}

TEST_F(InstanceTest, OneTimeAgentRunsBesideAResidentOne)
{
    StartAgent();
    AcceptAgent();
    ShakeHands();
    LoopbackListener oneTimeService;
    AgentStart start;
    start.commandLine = L"-onetimesession " + std::to_wstring(oneTimeService.Port());
    const AgentProcess oneTime(m_folder, start);
    const auto resident = std::move(m_channel);
    AcceptAgent(oneTimeService);
    ShakeHands();
    EXPECT_TRUE(oneTime.IsRunning());
    EXPECT_TRUE(m_agent->IsRunning());
    m_channel.reset();
    ExpectExit(oneTime, EXIT_CODE_ENDED);
    EXPECT_TRUE(m_agent->IsRunning());
}

TEST_F(InstanceTest, ResidentAgentRunsBesideAOneTimeOne)
{
    StartAgent(L"-onetimesession " + ServicePort());
    AcceptAgent();
    ShakeHands();
    const auto oneTimeAgent = std::move(m_agent);
    const auto oneTimeChannel = std::move(m_channel);
    StartAgent();
    AcceptAgent();
    ShakeHands();
    EXPECT_TRUE(oneTimeAgent->IsRunning());
}

TEST_F(InstanceTest, AgentsOnTwoDesktopsBothRun)
{
    const TestDesktop desktop(L"TkdastSecondDesktop");
    ASSERT_TRUE(desktop.IsThere());
    StartAgent();
    AcceptAgent();
    ShakeHands();
    const auto firstAgent = std::move(m_agent);
    const auto firstChannel = std::move(m_channel);
    StartAgent(desktop.StartOn(ServicePort()));
    AcceptAgent();
    ShakeHands();
    EXPECT_TRUE(firstAgent->IsRunning());
    const AgentProcess third(m_folder, desktop.StartOn(ServicePort()));
    ExpectExit(third, EXIT_CODE_ALREADY_RUNNING);
}

TEST_F(InstanceTest, AgentsOfTwoSessionsBothRunAndSayWhichTheyAreOf)
{
    constexpr DWORD OTHER_SESSION = 7001;
    const LogonSession session(OTHER_SESSION);
    ASSERT_TRUE(session.IsThere());
    StartAgent();
    AcceptAgent();
    ShakeHands();
    const auto firstAgent = std::move(m_agent);
    const auto firstChannel = std::move(m_channel);
    AgentStart start;
    start.commandLine = ServicePort();
    start.pSession = &session;
    StartAgent(start);
    AcceptAgent();
    MSG_VERSION version = {};
    version.dwType = MSG_TYPE_VERSION;
    ASSERT_TRUE(m_channel->Send(version));
    const auto answer = m_channel->TakeRecord(MSG_TYPE_VERSION, PATIENCE_MS);
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(RecordAs<MSG_VERSION>(*answer).dwSessionId, OTHER_SESSION);
    EXPECT_TRUE(firstAgent->IsRunning());
    const AgentProcess third(m_folder, start);
    ExpectExit(third, EXIT_CODE_ALREADY_RUNNING);
}

TEST_F(InstanceTest, RunningAgentIsMarkedByItsDesktopsName)
{
    const TestDesktop desktop(L"TkdastMarkedDesktop");
    ASSERT_TRUE(desktop.IsThere());
    constexpr wchar_t MARK[] = L"TkdastMarkedDesktop Tessaran Kestrel Desk Assist Tray Icon";
    StartAgent(desktop.StartOn(ServicePort()));
    AcceptAgent();
    EXPECT_TRUE(CKernelHandle(OpenFileMappingW(FILE_MAP_READ, FALSE, MARK)));
    ExpectEndWithService();
    EXPECT_FALSE(CKernelHandle(OpenFileMappingW(FILE_MAP_READ, FALSE, MARK)));
}

class OneTimeTest : public AgentTest
{
  protected:
    void ExpectRefusal(const std::wstring& commandLine, std::string_view line)
    {
        StartAgent(commandLine);
        ExpectExit(*m_agent, EXIT_CODE_BAD_PARAMETER);
        EXPECT_NE(m_folder.Log().find("ERROR [main] TKDAST " + std::string(line)), std::string::npos)
            << m_folder.Log();
    }
};

constexpr std::string_view NEEDS_PORT = "-onetimesession needs to followed by port parameter.";
constexpr std::string_view BAD_PORT = "Error converting one-time TKDAST port parameter.";

TEST_F(OneTimeTest, PortIsTakenFromTheLineAndNotFromTheRegistry)
{
    LoopbackListener registered;
    const RegistryValue port(HKEY_LOCAL_MACHINE, SERVICE_SETTINGS_KEY, L"Port", registered.Port());
    StartAgent(L"-onetimesession " + ServicePort());
    AcceptAgent();
    ShakeHands();
    EXPECT_NE(m_folder.Log().find("Starting one-time TKDASt on port: " + std::to_string(m_listener.Port())),
              std::string::npos);
    EXPECT_FALSE(registered.Accept(0).has_value());
}

TEST_F(OneTimeTest, PortEndsAtTheNextBlank)
{
    StartAgent(L"-onetimesession " + ServicePort() + L" 1 2 3");
    AcceptAgent();
    ShakeHands();
}

TEST_F(OneTimeTest, WithoutAPortItRefuses)
{
    ExpectRefusal(L"-onetimesession", NEEDS_PORT);
}

TEST_F(OneTimeTest, PortMustFollowTheFirstBlankOfTheLine)
{
    ExpectRefusal(L"foo -onetimesession 5000", BAD_PORT);
}

TEST_F(OneTimeTest, TwoBlanksHoldNoPort)
{
    ExpectRefusal(L"-onetimesession  " + ServicePort(), BAD_PORT);
}

TEST_F(OneTimeTest, WordsAndZeroAreNoPort)
{
    ExpectRefusal(L"-onetimesession port", BAD_PORT);
    ExpectRefusal(L"-onetimesession 0", BAD_PORT);
}

TEST_F(OneTimeTest, TokensLongerThanAnyPortAreRefused)
{
    for (const size_t nDigits : {40u, 41u, 4000u, 30000u})
    {
        ExpectRefusal(L"-onetimesession " + std::wstring(nDigits, L'1'), BAD_PORT);
        ExpectRefusal(L"-onetimesession " + std::wstring(nDigits, L'x'), BAD_PORT);
    }
}

TEST_F(OneTimeTest, LongestTokenThatFitsIsStillANumber)
{
    constexpr size_t LONGEST_TOKEN = 39;
    const std::wstring port = ServicePort();
    StartAgent(L"-onetimesession " + std::wstring(LONGEST_TOKEN - port.size(), L'0') + port);
    AcceptAgent();
    ShakeHands();
}

TEST_F(OneTimeTest, LongLineWithoutTheSwitchStartsANormalAgent)
{
    StartAgent(ServicePort() + std::wstring(30000, L' '));
    AcceptAgent();
    ShakeHands();
}

using SurroundingsTest = AgentTest;

TEST_F(SurroundingsTest, RunsWithoutItsLanguageModule)
{
    ASSERT_TRUE(std::filesystem::remove(m_folder.Path() / L"TKDASTRES.dll"));
    StartAgent();
    AcceptAgent();
    ShakeHands();
    ExpectEndWithService();
}

TEST_F(SurroundingsTest, RunsWithABrokenLanguageModule)
{
    ASSERT_TRUE(WriteFileText(m_folder.Path() / L"TKDASTRES.dll", "MZ, or so it says"));
    StartAgent();
    AcceptAgent();
    ShakeHands();
    ExpectEndWithService();
}

class LanguageChoiceTest : public AgentTest, public testing::WithParamInterface<const wchar_t*>
{
};

TEST_P(LanguageChoiceTest, RunsWhateverTheEnvironmentAsksFor)
{
    AgentStart start;
    start.commandLine = ServicePort();
    start.environment[L"LangUI"] = GetParam();
    StartAgent(start);
    AcceptAgent();
    ShakeHands();
    ExpectEndWithService();
}

INSTANTIATE_TEST_SUITE_P(Languages, LanguageChoiceTest,
                         testing::Values(L"fr", L"de", L"EN", L"xx", L"..\\..",
                                         L"a code of more than a few letters"));

TEST_F(SurroundingsTest, RunsWithoutALogConfiguration)
{
    ASSERT_TRUE(std::filesystem::remove(m_folder.LogConfiguration()));
    StartAgent();
    AcceptAgent();
    ShakeHands();
    ExpectEndWithService();
}

TEST_F(SurroundingsTest, RunsWithABrokenLogConfiguration)
{
    for (const std::string_view text : {"", "<configuration><root>", "no markup at all", "<other/>"})
    {
        ASSERT_TRUE(WriteFileText(m_folder.LogConfiguration(), text));
        StartAgent();
        AcceptAgent();
        ShakeHands();
        ExpectEndWithService();
    }
}

TEST_F(SurroundingsTest, RunsWithALockedLogConfiguration)
{
    const CFileHandle hLocked(CreateFileW(m_folder.LogConfiguration().c_str(), GENERIC_READ, 0, nullptr,
                                          OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(hLocked);
    StartAgent();
    AcceptAgent();
    ShakeHands();
    ExpectEndWithService();
}

TEST_F(SurroundingsTest, RunsWithALogFileThatCantBeMade)
{
    m_folder.WriteLogConfiguration(L"Q:\\no\\such\\drive\\agent.log", "TRACE");
    StartAgent();
    AcceptAgent();
    ShakeHands();
    ExpectEndWithService();
}

TEST_F(SurroundingsTest, RunsWithALogOnAFullDisk)
{
    // The test machine's device that answers every write with "no space left".
    const std::filesystem::path fullDisk = L"Z:/dev/full";
    m_folder.WriteLogConfiguration(fullDisk, "TRACE");
    StartAgent();
    AcceptAgent();
    ShakeHands();
    ExpectEndWithService();
}

using SessionTest = AgentTest;

TEST_F(SessionTest, StartAsksForTheStateOfTheSessionAndFreesTheAnswer)
{
    StartAgent();
    AcceptAgent();
    ShakeHands();
    EXPECT_GT(m_session->nStateQueries, 0);
    EXPECT_EQ(m_session->nOpenBlocks, 0);
}

TEST_F(SessionTest, DisconnectedSessionHindersNothing)
{
    m_session->nConnectState = WTSDisconnected;
    StartAgent();
    AcceptAgent();
    ShakeHands();
    ExpectEndWithService();
}

TEST_F(SessionTest, FailingQueriesHinderNothing)
{
    m_session->bQueriesFail = TRUE;
    StartAgent();
    AcceptAgent();
    ShakeHands();
    ExpectEndWithService();
}

TEST_F(SessionTest, RunsOnTheSystemsOwnSessionModule)
{
    m_folder.UseSystemSessionModule();
    StartAgent();
    AcceptAgent();
    ShakeHands();
    EXPECT_EQ(m_session->nStateQueries, 0);
    ExpectEndWithService();
}

class InputDesktopTest : public AgentTest, public testing::WithParamInterface<std::pair<const wchar_t*, LONG>>
{
};

TEST_P(InputDesktopTest, SessionIsAskedOnlyWhereTheNameDoesNotSettleTheMatter)
{
    const auto [pszName, nQueries] = GetParam();
    // On the test system the input desktop of a process is the one whose handle it has inherited.
    SECURITY_ATTRIBUTES inheritable = {sizeof(inheritable), nullptr, TRUE};
    const CDesktop hDesktop(CreateDesktopW(pszName, nullptr, nullptr, 0, GENERIC_ALL, &inheritable));
    ASSERT_TRUE(hDesktop);
    AgentStart start;
    start.commandLine = ServicePort();
    start.desktop = L"WinSta0\\Default";
    start.bInheritHandles = true;
    StartAgent(start);
    AcceptAgent();
    ShakeHands();
    EXPECT_EQ(m_session->nStateQueries, nQueries);
    ExpectEndWithService();
}

INSTANTIATE_TEST_SUITE_P(Names, InputDesktopTest,
                         testing::Values(std::pair(L"Winlogon", 0), std::pair(L"WINLOGON", 0),
                                         std::pair(L"Screen-saver", 0), std::pair(L"screen-SAVER", 0),
                                         std::pair(L"TkdastOther", 1)));
} // namespace
