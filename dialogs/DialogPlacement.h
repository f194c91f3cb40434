#pragma once

#include <winsock2.h>
#include <windows.h>

/*
 * The corner of the screen in which the agent's dialogs appear. Positions are those of the window's top left
 * corner; all units are pixels of the screen.
 */

/// Beside the taskbar, whose edge is an ABE_* value. Width and height of the work area stand for its right
/// and bottom edges: on a display that doesn't start at the origin the window comes to lie left of, or above,
/// the corner. Any thread.
POINT PlaceByTaskbar(const RECT& taskbar, UINT uEdge, const RECT& workArea, SIZE window);

/// In the lower right of the work area, clear of a taskbar that can't be asked. screen is what the system
/// gives to a full-screen window. Any thread.
POINT PlaceByWorkArea(SIZE screen, const RECT& workArea, SIZE window);

/// In the lower right of the screen. Any thread.
POINT PlaceByScreen(SIZE screen, SIZE window);

/// Moves a window to the tray corner and shows it on top of the others without activating it. Main thread.
void SetNotifyDialogLocation(HWND hWnd);

/// The work area of the monitor that holds the rectangle. 0 when there is none; workArea is then as it was.
/// Any thread.
int GetDisplayWorkArea(const RECT& rect, RECT& workArea);

/// Makes SetNotifyDialogLocation ask the taskbar where it is. Whether it can: 1 or 0, which it is while there
/// is no shell. Main thread.
int LoadAppBarMessage();

/// Shows a window on top of the others without activating it. Main thread.
void ShowTopmost(HWND hWnd);
