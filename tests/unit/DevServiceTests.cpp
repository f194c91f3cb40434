#include "Include/BoundedText.h"
#include "devservice/Recording.h"
#include "devservice/RecordText.h"
#include "devservice/ValueText.h"
#include "tests/support/ImportHook.h"
#include "tests/unit/DevServiceFixture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace
{
constexpr DWORD SHORT_MS = 50;

const MESSAGE_DESCRIPTION& Message(DWORD dwType)
{
    return *FindMessageDescription(dwType, MESSAGE_BOTH_WAYS);
}

class DevServiceQuery : public DevService
{
  protected:
    void SetUp() override
    {
        DevService::SetUp();
        Open(LOOKUP_MODE::Answer, std::nullopt);
    }

    void Open(LOOKUP_MODE mode, std::optional<unsigned int> port)
    {
        ASSERT_TRUE(m_service.OpenQueryPort(m_service.GetQueryPort(), mode, port));
    }

    void Connect() { m_asker = LoopbackConnection(ConnectLoopback(m_service.GetQueryPort(), SOCK_DGRAM)); }

    void SendHeader(DWORD dwRequest)
    {
        const MSG_UDP_HEADER header = {UDP_PROTOCOL, dwRequest, 0xDEADBEEF};
        ASSERT_TRUE(m_asker.SendAll(&header, sizeof(header)));
    }

    void AskForPort()
    {
        Connect();
        SendHeader(UDP_REQUEST_PORT_LOOKUP);
        MSG_UDP_PORT_LOOKUP request = {};
        request.dwRequest = UDP_REQUEST_PORT_LOOKUP;
        ASSERT_TRUE(m_asker.SendAll(&request, sizeof(request)));
    }

    unsigned int LookedUpPort()
    {
        MSG_UDP_PORT_LOOKUP answer = {};
        AskForPort();
        EXPECT_TRUE(m_asker.ReceiveExactly(&answer, sizeof(answer), PATIENCE_MS));
        EXPECT_EQ(answer.dwRequest, static_cast<DWORD>(UDP_REQUEST_PORT_LOOKUP));
        return answer.dwPort;
    }

    LoopbackConnection m_asker;
};
} // namespace

TEST_F(DevService, HandshakeGoesOutFirstAndItsAnswerTellsTheSession)
{
    TestAgent agent(m_service.GetPort());
    MSG_VERSION version = {};
    ASSERT_TRUE(agent.Receive(version));
    EXPECT_EQ(version.dwType, static_cast<DWORD>(MSG_TYPE_VERSION));
    EXPECT_FALSE(m_service.GetAgent(1)->bReady);
    version.dwSessionId = 42;
    ASSERT_TRUE(agent.Send(BytesOf(version)));
    ASSERT_EQ(m_service.WaitForReadyAgents(1, PATIENCE_MS), WAIT_RESULT::Met);
    EXPECT_EQ(m_service.GetAgent(1)->dwSessionId, 42u);
    EXPECT_TRUE(Logged(L"handshake answered: versions 0.0 and 0.0, session 42"));
}

TEST_F(DevService, WithoutHandshakeTheServiceStaysSilent)
{
    m_service.SetHandshake(std::nullopt);
    TestAgent agent(m_service.GetPort());
    ASSERT_EQ(m_service.WaitForReadyAgents(1, PATIENCE_MS), WAIT_RESULT::Met);
    EXPECT_TRUE(agent.Connection().StaysSilent(SHORT_MS));
}

