#include "channel/CTKSocket.h"

#include "tests/support/ImportHook.h"
#include "tests/support/LoopbackPeer.h"
#include "tests/support/Patience.h"
#include "tests/unit/ResolverSwap.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace
{
constexpr unsigned int SHORT_TIMEOUT_MS = 100;

// What the replaced system functions have seen and what they shall answer. A test begins with an empty one.
struct SystemScript
{
    decltype(&recv) pfnRecv = nullptr;
    decltype(&setsockopt) pfnSetSockOpt = nullptr;

    std::vector<std::string> hosts;  // asked of the resolver, in order
    std::vector<int> resolverErrors; // its first answers; after them it succeeds
    std::vector<int> familiesAsked;
    int nListsFreed = 0;
    std::vector<int> receiveErrors; // of the first reads; after them the system answers
    size_t uReads = 0;
    std::vector<std::pair<int, DWORD>> options; // option, value
    std::vector<int> sendResults;
    std::vector<std::string> closing;
};
SystemScript g_script;

int WSAAPI FakeGetAddrInfo(const char* pszNode, const char* pszService, const addrinfo* pHints,
                           addrinfo** ppResult)
{
    const size_t uCall = g_script.hosts.size();
    g_script.hosts.emplace_back(pszNode);
    g_script.familiesAsked.push_back(pHints->ai_family);
    if (uCall < g_script.resolverErrors.size())
    {
        return g_script.resolverErrors[uCall];
    }
    return ResolverSwap::TableGetAddrInfo()("127.0.0.1", pszService, pHints, ppResult);
}

void WSAAPI CountingFreeAddrInfo(addrinfo* pList)
{
    ++g_script.nListsFreed;
    ResolverSwap::TableFreeAddrInfo()(pList);
}

int WSAAPI FailingRecv(SOCKET hSocket, char* p, int n, int nFlags)
{
    const size_t uCall = g_script.uReads++;
    if (uCall < g_script.receiveErrors.size())
    {
        WSASetLastError(g_script.receiveErrors[uCall]);
        return SOCKET_ERROR;
    }
    return g_script.pfnRecv(hSocket, p, n, nFlags);
}

int WSAAPI ShortSend(SOCKET, const char*, int n, int)
{
    g_script.sendResults.push_back(n - 1);
    return n - 1;
}

int WSAAPI RecordingSetSockOpt(SOCKET hSocket, int nLevel, int nOption, const char* pValue, int cbValue)
{
    DWORD dwValue = 0;
    memcpy(&dwValue, pValue, sizeof(dwValue));
    g_script.options.emplace_back(nOption, dwValue);
    return g_script.pfnSetSockOpt(hSocket, nLevel, nOption, pValue, cbValue);
}

int WSAAPI RecordingShutdown(SOCKET, int nHow)
{
    g_script.closing.push_back("shutdown " + std::to_string(nHow));
    return 0;
}

int WSAAPI RecordingCloseSocket(SOCKET hSocket)
{
    g_script.closing.emplace_back(hSocket == INVALID_SOCKET ? "closesocket invalid" : "closesocket");
    return 0;
}

class CTKSocketTest : public testing::Test
{
  protected:
    void SetUp() override { g_script = SystemScript(); }

    // A connected pair: the object under test and the test's own end of the stream.
    LoopbackConnection ConnectPair(CTKSocket& socket)
    {
        LoopbackListener listener;
        EXPECT_EQ(socket.Connect(L"localhost", listener.Port(), SOCK_STREAM, AF_UNSPEC), 1);
        std::optional<LoopbackConnection> connection = listener.Accept(PATIENCE_MS);
        EXPECT_TRUE(connection.has_value());
        return std::move(*connection);
    }
};

class CTKSocketResolverTest : public CTKSocketTest
{
  protected:
    // The result list must not outlive the test.
    int ResolveOnce(const wchar_t* pszHost, int nFamily)
    {
        addrinfo hints = {};
        hints.ai_socktype = SOCK_STREAM;
        hints.ai_family = nFamily;
        addrinfo* pResult = nullptr;
        const int nResult = m_socket.Resolve(pszHost, "1", hints, &pResult);
        const DWORD dwError = GetLastError();
        if (nResult == 1)
        {
            FreeAddresses(pResult);
        }
        SetLastError(dwError);
        return nResult;
    }

    CTKSocket m_socket;
    const ResolverSwap m_resolver{&FakeGetAddrInfo};
};

std::string OwnComputerName()
{
    char szName[MAX_COMPUTERNAME_LENGTH + 1] = {};
    DWORD cchName = sizeof(szName);
    GetComputerNameA(szName, &cchName);
    return szName;
}
} // namespace

