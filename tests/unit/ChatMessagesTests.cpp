#include "tests/support/ImportHook.h"
#include "tests/support/Watchdog.h"
#include "tests/unit/ChatHarness.h"
#include "tests/unit/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <utility>
#include <vector>

namespace
{
using testing::ElementsAre;
using testing::StartsWith;

constexpr size_t NO_BLOCK_IS_TOO_LARGE = static_cast<size_t>(-1);

// The blocks of chat messages: nothing else in the program takes zeroed ones of that size from this heap.
std::atomic<size_t> g_nLargestBlock{NO_BLOCK_IS_TOO_LARGE};
std::atomic<size_t> g_nLastBlock{0};
std::atomic<void*> g_pLastBlock{nullptr};
std::atomic<int> g_nOpenBlocks{0};
decltype(&HeapAlloc) g_pfnAlloc = nullptr;
decltype(&HeapFree) g_pfnFree = nullptr;

void* WINAPI WatchAlloc(HANDLE hHeap, DWORD dwFlags, SIZE_T nBytes)
{
    const bool bChat = nBytes >= sizeof(MSG_CHAT_MESSAGE);
    void* const pBlock = bChat && nBytes > g_nLargestBlock ? nullptr : g_pfnAlloc(hHeap, dwFlags, nBytes);
    if (bChat)
    {
        EXPECT_EQ(dwFlags, static_cast<DWORD>(HEAP_ZERO_MEMORY));
        g_nLastBlock = nBytes;
        g_pLastBlock = pBlock;
        g_nOpenBlocks += pBlock != nullptr ? 1 : 0;
    }
    return pBlock;
}

BOOL WINAPI WatchFree(HANDLE hHeap, DWORD dwFlags, void* pBlock)
{
    if (pBlock != nullptr && pBlock == g_pLastBlock)
    {
        --g_nOpenBlocks;
        g_pLastBlock = nullptr;
    }
    return g_pfnFree(hHeap, dwFlags, pBlock);
}

class ChatMessagesTest : public ChatHarness
{
  protected:
    ChatMessagesTest()
    {
        g_pfnAlloc = m_alloc.Original();
        g_pfnFree = m_free.Original();
        g_nLargestBlock = NO_BLOCK_IS_TOO_LARGE;
        g_nLastBlock = 0;
        g_pLastBlock = nullptr;
        g_nOpenBlocks = 0;
    }

    /// A head whose payload is up to the test.
    void SendHead(DWORD dwLength)
    {
        MSG_CHAT_MESSAGE head = {};
        head.dwType = MSG_TYPE_CHAT_MESSAGE;
        head.dwMessageLength = dwLength;
        Send(head);
    }

    void ExpectShown(const std::vector<BYTE>& record)
    {
        m_uHash = HashChatBytes(m_uHash, record.data(), record.size());
        m_uBytes += record.size();
    }

    void CheckShown()
    {
        EXPECT_EQ(m_chat->uBytes, m_uBytes);
        EXPECT_EQ(m_chat->uHash, m_uHash);
    }

  private:
    ULONGLONG m_uHash = EMPTY_CHAT_HASH;
    ULONGLONG m_uBytes = 0;
    ImportHook<decltype(HeapAlloc)> m_alloc{"kernel32.dll", "HeapAlloc", &WatchAlloc};
    ImportHook<decltype(HeapFree)> m_free{"kernel32.dll", "HeapFree", &WatchFree};
};

/// A length that no memory needs to hold, since its bytes never come.
class LargeLengthTest : public ChatMessagesTest, public testing::WithParamInterface<DWORD>
{
};
} // namespace

TEST_F(ChatMessagesTest, PayloadsOfAnyLengthArriveByteTrueBehindTheirHead)
{
    OfferModule();
    constexpr size_t MEGABYTE = 1024 * 1024;
    for (const size_t nBytes : {size_t{0}, size_t{1}, size_t{2}, size_t{47519}, size_t{47520}, size_t{65536},
                                size_t{65537}, 16 * MEGABYTE})
    {
        const std::vector<BYTE> record = ChatRecord(Payload(nBytes, static_cast<DWORD>(nBytes)));
        SendBytes(record);
        Settle(); // the frame stands
        ExpectShown(record);
        EXPECT_EQ(m_chat->lastHead.dwType, static_cast<DWORD>(MSG_TYPE_CHAT_MESSAGE));
        EXPECT_EQ(m_chat->lastHead.dwMessageLength, nBytes);
        EXPECT_STREQ(m_chat->lastHead.szUsername, L"Alice");
        EXPECT_EQ(g_nLastBlock, sizeof(MSG_CHAT_MESSAGE) + nBytes);
        EXPECT_EQ(g_nOpenBlocks, 0) << nBytes;
    }
    CheckShown();
}