TEST_F(DevService, ManyAgentsGetOnlyTheirOwnRecordsAndKeepTheirNumbers)
{
    constexpr unsigned int uAgents = 70;
    std::vector<std::unique_ptr<TestAgent>> agents;
    for (unsigned int u = 1; u <= uAgents; ++u)
    {
        agents.push_back(Arrive(u * 10));
    }
    for (unsigned int u = 1; u <= uAgents; ++u)
    {
        const MSG_TRAYICON_DESKTOP_EFFECTS effects = {MSG_TYPE_TRAYICON_DESKTOP_EFFECTS, u};
        ASSERT_TRUE(m_service.Send(u, BytesOf(effects)));
        const MSG_TRAYICON_DESKTOP_STATE state = {MSG_TYPE_TRAYICON_DESKTOP_STATE, u};
        ASSERT_TRUE(agents[u - 1]->Send(BytesOf(state)));
    }
    agents[0]->Connection().Close();
    ASSERT_EQ(m_service.WaitForClose(1, PATIENCE_MS), WAIT_RESULT::Met);
    for (unsigned int u = 1; u <= uAgents; ++u)
    {
        AGENT_RECORD record = {};
        ASSERT_EQ(Take(u, MSG_TYPE_TRAYICON_DESKTOP_STATE, record), WAIT_RESULT::Met) << u;
        EXPECT_EQ(ReadDword(record.bytes, sizeof(DWORD)), u);
        EXPECT_EQ(m_service.GetAgent(u)->dwSessionId, u * 10);
        MSG_TRAYICON_DESKTOP_EFFECTS effects = {};
        if (u == 1)
        {
            continue;
        }
        ASSERT_TRUE(agents[u - 1]->Receive(effects));
        EXPECT_EQ(effects.dwDesktopEffects, u);
        EXPECT_TRUE(agents[u - 1]->Connection().StaysSilent(0));
    }
}

TEST_F(DevService, RecordsArriveWholeHoweverTheyWereSplit)
{
    const auto pAgent = Arrive();
    std::vector<BYTE> stream;
    for (const MESSAGE_DESCRIPTION& message : GetMessageDescriptions())
    {
        const std::vector<BYTE> record = MakeRecord(message);
        if ((message.direction & MESSAGE_FROM_AGENT) != 0)
        {
            stream.insert(stream.end(), record.begin(), record.end());
        }
    }
    ASSERT_TRUE(pAgent->Send(stream, 997));
    for (const MESSAGE_DESCRIPTION& message : GetMessageDescriptions())
    {
        if ((message.direction & MESSAGE_FROM_AGENT) == 0)
        {
            continue;
        }
        AGENT_RECORD record = {};
        ASSERT_EQ(Take(1, message.dwType, record), WAIT_RESULT::Met) << message.dwType;
        EXPECT_EQ(record.bytes.size(), message.pRecord->uSize);
    }
}

TEST_F(DevService, UnknownTypeIsLoggedAndMarksTheConnection)
{
    const auto pAgent = Arrive();
    ASSERT_TRUE(pAgent->SendType(999));
    AGENT_RECORD record = {};
    ASSERT_EQ(m_service.TakeRecord(
                  1, [](const AGENT_RECORD& candidate) { return candidate.pMessage == nullptr; }, PATIENCE_MS,
                  record),
              WAIT_RESULT::Met);
    EXPECT_EQ(record.bytes, (std::vector<BYTE>{0xE7, 3, 0, 0}));
    EXPECT_TRUE(m_service.GetAgent(1)->bFrameLost);
    EXPECT_TRUE(Logged(L"unknown type 999: the frame is lost"));
}

TEST_F(DevService, ClosingEitherSideIsSeenByTheOther)
{
    const auto pFirst = Arrive();
    const auto pSecond = Arrive();
    m_service.CloseAgent(1);
    EXPECT_TRUE(pFirst->Connection().WaitForEnd(PATIENCE_MS));
    EXPECT_EQ(m_service.WaitForClose(1, PATIENCE_MS), WAIT_RESULT::Met);
    EXPECT_FALSE(m_service.Send(1, MakeRecord(Message(MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE))));
    pSecond->Connection().Close();
    AGENT_RECORD record = {};
    EXPECT_EQ(Take(2, MSG_TYPE_TRAYICON_EXIT, record), WAIT_RESULT::AgentGone);
    EXPECT_TRUE(Logged(L"closed by the service"));
    EXPECT_TRUE(Logged(L"closed by the agent"));
}

