#include "tests/e2e/AgentTest.h"

#include <cstring>

namespace
{
constexpr ULONGLONG SHORTEST_PAUSE_MS = 2900;
// Two pauses would not fit.
constexpr ULONGLONG LONGEST_PAUSE_MS = 5900;
// Longer than any time-out that the lookup might have and hasn't.
constexpr DWORD LONGER_THAN_A_TIMEOUT_MS = 6500;
constexpr size_t LOOKUP_BYTES = 80;

class ConnectTest : public AgentTest
{
  protected:
    ConnectTest() : m_qwStart(GetTickCount64()) {}

    ULONGLONG Elapsed() const { return GetTickCount64() - m_qwStart; }
    /// Waits until the agent is about to connect, so that a slow start of the program isn't taken for a
    /// pause.
    void AwaitFirstTry();
    ULONGLONG ElapsedSinceFirstTry() const { return GetTickCount64() - m_qwFirstTry; }
    /// Starts an agent on a port that nobody listens on.
    void StartAgentOnStalePort() { StartAgent(std::to_wstring(m_nStalePort)); }
    /// Waits until the agent has asked for the port, which is after its second try.
    void ReceiveLookup(LoopbackResponder& query);
    /// An answer of the given size that names m_listener.
    void AnswerLookup(LoopbackResponder& query, size_t nBytes);