TEST_F(CTKSocketResolverTest, UnknownLocalhostIsTriedAsLoopbackText)
{
    for (const int nError : {WSAHOST_NOT_FOUND, WSANO_RECOVERY, WSANO_DATA})
    {
        g_script.hosts.clear();
        g_script.resolverErrors = {nError};
        EXPECT_EQ(ResolveOnce(L"LocalHost", AF_UNSPEC), 1);
        EXPECT_EQ(g_script.hosts, (std::vector<std::string>{"LocalHost", "127.0.0.1"})) << nError;
    }
}

TEST_F(CTKSocketResolverTest, UnknownLocalhostOfIPv6IsTriedAsItsOwnLoopbackText)
{
    g_script.resolverErrors = {WSAHOST_NOT_FOUND, WSAHOST_NOT_FOUND, WSAHOST_NOT_FOUND};
    ResolveOnce(L"localhost", AF_INET6);
    EXPECT_EQ(g_script.hosts, (std::vector<std::string>{"localhost", "::1", OwnComputerName()}));
}

TEST_F(CTKSocketResolverTest, UnknownLoopbackIsTriedAsTheComputersName)
{
    g_script.resolverErrors = {WSAHOST_NOT_FOUND, WSAHOST_NOT_FOUND};
    EXPECT_EQ(ResolveOnce(L"localhost", AF_INET), 1);
    EXPECT_EQ(g_script.hosts, (std::vector<std::string>{"localhost", "127.0.0.1", OwnComputerName()}));
}

TEST_F(CTKSocketResolverTest, WhenAllTriesFailTheFirstErrorIsTheAnswer)
{
    g_script.resolverErrors = {WSANO_RECOVERY, WSAHOST_NOT_FOUND, WSANO_DATA};
    EXPECT_EQ(ResolveOnce(L"localhost", AF_UNSPEC), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(WSANO_RECOVERY));
    EXPECT_EQ(g_script.hosts.size(), 3U);
}

TEST_F(CTKSocketResolverTest, AnotherHostGetsOneTry)
{
    g_script.resolverErrors = {WSAHOST_NOT_FOUND};
    EXPECT_EQ(ResolveOnce(L"elsewhere", AF_UNSPEC), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(WSAHOST_NOT_FOUND));
    EXPECT_EQ(g_script.hosts.size(), 1U);
}

TEST_F(CTKSocketResolverTest, AResolverThatAsksForPatienceGetsNoSecondTry)
{
    g_script.resolverErrors = {WSATRY_AGAIN};
    EXPECT_EQ(ResolveOnce(L"localhost", AF_UNSPEC), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(WSATRY_AGAIN));
    EXPECT_EQ(g_script.hosts.size(), 1U);
}

TEST_F(CTKSocketResolverTest, AnAnsiHostIsResolvedLikeAWideOne)
{
    addrinfo hints = {};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* pResult = nullptr;
    ASSERT_EQ(m_socket.Resolve("localhost", "80", hints, &pResult), 1);
    FreeAddresses(pResult);
    EXPECT_EQ(g_script.hosts, std::vector<std::string>{"localhost"});
}

TEST_F(CTKSocketResolverTest, ConnectPassesTheFamilyOnAndConnectsThroughTheLoopbackText)
{
    LoopbackListener listener;
    g_script.resolverErrors = {WSAHOST_NOT_FOUND};
    CTKSocket socket;
    EXPECT_EQ(socket.Connect(L"localhost", listener.Port(), SOCK_STREAM, AF_INET), 1);
    EXPECT_EQ(g_script.familiesAsked, (std::vector<int>{AF_INET, AF_INET}));
    EXPECT_TRUE(listener.Accept(PATIENCE_MS).has_value());
}

namespace
{
sockaddr_in LoopbackAddress(unsigned short nPort)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(nPort);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// A resolver's answer of two addresses, the first of which refuses.
struct TwoAddresses
{
    std::array<sockaddr_in, 2> addresses;
    std::array<addrinfo, 2> entries{};

