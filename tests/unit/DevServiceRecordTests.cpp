#include "devservice/RecordFramer.h"
#include "devservice/RecordText.h"
#include "devservice/ServiceEvent.h"
#include "devservice/ValueText.h"
#include "channel/TrayMessages.h"
#include "tests/unit/DevServiceTestAgent.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace
{
const MESSAGE_DESCRIPTION& FromService(DWORD dwType)
{
    return *FindMessageDescription(dwType, MESSAGE_FROM_SERVICE);
}

// A record made of "field", "value" pairs.
std::vector<BYTE> Build(const MESSAGE_DESCRIPTION& message,
                        std::initializer_list<std::pair<const wchar_t*, const wchar_t*>> fields)
{
    std::vector<BYTE> bytes = MakeRecord(message);
    for (const auto& [pszName, pszValue] : fields)
    {
        std::wstring error;
        EXPECT_TRUE(SetRecordField(*message.pRecord, bytes, pszName, pszValue, error))
            << std::string(error.begin(), error.end());
    }
    return bytes;
}

std::wstring SetError(DWORD dwType, std::wstring_view name, std::wstring_view value)
{
    const MESSAGE_DESCRIPTION& message = FromService(dwType);
    std::vector<BYTE> bytes = MakeRecord(message);
    const std::vector<BYTE> before = bytes;
    std::wstring error;
    EXPECT_FALSE(SetRecordField(*message.pRecord, bytes, name, value, error));
    EXPECT_EQ(bytes, before);
    return error;
}

std::vector<BYTE> ChatRecord(const std::vector<BYTE>& payload)
{
    MSG_CHAT_MESSAGE head = {};
    head.dwType = MSG_TYPE_CHAT_MESSAGE;
    head.dwMessageLength = static_cast<DWORD>(payload.size());
    std::vector<BYTE> bytes(BytesOf(head).begin(), BytesOf(head).end());
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    return bytes;
}

struct FRAMED
{
    std::vector<DWORD> types;
    std::vector<std::vector<BYTE>> records;
    FRAME_RESULT last;
};

FRAMED Frame(std::span<const BYTE> stream, size_t nChunk)
{
    FRAMED framed = {};
    CRecordFramer framer(MESSAGE_FROM_AGENT);
    for (size_t n = 0; n < stream.size(); n += nChunk)
    {
        framer.Append(stream.subspan(n, std::min(nChunk, stream.size() - n)));
        std::vector<BYTE> record;
        const MESSAGE_DESCRIPTION* pMessage = nullptr;
        while ((framed.last = framer.Next(record, pMessage)) != FRAME_RESULT::NeedMore)
        {
            framed.types.push_back(pMessage != nullptr ? pMessage->dwType : 0);
            framed.records.push_back(record);
        }
    }
    return framed;
}
} // namespace

TEST(DevServiceRecords, EveryFieldOfEveryRecordIsWrittenReadAndShown)
{
    for (const MESSAGE_DESCRIPTION& message : GetMessageDescriptions())
    {
        for (const RECORD_FIELD& field : message.pRecord->fields)
        {
            if (field.kind == FIELD_KIND::Record || field.uOffset == 0)
            {
                continue;
            }
            const bool bText = field.kind == FIELD_KIND::Text || field.kind == FIELD_KIND::Secret;
            const wchar_t* const pszValue = bText ? L"ab" : (field.kind == FIELD_KIND::Bytes ? L"7F" : L"19");
            const std::vector<BYTE> bytes = Build(message, {{field.pszName, pszValue}});
            const auto outside = [&](size_t n) {
                return n >= sizeof(DWORD) && (n < field.uOffset || n >= field.uOffset + field.uSize);
            };
            for (size_t n = 0; n < bytes.size(); ++n)
            {
                ASSERT_TRUE(!outside(n) || bytes[n] == 0) << ToUtf8(field.pszName);
            }
            bool bEqual = false;
            std::wstring error;
            EXPECT_TRUE(CompareRecordField(*message.pRecord, bytes, field.pszName, pszValue, bEqual, error));
            EXPECT_TRUE(bEqual) << ToUtf8(field.pszName);
            EXPECT_NE(FormatRecord(*message.pRecord, bytes).find(std::wstring(field.pszName) + L"="),
                      std::wstring::npos)
                << ToUtf8(field.pszName);
        }
    }
}

