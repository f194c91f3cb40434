#include "tray/TrayMenu.h"

#include "Include/BoundedText.h"
#include "Include/UtilResource.h"
#include "resources/resource.h"
#include "startup/TKDAST.h"
#include "tests/support/AgentFolder.h"
#include "tests/support/ImportHook.h"
#include "tests/unit/AgentHarness.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace
{
/// What the menu must offer in a state: the letters of the enabled commands, D(isconnect all), S(ettings),
/// I(nvitation), C(onnect to client), J(oin), (e)X(it).
struct MENU_CASE
{
    DWORD dwConnectCount;
    DWORD dwConnectionType;
    DWORD bDisconnectMenu;
    DWORD bSettingsMenu;
    DWORD bInvitationMenu;
    DWORD dwFeatureFlags;
    DWORD bReverseConnectMenu;
    DWORD bReverseInProgress;
    DWORD dwExitLock1;
    DWORD dwExitLock2;
    std::wstring_view enabled;
};

constexpr MENU_CASE MENU_CASES[] = {
    {0, 0, 0, 0, 0, 0, 1, 0, 0, 0, L"CJX"},
    {0, 0, 1, 0, 0, 0, 1, 0, 0, 0, L"CJX"},
    {0, 1, 0, 0, 0, 0, 1, 0, 0, 0, L"CJX"},
    {0, 1, 1, 0, 0, 0, 1, 0, 0, 0, L"CJX"},
    {0, 2, 0, 0, 0, 0, 1, 0, 0, 0, L"CJX"},
    {0, 2, 1, 0, 0, 0, 1, 0, 0, 0, L"CJX"},
    {1, 0, 0, 0, 0, 0, 1, 0, 0, 0, L"DX"},
    {1, 0, 1, 0, 0, 0, 1, 0, 0, 0, L"DX"},
    {1, 1, 0, 0, 0, 0, 1, 0, 0, 0, L"X"},
    {1, 1, 1, 0, 0, 0, 1, 0, 0, 0, L"DX"},
    {1, 2, 0, 0, 0, 0, 1, 0, 0, 0, L"DX"},
    {1, 2, 1, 0, 0, 0, 1, 0, 0, 0, L"DX"},
    {2, 0, 0, 0, 0, 0, 1, 0, 0, 0, L"DX"},
    {2, 0, 1, 0, 0, 0, 1, 0, 0, 0, L"DX"},
    {2, 1, 0, 0, 0, 0, 1, 0, 0, 0, L"X"},
    {2, 1, 1, 0, 0, 0, 1, 0, 0, 0, L"DX"},
    {2, 2, 0, 0, 0, 0, 1, 0, 0, 0, L"DX"},
    {2, 2, 1, 0, 0, 0, 1, 0, 0, 0, L"DX"},
    {0xFFFFFFFF, 0, 0, 0, 0, 0, 1, 0, 0, 0, L"DX"},
    {0xFFFFFFFF, 0, 1, 0, 0, 0, 1, 0, 0, 0, L"DX"},
    {0xFFFFFFFF, 1, 0, 0, 0, 0, 1, 0, 0, 0, L"X"},
    {0xFFFFFFFF, 1, 1, 0, 0, 0, 1, 0, 0, 0, L"DX"},
    {0xFFFFFFFF, 2, 0, 0, 0, 0, 1, 0, 0, 0, L"DX"},
    {0xFFFFFFFF, 2, 1, 0, 0, 0, 1, 0, 0, 0, L"DX"},
    {0, 1, 0, 0, 0, 0, 0, 0, 0, 0, L"JX"},
    {0, 1, 0, 0, 0, 0x10, 0, 0, 0, 0, L"JX"},
    {0, 1, 0, 0, 0, 0xFFFFFFEF, 0, 0, 0, 0, L"JX"},
    {0, 1, 0, 0, 0, 0xFFFFFFFF, 0, 0, 0, 0, L"JX"},
    {0, 1, 0, 0, 1, 0, 0, 0, 0, 0, L"JX"},
    {0, 1, 0, 0, 1, 0x10, 0, 0, 0, 0, L"IJX"},
    {0, 1, 0, 0, 1, 0xFFFFFFEF, 0, 0, 0, 0, L"JX"},
    {0, 1, 0, 0, 1, 0xFFFFFFFF, 0, 0, 0, 0, L"IJX"},
    {0, 1, 0, 1, 0, 0, 0, 0, 0, 0, L"SJX"},
    {0, 1, 0, 1, 0, 0x10, 0, 0, 0, 0, L"SJX"},
    {0, 1, 0, 1, 0, 0xFFFFFFEF, 0, 0, 0, 0, L"SJX"},
    {0, 1, 0, 1, 0, 0xFFFFFFFF, 0, 0, 0, 0, L"SJX"},
    {0, 1, 0, 1, 1, 0, 0, 0, 0, 0, L"SJX"},
    {0, 1, 0, 1, 1, 0x10, 0, 0, 0, 0, L"SIJX"},
    {0, 1, 0, 1, 1, 0xFFFFFFEF, 0, 0, 0, 0, L"SJX"},
    {0, 1, 0, 1, 1, 0xFFFFFFFF, 0, 0, 0, 0, L"SIJX"},
    {0, 1, 1, 1, 1, 0x10, 0, 0, 0, 0, L"SIJX"},
    {0, 1, 1, 1, 1, 0x10, 0, 1, 0, 0, L"SIX"},
    {0, 1, 1, 1, 1, 0x10, 1, 0, 0, 0, L"SICJX"},
    {0, 1, 1, 1, 1, 0x10, 1, 1, 0, 0, L"SIX"},
    {1, 1, 1, 1, 1, 0x10, 0, 0, 0, 0, L"DSIX"},
    {1, 1, 1, 1, 1, 0x10, 0, 1, 0, 0, L"DSIX"},
    {1, 1, 1, 1, 1, 0x10, 1, 0, 0, 0, L"DSIX"},
    {1, 1, 1, 1, 1, 0x10, 1, 1, 0, 0, L"DSIX"},
    {0, 0, 0, 0, 0, 0, 0, 0, 1, 0, L"JX"},
    {0, 0, 0, 0, 0, 0, 0, 0, 0, 1, L"JX"},
    {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, L"JX"},
    {0, 1, 0, 0, 0, 0, 0, 0, 1, 0, L"J"},
    {0, 1, 0, 0, 0, 0, 0, 0, 0, 1, L"J"},
    {0, 1, 0, 0, 0, 0, 0, 0, 1, 1, L"J"},
    {0, 2, 0, 0, 0, 0, 0, 0, 1, 0, L"JX"},
    {0, 2, 0, 0, 0, 0, 0, 0, 0, 1, L"JX"},
    {0, 2, 0, 0, 0, 0, 0, 0, 1, 1, L"JX"},
};

struct LETTER
{
    wchar_t chLetter;
    UINT uCommand;
};
constexpr LETTER LETTERS[] = {{L'D', ID_TRAY_DISCONNECT_ALL},    {L'S', ID_TRAY_SETTINGS},
                              {L'I', ID_TRAY_CREATE_INVITATION}, {L'C', ID_TRAY_CONNECT_TO_CLIENT},
                              {L'J', ID_TRAY_JOIN_SESSION},      {L'X', ID_TRAY_EXIT}};

constexpr UINT ALWAYS_ENABLED[] = {ID_TRAY_SHOW_CONNECTED, ID_TRAY_ABOUT, ID_TRAY_LANGUAGE_EN,
                                   ID_TRAY_LANGUAGE_FR, ID_TRAY_LANGUAGE_DE};

/// A menu as it was shown: each command's state.
struct SHOWN_MENU
{
    std::map<UINT, UINT> states; // MF_* of each command, those of sub-menus too
    HWND hWndOwner = nullptr;
    POINT position = {};
};

void ReadMenu(HMENU hMenu, SHOWN_MENU& shown)
{
    for (int nItem = 0; nItem < GetMenuItemCount(hMenu); ++nItem)
    {
        if (const HMENU hSubMenu = GetSubMenu(hMenu, nItem))
        {
            ReadMenu(hSubMenu, shown);
        }
        else if (const UINT uCommand = GetMenuItemID(hMenu, nItem))
        {
            shown.states[uCommand] = GetMenuState(hMenu, static_cast<UINT>(nItem), MF_BYPOSITION);
        }
    }
}

std::vector<SHOWN_MENU> g_menus;
HWND g_hForeground = nullptr;
std::vector<std::string> g_steps; // of the menu's showing, in order
HMENU g_hShown = nullptr;         // the last one

BOOL WINAPI RecordMenu(HMENU hMenu, UINT uFlags, int nX, int nY, int, HWND hWnd, const RECT* pRect)
{
    EXPECT_EQ(uFlags, 0U);
    EXPECT_EQ(pRect, nullptr);
    g_steps.emplace_back("menu");
    g_hShown = hMenu;
    SHOWN_MENU& shown = g_menus.emplace_back();
    shown.hWndOwner = hWnd;
    shown.position = {nX, nY};
    ReadMenu(hMenu, shown);
    return TRUE;
}

BOOL WINAPI RecordForeground(HWND hWnd)
{
    g_steps.emplace_back("foreground");
    g_hForeground = hWnd;
    return TRUE;
}

class TrayMenuTest : public AgentHarness
{
  protected:
    void SetUp() override
    {
        AgentHarness::SetUp();
        g_menus.clear();
        g_hForeground = nullptr;
        g_steps.clear();
        g_hResourceModule = m_hResources.get();
    }

    void Notify(LPARAM lMouseMessage, WPARAM wIconId = TRAY_ICON_ID)
    {
        SendMessageW(Window().m_hWnd, WM_TRAY_NOTIFY, wIconId, lMouseMessage);
    }

    void Enter(const MENU_CASE& state)
    {
        MSG_TRAYICON_SETTINGS& settings = Window().m_Settings;
        settings.bDisconnectMenu = state.bDisconnectMenu;
        settings.bSettingsMenu = state.bSettingsMenu;
        settings.bInvitationMenu = state.bInvitationMenu;
        settings.dwFeatureFlags = state.dwFeatureFlags;
        settings.bReverseConnectMenu = state.bReverseConnectMenu;
        settings.dwExitLock1 = state.dwExitLock1;
        settings.dwExitLock2 = state.dwExitLock2;
        Window().m_Connection.dwConnectCount = state.dwConnectCount;
        Window().m_dwConnectionType = state.dwConnectionType;
        Window().m_bReverseInProgress = state.bReverseInProgress;
    }

    const CModule m_hResources{LoadLibraryExW((StageFolder() / L"TKDASTRES.dll").c_str(), nullptr,
                                              LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE)};
    ImportHook<decltype(TrackPopupMenu)> m_track{"user32.dll", "TrackPopupMenu", &RecordMenu};
    ImportHook<decltype(SetForegroundWindow)> m_foreground{"user32.dll", "SetForegroundWindow",
                                                           &RecordForeground};
};

bool IsEnabled(const SHOWN_MENU& menu, UINT uCommand)
{
    const auto found = menu.states.find(uCommand);
    EXPECT_NE(found, menu.states.end()) << uCommand;
    return found != menu.states.end() && (found->second & (MF_GRAYED | MF_DISABLED)) == 0;
}

TEST_F(TrayMenuTest, TheShownMenuFollowsTheRuleInEveryState)
{
    size_t nCase = 0;
    for (const MENU_CASE& state : MENU_CASES)
    {
        Enter(state);
        Notify(WM_RBUTTONUP);
        ASSERT_EQ(g_menus.size(), ++nCase);
        for (const LETTER& letter : LETTERS)
        {
            EXPECT_EQ(IsEnabled(g_menus.back(), letter.uCommand),
                      state.enabled.find(letter.chLetter) != std::wstring_view::npos)
                << "case " << nCase << ", command " << letter.uCommand;
        }
        for (const UINT uCommand : ALWAYS_ENABLED)
        {
            EXPECT_TRUE(IsEnabled(g_menus.back(), uCommand)) << "case " << nCase;
        }
    }
    EXPECT_GE(nCase, 40U);
}

TEST_F(TrayMenuTest, AOneTimeAgentShowsItsOwnMenuUnderTheSameRules)
{
    g_bOneTimeSession = 1;
    Enter({1, 1, 1, 1, 1, 0x10, 1, 0, 1, 0, L""});
    Notify(WM_RBUTTONUP);
    ASSERT_EQ(g_menus.size(), 1U);
    EXPECT_TRUE(IsEnabled(g_menus[0], ID_TRAY_DISCONNECT_ALL));
    EXPECT_FALSE(IsEnabled(g_menus[0], ID_TRAY_JOIN_SESSION));
    EXPECT_FALSE(IsEnabled(g_menus[0], ID_TRAY_EXIT));
    EXPECT_FALSE(g_menus[0].states.contains(ID_TRAY_SETTINGS));
    EXPECT_FALSE(g_menus[0].states.contains(ID_TRAY_CREATE_INVITATION));
}

TEST_F(TrayMenuTest, TheLanguageInUseIsTickedAndNoOther)
{
    const wchar_t* const apszCodes[] = {L"en", L"fr", L"de", L"xx"};
    for (size_t nCode = 0; nCode < std::size(apszCodes); ++nCode)
    {
        CopyText(Window().m_Settings.szLanguage, apszCodes[nCode]);
        Notify(WM_LBUTTONDOWN);
        for (UINT uLanguage = 0; uLanguage < 3; ++uLanguage)
        {
            const UINT uState = g_menus.back().states.at(ID_TRAY_LANGUAGE_EN + uLanguage);
            EXPECT_EQ((uState & MF_CHECKED) != 0, uLanguage == nCode) << nCode;
        }
    }
    std::fill(std::begin(Window().m_Settings.szLanguage), std::end(Window().m_Settings.szLanguage), L'e');
    Notify(WM_LBUTTONDOWN);
    EXPECT_EQ(g_menus.back().states.at(ID_TRAY_LANGUAGE_EN) & MF_CHECKED, 0U) << "an unterminated code";
}

TEST_F(TrayMenuTest, OnlyThreeGesturesOnTheAgentsIconOpenTheMenu)
{
    for (const UINT uMessage : {WM_MOUSEMOVE, WM_LBUTTONUP, WM_RBUTTONDOWN, WM_LBUTTONDBLCLK, WM_MBUTTONUP,
                                static_cast<int>(NIN_KEYSELECT), static_cast<int>(NIN_BALLOONUSERCLICK)})
    {
        Notify(uMessage);
    }
    Notify(WM_RBUTTONUP, TRAY_ICON_ID + 1);
    EXPECT_TRUE(g_menus.empty());
    for (const UINT uMessage : {WM_RBUTTONUP, WM_LBUTTONDOWN, WM_CONTEXTMENU})
    {
        Notify(uMessage);
    }
    Notify(WM_RBUTTONUP, 0x10000 + TRAY_ICON_ID);
    EXPECT_EQ(g_menus.size(), 4U) << "of the icon's number only the low half counts";
}

TEST_F(TrayMenuTest, WhileABalloonIsUpOnlyTheLowHalfOfTheMouseMessageCounts)
{
    const LPARAM lWithUpperHalf = MAKELONG(WM_RBUTTONUP, TRAY_ICON_ID);
    Notify(lWithUpperHalf);
    EXPECT_TRUE(g_menus.empty());
    Window().m_NotifyIconData.uTimeout = 10000;
    Notify(lWithUpperHalf);
    EXPECT_EQ(g_menus.size(), 1U);
}

TEST_F(TrayMenuTest, TheMenuOpensAtThePointerWithTheAgentInFrontAndIsGoneAfterwards)
{
    SetCursorPos(300, 200);
    POINT cursor = {};
    GetCursorPos(&cursor);
    Notify(WM_RBUTTONUP);
    ASSERT_EQ(g_menus.size(), 1U);
    EXPECT_EQ(g_menus[0].position.x, cursor.x);
    EXPECT_EQ(g_menus[0].position.y, cursor.y);
    EXPECT_EQ(g_menus[0].hWndOwner, Window().m_hWnd);
    EXPECT_EQ(g_hForeground, Window().m_hWnd);
    EXPECT_FALSE(Window().m_hTrayMenu);
}

TEST_F(TrayMenuTest, TheMenuIsShownStepByStep)
{
    static decltype(&DestroyMenu) s_pfnDestroyMenu = nullptr;
    const ImportHook cursor(
        "user32.dll", "GetCursorPos", +[](LPPOINT) -> BOOL {
            g_steps.emplace_back("pointer");
            return TRUE;
        });
    const ImportHook post(
        "user32.dll", "PostMessageW", +[](HWND, UINT uMessage, WPARAM, LPARAM) -> BOOL {
            g_steps.emplace_back("post " + std::to_string(uMessage));
            return TRUE;
        });
    const ImportHook destroy(
        "user32.dll", "DestroyMenu", +[](HMENU hMenu) -> BOOL {
            g_steps.emplace_back("destroy");
            return s_pfnDestroyMenu(hMenu);
        });
    s_pfnDestroyMenu = destroy.Original();
    Notify(WM_RBUTTONUP);
    EXPECT_EQ(g_steps, (std::vector<std::string>{"pointer", "foreground", "menu", "post 0", "destroy"}));
    EXPECT_FALSE(IsMenu(g_hShown)) << "with its sub-menu";
}

TEST_F(TrayMenuTest, WithoutAMenuNothingOpensAndNothingIsTold)
{
    g_hResourceModule = g_hInstance; // holds no menus
    Notify(WM_RBUTTONUP);
    EXPECT_TRUE(g_menus.empty());
    EXPECT_EQ(g_hForeground, nullptr);
}
} // namespace