TEST_F(ChatMessagesTest, PayloadsThatLookLikeMessagesAreNotTakenForSome)
{
    std::vector<BYTE> payload;
    for (int nWord = 0; nWord < 30000; ++nWord)
    {
        const DWORD dwType = MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE;
        const BYTE* const pType = reinterpret_cast<const BYTE*>(&dwType);
        payload.insert(payload.end(), pType, pType + sizeof(dwType));
    }
    for (const size_t nBytes :
         {size_t{0}, size_t{1}, size_t{47519}, size_t{47520}, size_t{47521}, payload.size()})
    {
        SendChat(std::vector<BYTE>(payload.begin(), payload.begin() + static_cast<ptrdiff_t>(nBytes)));
    }
    EXPECT_TRUE(m_service.StaysSilent(100)) << "a payload was read as messages";
}

TEST_F(ChatMessagesTest, APayloadInSmallPiecesIsOneMessage)
{
    OfferModule();
    const std::vector<BYTE> record = ChatRecord(Payload(3001));
    ASSERT_TRUE(m_service.SendAll(record.data(), record.size(), 7));
    Settle();
    ExpectShown(record);
    CheckShown();
    EXPECT_EQ(m_chat->nAppended, 1);
}

TEST_F(ChatMessagesTest, TenThousandInARowKeepTheirOrderAndLeaveNoMemoryBehind)
{
    OfferModule();
    constexpr DWORD MESSAGES = 10000;
    constexpr DWORD BURST = 1000; // what is waited for at a time
    Watchdog::Allow(MESSAGES / BURST * 2 * PATIENCE_MS);
    std::vector<BYTE> burst;
    for (DWORD dwMessage = 1; dwMessage <= MESSAGES; ++dwMessage)
    {
        const std::vector<BYTE> record = ChatRecord(Payload(dwMessage % 200, dwMessage));
        ExpectShown(record);
        burst.insert(burst.end(), record.begin(), record.end());
        if (dwMessage % BURST == 0)
        {
            SendBytes(std::exchange(burst, {}));
            Settle();
            ASSERT_EQ(m_chat->nAppended, static_cast<LONG>(dwMessage));
        }
    }
    CheckShown();
    EXPECT_EQ(m_chat->nCreated, 1);
    EXPECT_EQ(g_nOpenBlocks, 0);
}

TEST_F(ChatMessagesTest, AServiceThatGoesInsideAPayloadIsLostAsAnyOther)
{
    OfferModule();
    const LogCapture capture("ConnectionInfo", log4cxx::Level::getError());
    std::vector<BYTE> record = ChatRecord(Payload(65536));
    record.resize(record.size() / 2);
    SendBytes(record);
    m_service.Close();
    JoinReader();
    EXPECT_TRUE(m_trace.WaitFor("message 1036 0"));
    EXPECT_EQ(m_chat->nAppended, 0);
    EXPECT_EQ(g_nOpenBlocks, 0);
    EXPECT_THAT(capture.Texts(), ElementsAre(testing::MatchesRegex(
                                     "ERROR Socket read failed. GetLastError=\\d+ WSAGetLastError=\\d+")));
}

TEST_F(ChatMessagesTest, AServiceThatGoesInsideAHeadIsLostAsAnyOther)
{
    const LogCapture capture("ConnectionInfo", log4cxx::Level::getInfo());
    const std::vector<BYTE> record = ChatRecord({});
    ASSERT_TRUE(m_service.SendAll(record.data(), record.size() - 1));
    m_service.Close();
    JoinReader();
    EXPECT_TRUE(m_trace.WaitFor("message 1036 0"));
    EXPECT_THAT(capture.Texts(), ElementsAre("INFO MSG_TYPE_CHAT_MESSAGE received."));
}

