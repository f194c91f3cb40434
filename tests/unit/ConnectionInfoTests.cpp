#include "channel/ConnectionInfo.h"

#include "channel/MessageHandlers.h"
#include "channel/TrayMessages.h"
#include "startup/TKDAST.h"
#include "tests/support/ImportHook.h"
#include "tests/support/LoopbackPeer.h"
#include "tests/support/Patience.h"
#include "tests/unit/LogCapture.h"
#include "tray/TKDASTWindow.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace
{
constexpr DWORD TEST_SESSION_ID = 4711;

std::vector<DWORD> g_sleeps;

// The pause between two tries belongs to the trace and not to the test's time. The runtime's own yields don't
// count.
void WINAPI RecordingSleep(DWORD dwMilliseconds)
{
    if (dwMilliseconds != 0)
    {
        g_sleeps.push_back(dwMilliseconds);
    }
}

int WSAAPI FailingSend(SOCKET, const char*, int, int)
{
    return SOCKET_ERROR;
}

CTaskBarWindow* g_pGoingWindow = nullptr;
decltype(&send) g_pfnSend = nullptr;

// The window goes while the reader answers.
int WSAAPI SendAndGo(SOCKET hSocket, const char* pBytes, int nBytes, int nFlags)
{
    g_pGoingWindow->m_bExiting = 1;
    return g_pfnSend(hSocket, pBytes, nBytes, nFlags);
}

template <typename Record>
const char* Bytes(const Record& record)
{
    return reinterpret_cast<const char*>(&record);
}

// A window, the reader thread on it, and the test as the service.
class ReaderTest : public testing::Test
{
  protected:
    void SetUp() override
    {
        g_dwSessionId = TEST_SESSION_ID;
        g_sleeps.clear();
    }

    void TearDown() override
    {
        EndReader();
        if (m_pWindow != nullptr)
        {
            DestroyWindow(m_pWindow->m_hWnd);
        }
        MSG message = {};
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
        {
        }
    }

    void MakeWindow(unsigned int uiPort)
    {
        m_pWindow = std::make_unique<CTaskBarWindow>(uiPort);
        m_pWindow->m_pSocket = std::make_shared<CTKSocket>();
    }

    void StartReader(unsigned int uiPort)
    {
        MakeWindow(uiPort);
        m_reader = std::thread([this] { ConnectionInfo(m_pWindow.get()); });
    }

    // A reader that has connected.
    LoopbackConnection ConnectReader()
    {
        LoopbackListener listener;
        StartReader(listener.Port());
        std::optional<LoopbackConnection> connection = listener.Accept(PATIENCE_MS);
        EXPECT_TRUE(connection.has_value());
        return connection.has_value() ? std::move(*connection) : LoopbackConnection();
    }

    void EndReader()
    {
        if (m_reader.joinable())
        {
            if (const std::shared_ptr<CTKSocket> pSocket = m_pWindow->m_pSocket.load())
            {
                pSocket->Close();
            }
            m_reader.join();
        }
    }

    bool TakeChannelLost()
    {
        MSG message = {};
        const bool bLost = PeekMessageW(&message, m_pWindow->m_hWnd, WM_SERVICE_CHANNEL_LOST,
                                        WM_SERVICE_CHANNEL_LOST, PM_REMOVE) != FALSE;
        EXPECT_EQ(message.wParam, 0U);
        EXPECT_EQ(message.lParam, 0);
        return bLost;
    }

    static bool SendType(LoopbackConnection& service, DWORD dwType)
    {
        return service.SendAll(&dwType, sizeof(dwType));
    }

    // The proof that the stream has kept its frame.
    static bool Echoes(LoopbackConnection& service)
    {
        DWORD dwEcho = 0;
        return SendType(service, MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE) &&
               service.ReceiveExactly(&dwEcho, sizeof(dwEcho), PATIENCE_MS) &&
               dwEcho == MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE;
    }

    std::unique_ptr<CTaskBarWindow> m_pWindow;
    std::thread m_reader;
};
} // namespace

