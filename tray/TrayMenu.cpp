#include "tray/TrayMenu.h"

#include "Include/BoundedText.h"
#include "tray/TrayIcon.h"
#include "resources/resource.h"

namespace
{
bool IsOrdinary(const TRAY_MENU_STATE& state)
{
    return state.dwConnectionType == ORDINARY_CONNECTION_TYPE;
}

bool CanConnect(const TRAY_MENU_STATE& state)
{
    return state.dwConnectCount == 0 && state.bReverseInProgress == 0;
}

bool IsExitLocked(const MSG_TRAYICON_SETTINGS& settings)
{
    return settings.dwExitLock1 != 0 || settings.dwExitLock2 != 0;
}
} // namespace

const std::array<TRAY_LANGUAGE, 3> TRAY_LANGUAGES = {{
    {ID_TRAY_LANGUAGE_EN, L"en"},
    {ID_TRAY_LANGUAGE_FR, L"fr"},
    {ID_TRAY_LANGUAGE_DE, L"de"},
}};

std::optional<bool> IsTrayCommandEnabled(UINT uCommand, const MSG_TRAYICON_SETTINGS& settings,
                                         const TRAY_MENU_STATE& state)
{
    switch (uCommand)
    {
    case ID_TRAY_DISCONNECT_ALL:
        return state.dwConnectCount > 0 && (!IsOrdinary(state) || settings.bDisconnectMenu != 0);
    case ID_TRAY_SETTINGS:
        return settings.bSettingsMenu != 0;
    case ID_TRAY_CREATE_INVITATION:
        return settings.bInvitationMenu != 0 && (settings.dwFeatureFlags & FEATURE_CREATE_INVITATION) != 0;
    case ID_TRAY_CONNECT_TO_CLIENT:
        return CanConnect(state) && settings.bReverseConnectMenu != 0;
    case ID_TRAY_JOIN_SESSION:
        return CanConnect(state);
    case ID_TRAY_EXIT:
        return IsOrdinary(state) && IsExitLocked(settings) ? std::optional<bool>(false) : std::nullopt;
    default:
        return std::nullopt;
    }
}

namespace
{
// A sub-menu's item has no command of its own.
void EnableCommands(HMENU hMenu, const MSG_TRAYICON_SETTINGS& settings, const TRAY_MENU_STATE& state)
{
    for (int nItem = 0; nItem < GetMenuItemCount(hMenu); ++nItem)
    {
        if (const HMENU hSubMenu = GetSubMenu(hMenu, nItem))
        {
            EnableCommands(hSubMenu, settings, state);
            continue;
        }
        const std::optional<bool> enabled =
            IsTrayCommandEnabled(GetMenuItemID(hMenu, nItem), settings, state);
        if (enabled)
        {
            EnableMenuItem(hMenu, static_cast<UINT>(nItem),
                           MF_BYPOSITION | (*enabled ? MF_ENABLED : MF_GRAYED | MF_DISABLED));
        }
    }
}
} // namespace

void PrepareTrayMenu(HMENU hMenu, const MSG_TRAYICON_SETTINGS& settings, const TRAY_MENU_STATE& state)
{
    EnableCommands(hMenu, settings, state);
    for (const TRAY_LANGUAGE& language : TRAY_LANGUAGES)
    {
        if (language.code == FixedText(settings.szLanguage))
        {
            CheckMenuItem(hMenu, language.uCommand, MF_BYCOMMAND | MF_CHECKED);
        }
    }
}
