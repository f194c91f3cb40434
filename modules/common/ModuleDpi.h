#pragma once

#include <winsock2.h>
#include <windows.h>

#include "Include/Handles.h"

/*
 * Sizes at a window's resolution. Systems that know only one resolution for all windows give that one.
 */

/// Dots per inch of the screen that the window is on. Any thread.
UINT WindowDpi(HWND hWnd);

/// A length given for 96 dots per inch, in pixels. Any thread.
int ScaleForDpi(int nLength, UINT uDpi);

/// The font of the system's own message boxes, in that resolution's size; null when the system can't tell.
/// Any thread.
CGdiObject MakeMessageFont(UINT uDpi);

/// The size of a window of these styles, without a menu, whose client area has that size. Any thread.
SIZE WindowSizeAround(SIZE client, DWORD dwStyle, DWORD dwExStyle, UINT uDpi);
