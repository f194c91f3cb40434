#include "channel/MessageHandlers.h"

#include "Include/BoundedText.h"
#include "channel/TrayMessageTable.h"
#include "startup/TKDAST.h"
#include "tests/support/GuardedRecord.h"
#include "tests/unit/AgentHarness.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

namespace
{
using Bytes = std::vector<BYTE>;

constexpr BYTE ALL_ONES = 0xFF;

enum class FILL
{
    TextsWithoutEnd, // every text is full of letters, every number zero
    AllOnes,         // every bit of the record, its type apart
};

bool IsText(const RECORD_FIELD& field)
{
    return field.kind == FIELD_KIND::Text || field.kind == FIELD_KIND::Secret;
}

std::wstring Letters(const RECORD_FIELD& field)
{
    return std::wstring(field.uSize / sizeof(wchar_t), L'x');
}

void FillTexts(BYTE* pRecord, const RECORD_DESCRIPTION& description)
{
    for (const RECORD_FIELD& field : description.fields)
    {
        if (field.pRecord != nullptr)
        {
            FillTexts(pRecord + field.uOffset, *field.pRecord);
        }
        else if (IsText(field))
        {
            std::memcpy(pRecord + field.uOffset, Letters(field).data(), field.uSize);
        }
    }
}

Bytes MakeRecord(const MESSAGE_DESCRIPTION& message, FILL fill)
{
    Bytes bytes(message.pRecord->uSize, fill == FILL::AllOnes ? ALL_ONES : BYTE{0});
    if (fill == FILL::TextsWithoutEnd)
    {
        FillTexts(bytes.data(), *message.pRecord);
    }
    std::memcpy(bytes.data(), &message.dwType, sizeof(message.dwType));
    return bytes;
}

template <typename Record>
Record MakeRecord(DWORD dwType, FILL fill)
{
    const Bytes bytes = MakeRecord(*FindMessageDescription(dwType, MESSAGE_FROM_SERVICE), fill);
    Record record;
    std::memcpy(&record, bytes.data(), sizeof(record));
    return record;
}

/// Every message of the service that has a handler, but for the one whose length varies.
std::vector<DWORD> HandledTypes()
{
    std::vector<DWORD> types;
    for (const MESSAGE_DESCRIPTION& message : GetMessageDescriptions())
    {
        const MESSAGE_HANDLER_ROW* const pRow = FindMessageHandler(message.dwType);
        if ((message.direction & MESSAGE_FROM_SERVICE) != 0 && pRow != nullptr &&
            pRow->pfnHandler != nullptr && message.dwType != MSG_TYPE_CHAT_MESSAGE)
        {
            types.push_back(message.dwType);
        }
    }
    return types;
}

/// Those of them that are more than their type.
std::vector<DWORD> TypesWithBodies()
{
    std::vector<DWORD> types = HandledTypes();
    std::erase_if(types, [](DWORD dwType) { return FindMessageHandler(dwType)->uBodySize == 0; });
    return types;
}

std::string NameOf(DWORD dwType)
{
    return FindMessageHandler(dwType)->pszName;
}

/// What the service has made of the agent.
struct AgentState
{
    MSG_TRAYICON_SETTINGS settings;
    MSG_TRAYICON_CONNECT connection;
    MSG_TRAYICON_CONNECT_NOTIFY_ALL list;
    MSG_TRAYICON_IP_ADDRESSES addresses;
    std::array<DWORD, 8> numbers;
    std::wstring invitation;
};

void ExpectSame(const AgentState& before, const AgentState& after)
{
    EXPECT_EQ(std::memcmp(&after.settings, &before.settings, sizeof(before.settings)), 0);
    EXPECT_EQ(std::memcmp(&after.connection, &before.connection, sizeof(before.connection)), 0);
    EXPECT_EQ(std::memcmp(&after.list, &before.list, sizeof(before.list)), 0);
    EXPECT_EQ(std::memcmp(&after.addresses, &before.addresses, sizeof(before.addresses)), 0);
    EXPECT_EQ(after.numbers, before.numbers);
    EXPECT_EQ(after.invitation, before.invitation);
}

class BadRecordTest : public AgentHarness
{
  protected:
    void SetUp() override
    {
        AgentHarness::SetUp();
        Window().m_Settings.dwExitLock2 = 1; // the language stays the machine's
    }

