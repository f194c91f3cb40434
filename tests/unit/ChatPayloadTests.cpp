#include "modules/chat/ChatPayload.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace
{
constexpr size_t MAX_NAME = 259; // characters, without the terminator

MSG_CHAT_MESSAGE HeadOf(const std::vector<char>& record)
{
    MSG_CHAT_MESSAGE head = {};
    std::memcpy(&head, record.data(), sizeof(head));
    return head;
}

TEST(ChatPayload, WritesTheRecordByteForByte)
{
    const std::vector<char> record = MakeChatRecord(L"jdoe", L"Hé\n");
    ASSERT_EQ(record.size(), 534u);
    std::string expected(534, '\0');
    expected.replace(0, 4, std::string("\xF9\x24\x01\x00", 4));
    expected.replace(4, 8, std::string("j\0d\0o\0e\0", 8));
    expected.replace(524, 4, std::string("\x06\0\0\0", 4));
    expected.replace(528, 6, std::string("H\0\xE9\0\n\0", 6));
    EXPECT_EQ(std::string(record.begin(), record.end()), expected);
}

TEST(ChatPayload, ReadsWhatItHasWritten)
{
    const std::wstring text =
        std::wstring(L"zero \0 inside, \xD83D\xDE00 and half \xD800, ", 30) + L"مرحبا\r\n";
    const std::vector<char> record = MakeChatRecord(L"Alice", text);
    EXPECT_EQ(ReadChatText(*reinterpret_cast<const MSG_CHAT_MESSAGE*>(record.data())), text);
    const MSG_CHAT_MESSAGE head = HeadOf(record);
    EXPECT_EQ(ChatSender(head), L"Alice");
}

TEST(ChatPayload, TakesAnEmptyPayloadForAnEmptyText)
{
    const std::vector<char> record = MakeChatRecord(L"Alice", L"");
    EXPECT_EQ(record.size(), sizeof(MSG_CHAT_MESSAGE));
    EXPECT_EQ(HeadOf(record).dwMessageLength, 0u);
    EXPECT_EQ(ReadChatText(*reinterpret_cast<const MSG_CHAT_MESSAGE*>(record.data())), L"");
    EXPECT_EQ(ReadChatText("", 0), L"");
}

TEST(ChatPayload, IgnoresAnOddLastByte)
{
    EXPECT_EQ(ReadChatText("H", 1), L"");
    EXPECT_EQ(ReadChatText("H\0i", 3), L"H");
}

TEST(ChatPayload, ReadsAtAnOddAddress)
{
    const char bytes[] = "xH\0i";
    EXPECT_EQ(ReadChatText(bytes + 1, 4), L"Hi");
}

TEST(ChatPayload, TakesNoMoreThanItsReaderWants)
{
    EXPECT_EQ(ReadChatText("H\0i\0!", 6, 2), L"Hi");
    EXPECT_EQ(ReadChatText("H\0i\0!", 6, 3), L"Hi!");
    EXPECT_EQ(ReadChatText("H\0i\0!", 6, 4), L"Hi!");
}

TEST(ChatPayload, ReadsANameThatFillsItsField)
{
    MSG_CHAT_MESSAGE message = {};
    std::fill(std::begin(message.szUsername), std::end(message.szUsername), L'n');
    message.dwMessageLength = 0x00620061; // what would be read past the end
    EXPECT_EQ(ChatSender(message), std::wstring(260, L'n'));
}

TEST(ChatPayload, CutsANameThatDoesNotFit)
{
    const MSG_CHAT_MESSAGE head = HeadOf(MakeChatRecord(std::wstring(300, L'n'), L"text"));
    EXPECT_EQ(ChatSender(head), std::wstring(MAX_NAME, L'n'));
    EXPECT_EQ(head.dwMessageLength, 8u);
}
} // namespace