TEST_F(ReaderTest, AnswersTheHandshakeWithItsVersionsAndSessionAndEchoesTheRest)
{
    LoopbackConnection service = ConnectReader();
    m_pWindow->m_hDesktopEvent.reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    MSG_VERSION version = {MSG_TYPE_VERSION, 0xCAFEBABE, 3.25, -1.0, {}, 99};
    for (size_t i = 0; i < sizeof(version.abVersionTail); ++i)
    {
        version.abVersionTail[i] = static_cast<BYTE>(0xF0 + i);
    }
    ASSERT_TRUE(service.SendAll(&version, sizeof(version)));
    MSG_VERSION answer = {};
    ASSERT_TRUE(service.ReceiveExactly(&answer, sizeof(answer), PATIENCE_MS));
    EXPECT_EQ(answer.dwType, static_cast<DWORD>(MSG_TYPE_VERSION));
    EXPECT_EQ(answer.dwVersionWord, 0xCAFEBABE);
    ULONGLONG ullBits = 0;
    memcpy(&ullBits, Bytes(answer.dblAgentVersion), sizeof(ullBits));
    EXPECT_EQ(ullBits, 0x407BC00000000000ULL);
    EXPECT_EQ(answer.dblAgentVersion2, 444.0);
    EXPECT_EQ(memcmp(answer.abVersionTail, version.abVersionTail, sizeof(version.abVersionTail)), 0);
    EXPECT_EQ(answer.dwSessionId, TEST_SESSION_ID);
    EXPECT_EQ(WaitForSingleObject(m_pWindow->m_hDesktopEvent.get(), PATIENCE_MS), WAIT_OBJECT_0)
        << "the threads that watch the desktop wait for the handshake";
}

TEST_F(ReaderTest, SaysNothingBeforeTheServiceHasSpoken)
{
    const LoopbackConnection service = ConnectReader();
    EXPECT_TRUE(service.StaysSilent(200));
}

TEST_F(ReaderTest, AnUnknownTypeCostsOnlyItsFourBytes)
{
    LoopbackConnection service = ConnectReader();
    const DWORD adwUnknown[] = {12345, 0xFFFFFFFF, MSG_TYPE_TRAYICON_DESKTOP_STATE};
    ASSERT_TRUE(service.SendAll(adwUnknown, sizeof(adwUnknown)));
    EXPECT_TRUE(Echoes(service));
}

TEST_F(ReaderTest, EndsWhenThePeerClosesInsideAType)
{
    LoopbackConnection service = ConnectReader();
    ASSERT_TRUE(service.SendAll("\x30\x11\x00", 3));
    service.Close();
    m_reader.join();
    EXPECT_TRUE(TakeChannelLost());
}

TEST_F(ReaderTest, EndsWhenThePeerClosesInsideARecord)
{
    LoopbackConnection service = ConnectReader();
    const MSG_TRAYICON_SETTINGS settings = {};
    ASSERT_TRUE(SendType(service, MSG_TYPE_TRAYICON_SETTINGS));
    ASSERT_TRUE(service.SendAll(&settings, 1000));
    service.Close();
    m_reader.join();
    EXPECT_TRUE(TakeChannelLost());
}

TEST_F(ReaderTest, NamesAMessageInTheLogBeforeItsBodyIsThere)
{
    LoopbackConnection service = ConnectReader();
    ASSERT_TRUE(Echoes(service)); // the reader is in its loop now
    const LogCapture capture("ConnectionInfo");
    ASSERT_TRUE(SendType(service, MSG_TYPE_TRAYICON_SETTINGS));
    service.Close();
    m_reader.join();
    EXPECT_THAT(capture.Texts(), testing::IsSupersetOf({"DEBUG Received message type 40003",
                                                        "TRACE MSG_TYPE_TRAYICON_SETTINGS"}));
}

TEST_F(ReaderTest, EndsWhenThePeerClosesInsideAChatPayload)
{
    LoopbackConnection service = ConnectReader();
    MSG_CHAT_MESSAGE head = {};
    head.dwType = MSG_TYPE_CHAT_MESSAGE;
    head.dwMessageLength = 0xFFFFFFFF;
    ASSERT_TRUE(service.SendAll(&head, sizeof(head)));
    service.Close();
    m_reader.join();
    EXPECT_TRUE(TakeChannelLost());
}

TEST_F(ReaderTest, EndsWithoutAWordWhenTheWindowIsGoing)
{
    const LoopbackConnection service = ConnectReader();
    m_pWindow->m_bExiting = 1;
    EndReader();
    EXPECT_FALSE(TakeChannelLost());
}

TEST_F(ReaderTest, AnExitDuringAHandlerEndsTheLoopWithoutAnotherRead)
{
    LoopbackConnection service = ConnectReader();
    g_pGoingWindow = m_pWindow.get();
    const ImportHook hook("ws2_32.dll", "send", &SendAndGo);
    g_pfnSend = hook.Original();
    ASSERT_TRUE(Echoes(service)); // handled, and the last
    m_reader.join();
    EXPECT_FALSE(TakeChannelLost());
}