    TwoAddresses(unsigned short nRefusing, unsigned short nListening)
        : addresses{LoopbackAddress(nRefusing), LoopbackAddress(nListening)}
    {
        for (size_t i = 0; i < entries.size(); ++i)
        {
            entries[i].ai_family = AF_INET;
            entries[i].ai_socktype = SOCK_STREAM;
            entries[i].ai_addrlen = sizeof(sockaddr_in);
            entries[i].ai_addr = reinterpret_cast<sockaddr*>(&addresses[i]);
        }
        entries[0].ai_next = &entries[1];
    }
};
std::unique_ptr<TwoAddresses> g_pTwoAddresses;

int WSAAPI AnswerTwoAddresses(const char*, const char*, const addrinfo*, addrinfo** ppResult)
{
    *ppResult = g_pTwoAddresses->entries.data();
    return 0;
}

void WSAAPI KeepAddresses(addrinfo*)
{
    ++g_script.nListsFreed;
}

decltype(&connect) g_pfnConnect = nullptr;
decltype(&socket) g_pfnSocket = nullptr;
int g_nSockets = 0;

SOCKET WSAAPI CountingSocket(int nFamily, int nType, int nProtocol)
{
    ++g_nSockets;
    return g_pfnSocket(nFamily, nType, nProtocol);
}

std::vector<std::pair<SOCKET, unsigned short>> g_connects;

int WSAAPI RecordingConnect(SOCKET hSocket, const sockaddr* pAddress, int cbAddress)
{
    g_connects.emplace_back(hSocket, ntohs(reinterpret_cast<const sockaddr_in*>(pAddress)->sin_port));
    return g_pfnConnect(hSocket, pAddress, cbAddress);
}
} // namespace

TEST_F(CTKSocketTest, WhenTheFirstAddressRefusesTheNextOneIsTriedOnANewSocket)
{
    LoopbackListener listener;
    const unsigned short nRefusing = UnusedPort();
    g_pTwoAddresses = std::make_unique<TwoAddresses>(nRefusing, listener.Port());
    g_connects.clear();
    const ResolverSwap resolver(&AnswerTwoAddresses, &KeepAddresses);
    const ImportHook connector("ws2_32.dll", "connect", &RecordingConnect);
    g_pfnConnect = connector.Original();
    const ImportHook maker("ws2_32.dll", "socket", &CountingSocket);
    g_pfnSocket = maker.Original();
    g_nSockets = 0;
    {
        CTKSocket socket;
        EXPECT_EQ(socket.Connect(L"localhost", 1, SOCK_STREAM, AF_UNSPEC), 1);
        EXPECT_TRUE(listener.Accept(PATIENCE_MS).has_value());
    }
    EXPECT_EQ(g_nSockets, 2);
    ASSERT_EQ(g_connects.size(), 2U);
    EXPECT_EQ(g_connects[0].second, nRefusing);
    EXPECT_EQ(g_connects[1].second, listener.Port());
    EXPECT_EQ(g_script.nListsFreed, 1);
}

TEST_F(CTKSocketTest, AListThatRunsOutIsAFailure)
{
    CTKSocket socket;
    EXPECT_EQ(socket.Connect(L"localhost", UnusedPort(), SOCK_STREAM, AF_UNSPEC), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(WSAECONNREFUSED));
}

TEST_F(CTKSocketTest, TheListOfAnEarlierConnectIsNotFreed)
{
    const ResolverSwap resolver(nullptr, &CountingFreeAddrInfo);
    {
        CTKSocket socket;
        socket.Connect(L"localhost", UnusedPort(), SOCK_STREAM, AF_UNSPEC);
        socket.Connect(L"localhost", UnusedPort(), SOCK_STREAM, AF_UNSPEC);
        EXPECT_EQ(g_script.nListsFreed, 0);
    }
    EXPECT_EQ(g_script.nListsFreed, 1);
}

TEST_F(CTKSocketTest, StreamsSendWithoutDelayAndDatagramsHaveNoSuchOption)
{
    const ImportHook hook("ws2_32.dll", "setsockopt", &RecordingSetSockOpt);
    g_script.pfnSetSockOpt = hook.Original();
    CTKSocket stream;
    const LoopbackConnection peer = ConnectPair(stream);
    EXPECT_EQ(g_script.options, (std::vector<std::pair<int, DWORD>>{{TCP_NODELAY, 1}}));

    g_script.options.clear();
    LoopbackResponder responder;
    CTKSocket datagram;
    EXPECT_EQ(datagram.Connect(L"localhost", responder.Port(), SOCK_DGRAM, AF_UNSPEC), 1);
    EXPECT_TRUE(g_script.options.empty());
}

