#pragma once

#include "tray/TKDASTWindow.h"

/*
 * The window of the staged chat module. Main thread.
 */
void ShowChat(CTaskBarWindow& window);
void ShowChatEmpty(CTaskBarWindow& window);
void ShowChatLong(CTaskBarWindow& window);
void ShowChatRightToLeft(CTaskBarWindow& window);