TEST_F(ReaderTest, AnAnswerThatCannotBeWrittenEndsTheChannel)
{
    LoopbackConnection service = ConnectReader();
    const ImportHook hook("ws2_32.dll", "send", &FailingSend);
    ASSERT_TRUE(SendType(service, MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE));
    m_reader.join();
    EXPECT_TRUE(TakeChannelLost());
}

TEST_F(ReaderTest, WithoutASocketTheChannelIsLostAtOnce)
{
    MakeWindow(1);
    m_pWindow->m_pSocket = std::shared_ptr<CTKSocket>();
    ConnectionInfo(m_pWindow.get());
    EXPECT_TRUE(TakeChannelLost());
}

TEST_F(ReaderTest, PortZeroMeansTheDefaultPort)
{
    LoopbackListener listener(DEFAULT_SERVICE_PORT);
    ASSERT_TRUE(listener.IsListening());
    StartReader(0);
    EXPECT_TRUE(listener.Accept(PATIENCE_MS).has_value());
    EXPECT_EQ(m_pWindow->m_uiPort, DEFAULT_SERVICE_PORT);
}

namespace
{
// Answers lookups until it has answered one; keeps what was asked.
class LookupService
{
  public:
    explicit LookupService(std::vector<std::vector<BYTE>> answers) : m_answers(std::move(answers))
    {
        m_thread = std::thread([this] { Answer(); });
    }
    ~LookupService() { m_thread.join(); }

    std::vector<std::vector<BYTE>> m_requests;

  private:
    void Answer()
    {
        for (const std::vector<BYTE>& answer : m_answers)
        {
            for (int nDatagram = 0; nDatagram < 2; ++nDatagram)
            {
                std::optional<std::vector<BYTE>> datagram = m_responder.Receive(PATIENCE_MS);
                if (!datagram)
                {
                    return;
                }
                m_requests.push_back(std::move(*datagram));
            }
            m_responder.Reply(answer.data(), answer.size());
        }
    }

    std::vector<std::vector<BYTE>> m_answers;
    LoopbackResponder m_responder{static_cast<unsigned short>(QUERY_PORT)};
    std::thread m_thread;
};

std::vector<BYTE> LookupAnswer(DWORD dwPort, size_t cbAnswer = sizeof(MSG_UDP_PORT_LOOKUP))
{
    MSG_UDP_PORT_LOOKUP lookup = {};
    lookup.dwRequest = UDP_REQUEST_PORT_LOOKUP;
    lookup.dwPort = dwPort;
    std::vector<BYTE> answer(cbAnswer);
    memcpy(answer.data(), &lookup, std::min(cbAnswer, sizeof(lookup)));
    return answer;
}
} // namespace

TEST_F(ReaderTest, TheThirdTryGoesToThePortThatTheServiceTells)
{
    LoopbackListener listener;
    const LookupService lookup({LookupAnswer(listener.Port())});
    const ImportHook hook("kernel32.dll", "Sleep", &RecordingSleep);
    StartReader(UnusedPort());
    EXPECT_TRUE(listener.Accept(PATIENCE_MS).has_value());
    EndReader();
    EXPECT_EQ(m_pWindow->m_uiPort, listener.Port());
    EXPECT_EQ(g_sleeps, std::vector<DWORD>{3000}) << "one pause, between the first and the second try";
}

TEST_F(ReaderTest, TheLookupAsksWithAHeaderAndARequest)
{
    unsigned int uiPort = 1;
    {
        LookupService lookup({LookupAnswer(5000)});
        EXPECT_EQ(GetPortNumberViaUDP(&uiPort), 1);
        ASSERT_EQ(lookup.m_requests.size(), 2U);
        ASSERT_EQ(lookup.m_requests[0].size(), 12U);
        const auto* const pHeader = reinterpret_cast<const MSG_UDP_HEADER*>(lookup.m_requests[0].data());
        EXPECT_EQ(pHeader->dwProtocol, 701U);
        EXPECT_EQ(pHeader->dwRequest, 703U);
        ASSERT_EQ(lookup.m_requests[1].size(), 80U);
        const auto* const pLookup = reinterpret_cast<const MSG_UDP_PORT_LOOKUP*>(lookup.m_requests[1].data());
        EXPECT_EQ(pLookup->dwRequest, 703U);
        EXPECT_EQ(pLookup->dwPort, 0U);
    }
    EXPECT_EQ(uiPort, 5000U);
}