    /// Runs a record's handler as the reader would, on memory that ends with the record.
    template <typename Record>
    bool Handle(const Record& record)
    {
        return Handle(reinterpret_cast<const BYTE*>(&record), sizeof(record));
    }

    bool Handle(const BYTE* pRecord, size_t nBytes)
    {
        const GuardedBytes guarded(nBytes);
        std::memcpy(guarded.Get(), pRecord, nBytes);
        const std::shared_ptr<CTKSocket> pSocket = Window().m_pSocket.load();
        CHANNEL_CONTEXT context = {&Window(), Window().m_hWnd, pSocket.get(), guarded.Get()};
        return FindMessageHandler(TypeOf(pRecord))->pfnHandler(context);
    }

    static DWORD TypeOf(const BYTE* pRecord)
    {
        DWORD dwType = 0;
        std::memcpy(&dwType, pRecord, sizeof(dwType));
        return dwType;
    }

    /// Takes what the agent answers to a message.
    void TakeAnswer(DWORD dwType)
    {
        switch (dwType)
        {
        case MSG_TYPE_VERSION:
            Receive<MSG_VERSION>();
            break;
        case MSG_TYPE_TRAYICON_INIT:
            Receive<MSG_TRAYICON_DESKTOP_EFFECTS>();
            Receive<MSG_TRAYICON_INIT>();
            break;
        case MSG_TYPE_TRAYICON_SETTINGS:
        case MSG_TYPE_TRAYICON_DESKTOP_USER_INFORMATION:
            Receive<MSG_TRAYICON_DESKTOP_USER_INFORMATION>();
            break;
        case MSG_TYPE_TRAYICON_DESKTOP_EFFECTS:
            Receive<MSG_TRAYICON_DESKTOP_EFFECTS>();
            break;
        case MSG_TYPE_TRAYICON_CONNECT_NOTIFY: // with no settings yet
        case MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE:
            Receive<DWORD>();
            break;
        default:
            break;
        }
    }

    AgentState State()
    {
        CTaskBarWindow& window = Window();
        return {window.m_Settings,
                window.m_Connection,
                window.m_ConnectedList,
                window.m_IpAddresses,
                {window.m_dwConnectionType, window.m_bServiceReplied, window.m_bAwaitingFirstSettings,
                 window.m_bNotifyPending, window.m_dwAppliedOptions, window.m_dwRequestedOptions,
                 static_cast<DWORD>(window.m_DropWindows.size()), g_bOtiInvitation},
                g_szOtiInvitation};
    }
};

void WINAPI NoSleep(DWORD) {}

struct TIP_FIELD
{
    wchar_t szTip[1024];
};
} // namespace

TEST(FixedTextOfRecords, EveryTextFieldIsReadUpToItsEndAndNoFurther)
{
    size_t nFields = 0;
    for (const RECORD_DESCRIPTION& record : GetRecordDescriptions())
    {
        for (const RECORD_FIELD& field : record.fields)
        {
            if (!IsText(field))
            {
                continue;
            }
            const GuardedBytes guarded(field.uSize);
            const std::wstring letters = Letters(field);
            std::memcpy(guarded.Get(), letters.data(), field.uSize);
            EXPECT_EQ(FixedText(reinterpret_cast<const wchar_t*>(guarded.Get()), letters.size()), letters);
            ++nFields;
        }
    }
    EXPECT_GE(nFields, 30U);
}