TEST_F(DevService, AgentThatLeavesWithinARecordIsToldApart)
{
    const auto pAgent = Arrive();
    const BYTE abHalf[] = {1, 2, 3};
    ASSERT_TRUE(pAgent->Send(abHalf));
    pAgent->Connection().Close();
    ASSERT_EQ(m_service.WaitForClose(1, PATIENCE_MS), WAIT_RESULT::Met);
    EXPECT_TRUE(Logged(L"closed by the agent, within a record"));
}

TEST_F(DevService, ListeningAgainOnTheSamePortWorksAtOnce)
{
    const unsigned short nPort = m_service.GetPort();
    for (unsigned int u = 1; u <= 5; ++u)
    {
        const auto pAgent = Arrive();
        m_service.CloseAgent(u);
        ASSERT_EQ(m_service.WaitForClose(u, PATIENCE_MS), WAIT_RESULT::Met);
        m_service.StopListening();
        EXPECT_FALSE(TestAgent(nPort).IsOpen());
        ASSERT_TRUE(m_service.Listen(nPort)) << GetLastError();
    }
}

TEST_F(DevService, APollThatFailsIsMadeAgain)
{
    static std::atomic<int> s_nFailures;
    static decltype(&WSAPoll) s_pfnPoll = nullptr;
    s_nFailures = 3;
    const ImportHook<decltype(WSAPoll)> hook(
        "ws2_32.dll", "WSAPoll", +[](LPWSAPOLLFD pPolls, ULONG uPolls, INT nTimeout) -> int {
            if (s_nFailures > 0)
            {
                --s_nFailures;
                WSASetLastError(WSAENOTSOCK);
                return SOCKET_ERROR;
            }
            return s_pfnPoll(pPolls, uPolls, nTimeout);
        });
    s_pfnPoll = hook.Original();
    CStandInService service; // its thread must not have polled before
    ASSERT_TRUE(service.Listen(0));
    TestAgent agent(service.GetPort());
    EXPECT_TRUE(agent.ShakeHands());
    EXPECT_EQ(service.WaitForReadyAgents(1, PATIENCE_MS), WAIT_RESULT::Met);
    EXPECT_EQ(s_nFailures, 0);
}

TEST_F(DevService, PortInUseIsRefused)
{
    CStandInService second;
    EXPECT_FALSE(second.Listen(m_service.GetPort()));
    EXPECT_EQ(second.GetPort(), 0);
}

TEST_F(DevService, InterruptEndsEveryWait)
{
    const auto pAgent = Arrive();
    std::thread interrupter([this] { m_service.Interrupt(); });
    EXPECT_EQ(m_service.Pause(INFINITE), WAIT_RESULT::Interrupted);
    interrupter.join();
    AGENT_RECORD record = {};
    EXPECT_EQ(Take(1, MSG_TYPE_TRAYICON_EXIT, record, INFINITE), WAIT_RESULT::Interrupted);
    EXPECT_EQ(m_service.WaitForReadyAgents(2, INFINITE), WAIT_RESULT::Interrupted);
    EXPECT_EQ(m_service.WaitForClose(1, INFINITE), WAIT_RESULT::Interrupted);
}

TEST_F(DevServiceQuery, LookupTellsThePortListenedOn)
{
    EXPECT_EQ(LookedUpPort(), m_service.GetPort());
    ASSERT_TRUE(m_service.Listen(0));
    EXPECT_EQ(LookedUpPort(), m_service.GetPort());
    EXPECT_TRUE(Logged(
        L"MSG_UDP_HEADER (12 bytes) dwProtocol=701 dwRequest=703 (port lookup) dwHeaderSpare=0xDEADBEEF"));
    EXPECT_TRUE(Logged(L"MSG_UDP_PORT_LOOKUP (80 bytes) dwRequest=703 (port lookup)"));
}