TEST_F(ReaderTest, ALookupAnswerOfAnotherSizeIsNone)
{
    for (const size_t cbAnswer : {sizeof(MSG_UDP_PORT_LOOKUP) - 1, sizeof(MSG_UDP_PORT_LOOKUP) + 1})
    {
        const LookupService lookup({LookupAnswer(5000, cbAnswer)});
        unsigned int uiPort = 1;
        EXPECT_EQ(GetPortNumberViaUDP(&uiPort), 0) << cbAnswer;
        EXPECT_EQ(uiPort, 1U);
    }
}

TEST_F(ReaderTest, WithoutALookupAnswerThereIsNoThirdTry)
{
    const ImportHook hook("kernel32.dll", "Sleep", &RecordingSleep);
    const unsigned short nPort = UnusedPort();
    StartReader(nPort);
    m_reader.join();
    EXPECT_EQ(m_pWindow->m_uiPort, nPort);
    EXPECT_TRUE(TakeChannelLost());
}

namespace
{
using testing::ElementsAre;
using Texts = std::vector<std::string>;

decltype(&setsockopt) g_pfnSetSockOpt = nullptr;
std::vector<std::pair<int, DWORD>> g_options; // option, value

int WSAAPI RecordingSetSockOpt(SOCKET hSocket, int nLevel, int nOption, const char* pValue, int cbValue)
{
    DWORD dwValue = 0;
    memcpy(&dwValue, pValue, sizeof(dwValue));
    g_options.emplace_back(nOption, dwValue);
    return g_pfnSetSockOpt(hSocket, nLevel, nOption, pValue, cbValue);
}

decltype(&malloc) g_pfnMalloc = nullptr;
size_t g_cbRefused = 0;
std::atomic<int> g_nRefusals = 0;

void* __cdecl RefuseOneSize(size_t cbWanted)
{
    if (cbWanted == g_cbRefused)
    {
        ++g_nRefusals;
        return nullptr;
    }
    return g_pfnMalloc(cbWanted);
}

decltype(&recv) g_pfnRecv = nullptr;
CTKSocket* g_pSocketToClose = nullptr;

int WSAAPI CloseBehindTheRead(SOCKET hSocket, char* p, int n, int nFlags)
{
    const int nRead = g_pfnRecv(hSocket, p, n, nFlags);
    g_pSocketToClose->Close();
    return nRead;
}

// The stream's tries fail, each with an error of its own, and so does the lookup.
constexpr int FIRST_ERROR = WSAENETDOWN;
constexpr int SECOND_ERROR = WSAENETUNREACH;
constexpr int LOOKUP_ERROR = WSAENETRESET;
int g_nTries = 0;

int WSAAPI FailingConnect(SOCKET, const sockaddr* pAddress, int)
{
    const bool bLookup = ntohs(reinterpret_cast<const sockaddr_in*>(pAddress)->sin_port) == QUERY_PORT;
    if (!bLookup)
    {
        ++g_nTries;
    }
    WSASetLastError(bLookup ? LOOKUP_ERROR : g_sleeps.empty() ? FIRST_ERROR : SECOND_ERROR);
    return SOCKET_ERROR;
}

// A service that is there and runs, so that the report carries the reason.
SC_HANDLE WINAPI SomeManager(LPCWSTR, LPCWSTR, DWORD)
{
    return reinterpret_cast<SC_HANDLE>(static_cast<ULONG_PTR>(1));
}

SC_HANDLE WINAPI SomeService(SC_HANDLE, LPCWSTR, DWORD)
{
    return reinterpret_cast<SC_HANDLE>(static_cast<ULONG_PTR>(2));
}

BOOL WINAPI ServiceRuns(SC_HANDLE, LPSERVICE_STATUS pStatus)
{
    pStatus->dwCurrentState = SERVICE_RUNNING;
    return TRUE;
}

BOOL WINAPI NothingToClose(SC_HANDLE)
{
    return TRUE;
}
} // namespace

