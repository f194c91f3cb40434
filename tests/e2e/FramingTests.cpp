#include "tests/e2e/AgentTest.h"
#include "tests/support/Watchdog.h"

#include "channel/TrayMessageTable.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <map>
#include <random>
#include <set>
#include <utility>

namespace
{
constexpr int ORDERS = 200;
constexpr DWORD ALL_ORDERS_LIMIT_MS = 600000;
constexpr size_t MANY_PAYLOAD_BYTES = 3001;

/// One message as the service sends it. The sizes are those of the wire, written out: a record of the product
/// that has changed its size must not change the test along with it.
struct Sample
{
    DWORD dwType;
    size_t nBytes;
    size_t nPayload = 0; // of a chat message, behind nBytes
};

constexpr Sample SAMPLES[] = {
    {4400, 40},
    {40000, 16212},
    {40002, 1592},
    {40003, 4752},
    {40004, 4}, // the reader has empty cases for this and the two reserved types
    {40005, 4},
    {40006, 4},
    {40007, 4752},
    {40008, 1592},
    {40009, 1592},
    {50000, 1068},
    {50001, 8204},
    {50008, 4},
    {50009, 8},
    {67001, 1080},
    {70020, 12},
    {70030, 528},
    {70040, 7960},
    {70050, 12},
    {70070, 41164},
    {75000, 524},
    {75001, 528, 0},
    {75001, 528, 1},
    {75001, 528, MANY_PAYLOAD_BYTES},
    {75002, 4},
    {100000, 4},
};

// Not among the others: it ends the agent.
constexpr Sample EXIT_SAMPLE = {40001, 1072};

// The agent's answers to one order, beside the echo and the handshake: each must come as often as that.
constexpr std::pair<DWORD, size_t> ANSWERS[] = {
    {MSG_TYPE_TRAYICON_INIT, 1},
    {MSG_TYPE_TRAYICON_DESKTOP_EFFECTS_ACK, 2},
    {MSG_TYPE_TRAYICON_DESKTOP_USER_INFORMATION, 2},
};

using Bytes = std::vector<BYTE>;

// Where the texts begin that a popup shows.
std::vector<size_t> ShownTexts(DWORD dwType)
{
    switch (dwType)
    {
    case MSG_TYPE_TRAYICON_SETTINGS:
    case MSG_TYPE_TRAYICON_SETTINGS_UPDATE:
        return {offsetof(MSG_TRAYICON_SETTINGS, szNotifyTitle), offsetof(MSG_TRAYICON_SETTINGS, szNotifyText),
                offsetof(MSG_TRAYICON_SETTINGS, szNotifyConnectText)};
    case MSG_TYPE_TRAYICON_CONNECT_COUNT:
    case MSG_TYPE_TRAYICON_CONNECT_NOTIFY:
    case MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY:
        return {offsetof(MSG_TRAYICON_CONNECT, szClientName), offsetof(MSG_TRAYICON_CONNECT, szClientDetail1),
                offsetof(MSG_TRAYICON_CONNECT, szClientDetail2)};
    case MSG_TYPE_TRAYICON_CONNECT_NOTIFY_ALL:
        return {offsetof(MSG_TRAYICON_CONNECT_NOTIFY_ALL, szClientList)};
    default:
        return {};
    }
}

/// Fills the bodies with a type that the agent echoes: one byte too few or too many read, and an echo comes
/// that nobody asked for, or one fails to come. The texts of popups are empty all the same: hundreds of
/// popups of thousands of letters would keep the test system busy for minutes.
Bytes MakeRecord(const Sample& sample)
{
    const size_t nBytes = sample.nBytes + sample.nPayload;
    std::vector<DWORD> words(nBytes / sizeof(DWORD) + 1, MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE);
    words.front() = sample.dwType;
    for (const size_t nOffset : ShownTexts(sample.dwType))
    {
        words[nOffset / sizeof(DWORD)] = 0;
    }
    if (sample.dwType == MSG_TYPE_CHAT_MESSAGE)
    {
        words[offsetof(MSG_CHAT_MESSAGE, dwMessageLength) / sizeof(DWORD)] =
            static_cast<DWORD>(sample.nPayload);
    }
    Bytes bytes(nBytes);
    std::memcpy(bytes.data(), words.data(), nBytes);
    return bytes;
}

enum class Split
{
    SingleBytes,
    SingleBytesAtTheEdges, // where a reader goes wrong if it does, and fast enough for many orders
    RandomChunks,
    OneBurst,
};

constexpr size_t EDGE_BYTES = 8;
constexpr size_t LARGEST_CHUNK = 2000;

Split SplitOfOrder(int nOrder)
{
    switch (nOrder % 3)
    {
    case 0:
        // Ninety thousand bytes one at a time take the test system as long as a hundred other orders.
        return nOrder == 0 ? Split::SingleBytes : Split::SingleBytesAtTheEdges;
    case 1:
        return Split::RandomChunks;
    default:
        return Split::OneBurst;
    }
}

class FramingTest : public AgentTest
{
  protected:
    void SetUp() override
    {
        StartAgent();
        AcceptAgent();
        ShakeHands();
        // Some words make the agent start itself: in hundreds the test would measure how fast programs start.
        std::filesystem::rename(m_folder.Program(), m_folder.Path() / L"Started.exe");
    }