TEST_F(DevServiceQuery, LookupTellsThePortItWasGiven)
{
    Open(LOOKUP_MODE::Answer, 7000);
    EXPECT_EQ(LookedUpPort(), 7000u);
}

TEST_F(DevServiceQuery, SilentLookupIsTakenAndNotAnswered)
{
    Open(LOOKUP_MODE::Silent, std::nullopt);
    AskForPort();
    EXPECT_TRUE(m_asker.StaysSilent(SHORT_MS));
    // A second asker that is answered proves that the first has been dealt with.
    Open(LOOKUP_MODE::Answer, std::nullopt);
    EXPECT_EQ(LookedUpPort(), m_service.GetPort());
}

TEST_F(DevServiceQuery, OtherRequestsAreDecodedAndStayUnanswered)
{
    Connect();
    SendHeader(UDP_REQUEST_CREATE_INVITATION);
    MSG_UDP_CREATE_INVITATION invitation = {};
    invitation.dwRequest = UDP_REQUEST_CREATE_INVITATION;
    CopyText(invitation.szInvitationName, L"Ann");
    CopyText(invitation.szInvitationSecret, L"hunter2");
    ASSERT_TRUE(m_asker.SendAll(&invitation, sizeof(invitation)));
    SendHeader(UDP_REQUEST_DELETE_INVITATIONS);
    const BYTE abGarbage[] = {1, 2, 3};
    ASSERT_TRUE(m_asker.SendAll(abGarbage, sizeof(abGarbage)));
    EXPECT_TRUE(m_asker.StaysSilent(SHORT_MS));
    EXPECT_EQ(LookedUpPort(), m_service.GetPort());
    EXPECT_TRUE(Logged(L"szInvitationName=\"Ann\" szInvitationSecret=***"));
    EXPECT_TRUE(Logged(L"request 720 of port "));
    EXPECT_TRUE(Logged(L"request 721 of port "));
    EXPECT_TRUE(Logged(L"3 raw bytes: 01 02 03"));
    EXPECT_FALSE(Logged(L"hunter2"));
}

TEST_F(DevServiceRunner, SentRecordHasItsFieldsAndAllElseZero)
{
    const auto pAgent = Arrive();
    ExpectHeld(L"send SETTINGS dwTrayIcon=2 szTrayTip=\"Gr\\u00fc\\u00dfe\" szLanguage=de dwExitLock1=0x10");
    MSG_TRAYICON_SETTINGS expected = {};
    expected.dwType = MSG_TYPE_TRAYICON_SETTINGS;
    expected.dwTrayIcon = 2;
    expected.dwExitLock1 = 0x10;
    CopyText(expected.szTrayTip, L"Gr\u00fc\u00dfe");
    CopyText(expected.szLanguage, L"de");
    MSG_TRAYICON_SETTINGS received = {};
    ASSERT_TRUE(pAgent->Receive(received));
    EXPECT_EQ(memcmp(&received, &expected, sizeof(expected)), 0);
}

TEST_F(DevServiceRunner, EveryMessageOfTheProtocolCanBeSent)
{
    const auto pAgent = Arrive();
    for (const MESSAGE_DESCRIPTION& message : GetMessageDescriptions())
    {
        ExpectHeld(std::wstring(L"send ") + message.pszName);
        const MESSAGE_DESCRIPTION& sent = *FindMessageByName(message.pszName, MESSAGE_FROM_SERVICE);
        std::vector<BYTE> received(sent.pRecord->uSize);
        ASSERT_TRUE(pAgent->Connection().ReceiveExactly(received.data(), received.size(), PATIENCE_MS));
        EXPECT_EQ(received, MakeRecord(sent));
    }
}