TEST(TrayTipOfRecords, ATextWithoutAnEndIsCutToTheShellsRoom)
{
    TIP_FIELD field;
    std::fill(std::begin(field.szTip), std::end(field.szTip), L'x');
    const GuardedRecord<TIP_FIELD> guarded(field);
    EXPECT_EQ(ComposeTrayTip(FixedText(guarded->szTip), L"", false, TIP_LENGTH),
              std::wstring(123, L'x') + L"...");
    EXPECT_EQ(ComposeTrayTip(FixedText(guarded->szTip), L"Asks\r\n", true, TIP_LENGTH),
              L"Asks\r\n" + std::wstring(117, L'x') + L"...");
}

class EveryBadRecordTest : public BadRecordTest, public testing::WithParamInterface<std::tuple<DWORD, FILL>>
{
};

TEST_P(EveryBadRecordTest, IsHandledWithoutALookBehindItsEnd)
{
    const auto [dwType, fill] = GetParam();
    const Bytes bytes = MakeRecord(*FindMessageDescription(dwType, MESSAGE_FROM_SERVICE), fill);
    const bool bGoesOn = Handle(bytes.data(), bytes.size());
    EXPECT_EQ(bGoesOn, dwType != MSG_TYPE_TRAYICON_EXIT);
    if (bGoesOn)
    {
        TakeAnswer(dwType);
        Settle();
        for (const UINT_PTR uTimer : {TIMER_CONNECT_NOTICE, TIMER_TRAY_RETRY})
        {
            Fire(uTimer);
        }
        if (Window().m_Connection.bListClients != 0)
        {
            Receive<MSG_TRAYICON_CONNECT_NOTIFY_ALL>(); // the list is asked for
        }
        Settle();
    }
}

namespace
{
std::string NameOfCase(const testing::TestParamInfo<std::tuple<DWORD, FILL>>& info)
{
    const auto [dwType, fill] = info.param;
    return NameOf(dwType) + (fill == FILL::AllOnes ? "_AllOnes" : "_TextsWithoutEnd");
}
} // namespace

INSTANTIATE_TEST_SUITE_P(Messages, EveryBadRecordTest,
                         testing::Combine(testing::ValuesIn(HandledTypes()),
                                          testing::Values(FILL::TextsWithoutEnd, FILL::AllOnes)),
                         NameOfCase);

TEST_F(BadRecordTest, AnInvitationUpToTheRecordsEndIsCut)
{
    ASSERT_TRUE(Handle(MakeRecord<MSG_TRAYICON_INIT>(MSG_TYPE_TRAYICON_INIT, FILL::TextsWithoutEnd)));
    EXPECT_EQ(std::wstring(g_szOtiInvitation), std::wstring(8095, L'x'));
}

TEST_F(BadRecordTest, SettingsWithoutAnyTextsEndShowTheTipsBeginning)
{
    MSG_TRAYICON_SETTINGS settings =
        MakeRecord<MSG_TRAYICON_SETTINGS>(MSG_TYPE_TRAYICON_SETTINGS_UPDATE, FILL::TextsWithoutEnd);
    settings.dwTrayIcon = TRAY_ICON_SHOWN;
    ASSERT_TRUE(Handle(settings));
    ASSERT_EQ(m_icons.size(), 1U);
    EXPECT_EQ(std::wstring(m_icons[0].szTip), std::wstring(123, L'x') + L"...");
    EXPECT_EQ(std::memcmp(&Window().m_Settings, &settings, sizeof(settings)), 0) << "kept as it came";
}

TEST_F(BadRecordTest, AReconfigurationsTextUpToTheRecordsEndIsCutForTipAndBalloon)
{
    auto record = MakeRecord<MSG_TRAYICON_SERVER_RECONFIGURE>(MSG_TYPE_TRAYICON_SERVER_RECONFIGURE,
                                                              FILL::TextsWithoutEnd);
    record.bReconfiguring = 0xFFFFFFFF;
    ASSERT_TRUE(Handle(record));
    ASSERT_EQ(m_icons.size(), 1U);
    EXPECT_EQ(std::wstring(m_icons[0].szTip), std::wstring(127, L'x'));
    EXPECT_EQ(std::wstring(m_icons[0].szInfo), std::wstring(255, L'x'));
}

