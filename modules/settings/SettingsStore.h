#pragma once

#include "modules/settings/SettingsChoice.h"

#include <winsock2.h>
#include <windows.h>

#include <string>
#include <vector>

/*
 * Where the settings come from and where they go: the registry values that the agent reads. Any thread.
 */

/// The settings in force. In application mode the language is the user's own; the machine's where the user
/// has none.
SETTINGS ReadSettings(bool bApplicationMode);

/// Whether the settings of the machine could probably be stored, found out without writing anything.
bool CanStoreForMachine();

/// Stores one setting and touches nothing else; the key is made where it is missing. Result: a Windows error
/// code.
LSTATUS StoreSetting(const SETTINGS& settings, SETTING setting, bool bApplicationMode);

/// The codes of the languages that lie beside a module: English, then those that have a folder of their own,
/// in the order of their codes.
std::vector<std::wstring> InstalledLanguages(HMODULE hModule);

/// The locale of the language that Windows speaks to this user: "de-AT". Empty when the system can't tell.
std::wstring WindowsLocale();