TEST_F(DevServiceRunner, ChatPayloadFollowsItsRecordWithItsLength)
{
    const auto pAgent = Arrive();
    ExpectHeld(L"send CHAT_MESSAGE szUsername=Ann payload=\"h\\u00e4\"\nsend CHAT_MESSAGE payload=\n"
               L"send CHAT_MESSAGE payload=hex:00FF dwMessageLength=1");
    struct
    {
        MSG_CHAT_MESSAGE head;
        BYTE abPayload[4];
    } first = {};
    static_assert(sizeof(first) == sizeof(MSG_CHAT_MESSAGE) + 4);
    ASSERT_TRUE(pAgent->Receive(first));
    EXPECT_EQ(first.head.dwMessageLength, 4u);
    EXPECT_STREQ(first.head.szUsername, L"Ann");
    EXPECT_EQ(memcmp(first.abPayload, L"h\u00e4", 4), 0);
    MSG_CHAT_MESSAGE empty = {};
    ASSERT_TRUE(pAgent->Receive(empty));
    EXPECT_EQ(empty.dwMessageLength, 0u);
    ASSERT_TRUE(pAgent->Connection().ReceiveExactly(&first, sizeof(MSG_CHAT_MESSAGE) + 2, PATIENCE_MS));
    EXPECT_EQ(first.head.dwMessageLength, 1u);
    EXPECT_EQ(first.abPayload[1], 0xFF);
}

TEST_F(DevServiceRunner, RawBytesGoOutAsTheyAre)
{
    const auto pAgent = Arrive();
    ExpectHeld(L"raw 01ff 0A");
    BYTE abReceived[3] = {};
    ASSERT_TRUE(pAgent->Receive(abReceived));
    EXPECT_EQ(memcmp(abReceived, "\x01\xff\x0a", 3), 0);
}

TEST_F(DevServiceRunner, ExpectTakesTheMatchAndLeavesTheRest)
{
    const auto pAgent = Arrive();
    ASSERT_TRUE(pAgent->Send(BytesOf(MSG_TRAYICON_DESKTOP_STATE{MSG_TYPE_TRAYICON_DESKTOP_STATE, 7})));
    ASSERT_TRUE(pAgent->Send(BytesOf(MSG_TRAYICON_DESKTOP_STATE{MSG_TYPE_TRAYICON_DESKTOP_STATE, 8})));
    ExpectHeld(L"expect DESKTOP_STATE dwDesktopState=8\nexpect VERSION dblAgentVersion=444.0 dwSessionId=7\n"
               L"expect next DESKTOP_STATE dwDesktopState!=8\nexpect nothing within=20");
}

TEST_F(DevServiceRunner, FailedExpectationSaysWhatCameInstead)
{
    const auto pAgent = Arrive();
    ASSERT_TRUE(pAgent->Send(BytesOf(MSG_TRAYICON_DESKTOP_STATE{MSG_TYPE_TRAYICON_DESKTOP_STATE, 7})));
    AwaitRecords(*pAgent);
    const std::string error = ErrorOf(L"say x\nexpect SETTINGS_REQUEST within=20");
    EXPECT_TRUE(
        error.starts_with("line 2: agent 1 was to send MSG_TYPE_TRAYICON_SETTINGS_REQUEST within 20 ms; "))
        << error;
    const std::string wrongValue = ErrorOf(L"say x\n\nexpect DESKTOP_STATE dwDesktopState=8 within=20");
    EXPECT_TRUE(wrongValue.starts_with("line 3: ")) << wrongValue;
    EXPECT_NE(wrongValue.find("MSG_TYPE_TRAYICON_DESKTOP_STATE (8 bytes) dwDesktopState=7 (locked)"),
              std::string::npos)
        << wrongValue;
}

TEST_F(DevServiceRunner, ForgottenMessagesAreExpectedInVain)
{
    const auto pAgent = Arrive();
    ASSERT_TRUE(pAgent->Send(BytesOf(MSG_TRAYICON_DESKTOP_STATE{MSG_TYPE_TRAYICON_DESKTOP_STATE, 7})));
    AwaitRecords(*pAgent);
    EXPECT_EQ(ErrorOf(L"forget\nexpect DESKTOP_STATE within=20"),
              "line 2: agent 1 was to send MSG_TYPE_TRAYICON_DESKTOP_STATE within 20 ms; nothing came");
}

