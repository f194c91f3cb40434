#pragma once

#include <winsock2.h>
#include <windows.h>

/*
 * MSG_TRAYICON_INIT::dwDesktopEffects: what is switched off on the user's desktop while somebody looks at it.
 * A mask of DESKTOP_OPTIONS_NONE, or of zero, asks for nothing.
 */
enum DESKTOP_OPTION : DWORD
{
    DESKTOP_OPTIONS_NONE = 0x0001,
    DESKTOP_OPTION_PATTERN = 0x0002,
    DESKTOP_OPTION_WALLPAPER = 0x0004,
    DESKTOP_OPTION_FONT_SMOOTHING = 0x0010,
    DESKTOP_OPTION_FULL_WINDOW_DRAG = 0x0020,
    DESKTOP_OPTION_DROP_SHADOW = 0x0040,
    DESKTOP_OPTION_MENU_FADE = 0x0080,
    DESKTOP_OPTION_MENU_ANIMATION = 0x0100,
    DESKTOP_OPTION_GRADIENT_CAPTIONS = 0x0200,
    DESKTOP_OPTION_CURSOR_SHADOW = 0x0400,
    DESKTOP_OPTION_COMBO_BOX_ANIMATION = 0x0800,
    DESKTOP_OPTION_SELECTION_FADE = 0x1000,
    DESKTOP_OPTION_TOOL_TIP_ANIMATION = 0x2000,
    DESKTOP_OPTION_TOOL_TIP_FADE = 0x4000,
};

/// Logs the user off; bForce doesn't ask the applications. Returns what the system answered, with its last
/// error. Main thread.
int Logoff(int bForce);

/// Locks the workstation, or has a screen saver cover it. Returns 1 whatever came of it. Main thread.
int LockWorkstation();