TEST(DevServiceRecords, LogLineHasNameSizeAndOnlyFieldsThatAreNotZero)
{
    const MESSAGE_DESCRIPTION& message = FromService(MSG_TYPE_TRAYICON_CONNECT_NOTIFY);
    EXPECT_EQ(FormatMessage(message, Build(message, {})), L"MSG_TYPE_TRAYICON_CONNECT_NOTIFY (1592 bytes)");
    EXPECT_EQ(
        FormatMessage(message, Build(message, {{L"szClientName", L"Al \"x\"\n"}, {L"dwConnectCount", L"2"}})),
        L"MSG_TYPE_TRAYICON_CONNECT_NOTIFY (1592 bytes) szClientName=\"Al \\\"x\\\"\\n\" dwConnectCount=2");
}

TEST(DevServiceRecords, VersionsShowAsFractionsAndExitCodesAsHexadecimal)
{
    const MESSAGE_DESCRIPTION& version = FromService(MSG_TYPE_VERSION);
    EXPECT_NE(
        FormatMessage(version, Build(version, {{L"dblAgentVersion", L"444"}})).find(L"dblAgentVersion=444.0"),
        std::wstring::npos);
    const MESSAGE_DESCRIPTION& ending =
        *FindMessageDescription(MSG_TYPE_TRAYICON_SESSION_ENDING, MESSAGE_FROM_AGENT);
    EXPECT_NE(FormatMessage(ending, Build(ending, {{L"dwExitCode", L"-56"}})).find(L"dwExitCode=0xFFFFFFC8"),
              std::wstring::npos);
}

TEST(DevServiceRecords, SecretsNeverReachTheLogNorAnError)
{
    const MESSAGE_DESCRIPTION& message = FromService(MSG_TYPE_REVERSE_CONNECTION);
    const std::wstring line = FormatMessage(message, Build(message, {{L"szProxySecret", L"hunter2"}}));
    EXPECT_EQ(line.find(L"hunter2"), std::wstring::npos);
    EXPECT_NE(line.find(L"szProxySecret=***"), std::wstring::npos);
    const std::wstring longSecret(300, L's');
    EXPECT_EQ(SetError(MSG_TYPE_REVERSE_CONNECTION, L"szProxySecret", longSecret).find(L"ssss"),
              std::wstring::npos);
}

TEST(DevServiceRecords, LongTextsAreCutAndSayHowLongTheyAre)
{
    const MESSAGE_DESCRIPTION& message = FromService(MSG_TYPE_TRAYICON_INIT);
    const std::wstring text(8095, L'x');
    const std::wstring line = FormatMessage(message, Build(message, {{L"szInvitation", text.c_str()}}));
    EXPECT_LT(line.size(), 200u);
    EXPECT_NE(line.find(L"...(8095 characters)"), std::wstring::npos);
}

TEST(DevServiceRecords, UnterminatedTextEndsAtItsField)
{
    const MESSAGE_DESCRIPTION& message = FromService(MSG_TYPE_TRAYICON_SETTINGS);
    const std::vector<BYTE> bytes = Build(message, {{L"szLanguage", L"hex:6100620063006400"}});
    EXPECT_EQ(FormatRecord(*message.pRecord, bytes), L"szLanguage=\"abcd\"");

    // The last field of the record: nothing behind it may be looked at.
    const RECORD_DESCRIPTION& prompt = *FindRecordDescription(L"MSG_PERMISSION_PROMPT");
    const std::vector<BYTE> full(prompt.uSize, BYTE{0x41});
    EXPECT_NE(FormatRecord(prompt, full).find(L"...(260 characters)"), std::wstring::npos);
}

TEST(DevServiceRecords, RecordCutShortShowsWhatIsThere)
{
    const RECORD_DESCRIPTION& record = *FindRecordDescription(L"MSG_UDP_DELETE_INVITATIONS");
    const std::vector<BYTE> bytes = {0xD1, 2, 0, 0, 170, 0, 0, 0, 5};
    EXPECT_EQ(FormatRecord(record, bytes), L"dwRequest=721 (delete all invitations) dwStatus=170");
}

