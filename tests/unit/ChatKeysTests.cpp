#include "modules/chat/ChatKeys.h"

#include <gtest/gtest.h>

namespace
{
constexpr CHAT_MODIFIERS PLAIN = {};
constexpr CHAT_MODIFIERS CONTROL = {true, false, false};
constexpr CHAT_MODIFIERS SHIFT = {false, true, false};
constexpr CHAT_MODIFIERS ALT_GR = {true, false, true};
constexpr ChatPart EVERYWHERE[] = {ChatPart::Input, ChatPart::Send, ChatPart::History};

TEST(ChatKeys, EnterSendsAndWithControlOrShiftStartsALine)
{
    EXPECT_EQ(DecideChatKey(ChatPart::Input, VK_RETURN, PLAIN), ChatKey::Send);
    EXPECT_EQ(DecideChatKey(ChatPart::Input, VK_RETURN, CONTROL), ChatKey::NewLine);
    EXPECT_EQ(DecideChatKey(ChatPart::Input, VK_RETURN, SHIFT), ChatKey::NewLine);
    EXPECT_EQ(DecideChatKey(ChatPart::Send, VK_RETURN, PLAIN), ChatKey::Send);
    EXPECT_EQ(DecideChatKey(ChatPart::History, VK_RETURN, PLAIN), ChatKey::None);
}

TEST(ChatKeys, TheRestOfADialogsKeysWorksEverywhere)
{
    for (const ChatPart part : EVERYWHERE)
    {
        EXPECT_EQ(DecideChatKey(part, VK_TAB, PLAIN), ChatKey::Next);
        EXPECT_EQ(DecideChatKey(part, VK_TAB, SHIFT), ChatKey::Previous);
        EXPECT_EQ(DecideChatKey(part, VK_F6, PLAIN), ChatKey::OtherPane);
        EXPECT_EQ(DecideChatKey(part, VK_ESCAPE, PLAIN), ChatKey::Close);
    }
}

TEST(ChatKeys, ControlASelectsWhereThereIsText)
{
    EXPECT_EQ(DecideChatKey(ChatPart::Input, 'A', CONTROL), ChatKey::SelectAll);
    EXPECT_EQ(DecideChatKey(ChatPart::History, 'A', CONTROL), ChatKey::SelectAll);
    EXPECT_EQ(DecideChatKey(ChatPart::Send, 'A', CONTROL), ChatKey::None);
}

TEST(ChatKeys, LettersStayTheControlsOwn)
{
    EXPECT_EQ(DecideChatKey(ChatPart::Input, 'A', PLAIN), ChatKey::None);
    EXPECT_EQ(DecideChatKey(ChatPart::Input, 'A', ALT_GR), ChatKey::None); // a letter on some keyboards
    EXPECT_EQ(DecideChatKey(ChatPart::Input, 'B', CONTROL), ChatKey::None);
    EXPECT_EQ(DecideChatKey(ChatPart::Input, VK_TAB, CONTROL), ChatKey::None);
}

TEST(ChatKeys, CharactersOfTakenKeysDoNotReachTheControl)
{
    for (const wchar_t ch : {L'\r', L'\n', L'\t', L'\x1B', L'\x01'})
    {
        EXPECT_TRUE(IsTakenCharacter(ch)) << static_cast<int>(ch);
    }
    for (const wchar_t ch : {L'a', L' ', L'\b', L'\x03', L'\x16', L'é'})
    {
        EXPECT_FALSE(IsTakenCharacter(ch)) << static_cast<int>(ch);
    }
}
} // namespace