TEST_F(ReaderTest, TellsItsWorkInTheLogUnderItsOwnName)
{
    const LogCapture capture("ConnectionInfo");
    LoopbackConnection service = ConnectReader();
    MSG_VERSION version = {};
    version.dwType = MSG_TYPE_VERSION;
    ASSERT_TRUE(service.SendAll(&version, sizeof(version)));
    ASSERT_TRUE(SendType(service, 12345));
    ASSERT_TRUE(SendType(service, MSG_TYPE_RESERVED_40005));
    ASSERT_TRUE(SendType(service, MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE));
    ASSERT_TRUE(service.ReceiveExactly(&version, sizeof(version), PATIENCE_MS));
    service.ShutdownSend();
    m_reader.join();
    EXPECT_THAT(
        capture.Texts(),
        ElementsAre("TRACE ConnectionInfo entering.", "DEBUG Waiting for a message from the socket.",
                    "DEBUG Received message type 4400", "TRACE MSG_TYPE_VERSION",
                    "DEBUG Waiting for a message from the socket.", "DEBUG Received message type 12345",
                    "DEBUG Waiting for a message from the socket.", "DEBUG Received message type 40005",
                    "TRACE MSG_TYPE_RESERVED_40005", "DEBUG Waiting for a message from the socket.",
                    "DEBUG Received message type 100000", "TRACE MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE",
                    "DEBUG Waiting for a message from the socket.", "TRACE ConnectionInfo exiting."));
    for (const LogLine& line : capture.Lines())
    {
        EXPECT_TRUE(line.threadName.starts_with("ConnectionInfo@")) << line.threadName;
    }
}

TEST_F(ReaderTest, NamesARecordInTheLogBeforeItsBodyHasCome)
{
    const LogCapture capture("ConnectionInfo");
    LoopbackConnection service = ConnectReader();
    ASSERT_TRUE(SendType(service, MSG_TYPE_TRAYICON_SETTINGS));
    service.ShutdownSend();
    m_reader.join();
    EXPECT_THAT(capture.Texts(),
                ElementsAre("TRACE ConnectionInfo entering.", "DEBUG Waiting for a message from the socket.",
                            "DEBUG Received message type 40003", "TRACE MSG_TYPE_TRAYICON_SETTINGS",
                            "TRACE ConnectionInfo exiting."));
}

TEST_F(ReaderTest, AnAgentThatGoesAsItConnectsReadsNothing)
{
    const LogCapture capture("ConnectionInfo");
    LoopbackListener listener;
    MakeWindow(listener.Port());
    m_pWindow->m_bExiting = 1;
    m_reader = std::thread([this] { ConnectionInfo(m_pWindow.get()); });
    const std::optional<LoopbackConnection> service = listener.Accept(PATIENCE_MS);
    ASSERT_TRUE(service.has_value());
    m_reader.join();
    EXPECT_THAT(capture.Texts(),
                ElementsAre("TRACE ConnectionInfo entering.", "DEBUG Waiting for a message from the socket.",
                            "TRACE ConnectionInfo exiting."));
    EXPECT_FALSE(TakeChannelLost());
}

TEST_F(ReaderTest, ASocketThatIsClosedUnderTheReaderEndsItBeforeTheMessage)
{
    const LogCapture capture("ConnectionInfo");
    LoopbackListener listener;
    MakeWindow(listener.Port());
    g_pSocketToClose = m_pWindow->m_pSocket.load().get();
    const ImportHook hook("ws2_32.dll", "recv", &CloseBehindTheRead);
    g_pfnRecv = hook.Original();
    m_reader = std::thread([this] { ConnectionInfo(m_pWindow.get()); });
    std::optional<LoopbackConnection> service = listener.Accept(PATIENCE_MS);
    ASSERT_TRUE(service.has_value());
    ASSERT_TRUE(SendType(*service, MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE));
    m_reader.join();
    EXPECT_THAT(capture.Texts(),
                ElementsAre("TRACE ConnectionInfo entering.", "DEBUG Waiting for a message from the socket.",
                            "TRACE ConnectionInfo exiting."));
    EXPECT_TRUE(TakeChannelLost());
}

TEST_F(ReaderTest, AConnectedChannelWaitsWithoutALimit)
{
    const ImportHook hook("ws2_32.dll", "setsockopt", &RecordingSetSockOpt);
    g_pfnSetSockOpt = hook.Original();
    g_options.clear();
    LoopbackConnection service = ConnectReader();
    ASSERT_TRUE(Echoes(service));
    EXPECT_THAT(g_options,
                ElementsAre(std::pair<int, DWORD>(TCP_NODELAY, 1), std::pair<int, DWORD>(SO_RCVTIMEO, 0),
                            std::pair<int, DWORD>(SO_SNDTIMEO, 0)))
        << "the limit that was set before there was a socket has reached none";
}