TEST_F(CTKSocketTest, ReadAllOfNothingSucceedsWithoutTouchingTheSocket)
{
    const ImportHook hook("ws2_32.dll", "recv", &FailingRecv);
    CTKSocket socket;
    char chUntouched = 'x';
    EXPECT_EQ(socket.ReadAll(&chUntouched, 0), 1);
    EXPECT_EQ(socket.ReadAll(&chUntouched, -1), 1);
    EXPECT_EQ(g_script.uReads, 0U);
}

TEST_F(CTKSocketTest, ReadAllGathersWhatComesInPieces)
{
    CTKSocket socket;
    LoopbackConnection peer = ConnectPair(socket);
    ASSERT_TRUE(peer.SendAll("abcdefgh", 8, 3));
    char szRead[9] = {};
    EXPECT_EQ(socket.ReadAll(szRead, 8), 1);
    EXPECT_STREQ(szRead, "abcdefgh");
}

TEST_F(CTKSocketTest, ReadAllGoesRoundAgainWhenASocketWouldBlock)
{
    CTKSocket socket;
    LoopbackConnection peer = ConnectPair(socket);
    ASSERT_TRUE(peer.SendAll("ok", 2));
    const ImportHook hook("ws2_32.dll", "recv", &FailingRecv);
    g_script.pfnRecv = hook.Original();
    g_script.receiveErrors = {WSAEWOULDBLOCK, WSAEWOULDBLOCK};
    char szRead[3] = {};
    EXPECT_EQ(socket.ReadAll(szRead, 2), 1);
    EXPECT_STREQ(szRead, "ok");
}

TEST_F(CTKSocketTest, ReadAllFailsOnAnyOtherError)
{
    CTKSocket socket;
    const LoopbackConnection peer = ConnectPair(socket);
    const ImportHook hook("ws2_32.dll", "recv", &FailingRecv);
    g_script.receiveErrors = {WSAECONNRESET};
    char chRead = 0;
    EXPECT_EQ(socket.ReadAll(&chRead, 1), 0);
    EXPECT_EQ(g_script.uReads, 1U);
}

TEST_F(CTKSocketTest, APeerThatClosesInTheMiddleOfARecordMakesReadAllFail)
{
    CTKSocket socket;
    LoopbackConnection peer = ConnectPair(socket);
    ASSERT_TRUE(peer.SendAll("half", 4));
    peer.Close();
    char abRecord[8] = {};
    EXPECT_EQ(socket.ReadAll(abRecord, sizeof(abRecord)), 0);
}

TEST_F(CTKSocketTest, CloseFromAnotherThreadEndsABlockedRead)
{
    CTKSocket socket;
    const LoopbackConnection peer = ConnectPair(socket);
    std::atomic<int> nResult = -1;
    const HANDLE hReading = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::thread reader([&] {
        SetEvent(hReading);
        char chRead = 0;
        nResult = socket.ReadAll(&chRead, 1);
    });
    EXPECT_EQ(WaitForSingleObject(hReading, PATIENCE_MS), WAIT_OBJECT_0);
    EXPECT_EQ(socket.Close(), 1);
    reader.join();
    CloseHandle(hReading);
    EXPECT_EQ(nResult, 0);
    EXPECT_FALSE(IsSocketValid(&socket));
}

TEST_F(CTKSocketTest, CloseShutsDownBothDirectionsFirstAndRunsOnAnInvalidSocketToo)
{
    CTKSocket socket;
    {
        const ImportHook shutdownHook("ws2_32.dll", "shutdown", &RecordingShutdown);
        const ImportHook closeHook("ws2_32.dll", "closesocket", &RecordingCloseSocket);
        EXPECT_EQ(socket.Close(), 1);
    }
    EXPECT_EQ(g_script.closing, (std::vector<std::string>{"shutdown 2", "closesocket invalid"}));
}

TEST_F(CTKSocketTest, ShutdownEndsTheConversationAndKeepsTheSocket)
{
    CTKSocket socket;
    LoopbackConnection peer = ConnectPair(socket);
    EXPECT_EQ(socket.Shutdown(), 1);
    EXPECT_TRUE(peer.WaitForEnd(PATIENCE_MS));
    EXPECT_TRUE(IsSocketValid(&socket));
}

