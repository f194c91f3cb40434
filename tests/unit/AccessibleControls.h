#pragma once

#include <winsock2.h>
#include <windows.h>

#include <string>
#include <vector>

/*
 * What a person who doesn't see the screen, or has no mouse, gets of a window's controls. On the window's
 * thread.
 */

/// What a control is to a screen reader, by its class; Nothing: it can't be told what it is for.
enum class ControlRole
{
    Nothing,
    Text, // to be read
    Button,
    CheckBox,
    Field, // to be typed or read in
    List,  // to be chosen from
    Link,
    Progress,
};
ControlRole RoleOf(HWND hControl);

/// The text by which screen readers call a control: a button's or a link's own, for all others that of the
/// label right before it. Without marks.
std::wstring AccessibleName(HWND hControl);

/// The same as the system presents it to assistive programs, with a ROLE_SYSTEM_*; empty and 0 when it
/// doesn't.
struct PRESENTED_CONTROL
{
    std::wstring name;
    LONG lRole = 0;
};
PRESENTED_CONTROL PresentedControl(HWND hControl);

/// The controls that Tab must reach, in the order of the template.
std::vector<HWND> ControlsToReach(HWND hWnd);

/// The control of the window that has the focus, itself or by a part of its own; null when there is none.
HWND FocusedControl(HWND hWnd);