TEST_F(BadRecordTest, ADropClientIsListedAsItCameWhateverItsTexts)
{
    const auto record =
        MakeRecord<MSG_TRAYICON_SFT_DROP_CLIENT>(MSG_TYPE_TRAYICON_SFT_DROP_CLIENT, FILL::TextsWithoutEnd);
    ASSERT_TRUE(Handle(record));
    ASSERT_EQ(Window().m_DropWindows.size(), 1U);
    EXPECT_EQ(FixedText(Window().m_DropWindows.front()->szClientName), std::wstring(261, L'x'));
}

TEST_F(BadRecordTest, EveryoneConnectedIsKeptAsItCameWhateverItsText)
{
    const auto list = MakeRecord<MSG_TRAYICON_CONNECT_NOTIFY_ALL>(MSG_TYPE_TRAYICON_CONNECT_NOTIFY_ALL,
                                                                  FILL::TextsWithoutEnd);
    ASSERT_TRUE(Handle(list));
    EXPECT_EQ(FixedText(Window().m_ConnectedList.szClientList), std::wstring(4098, L'x'));
}

TEST_F(BadRecordTest, AnyCountButZeroMeansConnectedWhateverTheType)
{
    Window().m_bAwaitingFirstSettings = 0;
    Window().m_Settings.dwDefaultConnectionType = 2;
    for (const DWORD dwConnectionType : {0UL, 1UL, 2UL, 3UL, 0xFFFFFFFFUL})
    {
        for (const DWORD dwCount : {0UL, 1UL, 0xFFFFFFFFUL})
        {
            SCOPED_TRACE(testing::Message() << "type " << dwConnectionType << ", count " << dwCount);
            HICON const hIcon = dwCount != 0 ? Window().m_hIconActive : Window().m_hIconIdle;
            Send(Connection(MSG_TYPE_TRAYICON_CONNECT_COUNT, dwCount, dwConnectionType));
            Settle();
            EXPECT_EQ(Window().m_dwConnectionType, dwCount != 0 ? dwConnectionType : 2U);
            EXPECT_EQ(m_icons.back().hIcon, hIcon);
            Send(Connection(MSG_TYPE_TRAYICON_CONNECT_NOTIFY, dwCount, dwConnectionType));
            Settle();
            EXPECT_EQ(Window().m_dwConnectionType, dwConnectionType) << "whatever the count";
            EXPECT_EQ(m_icons.back().hIcon, hIcon);
            Fire(TIMER_CONNECT_NOTICE);
            Send(Connection(MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY, dwCount, 9));
            Settle();
            EXPECT_EQ(Window().m_dwConnectionType, dwCount != 0 ? dwConnectionType : 1U);
            EXPECT_EQ(m_icons.back().hIcon, hIcon);
        }
    }
}