TEST_F(CTKSocketTest, AShortWriteIsAFailureAndNothingIsSentAgain)
{
    CTKSocket socket;
    const LoopbackConnection peer = ConnectPair(socket);
    const ImportHook hook("ws2_32.dll", "send", &ShortSend);
    EXPECT_EQ(socket.WriteAll("12345", 5), 0);
    EXPECT_EQ(socket.WriteDatagram("12345", 5), 0);
    EXPECT_EQ(g_script.sendResults, (std::vector<int>{4, 4}));
}

TEST_F(CTKSocketTest, WritingToAClosedSocketFails)
{
    CTKSocket socket;
    LoopbackConnection peer = ConnectPair(socket);
    EXPECT_EQ(socket.WriteAll("x", 1), 1);
    socket.Close();
    EXPECT_EQ(socket.WriteAll("x", 1), 0);
    EXPECT_EQ(socket.WriteDatagram("x", 1), 0);
    char chRead = 0;
    EXPECT_EQ(socket.ReadDatagram(&chRead, 1), 0);
}

TEST_F(CTKSocketTest, ADatagramOfAnotherLengthIsNoAnswer)
{
    LoopbackResponder responder;
    CTKSocket socket;
    ASSERT_EQ(socket.Connect(L"localhost", responder.Port(), SOCK_DGRAM, AF_UNSPEC), 1);
    ASSERT_EQ(socket.SetTimeouts(PATIENCE_MS), 1);
    for (const size_t cbAnswer : {3U, 5U})
    {
        ASSERT_EQ(socket.WriteDatagram("ask", 3), 1);
        ASSERT_TRUE(responder.Receive(PATIENCE_MS).has_value());
        ASSERT_TRUE(responder.Reply("12345", cbAnswer));
        char abAnswer[4] = {};
        EXPECT_EQ(socket.ReadDatagram(abAnswer, sizeof(abAnswer)), 0) << cbAnswer;
    }
    ASSERT_EQ(socket.WriteDatagram("ask", 3), 1);
    ASSERT_TRUE(responder.Receive(PATIENCE_MS).has_value());
    ASSERT_TRUE(responder.Reply("1234", 4));
    char abAnswer[4] = {};
    EXPECT_EQ(socket.ReadDatagram(abAnswer, sizeof(abAnswer)), 1);
}

TEST_F(CTKSocketTest, SetTimeoutsOfAFreshObjectDoesNothing)
{
    const ImportHook hook("ws2_32.dll", "setsockopt", &RecordingSetSockOpt);
    g_script.pfnSetSockOpt = hook.Original();
    CTKSocket socket;
    EXPECT_EQ(socket.SetTimeouts(SHORT_TIMEOUT_MS), 0);
    EXPECT_TRUE(g_script.options.empty());
}

TEST_F(CTKSocketTest, SetTimeoutsLimitsReadsAndWritesAndZeroLiftsTheLimit)
{
    CTKSocket socket;
    const LoopbackConnection peer = ConnectPair(socket);
    const ImportHook hook("ws2_32.dll", "setsockopt", &RecordingSetSockOpt);
    g_script.pfnSetSockOpt = hook.Original();
    EXPECT_EQ(socket.SetTimeouts(SHORT_TIMEOUT_MS), 1);
    char chRead = 0;
    EXPECT_EQ(socket.ReadAll(&chRead, 1), 0);
    EXPECT_EQ(WSAGetLastError(), WSAETIMEDOUT);
    EXPECT_EQ(socket.SetTimeouts(0), 1);
    EXPECT_EQ(g_script.options, (std::vector<std::pair<int, DWORD>>{{SO_RCVTIMEO, SHORT_TIMEOUT_MS},
                                                                    {SO_SNDTIMEO, SHORT_TIMEOUT_MS},
                                                                    {SO_RCVTIMEO, 0},
                                                                    {SO_SNDTIMEO, 0}}));
}

TEST_F(CTKSocketTest, ASocketIsValidOnlyWhileItIsOpen)
{
    EXPECT_FALSE(IsSocketValid(nullptr));
    CTKSocket socket;
    EXPECT_FALSE(IsSocketValid(&socket));
    const LoopbackConnection peer = ConnectPair(socket);
    EXPECT_TRUE(IsSocketValid(&socket));
    EXPECT_NE(socket.GetSocket(), INVALID_SOCKET);
}

