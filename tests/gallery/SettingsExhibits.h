#pragma once

#include "tray/TKDASTWindow.h"

/*
 * The dialog of the staged settings module. Main thread.
 */
void ShowSettings(CTaskBarWindow& window);
void ShowSettingsForUser(CTaskBarWindow& window);
void ShowSettingsNoRights(CTaskBarWindow& window);
void ShowSettingsUserNoRights(CTaskBarWindow& window);
void ShowSettingsBadPort(CTaskBarWindow& window);
void ShowSettingsRefused(CTaskBarWindow& window);
