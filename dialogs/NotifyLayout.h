#pragma once

#include <winsock2.h>
#include <windows.h>

#include <string>

/// Where the parts of the notification popup stand, in client coordinates.
struct NOTIFY_LAYOUT
{
    SIZE client;
    RECT head;
    RECT body;
    RECT button;
};

/// What the parts need at one width of the popup, in pixels.
struct NOTIFY_NEED
{
    LONG nHeadHeight;
    LONG nBodyHeight;
    bool bButton; // the button is shown
};

/// The template's arrangement stretched to a width and to what the parts need; none becomes smaller than the
/// template has it. The template's button hangs below its edge and gets its room when it is shown. What
/// exceeds the greatest client height is taken from the body. Any thread.
NOTIFY_LAYOUT StretchNotifyLayout(const NOTIFY_LAYOUT& original, LONG nWidth, const NOTIFY_NEED& need,
                                  LONG nMaxHeight);

/// Gives the head the room that its text needs, and the body what a text needs that is going to be painted in
/// its place, widening the popup when it would become too tall, and bounded by the work area; places the
/// popup again if its size has changed. To be called before the body has its text, which would be laid out
/// anew at each size. Main thread.
void FitNotifyDialog(HWND hWnd, const std::wstring& paintedBody);

/// Draws the body text of a popup whose body control is hidden, in that control's place. Main thread.
void DrawNotifyBody(HWND hWnd, HDC hDC);
