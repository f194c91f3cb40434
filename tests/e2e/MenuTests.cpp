#include "tests/e2e/MenuTest.h"

#include "Include/LangUI.h"

#include <string>

namespace
{
TEST_F(MenuTest, ExitByItsMnemonicTellsTheServiceAndEndsTheAgent)
{
    ChooseByKeys(L"X");
    EXPECT_TRUE(m_channel->TakeRecord(MSG_TYPE_TRAYICON_EXIT, PATIENCE_MS).has_value());
    ExpectExit(*m_agent, EXIT_CODE_ASKED_TO_END);
    EXPECT_EQ(m_catcher.Calls().back().dwMessage, static_cast<DWORD>(NIM_DELETE));
}

TEST_F(MenuTest, DisconnectEveryoneIsSentWhenTheQuestionIsAnsweredWithYes)
{
    SendConnectCount(2);
    ChooseByKeys(L"D");
    ASSERT_TRUE(WaitForWindow(QUESTION_TITLE, true));
    EXPECT_EQ(m_channel->CountOf(MSG_TYPE_TRAYICON_DISCONNECT_ALL), 0U);
    ASSERT_TRUE(PostMessageW(FindShownWindow(QUESTION_TITLE), WM_COMMAND, IDYES, 0));
    EXPECT_TRUE(m_channel->TakeRecord(MSG_TYPE_TRAYICON_DISCONNECT_ALL, PATIENCE_MS).has_value());
    ExpectEndWithService();
}

TEST_F(MenuTest, AQuestionNobodyAnswersClosesItselfAndTheAgentLivesOn)
{
    SendConnectCount(1);
    ChooseByKeys(L"X");
    ASSERT_TRUE(WaitForWindow(QUESTION_TITLE, true));
    EXPECT_TRUE(WaitForWindow(QUESTION_TITLE, false)) << "after ten seconds";
    ExpectEcho();
    EXPECT_EQ(m_channel->CountOf(MSG_TYPE_TRAYICON_EXIT), 0U);
    SendConnectCount(0);
    ChooseByKeys(L"X");
    EXPECT_TRUE(m_channel->TakeRecord(MSG_TYPE_TRAYICON_EXIT, PATIENCE_MS).has_value());
    ExpectExit(*m_agent, EXIT_CODE_ASKED_TO_END);
}

TEST_F(MenuTest, AChosenLanguageGoesToTheServiceAndItsAnswerChangesTheMenu)
{
    ChooseByKeys(L"LD");
    const auto bytes = m_channel->TakeRecord(MSG_TYPE_TRAYICON_LANGUAGE, PATIENCE_MS);
    ASSERT_TRUE(bytes.has_value());
    EXPECT_STREQ(RecordAs<MSG_TRAYICON_LANGUAGE>(*bytes).szLanguage, L"de");
    // What the service does with it.
    const RegistryValue language(HKEY_CURRENT_USER, SERVICE_SETTINGS_KEY, LANGUAGE_VALUE,
                                 std::wstring(L"de"));
    MSG_TRAYICON_SERVER_RECONFIGURE done = {};
    done.dwType = MSG_TYPE_TRAYICON_SERVER_RECONFIGURE;
    ASSERT_TRUE(m_channel->Send(done));
    ExpectEcho();
    ChooseByKeys(L"B"); // Beenden
    EXPECT_TRUE(m_channel->TakeRecord(MSG_TYPE_TRAYICON_EXIT, PATIENCE_MS).has_value());
    ExpectExit(*m_agent, EXIT_CODE_ASKED_TO_END);
}
} // namespace