    /// Sends all messages once, in a random order.
    bool SendRandomOrder(Split split);
    bool SendWithSingleEdges(const Bytes& record);
    bool SendInRandomChunks(const Bytes& bytes);
    /// Takes the agent's answers to one order.
    bool TakeAnswers();
    /// How often the agent has reported each received type.
    std::map<DWORD, size_t> ReceivedTypes() const;

    std::mt19937 m_random;
};

bool FramingTest::SendWithSingleEdges(const Bytes& record)
{
    const size_t nHead = (std::min)(record.size(), EDGE_BYTES);
    const size_t nTail = (std::min)(record.size() - nHead, EDGE_BYTES);
    const size_t nMiddle = record.size() - nHead - nTail;
    return m_channel->Send(record.data(), nHead, 1) && m_channel->Send(record.data() + nHead, nMiddle) &&
           m_channel->Send(record.data() + nHead + nMiddle, nTail, 1);
}

bool FramingTest::SendInRandomChunks(const Bytes& bytes)
{
    std::uniform_int_distribution<size_t> chunk(1, LARGEST_CHUNK);
    for (size_t nSent = 0; nSent < bytes.size();)
    {
        const size_t nPiece = (std::min)(chunk(m_random), bytes.size() - nSent);
        if (!m_channel->Send(bytes.data() + nSent, nPiece))
        {
            return false;
        }
        nSent += nPiece;
    }
    return true;
}

bool FramingTest::SendRandomOrder(Split split)
{
    std::vector<Sample> order(std::begin(SAMPLES), std::end(SAMPLES));
    std::shuffle(order.begin(), order.end(), m_random);
    Bytes bytes;
    bool bSent = true;
    for (const Sample& sample : order)
    {
        const Bytes record = MakeRecord(sample);
        if (split == Split::SingleBytesAtTheEdges)
        {
            bSent = bSent && SendWithSingleEdges(record);
            continue;
        }
        bytes.insert(bytes.end(), record.begin(), record.end());
    }
    if (split == Split::RandomChunks)
    {
        return SendInRandomChunks(bytes);
    }
    return bSent && m_channel->Send(bytes.data(), bytes.size(), split == Split::SingleBytes ? 1 : 0);
}

bool FramingTest::TakeAnswers()
{
    for (const auto& [dwType, nTimes] : ANSWERS)
    {
        for (size_t nTime = 0; nTime < nTimes; ++nTime)
        {
            if (!m_channel->TakeRecord(dwType, PATIENCE_MS))
            {
                return false;
            }
        }
    }
    return true;
}

std::map<DWORD, size_t> FramingTest::ReceivedTypes() const
{
    static constexpr std::string_view LINE = "Received message type ";
    const std::string log = m_folder.Log();
    std::map<DWORD, size_t> types;
    for (size_t nAt = log.find(LINE); nAt != std::string::npos; nAt = log.find(LINE, nAt))
    {
        nAt += LINE.size();
        ++types[std::stoul(log.substr(nAt, 12))];
    }
    return types;
}

TEST_F(FramingTest, SamplesHoldEveryTypeThatTheServiceSends)
{
    std::set<DWORD> described;
    for (const MESSAGE_DESCRIPTION& message : GetMessageDescriptions())
    {
        if ((message.direction & MESSAGE_FROM_SERVICE) != 0)
        {
            described.insert(message.dwType);
        }
    }
    described.erase(EXIT_SAMPLE.dwType);
    for (const Sample& sample : SAMPLES)
    {
        const MESSAGE_DESCRIPTION* pMessage = FindMessageDescription(sample.dwType, MESSAGE_FROM_SERVICE);
        EXPECT_TRUE(pMessage == nullptr || pMessage->pRecord->uSize == sample.nBytes) << sample.dwType;
        described.erase(sample.dwType);
    }
    EXPECT_TRUE(described.empty()) << "not sent: " << *described.begin();
}

TEST_F(FramingTest, EveryTypeInRandomOrdersAndPiecesKeepsTheFrame)
{
    Watchdog::Allow(ALL_ORDERS_LIMIT_MS);
    const unsigned int uSeed = std::random_device()();
    std::cout << "seed " << uSeed << std::endl;
    m_random.seed(uSeed);
    std::map<DWORD, size_t> expected = {{MSG_TYPE_VERSION, 1}};
    for (int nOrder = 0; nOrder < ORDERS; ++nOrder)
    {
        ASSERT_TRUE(SendRandomOrder(SplitOfOrder(nOrder))) << "order " << nOrder;
        ASSERT_TRUE(m_channel->TakeRecord(MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE, PATIENCE_MS))
            << "order " << nOrder;
        ASSERT_TRUE(m_channel->TakeRecord(MSG_TYPE_VERSION, PATIENCE_MS)) << "order " << nOrder;
        ASSERT_TRUE(TakeAnswers()) << "order " << nOrder;
        ExpectEcho();
        ASSERT_TRUE(m_channel->IsFrameIntact()) << "order " << nOrder;
        ++expected[MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE];
        for (const Sample& sample : SAMPLES)
        {
            ++expected[sample.dwType];
        }
    }
    EXPECT_EQ(m_channel->CountOf(MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE), 0u);
    EXPECT_EQ(m_channel->CountOf(MSG_TYPE_VERSION), 0u);
    for (const auto& [dwType, nTimes] : ANSWERS)
    {
        EXPECT_EQ(m_channel->CountOf(dwType), 0u) << dwType;
    }
    EXPECT_EQ(ReceivedTypes(), expected);
    EXPECT_GE(m_folder.CountInLog("Running self with -Settings"), 1u);
    const Bytes leave = MakeRecord(EXIT_SAMPLE);
    ASSERT_TRUE(m_channel->Send(leave.data(), leave.size()));
    EXPECT_TRUE(m_channel->WaitForEnd(PATIENCE_MS));
    ExpectExit(*m_agent, EXIT_CODE_ASKED_TO_END);
}

TEST_F(FramingTest, UnknownTypeCostsOnlyItsFourBytes)
{
    constexpr DWORD UNKNOWN[] = {0, 1, 4399, 12345, 40010, 50005, 70006, 70060, 0x7FFFFFFF, 0xFFFFFFFF};
    for (const DWORD dwType : UNKNOWN)
    {
        ASSERT_TRUE(m_channel->Send(dwType));
        ShakeHands();
    }
    const std::map<DWORD, size_t> received = ReceivedTypes();
    for (const DWORD dwType : UNKNOWN)
    {
        EXPECT_EQ(received.count(dwType), 1u) << dwType;
    }
}

TEST_F(FramingTest, StreamThatStartsInTheMiddleOfARecordIsReadAsTypes)
{
    // The tail of a settings record, from its tip's text on.
    constexpr size_t TAIL_BYTES = 4676;
    const Bytes tail(TAIL_BYTES, 0x20);
    ASSERT_TRUE(m_channel->Send(tail.data(), tail.size()));
    ShakeHands();
    EXPECT_EQ(ReceivedTypes()[0x20202020], TAIL_BYTES / sizeof(DWORD));
}

TEST_F(FramingTest, RecordThatIsCutShortEndsTheAgentInOrder)
{
    const Bytes record = MakeRecord({MSG_TYPE_TRAYICON_SETTINGS, 4752});
    ASSERT_TRUE(m_channel->Send(record.data(), record.size() - 1));
    ASSERT_TRUE(m_agent->IsRunning());
    ExpectEndWithService();
}

TEST_F(FramingTest, ChatPayloadThatIsCutShortEndsTheAgentInOrder)
{
    const Bytes record = MakeRecord({MSG_TYPE_CHAT_MESSAGE, 528, MANY_PAYLOAD_BYTES});
    ASSERT_TRUE(m_channel->Send(record.data(), record.size() - 1));
    m_channel->ShutdownSend();
    EXPECT_TRUE(m_folder.WaitForLog("Socket read failed. GetLastError=", PATIENCE_MS));
    ExpectExit(*m_agent, EXIT_CODE_ENDED);
}

TEST_F(FramingTest, ThreeBytesOfATypeAndACloseEndTheAgentInOrder)
{
    const DWORD dwType = MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE;
    ASSERT_TRUE(m_channel->Send(&dwType, 3));
    m_channel->ShutdownSend();
    ExpectExit(*m_agent, EXIT_CODE_ENDED);
    EXPECT_EQ(m_channel->CountOf(dwType), 0u);
}
TEST_F(FramingTest, AnExitInTheMiddleOfABurstIsTheLastThatIsHandled)
{
    constexpr size_t BEFORE = 500;
    constexpr size_t ALL = 1000;
    const Bytes notice = MakeRecord({MSG_TYPE_TRAYICON_CONNECT_NOTIFY, 1592});
    Bytes burst;
    for (size_t nNotice = 0; nNotice < ALL; ++nNotice)
    {
        if (nNotice == BEFORE)
        {
            const Bytes leave = MakeRecord(EXIT_SAMPLE);
            burst.insert(burst.end(), leave.begin(), leave.end());
        }
        burst.insert(burst.end(), notice.begin(), notice.end());
    }
    m_channel->Send(burst.data(), burst.size()); // the agent doesn't take all of it
    ExpectExit(*m_agent, EXIT_CODE_ASKED_TO_END);
    std::map<DWORD, size_t> received = ReceivedTypes();
    EXPECT_EQ(received[MSG_TYPE_TRAYICON_CONNECT_NOTIFY], BEFORE);
    EXPECT_EQ(received[MSG_TYPE_TRAYICON_EXIT], 1u);
}
} // namespace