TEST(DevServiceRecords, EmbeddedRecordsAreReachedWithADot)
{
    const MESSAGE_DESCRIPTION& message =
        *FindMessageDescription(MSG_TYPE_TRAYICON_LANGUAGE, MESSAGE_FROM_AGENT);
    const std::vector<BYTE> bytes = Build(message, {{L"DesktopUser.szUsername", L"D\\u"}});
    EXPECT_EQ(FormatRecord(*message.pRecord, bytes), L"DesktopUser.szUsername=\"D\\\\u\"");
    MSG_TRAYICON_LANGUAGE record = {};
    memcpy(&record, bytes.data(), sizeof(record));
    EXPECT_STREQ(record.DesktopUser.szUsername, L"D\\u");
}

TEST(DevServiceRecords, BadFieldsAndValuesAreRefusedWithTheReason)
{
    EXPECT_NE(
        SetError(MSG_TYPE_TRAYICON_DESKTOP_EFFECTS, L"dwNone", L"1").find(L"it has dwType, dwDesktopEffects"),
        std::wstring::npos);
    EXPECT_NE(SetError(MSG_TYPE_TRAYICON_DESKTOP_EFFECTS, L"dwDesktopEffects", L"abc").find(L"32-bit number"),
              std::wstring::npos);
    EXPECT_NE(SetError(MSG_TYPE_TRAYICON_SETTINGS, L"szLanguage", L"abcd").find(L"at most 3 characters"),
              std::wstring::npos);
    EXPECT_NE(SetError(MSG_TYPE_TRAYICON_SETTINGS, L"abGap4736", L"00112233445566778899").find(L"at most 8"),
              std::wstring::npos);
    EXPECT_NE(SetError(MSG_TYPE_VERSION, L"dblAgentVersion", L"4x").find(L"decimal fraction"),
              std::wstring::npos);
    EXPECT_NE(SetError(MSG_TYPE_TRAYICON_EXIT, L"DesktopUser.dwNone", L"1").find(L"has no field"),
              std::wstring::npos);
}

TEST(DevServiceRecords, NumbersAreDecimalHexadecimalOrNegative)
{
    EXPECT_EQ(ParseDword(L"4294967295"), 0xFFFFFFFFu);
    EXPECT_EQ(ParseDword(L"0xffffFFC8"), 0xFFFFFFC8u);
    EXPECT_EQ(ParseDword(L"-56"), 0xFFFFFFC8u);
    EXPECT_EQ(ParseDword(L"-2147483648"), 0x80000000u);
    for (const wchar_t* const pszBad : {L"", L"-", L"0x", L"12a", L"4294967296", L"-2147483649", L" 1", L"1 ",
                                        L"+1", L"99999999999999999999999"})
    {
        EXPECT_FALSE(ParseDword(pszBad)) << ToUtf8(pszBad);
    }
    EXPECT_FALSE(ParseHexBytes(L"0"));
    EXPECT_FALSE(ParseHexBytes(L"0g"));
    EXPECT_EQ(ParseHexBytes(L"00 fF"), (std::vector<BYTE>{0, 0xFF}));
}

TEST(DevServiceRecords, FilesMayBeginWithAByteOrderMark)
{
    EXPECT_EQ(FromUtf8("\xEF\xBB\xBFlisten"), L"listen");
    EXPECT_EQ(ToUtf8(FromUtf8("gr\xC3\xBC\xC3\x9F")), "gr\xC3\xBC\xC3\x9F");
}

TEST(DevServiceRecords, MessagesAreFoundByShortAndLongName)
{
    const MESSAGE_DESCRIPTION& settings = FromService(MSG_TYPE_TRAYICON_SETTINGS);
    for (const wchar_t* const pszName : {L"MSG_TYPE_TRAYICON_SETTINGS", L"TRAYICON_SETTINGS", L"settings"})
    {
        EXPECT_EQ(FindMessageByName(pszName, MESSAGE_FROM_SERVICE), &settings) << ToUtf8(pszName);
    }
    EXPECT_EQ(FindMessageByName(L"IP_ADDRESSES", MESSAGE_FROM_SERVICE)->pRecord->uSize, 7960u);
    EXPECT_EQ(FindMessageByName(L"IP_ADDRESSES", MESSAGE_FROM_AGENT)->pRecord->uSize, 4u);
    EXPECT_EQ(FindMessageByName(L"NOTHING_SUCH", MESSAGE_FROM_AGENT), nullptr);
}