    const unsigned short m_nStalePort = UnusedPort();
    const ULONGLONG m_qwStart;
    ULONGLONG m_qwFirstTry = 0;
};

DWORD DwordAt(const std::vector<BYTE>& bytes, size_t nOffset)
{
    DWORD dwValue = 0;
    std::memcpy(&dwValue, bytes.data() + nOffset, sizeof(dwValue));
    return dwValue;
}

void ConnectTest::AwaitFirstTry()
{
    ASSERT_TRUE(m_folder.WaitForLog("ConnectionInfo entering.", PATIENCE_MS));
    m_qwFirstTry = GetTickCount64();
}

void ConnectTest::ReceiveLookup(LoopbackResponder& query)
{
    ASSERT_TRUE(query.IsOpen()) << "the query port is taken by another program";
    const auto header = query.Receive(PATIENCE_MS);
    ASSERT_TRUE(header.has_value());
    ASSERT_EQ(header->size(), 12u);
    EXPECT_EQ(DwordAt(*header, 0), 701u);
    EXPECT_EQ(DwordAt(*header, 4), 703u);
    const auto request = query.Receive(PATIENCE_MS);
    ASSERT_TRUE(request.has_value());
    ASSERT_EQ(request->size(), LOOKUP_BYTES);
    EXPECT_EQ(DwordAt(*request, 0), 703u);
    EXPECT_EQ(DwordAt(*request, 8), 0u);
}

void ConnectTest::AnswerLookup(LoopbackResponder& query, size_t nBytes)
{
    std::vector<BYTE> answer(nBytes);
    const DWORD dwPort = m_listener.Port();
    std::memcpy(answer.data() + 8, &dwPort, sizeof(dwPort));
    ASSERT_TRUE(query.Reply(answer.data(), answer.size()));
}

TEST_F(ConnectTest, FirstTryComesAtOnce)
{
    StartAgent();
    AwaitFirstTry();
    AcceptAgent();
    EXPECT_LT(ElapsedSinceFirstTry(), SHORTEST_PAUSE_MS);
}

TEST_F(ConnectTest, SecondTryComesThreeSecondsAfterTheFirst)
{
    StartAgentOnStalePort();
    AwaitFirstTry();
    // The first try is refused at once; give it that moment before somebody listens.
    ASSERT_FALSE(m_agent->WaitForExit(SILENCE_MS).has_value());
    LoopbackListener late(m_nStalePort);
    AcceptAgent(late);
    EXPECT_GE(Elapsed(), SHORTEST_PAUSE_MS);
    EXPECT_LT(ElapsedSinceFirstTry(), LONGEST_PAUSE_MS);
    ShakeHands();
}

TEST_F(ConnectTest, ThirdTryGoesToThePortThatTheServiceTells)
{
    LoopbackResponder query(QUERY_PORT);
    StartAgentOnStalePort();
    ReceiveLookup(query);
    EXPECT_GE(Elapsed(), SHORTEST_PAUSE_MS);
    EXPECT_FALSE(m_listener.Accept(0).has_value());
    AnswerLookup(query, LOOKUP_BYTES);
    AcceptAgent();
    ShakeHands();
    ExpectEndWithService();
}

TEST_F(ConnectTest, WithoutAnAnswerThereIsNoThirdTry)
{
    StartAgentOnStalePort();
    ExpectExit(*m_agent, EXIT_CODE_ENDED);
    EXPECT_GE(Elapsed(), SHORTEST_PAUSE_MS);
    EXPECT_FALSE(m_listener.Accept(0).has_value());
}

class LookupAnswerSizeTest : public ConnectTest, public testing::WithParamInterface<size_t>
{
};

TEST_P(LookupAnswerSizeTest, AnswerOfTheWrongSizeCountsAsNone)
{
    LoopbackResponder query(QUERY_PORT);
    StartAgentOnStalePort();
    ReceiveLookup(query);
    LoopbackListener stale(m_nStalePort);
    AnswerLookup(query, GetParam());
    ExpectExit(*m_agent, EXIT_CODE_ENDED);
    EXPECT_FALSE(m_listener.Accept(0).has_value());
    EXPECT_FALSE(stale.Accept(0).has_value());
}

INSTANTIATE_TEST_SUITE_P(Sizes, LookupAnswerSizeTest, testing::Values(12u, 79u, 81u));

TEST_F(ConnectTest, SilentQueryPortBlocksTheReaderUntilTheWindowGoes)
{
    LoopbackResponder query(QUERY_PORT);
    StartAgentOnStalePort();
    ReceiveLookup(query);
    EXPECT_FALSE(m_agent->WaitForExit(LONGER_THAN_A_TIMEOUT_MS).has_value());
    EXPECT_FALSE(m_listener.Accept(0).has_value());
    const HWND hWnd = m_agent->FindTrayWindow();
    ASSERT_NE(hWnd, nullptr);
    ASSERT_TRUE(PostMessageW(hWnd, WM_CLOSE, 0, 0));
    ExpectExit(*m_agent, EXIT_CODE_ENDED);
}

TEST_F(ConnectTest, LostChannelIsNotOpenedAgain)
{
    StartAgent();
    AcceptAgent();
    ShakeHands();
    ExpectEndWithService();
    EXPECT_FALSE(m_listener.Accept(0).has_value());
}

class PortTest : public ConnectTest
{
  protected:
    /// The agent must find the service on its default port.
    void ExpectDefaultPort(const std::wstring& commandLine)
    {
        LoopbackListener service(DEFAULT_SERVICE_PORT);
        StartAgent(commandLine);
        AcceptAgent(service);
        ShakeHands();
    }
    /// Nobody can be where the agent looks first, so it must ask, and go where it is told.
    void ExpectLookup(const std::wstring& commandLine)
    {
        LoopbackResponder query(QUERY_PORT);
        StartAgent(commandLine);
        ReceiveLookup(query);
        AnswerLookup(query, LOOKUP_BYTES);
        AcceptAgent();
        ShakeHands();
    }
};

TEST_F(PortTest, EmptyLineMeansTheDefaultPort)
{
    ExpectDefaultPort(L"");
}

TEST_F(PortTest, EmptyLineMeansTheRegisteredPort)
{
    const RegistryValue port(HKEY_LOCAL_MACHINE, SERVICE_SETTINGS_KEY, L"Port", m_listener.Port());
    StartAgent(L"");
    AcceptAgent();
    ShakeHands();
}

TEST_F(PortTest, RegisteredPortWinsOverTheLine)
{
    LoopbackListener onTheLine;
    const RegistryValue port(HKEY_LOCAL_MACHINE, SERVICE_SETTINGS_KEY, L"Port", m_listener.Port());
    StartAgent(std::to_wstring(onTheLine.Port()));
    AcceptAgent();
    ShakeHands();
    EXPECT_FALSE(onTheLine.Accept(0).has_value());
}

TEST_F(PortTest, LineCountsWhereNoPortIsRegistered)
{
    StartAgent();
    AcceptAgent();
    ShakeHands();
}

TEST_F(PortTest, ZeroMeansTheDefaultPort)
{
    ExpectDefaultPort(L"0");
}

TEST_F(PortTest, RegisteredZeroMeansTheDefaultPort)
{
    const RegistryValue port(HKEY_LOCAL_MACHINE, SERVICE_SETTINGS_KEY, L"Port", 0);
    ExpectDefaultPort(ServicePort());
}

TEST_F(PortTest, MinusOneMeansTheDefaultPort)
{
    ExpectDefaultPort(L"-1");
}

TEST_F(PortTest, WordsMeanTheDefaultPort)
{
    ExpectDefaultPort(L"abc");
}

TEST_F(PortTest, PortBeyondTheRangeIsLookedUp)
{
    ExpectLookup(L"65536");
}

TEST_F(PortTest, NegativePortIsLookedUp)
{
    ExpectLookup(L"-2");
}

TEST_F(PortTest, RegisteredPortBeyondTheRangeIsLookedUp)
{
    const RegistryValue port(HKEY_LOCAL_MACHINE, SERVICE_SETTINGS_KEY, L"Port", 0xFFFFFFFE);
    ExpectLookup(ServicePort());
}

TEST_F(PortTest, RegisteredTextOfFourBytesIsTakenAsANumber)
{
    const std::vector<BYTE> portAsBytes = {static_cast<BYTE>(m_listener.Port()),
                                           static_cast<BYTE>(m_listener.Port() >> 8), 0, 0};
    const RegistryValue port(HKEY_LOCAL_MACHINE, SERVICE_SETTINGS_KEY, L"Port", REG_SZ, portAsBytes);
    StartAgent(std::to_wstring(m_nStalePort));
    AcceptAgent();
    ShakeHands();
}

TEST_F(PortTest, RegisteredTextOfMoreBytesLeavesTheLinesPort)
{
    const RegistryValue port(HKEY_LOCAL_MACHINE, SERVICE_SETTINGS_KEY, L"Port", std::wstring(L"6130"));
    StartAgent();
    AcceptAgent();
    ShakeHands();
}
} // namespace