TEST_F(ChatMessagesTest, AMessageThatTheHeapCannotHoldIsDroppedAndTheFrameStands)
{
    OfferModule();
    const LogCapture capture("ConnectionInfo", log4cxx::Level::getError());
    g_nLargestBlock = 100000;
    SendChat(Payload(1000000));
    EXPECT_EQ(m_chat->nAppended, 0);
    EXPECT_THAT(capture.Texts(), ElementsAre("ERROR No memory for a chat message; it is dropped."));
    const std::vector<BYTE> next = ChatRecord(Payload(50000));
    SendBytes(next);
    Settle();
    ExpectShown(next);
    CheckShown();
}

TEST_F(ChatMessagesTest, AServiceThatGoesInsideADroppedPayloadIsLostAsAnyOther)
{
    const LogCapture capture("ConnectionInfo", log4cxx::Level::getError());
    g_nLargestBlock = 100000;
    SendHead(0xFFFFFFFF);
    SendBytes(Payload(200000));
    m_service.Close();
    JoinReader();
    EXPECT_TRUE(m_trace.WaitFor("message 1036 0"));
    EXPECT_THAT(capture.Texts(), ElementsAre("ERROR No memory for a chat message; it is dropped.",
                                             StartsWith("ERROR Socket read failed. GetLastError=")));
}

TEST_P(LargeLengthTest, IsAwaitedAndNotTakenForNothing)
{
    OfferModule();
    // What a reader that counts in an int would take for the next message.
    SendHead(GetParam());
    SendType(MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE);
    EXPECT_TRUE(m_service.StaysSilent(200));
    EXPECT_EQ(m_chat->nAppended, 0);
    m_service.Close();
    JoinReader();
    EXPECT_TRUE(m_trace.WaitFor("message 1036 0"));
    EXPECT_EQ(g_nOpenBlocks, 0);
}

INSTANTIATE_TEST_SUITE_P(ChatMessages, LargeLengthTest,
                         testing::Values(0x7FFFFFFFUL, 0x80000000UL, 0xFFFFFFFFUL));

TEST_F(ChatMessagesTest, EachMessageIsToldInTheLogInItsOwnWords)
{
    OfferModule();
    const LogCapture capture("ConnectionInfo", log4cxx::Level::getInfo());
    SendChatOpen(L"Ann");
    SendBytes(ChatRecord({1, 2, 3}, L"Bert"));
    Settle();
    SendChatClose();
    EXPECT_THAT(capture.Texts(),
                ElementsAre("INFO MSG_TYPE_TRAYICON_CHAT_OPEN: szUsername = Ann",
                            "INFO MSG_TYPE_CHAT_MESSAGE received.", "INFO MSG_CHAT_MESSAGE.szUsername = Bert",
                            "INFO MSG_CHAT_MESSAGE.dwMessageLength = 3",
                            "INFO MSG_TYPE_TRAYICON_CHAT_CLOSE"));
}

TEST_F(ChatMessagesTest, NamesThatFillTheirFieldEndWithIt)
{
    OfferModule();
    const LogCapture capture("ConnectionInfo", log4cxx::Level::getInfo());
    const std::wstring name(std::size(MSG_CHAT_MESSAGE().szUsername), L'x');
    const std::string narrow(name.begin(), name.end());
    SendChatOpen(name);
    SendBytes(ChatRecord({'y', 0}, name));
    Settle();
    EXPECT_THAT(capture.Texts(),
                testing::IsSupersetOf({"INFO MSG_TYPE_TRAYICON_CHAT_OPEN: szUsername = " + narrow,
                                       "INFO MSG_CHAT_MESSAGE.szUsername = " + narrow}));
}

TEST_F(ChatMessagesTest, TheOpeningRecordGoesAlongToTheWindow)
{
    OfferModule();
    SendChatOpen();
    EXPECT_EQ(m_trace.Calls("message 2084").size(), 1U);
    EXPECT_EQ(m_trace.Calls("message 2084 0").size(), 0U) << "the record travels in wParam";
}

TEST_F(ChatMessagesTest, MessagesAreReadWholeWhenNobodyCanShowThem)
{
    for (int nMessage = 0; nMessage < 3; ++nMessage)
    {
        SendChat(Payload(70000));
    }
    EXPECT_EQ(g_nOpenBlocks, 0);
}