TEST_F(DevServiceRunner, ExpectNextFailsOnAnyOtherMessage)
{
    const auto pAgent = Arrive();
    EXPECT_NE(ErrorOf(L"expect next DESKTOP_STATE").find("MSG_TYPE_VERSION (40 bytes)"), std::string::npos);
}

TEST_F(DevServiceRunner, ExpectNothingFailsWhenItComes)
{
    const auto pAgent = Arrive();
    EXPECT_NE(ErrorOf(L"expect nothing VERSION").find("MSG_TYPE_VERSION (40 bytes)"), std::string::npos);
}

TEST_F(DevServiceRunner, BadWordsFailBeforeAnythingIsWaitedFor)
{
    const auto pAgent = Arrive();
    EXPECT_EQ(ErrorOf(L"expect NOTHING_SUCH"), "line 1: unknown message \"NOTHING_SUCH\"");
    EXPECT_EQ(ErrorOf(L"expect CHAT_OPEN"), "line 1: MSG_TYPE_TRAYICON_CHAT_OPEN never comes from an agent");
    EXPECT_NE(ErrorOf(L"expect VERSION dwNone=1").find("has no field dwNone"), std::string::npos);
    EXPECT_NE(ErrorOf(L"expect VERSION dwSessionId=abc").find("takes a 32-bit number"), std::string::npos);
    EXPECT_NE(ErrorOf(L"expect VERSION dwSessionId").find("not a field=value"), std::string::npos);
    EXPECT_NE(ErrorOf(L"send SETTINGS dwTrayIcon").find("not a field=value"), std::string::npos);
    EXPECT_NE(ErrorOf(L"send VERSION payload=x").find("has no payload"), std::string::npos);
    EXPECT_EQ(ErrorOf(L"listen 65536"), "line 1: not a port: \"65536\"");
    EXPECT_EQ(ErrorOf(L"lookup abc"), "line 1: not a port: \"abc\"");
    EXPECT_EQ(ErrorOf(L"wait soon"), "line 1: not a number: \"soon\"");
    EXPECT_EQ(ErrorOf(L"agent 9\necho"), "line 2: there is no agent 9");
    EXPECT_EQ(ErrorOf(L"expect-exit 0"), "line 1: there is no program 0");
    EXPECT_EQ(ErrorOf(L"say $nothing").substr(0, 33), "line 1: unknown variable $nothing");
    EXPECT_EQ(ErrorOf(L"repeat 2\nwait 0\nraw 0\nend"), "line 3: raw takes hexadecimal bytes");
    EXPECT_EQ(ErrorOf(L"repeat x\nend"), "line 1: not a number: \"x\"");
    EXPECT_NE(ErrorOf(L"start Z:\\no\\such.exe").find("cannot start Z:\\no\\such.exe: "), std::string::npos);
}

TEST_F(DevServiceRunner, EchoExpectsTheMessageBack)
{
    const auto pAgent = Arrive();
    std::thread agent([&pAgent] {
        MSG_TRAYICON_TYPE_ONLY echo = {};
        if (pAgent->Receive(echo))
        {
            pAgent->Send(BytesOf(echo));
        }
    });
    ExpectHeld(L"echo");
    agent.join();
    EXPECT_NE(ErrorOf(L"echo within=20").find("MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE within 20 ms"),
              std::string::npos);
}