TEST_F(BadRecordTest, TheFirstRecordsOfASessionMayComeInAnyOrder)
{
    const ImportHook sleep("kernel32.dll", "Sleep", &NoSleep);
    constexpr DWORD DEFAULT_TYPE = 1;
    constexpr DWORD UPDATED_TYPE = 2;
    constexpr DWORD CONNECTED_TYPE = 7;
    std::vector<DWORD> order = {MSG_TYPE_VERSION, MSG_TYPE_TRAYICON_INIT, MSG_TYPE_TRAYICON_CONNECT_COUNT,
                                MSG_TYPE_TRAYICON_SETTINGS, MSG_TYPE_TRAYICON_SETTINGS_UPDATE};
    std::sort(order.begin(), order.end());
    do
    {
        SCOPED_TRACE(testing::PrintToString(order));
        Window().m_bAwaitingFirstSettings = 1;
        DWORD dwLastSettings = 0;
        DWORD dwLastType = 0;
        for (const DWORD dwType : order)
        {
            MSG_TRAYICON_SETTINGS settings = PlainSettings(dwType);
            switch (dwType)
            {
            case MSG_TYPE_TRAYICON_SETTINGS:
            case MSG_TYPE_TRAYICON_SETTINGS_UPDATE:
                dwLastType = dwType == MSG_TYPE_TRAYICON_SETTINGS ? DEFAULT_TYPE : UPDATED_TYPE;
                dwLastSettings = dwType;
                settings.dwDefaultConnectionType = dwLastType;
                Send(settings);
                break;
            case MSG_TYPE_TRAYICON_CONNECT_COUNT:
                dwLastType = CONNECTED_TYPE;
                Send(Connection(dwType, 1, CONNECTED_TYPE));
                break;
            case MSG_TYPE_TRAYICON_INIT:
                Send(MakeRecord<MSG_TRAYICON_INIT>(dwType, FILL::TextsWithoutEnd));
                break;
            default:
                Send(MakeRecord<MSG_VERSION>(dwType, FILL::AllOnes));
                break;
            }
        }
        std::for_each(order.begin(), order.end(), [this](DWORD dwType) { TakeAnswer(dwType); });
        Settle();
        EXPECT_EQ(Window().m_Settings.dwType, dwLastSettings) << "the later one counts";
        EXPECT_EQ(Window().m_dwConnectionType, dwLastType);
        EXPECT_EQ(Window().m_bAwaitingFirstSettings, 0U);
    } while (std::next_permutation(order.begin(), order.end()) && !HasFailure());
}

TEST_F(BadRecordTest, AnExitInTheMiddleOfABurstIsTheLastThatIsHandled)
{
    constexpr DWORD BEFORE = 500;
    constexpr DWORD ALL = 1000;
    Window().m_bAwaitingFirstSettings = 0;
    Bytes burst;
    const auto append = [&burst](const auto& record) {
        const auto* const pBytes = reinterpret_cast<const BYTE*>(&record);
        burst.insert(burst.end(), pBytes, pBytes + sizeof(record));
    };
    for (DWORD dwCount = 1; dwCount <= ALL; ++dwCount)
    {
        append(Connection(MSG_TYPE_TRAYICON_CONNECT_NOTIFY, dwCount));
        if (dwCount == BEFORE)
        {
            append(MakeRecord<MSG_TRAYICON_EXIT>(MSG_TYPE_TRAYICON_EXIT, FILL::AllOnes));
        }
    }
    m_service.SendAll(burst.data(), burst.size()); // the agent doesn't take all of it
    JoinReader();
    EXPECT_EQ(g_nExitCode, -56);
    EXPECT_EQ(Window().m_Connection.dwConnectCount, BEFORE);
    EXPECT_EQ(m_trace.Calls("timer 1002 2000").size(), BEFORE);
}

class HalfRecordTest : public BadRecordTest, public testing::WithParamInterface<DWORD>
{
};

TEST_P(HalfRecordTest, LeavesTheAgentAsItWasAndEndsItInOrder)
{
    Send(PlainSettings(MSG_TYPE_TRAYICON_SETTINGS_UPDATE));
    Send(Connection(MSG_TYPE_TRAYICON_CONNECT_COUNT, 1));
    Settle();
    m_trace.Forget();
    const AgentState before = State();
    const Bytes bytes = MakeRecord(*FindMessageDescription(GetParam(), MESSAGE_FROM_SERVICE), FILL::AllOnes);
    const size_t nHalf = sizeof(DWORD) + (bytes.size() - sizeof(DWORD)) / 2;
    ASSERT_TRUE(m_service.SendAll(bytes.data(), nHalf));
    m_service.Close();
    JoinReader();
    EXPECT_TRUE(m_trace.WaitFor("message 1036 0")) << "the channel is lost";
    ExpectSame(before, State());
    EXPECT_EQ(g_nExitCode, 0);
    EXPECT_TRUE(m_trace.Calls("timer").empty());
    EXPECT_TRUE(m_trace.Calls("set").empty());
}

INSTANTIATE_TEST_SUITE_P(Messages, HalfRecordTest, testing::ValuesIn(TypesWithBodies()),
                         [](const auto& info) { return NameOf(info.param); });
