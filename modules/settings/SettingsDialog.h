#pragma once

#include <winsock2.h>
#include <windows.h>

/// Shows the settings with the words of the module hModule and stores what a person changes; the owner, which
/// may be null, is disabled meanwhile. It stays open as long as something that was to be stored can't be.
/// True when it was closed by OK; false when it was cancelled, can't be shown, or is open already, which
/// brings that one to the front. One thread.
bool RunSettingsDialog(HMODULE hModule, HWND hOwner, bool bApplicationMode);
