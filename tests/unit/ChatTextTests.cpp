#include "modules/chat/ChatText.h"

#include <gtest/gtest.h>

#include <string>

namespace
{
constexpr size_t NOTICE_FIELD = 260; // characters

TEST(CleanChatName, LeavesAnOrdinaryNameAlone)
{
    EXPECT_EQ(CleanChatName(L"Alice Müller & Sons"), L"Alice Müller & Sons");
    EXPECT_EQ(CleanChatName(L"ליאור"), L"ליאור");
    EXPECT_EQ(CleanChatName(L""), L"");
}

TEST(CleanChatName, MakesOneLineWithoutBlanksAroundIt)
{
    EXPECT_EQ(CleanChatName(L" Al\r\nice\t\x2028\x85 "), L"Al  ice");
    EXPECT_EQ(CleanChatName(L"\r\n \x1B"), L"");
}

TEST(CleanChatName, LosesMarksThatTurnTheDirection)
{
    EXPECT_EQ(CleanChatName(L"\x202E"
                            L"ecilA\x202C\x2066\x2069"),
              L"ecilA");
}

TEST(CleanChatName, EndsInAnEllipsisWhenItIsTooLong)
{
    const std::wstring name = CleanChatName(std::wstring(260, L'n'));
    EXPECT_EQ(name, std::wstring(MAX_SHOWN_NAME - 1, L'n') + L"…");
    EXPECT_EQ(CleanChatName(std::wstring(MAX_SHOWN_NAME, L'n')), std::wstring(MAX_SHOWN_NAME, L'n'));
}

TEST(CleanChatText, KnowsEveryLineEnd)
{
    EXPECT_EQ(CleanChatText(L"1\r\n2\n3\r4\x2028"
                            L"5\x2029"
                            L"6\n\n7"),
              L"1\n2\n3\n4\n5\n6\n\n7");
}

TEST(CleanChatText, HasNoLineEndsAtItsEnd)
{
    EXPECT_EQ(CleanChatText(L"\nHello\r\n\r\n"), L"\nHello");
    EXPECT_EQ(CleanChatText(L"\r\n"), L"");
}

TEST(CleanChatText, ShowsThatACharacterCannotBeShown)
{
    EXPECT_EQ(CleanChatText(std::wstring(L"a\0b\x1B"
                                         L"c\x7F\x9F\td\xFFFF",
                                         10)),
              L"a\xFFFD"
              L"b\xFFFD"
              L"c\xFFFD\xFFFD\td\xFFFD");
}

TEST(CleanChatText, KeepsPairsAndReplacesHalvesOfPairs)
{
    EXPECT_EQ(CleanChatText(L"\xD83D\xDE00"), L"\xD83D\xDE00");
    EXPECT_EQ(CleanChatText(L"\xD83D"), L"\xFFFD");
    EXPECT_EQ(CleanChatText(L"\xDE00\xD83D"), L"\xFFFD\xFFFD");
    EXPECT_EQ(CleanChatText(L"\xD83D\xD83D\xDE00"), L"\xFFFD\xD83D\xDE00");
}

TEST(CleanChatText, LosesMarksThatTurnTheDirectionAndKeepsThoseThatOnlyHint)
{
    EXPECT_EQ(CleanChatText(L"\x202Etxet\x202C \x2067x\x2069 \x200F\x200E"), L"txet x \x200F\x200E");
}

TEST(CleanChatText, IsCutWithAnEllipsisAboveTheLimitOnly)
{
    EXPECT_EQ(CleanChatText(std::wstring(MAX_CHAT_TEXT, L'x')), std::wstring(MAX_CHAT_TEXT, L'x'));
    EXPECT_EQ(CleanChatText(std::wstring(MAX_CHAT_TEXT + 1, L'x')),
              std::wstring(MAX_CHAT_TEXT - 1, L'x') + L"…");
}

TEST(CleanChatText, CutsNoPairInTwo)
{
    const std::wstring text = std::wstring(MAX_CHAT_TEXT - 2, L'x') + L"\xD83D\xDE00yz";
    EXPECT_EQ(CleanChatText(text), std::wstring(MAX_CHAT_TEXT - 2, L'x') + L"…");
}

TEST(CleanChatText, CountsALineEndOfTwoCharactersOnce)
{
    std::wstring text;
    std::wstring expected;
    for (size_t nLine = 0; nLine < MAX_CHAT_TEXT / 2; ++nLine)
    {
        text += L"x\r\n";
        expected += L"x\n";
    }
    expected.pop_back();
    EXPECT_EQ(CleanChatText(text), expected);
}

TEST(ComposeChatLine, NamesTimeSpeakerAndText)
{
    EXPECT_EQ(ComposeChatLine(L"12:34", L"Alice", L"Hello"), L"12:34 Alice: Hello");
    EXPECT_EQ(ComposeChatLine(L"12:34", L"Alice", L""), L"12:34 Alice: ");
}

TEST(ComposeChatLine, LetsNoMessagePassForTwo)
{
    EXPECT_EQ(ComposeChatLine(L"12:34", L"Eve", L"Hello\n12:35 Alice: I agree\n"),
              L"12:34 Eve: Hello\r\n    12:35 Alice: I agree\r\n    ");
}

TEST(ComposeChatLine, KeepsRightToLeftTextFromItsNeighbours)
{
    EXPECT_EQ(ComposeChatLine(L"12:34", L"ליאור", L"שלום\nHello"),
              L"12:34 \x2068ליאור\x2069: \x2068שלום\x2069\r\n    Hello");
}

TEST(ComposeNoticeLine, DiffersFromWhatAnybodySays)
{
    EXPECT_EQ(ComposeNoticeLine(L"12:34", L"Alice has connected"), L"12:34 — Alice has connected");
}

TEST(NameOfNotice, LosesTheWordOfItsKind)
{
    EXPECT_EQ(NameOfNotice(L"Alice connected", true, NOTICE_FIELD), L"Alice");
    EXPECT_EQ(NameOfNotice(L"Alice disconnected", false, NOTICE_FIELD), L"Alice");
    EXPECT_EQ(NameOfNotice(L" connected", true, NOTICE_FIELD), L"");
    EXPECT_EQ(NameOfNotice(L"", true, NOTICE_FIELD), L"");
}

TEST(NameOfNotice, KeepsANoticeOfAnotherForm)
{
    EXPECT_EQ(NameOfNotice(L"Alice is here", true, NOTICE_FIELD), L"Alice is here");
    EXPECT_EQ(NameOfNotice(L"Alice disconnected", true, NOTICE_FIELD), L"Alice disconnected");
}

TEST(NameOfNotice, FindsANameWhoseWordWasCut)
{
    const std::wstring name(253, L'n');
    EXPECT_EQ(NameOfNotice(name + L" conne", true, NOTICE_FIELD), name);
    const std::wstring longest(259, L'n');
    EXPECT_EQ(NameOfNotice(longest, true, NOTICE_FIELD), longest);
}

TEST(IsolateText, MarksOnlyWhatTurnsTheDirection)
{
    EXPECT_EQ(IsolateText(L"Müller 😀 日本"), L"Müller 😀 日本");
    EXPECT_EQ(IsolateText(L"a א"), L"\x2068"
                                   L"a א\x2069");
    EXPECT_EQ(IsolateText(L"مرحبا"), L"\x2068مرحبا\x2069");
    EXPECT_EQ(IsolateText(L"\xD83A\xDD00"), L"\x2068\xD83A\xDD00\x2069");
    EXPECT_EQ(IsolateText(L""), L"");
}

TEST(IsWorthSending, WantsMoreThanBlanks)
{
    EXPECT_FALSE(IsWorthSending(L""));
    EXPECT_FALSE(IsWorthSending(L" \t\r\n\x00A0"));
    EXPECT_TRUE(IsWorthSending(L" . "));
}

TEST(AccessKeyOf, IsTheLetterBehindTheMark)
{
    EXPECT_EQ(AccessKeyOf(L"&Send"), L'S');
    EXPECT_EQ(AccessKeyOf(L"S&end"), L'E');
    EXPECT_EQ(AccessKeyOf(L"&écrire"), L'É');
    EXPECT_EQ(AccessKeyOf(L"Müller && &Sons"), L'S');
    EXPECT_EQ(AccessKeyOf(L"None &"), L'\0');
    EXPECT_EQ(AccessKeyOf(L"None"), L'\0');
    EXPECT_EQ(AccessKeyOf(L"&&none"), L'\0');
    EXPECT_EQ(AccessKeyOf(L"None && none"), L'\0');
    EXPECT_EQ(AccessKeyOf(L""), L'\0');
}
} // namespace
