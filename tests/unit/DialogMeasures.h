#pragma once

#include <winsock2.h>
#include <windows.h>

#include <string>
#include <vector>

/*
 * What can be measured on a dialog that the system has made of its template, to hold translations against
 * their templates. On the dialog's thread.
 */

/// All controls, in the order of the template.
std::vector<HWND> ControlsOf(HWND hDialog);

std::wstring TextOf(HWND hControl);

/// Where a control stands, in the dialog's client coordinates.
RECT PlaceInDialog(HWND hDialog, HWND hControl);

/// The key that a text marks with "&", in lower case; 0: none.
wchar_t MarkedKey(const std::wstring& text);

/// The key that reaches a control by its text, in lower case; 0: none.
wchar_t ShortcutKey(HWND hControl);

/// Whether a control that shows a text of its own shows all of it, with room to spare, as fonts differ from
/// system to system.
bool HasRoomToSpare(HWND hControl);

/// The same of any text in the control's font, on one line of that many pixels.
bool HasRoomToSpareFor(HWND hControl, const std::wstring& text, LONG nWidth);