namespace
{
int g_nStartResult = 0;
WORD g_wVersionAsked = 0;
int g_nCleanups = 0;

int WSAAPI FakeStartup(WORD wVersion, LPWSADATA)
{
    g_wVersionAsked = wVersion;
    return g_nStartResult;
}

int WSAAPI FakeCleanup()
{
    ++g_nCleanups;
    return 0;
}
} // namespace

TEST_F(CTKSocketTest, OnlyAStartedWinsockIsCleanedUp)
{
    const ImportHook startHook("ws2_32.dll", "WSAStartup", &FakeStartup);
    const ImportHook cleanupHook("ws2_32.dll", "WSACleanup", &FakeCleanup);
    for (const bool bStarts : {true, false})
    {
        g_nCleanups = 0;
        g_nStartResult = bStarts ? 0 : WSASYSNOTREADY;
        {
            const CTKSocket socket;
        }
        EXPECT_EQ(g_nCleanups, bStarts ? 1 : 0);
        EXPECT_EQ(g_wVersionAsked, MAKEWORD(2, 0));
    }
}

namespace
{
std::vector<std::string> g_calls;
decltype(&shutdown) g_pfnShutdown = nullptr;
decltype(&closesocket) g_pfnCloseSocket = nullptr;
decltype(&WSACleanup) g_pfnCleanup = nullptr;
int g_nRefusedOption = 0;

int WSAAPI CallingShutdown(SOCKET hSocket, int nHow)
{
    g_calls.push_back("shutdown " + std::to_string(nHow));
    return g_pfnShutdown(hSocket, nHow);
}

int WSAAPI CallingCloseSocket(SOCKET hSocket)
{
    g_calls.emplace_back("closesocket");
    return g_pfnCloseSocket(hSocket);
}

int WSAAPI CallingCleanup()
{
    g_calls.emplace_back("WSACleanup");
    return g_pfnCleanup();
}

SOCKET WSAAPI CallingSocket(int nFamily, int nType, int nProtocol)
{
    g_calls.push_back("socket " + std::to_string(nFamily) + " " + std::to_string(nType) + " " +
                      std::to_string(nProtocol));
    return g_pfnSocket(nFamily, nType, nProtocol);
}

SOCKET WSAAPI NoSocket(int, int, int)
{
    WSASetLastError(WSAEMFILE);
    return INVALID_SOCKET;
}

int WSAAPI CallingConnect(SOCKET hSocket, const sockaddr* pAddress, int cbAddress)
{
    g_calls.emplace_back("connect");
    return g_pfnConnect(hSocket, pAddress, cbAddress);
}

int WSAAPI RefuseOption(SOCKET, int nLevel, int nOption, const char*, int cbValue)
{
    EXPECT_EQ(cbValue, 4);
    EXPECT_EQ(nLevel, nOption == TCP_NODELAY ? static_cast<int>(IPPROTO_TCP) : SOL_SOCKET);
    return nOption == g_nRefusedOption ? SOCKET_ERROR : 0;
}

int WSAAPI CountedRecv(SOCKET, char*, int, int)
{
    g_calls.emplace_back("recv");
    return SOCKET_ERROR;
}

int WSAAPI CountedSend(SOCKET, const char*, int, int)
{
    g_calls.emplace_back("send");
    return SOCKET_ERROR;
}
} // namespace

TEST_F(CTKSocketTest, OnlyDatagramsLookForASocketBeforeTheyAskTheSystem)
{
    const ImportHook receive("ws2_32.dll", "recv", &CountedRecv);
    const ImportHook sender("ws2_32.dll", "send", &CountedSend);
    CTKSocket socket;
    char chByte = 0;
    g_calls.clear();
    EXPECT_EQ(socket.ReadDatagram(&chByte, 1), 0);
    EXPECT_EQ(socket.WriteDatagram(&chByte, 1), 0);
    EXPECT_TRUE(g_calls.empty());
    EXPECT_EQ(socket.Read(&chByte, 1), SOCKET_ERROR);
    EXPECT_EQ(socket.ReadAll(&chByte, 1), 0);
    EXPECT_EQ(socket.Write(&chByte, 1), SOCKET_ERROR);
    EXPECT_EQ(socket.WriteAll(&chByte, 1), 0);
    EXPECT_EQ(g_calls, (std::vector<std::string>{"recv", "recv", "send", "send"}));
}

