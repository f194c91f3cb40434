#pragma once

#include "tests/e2e/AgentTest.h"
#include "tests/support/ShellTrayCatcher.h"

#include "Include/BoundedText.h"
#include "devservice/Person.h"
#include "tray/TKDASTWindow.h"
#include "tray/TrayMenu.h"

#include <string_view>

constexpr wchar_t QUESTION_TITLE[] = L"Tessaran Kestrel Desk Assist";
constexpr wchar_t MENU_TITLE[] = L"menu";

inline bool PauseTest(DWORD dwMilliseconds)
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
        ASSERT_TRUE(m_channel->Send(MenuSettings()));
        ExpectEcho();
    }

    /// Settings as the agent has them from the start: the menu offers all that doesn't depend on a
    /// connection.
    static MSG_TRAYICON_SETTINGS MenuSettings(DWORD dwType = MSG_TYPE_TRAYICON_SETTINGS)
    {
        MSG_TRAYICON_SETTINGS settings = {};
        settings.dwType = dwType;
        settings.dwTrayIcon = TRAY_ICON_SHOWN;
        settings.dwDefaultConnectionType = ORDINARY_CONNECTION_TYPE;
        settings.bDisconnectMenu = 1;
        settings.bInvitationMenu = 1;
        settings.dwFeatureFlags = FEATURE_CREATE_INVITATION;
        CopyText(settings.szLanguage, L"en");
        return settings;
    }

    static bool WaitForWindow(const wchar_t* pszTitle, bool bThere)
    {
        return WaitForShownWindow(pszTitle, bThere, PATIENCE_MS, PauseTest);
    }

    /// Opens the menu as a click on the icon does, and presses the mnemonics.
    void ChooseByKeys(const wchar_t* pszKeys)
    {
        ASSERT_TRUE(OpenTrayMenu(m_hTray, PATIENCE_MS, PauseTest));
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
