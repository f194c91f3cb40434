#pragma once

#include <winsock2.h>
#include <windows.h>

/// What the chat window's arrangement depends on, in pixels.
struct CHAT_METRICS
{
    LONG nMargin;     // around everything
    LONG nGap;        // between a control and the next
    LONG nLineHeight; // of a line of text
    LONG nLabelWidth; // of the label above the edit control
    SIZE button;
};

/// Where the controls stand, in client coordinates.
struct CHAT_LAYOUT
{
    RECT people; // who takes part
    RECT history;
    RECT label; // of the edit control
    RECT input; // what is being typed
    RECT send;
};

/// The metrics at a resolution, in dots per inch. The button holds its text and looks like a button of the
/// system. Any thread.
CHAT_METRICS ScaleChatMetrics(UINT uDpi, LONG nLineHeight, LONG nLabelWidth, LONG nSendTextWidth);

/// The smallest client area in which everything can be read and used. Any thread.
SIZE SmallestChatClient(const CHAT_METRICS& metrics);

/// The arrangement in a client area; one that is too small is taken for the smallest. Any thread.
CHAT_LAYOUT LayOutChat(SIZE client, const CHAT_METRICS& metrics);

/// Where a window of that size comes up: in the lower right of the work area, nGap pixels from its edges,
/// made smaller where it is too large. Any thread.
RECT PlaceChatWindow(const RECT& workArea, SIZE window, LONG nGap);