TEST_F(ReaderTest, TheLookupWaitsWithoutALimit)
{
    const ImportHook hook("ws2_32.dll", "setsockopt", &RecordingSetSockOpt);
    g_pfnSetSockOpt = hook.Original();
    g_options.clear();
    const LookupService lookup({LookupAnswer(5000)});
    unsigned int uiPort = 1;
    EXPECT_EQ(GetPortNumberViaUDP(&uiPort), 1);
    EXPECT_TRUE(g_options.empty());
}

TEST_F(ReaderTest, AHandshakeThatCannotBeAnsweredReleasesNobody)
{
    LoopbackConnection service = ConnectReader();
    m_pWindow->m_hDesktopEvent.reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const ImportHook hook("ws2_32.dll", "send", &FailingSend);
    MSG_VERSION version = {};
    version.dwType = MSG_TYPE_VERSION;
    ASSERT_TRUE(service.SendAll(&version, sizeof(version)));
    m_reader.join();
    EXPECT_EQ(WaitForSingleObject(m_pWindow->m_hDesktopEvent.get(), 0), static_cast<DWORD>(WAIT_TIMEOUT));
    EXPECT_TRUE(TakeChannelLost());
}

TEST_F(ReaderTest, WithoutMemoryForItsRecordsTheChannelIsLostAtOnce)
{
    LoopbackListener listener;
    MakeWindow(listener.Port());
    g_nRefusals = 0;
    g_cbRefused = MESSAGE_BUFFER_SIZE;
    const ImportHook hook("msvcrt.dll", "malloc", &RefuseOneSize);
    g_pfnMalloc = hook.Original();
    m_reader = std::thread([this] { ConnectionInfo(m_pWindow.get()); });
    m_reader.join();
    EXPECT_EQ(g_nRefusals, 1);
    EXPECT_FALSE(listener.Accept(0).has_value());
    EXPECT_TRUE(TakeChannelLost());
}

TEST_F(ReaderTest, WithoutMemoryForASocketThereIsNoLookup)
{
    g_nRefusals = 0;
    g_cbRefused = sizeof(CTKSocket);
    unsigned int uiPort = 1;
    int nResult = -1;
    {
        const ImportHook hook("msvcrt.dll", "malloc", &RefuseOneSize);
        g_pfnMalloc = hook.Original();
        nResult = GetPortNumberViaUDP(&uiPort);
    }
    EXPECT_EQ(g_nRefusals, 1);
    EXPECT_EQ(nResult, 0);
    EXPECT_EQ(uiPort, 1U);
}

TEST_F(ReaderTest, TheLookupIsTraced)
{
    const LogCapture capture("ConnectionInfo");
    unsigned int uiPort = 1;
    EXPECT_EQ(GetPortNumberViaUDP(&uiPort), 0) << "nobody answers";
    EXPECT_THAT(capture.Texts(),
                ElementsAre("TRACE GetPortNumberViaUDP entering.", "TRACE GetPortNumberViaUDP exiting."));
}

TEST_F(ReaderTest, AfterThreeTriesItGivesUpAndKeepsThePortThatItWasTold)
{
    const unsigned short nTold = UnusedPort();
    const LookupService lookup({LookupAnswer(nTold)});
    const ImportHook hook("kernel32.dll", "Sleep", &RecordingSleep);
    StartReader(UnusedPort());
    m_reader.join();
    EXPECT_EQ(m_pWindow->m_uiPort, nTold);
    EXPECT_EQ(g_sleeps, std::vector<DWORD>{3000});
    EXPECT_TRUE(TakeChannelLost());
}

TEST_F(ReaderTest, ReportsTheSecondTrysErrorWhateverTheLookupEndsWith)
{
    const ImportHook sleep("kernel32.dll", "Sleep", &RecordingSleep);
    const ImportHook connector("ws2_32.dll", "connect", &FailingConnect);
    const ImportHook manager("advapi32.dll", "OpenSCManagerW", &SomeManager);
    const ImportHook opener("advapi32.dll", "OpenServiceW", &SomeService);
    const ImportHook query("advapi32.dll", "QueryServiceStatus", &ServiceRuns);
    const ImportHook closer("advapi32.dll", "CloseServiceHandle", &NothingToClose);
    const LogCapture capture("UtilLog");
    g_nTries = 0;
    StartReader(UnusedPort());
    m_reader.join();
    EXPECT_EQ(g_nTries, 2);
    EXPECT_THAT(capture.Texts(), testing::Contains(testing::StartsWith(
                                     "ERROR LogErrorMsg dwErr=" + std::to_string(SECOND_ERROR) + ":")));
    EXPECT_TRUE(TakeChannelLost());
}