TEST_F(DevServiceRunner, TargetIsOneAgentOrAll)
{
    const auto pFirst = Arrive();
    const auto pSecond = Arrive();
    ExpectHeld(L"agent 2\nsend CHAT_CLOSE\nagent all\nsend DESKTOP_EFFECTS dwDesktopEffects=3");
    MSG_TRAYICON_DESKTOP_EFFECTS effects = {};
    ASSERT_TRUE(pFirst->Receive(effects));
    EXPECT_EQ(effects.dwDesktopEffects, 3u);
    MSG_TRAYICON_TYPE_ONLY chatClose = {};
    ASSERT_TRUE(pSecond->Receive(chatClose));
    EXPECT_EQ(chatClose.dwType, static_cast<DWORD>(MSG_TYPE_TRAYICON_CHAT_CLOSE));
    ASSERT_TRUE(pSecond->Receive(effects));
    EXPECT_EQ(effects.dwDesktopEffects, 3u);
    ExpectHeld(L"close");
    EXPECT_TRUE(pFirst->Connection().WaitForEnd(PATIENCE_MS));
    EXPECT_TRUE(pSecond->Connection().WaitForEnd(PATIENCE_MS));
    EXPECT_EQ(ErrorOf(L"echo"), "line 1: no agent is connected");
}

TEST_F(DevServiceRunner, AgentWaitCountsHandshakesAndTurnsToTheLast)
{
    EXPECT_EQ(ErrorOf(L"agent wait 1 within=20"), "line 1: 0 of 1 agents have shaken hands within 20 ms");
    const auto pFirst = Arrive();
    const auto pSecond = Arrive();
    ExpectHeld(L"agent wait 2\nsend CHAT_CLOSE");
    MSG_TRAYICON_TYPE_ONLY chatClose = {};
    EXPECT_TRUE(pSecond->Receive(chatClose));
}

TEST_F(DevServiceRunner, HandshakeCanBeChosen)
{
    ExpectHeld(L"handshake on dwVersionWord=9 abVersionTail=0102");
    TestAgent agent(m_service.GetPort());
    MSG_VERSION version = {};
    ASSERT_TRUE(agent.Receive(version));
    EXPECT_EQ(version.dwVersionWord, 9u);
    EXPECT_EQ(version.abVersionTail[1], 2);
    EXPECT_EQ(version.abVersionTail[2], 0);
    ExpectHeld(L"handshake off");
    EXPECT_FALSE(m_service.GetHandshake());
}

TEST_F(DevServiceRunner, VariablesAndRoundsAreFilledIn)
{
    ExpectHeld(L"repeat 2\nrepeat 2\nsay \"$dir\\\\$round\"\nend\nsay outer $round $$\nend\nsay port $port");
    EXPECT_TRUE(Logged(L"C:\\folder\\1\n"));
    EXPECT_TRUE(Logged(L"C:\\folder\\2\n"));
    EXPECT_TRUE(Logged(L"outer 1 $\n"));
    EXPECT_TRUE(Logged(L"outer 2 $\n"));
    EXPECT_TRUE(Logged(L"port " + std::to_wstring(m_service.GetPort())));
}

TEST_F(DevServiceRunner, QuitEndsTheScriptWithItsCode)
{
    EXPECT_EQ(Run(L"repeat 3\nquit 5\nend\nagent 9\necho"), SCRIPT_RESULT::Quit);
    EXPECT_EQ(m_runner.GetExitCode(), 5);
}

TEST_F(DevServiceRunner, ExitCodesAreComparedInAll32Bits)
{
    const std::wstring run = L"run \"C:\\\\windows\\\\system32\\\\cmd.exe\" /c exit -56 ";
    ExpectHeld(run + L"expect=0xFFFFFFC8");
    ExpectHeld(run + L"expect=-56");
    EXPECT_NE(ErrorOf(run + L"expect=200").find("ended with 0xFFFFFFC8 (-56), not with 0x000000C8"),
              std::string::npos);
}

TEST_F(DevServiceRunner, StartedProgramsAreAwaitedByNumber)
{
    const std::wstring start = L"start \"C:\\\\windows\\\\system32\\\\cmd.exe\" /c exit ";
    ExpectHeld(start + L"3\n" + start + L"4\nexpect-exit 4\nexpect-exit 3 program=1");
    m_runner.EndPrograms();
    EXPECT_FALSE(Logged(L"programs that still ran were ended"));
}

TEST_F(DevServiceRunner, InterruptedScriptNamesItsLine)
{
    std::thread interrupter([this] { m_service.Interrupt(); });
    EXPECT_EQ(ErrorOf(L"\nwait forever"), "line 2: interrupted");
    interrupter.join();
}

