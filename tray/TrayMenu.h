#pragma once

#include <winsock2.h>
#include <windows.h>

#include "channel/TrayMessages.h"

#include <array>
#include <optional>
#include <string_view>

/*
 * What the tray menu offers, decided from plain values. CTaskBarWindow shows it and carries the choice out.
 */

// MSG_TRAYICON_SETTINGS::dwFeatureFlags: invitations may be created.
constexpr DWORD FEATURE_CREATE_INVITATION = 0x10;

struct TRAY_MENU_STATE
{
    DWORD dwConnectCount = 0;
    DWORD dwConnectionType = 0;
    DWORD bReverseInProgress = 0;
};

/// Whether the command can be chosen; empty where the menu keeps what its template says. Any thread.
std::optional<bool> IsTrayCommandEnabled(UINT uCommand, const MSG_TRAYICON_SETTINGS& settings,
                                         const TRAY_MENU_STATE& state);

struct TRAY_LANGUAGE
{
    UINT uCommand;
    std::wstring_view code;
};

/// The languages of the menu, in its order.
extern const std::array<TRAY_LANGUAGE, 3> TRAY_LANGUAGES;

/// Grays and enables the commands of a loaded menu and ticks the language in use. Main thread.
void PrepareTrayMenu(HMENU hMenu, const MSG_TRAYICON_SETTINGS& settings, const TRAY_MENU_STATE& state);
