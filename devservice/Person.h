#pragma once

#include <winsock2.h>
#include <windows.h>

#include <functional>
#include <string_view>

/*
 * What the person at the desktop does: opens the agent's menu, presses keys and buttons, fills in fields.
 * Works across processes. Any thread.
 */

/// Called again and again while something is waited for; false ends the wait.
using PAUSE_FUNCTION = std::function<bool(DWORD dwMilliseconds)>;

/// A visible top-level window whose title holds the text, of any process but this one; null when there is
/// none. An open menu has the title "menu". Where there is a text, one of the window's controls must hold it.
HWND FindShownWindow(std::wstring_view title, std::wstring_view text = {});

/// Waits until such a window is there, or is gone. False when the time is over. phFound, where it is wanted,
/// gets the window that was seen: looked for once more, it may already have another text.
bool WaitForShownWindow(std::wstring_view title, bool bThere, DWORD dwMilliseconds,
                        const PAUSE_FUNCTION& pause, std::wstring_view text = {}, HWND* phFound = nullptr);

/// Clicks on the agent's icon, as the shell tells it, and waits for the menu. False when none comes.
bool OpenTrayMenu(HWND hTrayWindow, DWORD dwMilliseconds, const PAUSE_FUNCTION& pause);

/// Presses keys, each a letter or one of Escape, Enter, Tab, Up, Down. False for any other word, with nothing
/// pressed.
bool PressKey(std::wstring_view key);

/// The text that has been copied, as programs that know only the ANSI code page see it; empty when there is
/// none.
std::wstring ClipboardText();

/// The path of the file that has been copied, the first of several; empty when there is none.
std::wstring ClipboardFile();
