#include "tests/e2e/AgentTest.h"
#include "tests/support/ShellTrayCatcher.h"

#include "Include/BoundedText.h"
#include "devservice/Person.h"
#include "tray/TKDASTWindow.h"

#include <string>
#include <string_view>

namespace
{
constexpr wchar_t LANGUAGE_VALUE[] = L"LangUI";
constexpr wchar_t QUESTION_TITLE[] = L"Tessaran Kestrel Desk Assist";
constexpr wchar_t MENU_TITLE[] = L"menu";

bool Pause(DWORD dwMilliseconds)
{
    Sleep(dwMilliseconds);
    return true;
}

/// The real agent, its menu driven from outside by what a person does.
class MenuTest : public AgentTest
{
  protected:
    void SetUp() override
    {
        StartAgent();
        AcceptAgent();
        ShakeHands();
        m_hTray = m_agent->WaitForTrayWindow(PATIENCE_MS);
        MSG_TRAYICON_SETTINGS settings = {};
        settings.dwType = MSG_TYPE_TRAYICON_SETTINGS;
        settings.dwTrayIcon = TRAY_ICON_SHOWN;
        settings.dwDefaultConnectionType = ORDINARY_CONNECTION_TYPE;
        settings.bDisconnectMenu = 1;
        CopyText(settings.szLanguage, L"en");
        ASSERT_TRUE(m_channel->Send(settings));
        ExpectEcho();
    }

    static bool WaitForWindow(const wchar_t* pszTitle, bool bThere)
    {
        return WaitForShownWindow(pszTitle, bThere, PATIENCE_MS, Pause);
    }

    /// Opens the menu as a click on the icon does, and presses the mnemonics.
    void ChooseByKeys(const wchar_t* pszKeys)
    {
        ASSERT_TRUE(OpenTrayMenu(m_hTray, PATIENCE_MS, Pause));
        for (const wchar_t chKey : std::wstring_view(pszKeys))
        {
            ASSERT_TRUE(PressKey(std::wstring_view(&chKey, 1)));
        }
        ASSERT_TRUE(WaitForWindow(MENU_TITLE, false));
    }

    void SendConnectCount(DWORD dwConnectCount)
    {
        MSG_TRAYICON_CONNECT connection = {};
        connection.dwType = MSG_TYPE_TRAYICON_CONNECT_COUNT;
        connection.dwConnectCount = dwConnectCount;
        connection.dwConnectionType = ORDINARY_CONNECTION_TYPE;
        ASSERT_TRUE(m_channel->Send(connection));
        ExpectEcho();
    }

    ShellTrayCatcher m_catcher;
    HWND m_hTray = nullptr;
};

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