TEST_F(CTKSocketTest, ATimeLimitThatTheSystemRefusesIsAFailure)
{
    CTKSocket socket;
    const LoopbackConnection peer = ConnectPair(socket);
    const ImportHook hook("ws2_32.dll", "setsockopt", &RefuseOption);
    for (const int nOption : {SO_RCVTIMEO, SO_SNDTIMEO})
    {
        g_nRefusedOption = nOption;
        EXPECT_EQ(socket.SetTimeouts(SHORT_TIMEOUT_MS), 0);
    }
    g_nRefusedOption = 0;
    EXPECT_EQ(socket.SetTimeouts(SHORT_TIMEOUT_MS), 1);
}

TEST_F(CTKSocketTest, AStreamThatCannotSendWithoutDelayIsAStreamAllTheSame)
{
    const ImportHook hook("ws2_32.dll", "setsockopt", &RefuseOption);
    g_nRefusedOption = TCP_NODELAY;
    CTKSocket socket;
    const LoopbackListener listener;
    EXPECT_EQ(socket.Connect(L"localhost", listener.Port(), SOCK_STREAM, AF_INET), 1);
}

TEST_F(CTKSocketTest, WithoutASocketNothingConnects)
{
    const ImportHook maker("ws2_32.dll", "socket", &NoSocket);
    const ImportHook options("ws2_32.dll", "setsockopt", &RecordingSetSockOpt);
    g_script.pfnSetSockOpt = options.Original();
    CTKSocket socket;
    const LoopbackListener listener;
    EXPECT_EQ(socket.Connect(L"localhost", listener.Port(), SOCK_STREAM, AF_INET), 0);
    EXPECT_TRUE(g_script.options.empty());
    EXPECT_FALSE(IsSocketValid(&socket));
}

TEST_F(CTKSocketTest, AnotherConnectClosesTheSocketOfTheOneBefore)
{
    const ImportHook maker("ws2_32.dll", "socket", &CallingSocket);
    g_pfnSocket = maker.Original();
    const ImportHook connector("ws2_32.dll", "connect", &CallingConnect);
    g_pfnConnect = connector.Original();
    const ImportHook closer("ws2_32.dll", "closesocket", &CallingCloseSocket);
    g_pfnCloseSocket = closer.Original();
    CTKSocket socket;
    g_calls.clear();
    EXPECT_EQ(socket.Connect(L"localhost", UnusedPort(), SOCK_STREAM, AF_INET), 0);
    const LoopbackListener listener;
    EXPECT_EQ(socket.Connect(L"localhost", listener.Port(), SOCK_STREAM, AF_INET), 1);
    EXPECT_EQ(g_calls, (std::vector<std::string>{"socket 2 1 0", "connect", "closesocket", "socket 2 1 0",
                                                 "connect"}));
}

TEST_F(CTKSocketTest, TheEndShutsDownAndClosesTheSocketBeforeItLetsGoOfWinsock)
{
    {
        CTKSocket socket;
        const LoopbackConnection peer = ConnectPair(socket);
        const ImportHook shutdownHook("ws2_32.dll", "shutdown", &CallingShutdown);
        g_pfnShutdown = shutdownHook.Original();
        const ImportHook closer("ws2_32.dll", "closesocket", &CallingCloseSocket);
        g_pfnCloseSocket = closer.Original();
        g_calls.clear();
        EXPECT_EQ(socket.Close(), 1);
        EXPECT_EQ(g_calls, (std::vector<std::string>{"shutdown 2", "closesocket"}));
        EXPECT_FALSE(IsSocketValid(&socket));
    }
    auto pSocket = std::make_unique<CTKSocket>();
    const ImportHook shutdownHook("ws2_32.dll", "shutdown", &CallingShutdown);
    const ImportHook closer("ws2_32.dll", "closesocket", &CallingCloseSocket);
    const ImportHook cleanup("ws2_32.dll", "WSACleanup", &CallingCleanup);
    g_pfnCleanup = cleanup.Original();
    g_calls.clear();
    pSocket.reset();
    EXPECT_EQ(g_calls, (std::vector<std::string>{"shutdown 2", "closesocket", "WSACleanup"}));
}