TEST(DevServiceRecords, EventLineTellsTimeWhoAndDirection)
{
    const MSG_TRAYICON_DESKTOP_STATE state = {MSG_TYPE_TRAYICON_DESKTOP_STATE, DESKTOP_STATE_UNLOCKED};
    SERVICE_EVENT event;
    event.kind = SERVICE_EVENT_KIND::RecordReceived;
    event.dblSeconds = 1.5;
    event.uAgent = 2;
    event.pMessage = FindMessageDescription(state.dwType, MESSAGE_FROM_AGENT);
    event.bytes = BytesOf(state);
    EXPECT_EQ(
        FormatEvent(event),
        L"    1.500  agent 2  <==  MSG_TYPE_TRAYICON_DESKTOP_STATE (8 bytes) dwDesktopState=8 (unlocked)");
}

TEST(DevServiceFramer, AnyChunkingGivesTheSameRecords)
{
    std::vector<BYTE> stream;
    std::vector<DWORD> types;
    for (const MESSAGE_DESCRIPTION& message : GetMessageDescriptions())
    {
        if ((message.direction & MESSAGE_FROM_AGENT) == 0)
        {
            continue;
        }
        const std::vector<BYTE> record = MakeRecord(message);
        stream.insert(stream.end(), record.begin(), record.end());
        types.push_back(message.dwType);
    }
    for (const size_t nChunk : {size_t{1}, size_t{3}, size_t{1021}, stream.size()})
    {
        const FRAMED framed = Frame(stream, nChunk);
        EXPECT_EQ(framed.types, types) << nChunk;
        EXPECT_EQ(framed.last, FRAME_RESULT::NeedMore);
    }
}

TEST(DevServiceFramer, ChatPayloadHasTheLengthThatItsRecordSays)
{
    for (const size_t nPayload : {size_t{0}, size_t{1}, size_t{65536}})
    {
        const std::vector<BYTE> payload(nPayload, BYTE{0x5A});
        std::vector<BYTE> stream = ChatRecord(payload);
        const std::vector<BYTE> chat = stream;
        const std::vector<BYTE> next = ChatRecord({1, 2, 3});
        stream.insert(stream.end(), next.begin(), next.end());
        const FRAMED framed = Frame(stream, 700);
        ASSERT_EQ(framed.records.size(), 2u) << nPayload;
        EXPECT_EQ(framed.records[0], chat);
        EXPECT_EQ(framed.records[1], next);
    }
}

TEST(DevServiceFramer, ChatPayloadCutInTheMiddleStaysPending)
{
    std::vector<BYTE> stream = ChatRecord({1, 2, 3, 4});
    stream.pop_back();
    CRecordFramer framer(MESSAGE_FROM_AGENT);
    framer.Append(stream);
    std::vector<BYTE> record;
    const MESSAGE_DESCRIPTION* pMessage = nullptr;
    EXPECT_EQ(framer.Next(record, pMessage), FRAME_RESULT::NeedMore);
    EXPECT_EQ(framer.Pending(), stream.size());
}

TEST(DevServiceFramer, UnknownTypeAndMonstrousPayloadLoseTheFrameForGood)
{
    MSG_CHAT_MESSAGE monster = {};
    monster.dwType = MSG_TYPE_CHAT_MESSAGE;
    monster.dwMessageLength = 0xFFFFFFFF;
    const MSG_TRAYICON_TYPE_ONLY unknown = {123456};
    const MSG_TRAYICON_TYPE_ONLY serviceOnly = {MSG_TYPE_TRAYICON_CHAT_CLOSE};
    for (const std::span<const BYTE> lost : {BytesOf(unknown), BytesOf(serviceOnly), BytesOf(monster)})
    {
        std::vector<BYTE> stream(lost.begin(), lost.end());
        const std::vector<BYTE> good = MakeRecord(FromService(MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE));
        stream.insert(stream.end(), good.begin(), good.end());
        std::vector<BYTE> raw;
        for (const std::vector<BYTE>& part : Frame(stream, 2).records)
        {
            raw.insert(raw.end(), part.begin(), part.end());
        }
        EXPECT_EQ(raw, stream);
        EXPECT_EQ(Frame(stream, 2).types.front(), 0u);
        EXPECT_EQ(Frame(stream, 2).types.back(), 0u);
    }
}
