#include "Include/BoundedText.h"
#include "devservice/RecordText.h"
#include "modules/chat/ChatPayload.h"
#include "tests/unit/DevServiceFixture.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{
class DevServiceChat : public DevServiceRunner
{
  protected:
    struct Message
    {
        MSG_CHAT_MESSAGE head;
        std::vector<BYTE> payload;

        std::wstring Text() const { return ReadChatText(payload.data(), payload.size()); }
    };

    static Message Received(TestAgent& agent)
    {
        Message message = {};
        EXPECT_TRUE(agent.Receive(message.head));
        EXPECT_EQ(message.head.dwType, static_cast<DWORD>(MSG_TYPE_CHAT_MESSAGE));
        message.payload.resize(message.head.dwMessageLength);
        EXPECT_TRUE(
            message.payload.empty() ||
            agent.Connection().ReceiveExactly(message.payload.data(), message.payload.size(), PATIENCE_MS));
        return message;
    }

    static bool Write(TestAgent& agent, std::wstring_view username, std::wstring_view text)
    {
        const std::vector<char> record = MakeChatRecord(username, text);
        return agent.Send(std::vector<BYTE>(record.begin(), record.end()));
    }
};
} // namespace

TEST_F(DevServiceChat, OpeningNamesWhoOpens)
{
    const auto pAgent = Arrive();
    ExpectHeld(L"chat-open \"Alice in Wonderland\"");
    MSG_TRAYICON_CHAT_OPEN record = {};
    ASSERT_TRUE(pAgent->Receive(record));
    EXPECT_EQ(record.dwType, static_cast<DWORD>(MSG_TYPE_TRAYICON_CHAT_OPEN));
    EXPECT_EQ(FixedText(record.szUsername), L"Alice in Wonderland");
}

TEST_F(DevServiceChat, ALineGoesOutAsItsSpeakerAndItsText)
{
    const auto pAgent = Arrive();
    ExpectHeld(
        L"chat \"Alice\" \"Gr\\u00fc\\u00df Gott\\nund \\uD83D\\uDE00\"\nchat Bert \"\"\nchat Bert a=b");
    const Message first = Received(*pAgent);
    EXPECT_EQ(FixedText(first.head.szUsername), L"Alice");
    EXPECT_EQ(first.Text(), L"Gr\u00fc\u00df Gott\nund \xD83D\xDE00");
    EXPECT_EQ(first.payload.size(), first.Text().size() * sizeof(wchar_t)) << "no terminator";
    EXPECT_EQ(Received(*pAgent).Text(), L"");
    EXPECT_EQ(Received(*pAgent).Text(), L"a=b");
}

TEST_F(DevServiceChat, APayloadThatIsNoTextCanBeSentAsBytes)
{
    const auto pAgent = Arrive();
    ExpectHeld(L"chat Alice hex:4100FF");
    EXPECT_EQ(Received(*pAgent).payload, (std::vector<BYTE>{0x41, 0x00, 0xFF}));
    EXPECT_EQ(ErrorOf(L"chat Alice hex:4"), "line 1: payload=hex: takes hexadecimal bytes");
}

TEST_F(DevServiceChat, ANameThatDoesNotFitIsRefused)
{
    const auto pAgent = Arrive();
    const std::wstring name(260, L'x');
    EXPECT_NE(ErrorOf(L"chat " + name + L" hello").find("at most 259 characters"), std::string::npos);
    EXPECT_NE(ErrorOf(L"chat-open " + name).find("at most 259 characters"), std::string::npos);
}

TEST_F(DevServiceChat, ClosingIsATypeAlone)
{
    const auto pAgent = Arrive();
    ExpectHeld(L"chat-close");
    MSG_TRAYICON_TYPE_ONLY record = {};
    ASSERT_TRUE(pAgent->Receive(record));
    EXPECT_EQ(record.dwType, static_cast<DWORD>(MSG_TYPE_TRAYICON_CHAT_CLOSE));
    EXPECT_TRUE(pAgent->Connection().StaysSilent(50));
}

TEST_F(DevServiceChat, WhatThePersonWroteIsExpectedByItsText)
{
    const auto pAgent = Arrive();
    ASSERT_TRUE(Write(*pAgent, L"DESK\\bob", L"Gr\u00fc\u00df\r\nGott"));
    ASSERT_TRUE(Write(*pAgent, L"DESK\\bob", L""));
    ExpectHeld(L"expect CHAT_MESSAGE szUsername=DESK\\bob payload=\"Gr\\u00fc\\u00df\\r\\nGott\"\n"
               L"expect CHAT_MESSAGE payload=");
    ASSERT_TRUE(Write(*pAgent, L"DESK\\bob", L"other words"));
    AwaitRecords(*pAgent);
    const std::string error = ErrorOf(L"expect CHAT_MESSAGE payload=words within=20");
    EXPECT_NE(error.find("szUsername=\"DESK\\\\bob\" dwMessageLength=22 payload=\"other words\""),
              std::string::npos)
        << error;
}

TEST_F(DevServiceChat, TheLogShowsTextsBothWaysAndBytesThatAreNone)
{
    const auto pAgent = Arrive();
    ExpectHeld(L"chat Alice \"hello\\nyou\"\nchat Alice hex:410042");
    ASSERT_TRUE(Write(*pAgent, L"bob", L"bye"));
    ExpectHeld(L"expect CHAT_MESSAGE");
    EXPECT_TRUE(Logged(L"==>  MSG_TYPE_CHAT_MESSAGE (546 bytes) szUsername=\"Alice\" dwMessageLength=18 "
                       L"payload=\"hello\\nyou\"\n"));
    EXPECT_TRUE(Logged(L"dwMessageLength=3 payload=41 00 42\n"));
    EXPECT_TRUE(Logged(L"<==  MSG_TYPE_CHAT_MESSAGE (534 bytes) szUsername=\"bob\" dwMessageLength=6 "
                       L"payload=\"bye\"\n"));
}

TEST_F(DevServiceChat, CommandsNeedTheirWords)
{
    std::vector<SCRIPT_STATEMENT> statements;
    for (const wchar_t* const pszLine :
         {L"chat Alice", L"chat", L"chat-open", L"chat-close now", L"chat A B C"})
    {
        std::wstring error;
        ASSERT_TRUE(ParseScript(pszLine, statements, error));
        EXPECT_FALSE(CScriptRunner::Check(statements, error)) << ToUtf8(pszLine);
        EXPECT_TRUE(error.starts_with(L"line 1: use: chat")) << ToUtf8(error);
    }
}