TEST_F(DevService, RecordedSessionPlaysTheSameSideAgain)
{
    {
        const auto pAgent = Arrive();
        ASSERT_TRUE(m_service.Send(1, MakeRecord(Message(MSG_TYPE_TRAYICON_INIT))));
        AGENT_RECORD record = {};
        ASSERT_TRUE(pAgent->SendType(MSG_TYPE_TRAYICON_SETTINGS_REQUEST));
        ASSERT_EQ(Take(1, MSG_TYPE_TRAYICON_SETTINGS_REQUEST, record), WAIT_RESULT::Met);
        m_service.CloseAgent(1);
        ASSERT_EQ(m_service.WaitForClose(1, PATIENCE_MS), WAIT_RESULT::Met);
    }
    std::wstring error;
    const auto steps = ParseRecording(Recording(), error);
    ASSERT_TRUE(steps) << ToUtf8(error);
    const RECORDED_STEP_KIND aKinds[] = {RECORDED_STEP_KIND::Open,      RECORDED_STEP_KIND::FromService,
                                         RECORDED_STEP_KIND::FromAgent, RECORDED_STEP_KIND::FromService,
                                         RECORDED_STEP_KIND::FromAgent, RECORDED_STEP_KIND::ClosedByService};
    ASSERT_EQ(steps->size(), std::size(aKinds));
    for (size_t n = 0; n < std::size(aKinds); ++n)
    {
        EXPECT_EQ((*steps)[n].kind, aKinds[n]) << n;
    }

    CStandInService player;
    ASSERT_TRUE(player.Listen(0));
    player.SetHandshake(std::nullopt);
    TestAgent agent(player.GetPort());
    bool bHeld = false;
    std::thread play([&] { bHeld = PlayRecording(player, *steps, error); });
    EXPECT_TRUE(agent.ShakeHands());
    std::vector<BYTE> init(sizeof(MSG_TRAYICON_INIT));
    EXPECT_TRUE(agent.Connection().ReceiveExactly(init.data(), init.size(), PATIENCE_MS));
    EXPECT_EQ(init, MakeRecord(Message(MSG_TYPE_TRAYICON_INIT)));
    EXPECT_TRUE(agent.SendType(MSG_TYPE_TRAYICON_SETTINGS_REQUEST));
    EXPECT_TRUE(agent.Connection().WaitForEnd(PATIENCE_MS));
    play.join();
    EXPECT_TRUE(bHeld) << ToUtf8(error);
}

TEST_F(DevService, PlaybackNamesTheLineThatTheAgentDidNotFollow)
{
    std::wstring error;
    const auto steps = ParseRecording(L"# head\n0.0 open 1\n0.1 < 1 56C30000\n", error);
    ASSERT_TRUE(steps);
    m_service.SetHandshake(std::nullopt);
    {
        const TestAgent agent(m_service.GetPort());
        ASSERT_EQ(m_service.WaitForReadyAgents(1, PATIENCE_MS), WAIT_RESULT::Met);
    }
    EXPECT_FALSE(PlayRecording(m_service, *steps, error));
    EXPECT_EQ(error, L"line 3: agent 1 has not sent MSG_TYPE_TRAYICON_SETTINGS_REQUEST");
}

TEST(DevServiceRecording, BadLinesAreRefusedWithTheirNumber)
{
    for (const wchar_t* const pszBad : {L"0.1 open", L"x open 1", L"0.1 shut 1", L"0.1 > 1", L"0.1 > 1 0",
                                        L"0.1 open 1 00", L"0.1 > 1 00 00", L"0.1 open 0", L"0.1 open -"})
    {
        std::wstring error;
        EXPECT_FALSE(ParseRecording(std::wstring(L"\n") + pszBad, error)) << ToUtf8(pszBad);
        EXPECT_EQ(error, L"line 2: not a step of a recording");
    }
}
