#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstddef>
#include <string>

/*
 * What dialogs do with their controls. A control that the template lacks is passed over, and its text is
 * empty. Main thread.
 */

/// A control's text, cut to cchText characters, terminator included.
std::wstring ReadControl(HWND hDlg, int nControl, size_t cchText);

/// A combo box item's text, cut to cchText characters, terminator included; empty when there is no such item.
std::wstring ItemText(HWND hCombo, WPARAM wItem, size_t cchText);

/// Shows a number in decimal.
void ShowNumber(HWND hDlg, int nControl, DWORD dwNumber);

/// What a person typed for a number: the digits at its beginning, behind blanks and a sign. Zero without any;
/// the nearest that fits when there are too many.
DWORD ParseNumber(const std::wstring& text);

/// Where a control stands in its dialog, in client coordinates.
RECT ControlPlace(HWND hDlg, int nControl);

/// Takes the scroll bar off an edit control whose text can be seen whole.
void HideIdleScrollBar(HWND hEdit);

/// Whether a check box is ticked.
bool IsTicked(HWND hDlg, int nBox);

/// Lets a control be used, or not. The label before it goes along: its key would lead to the next control.
void EnableControl(HWND hDlg, int nControl, bool bEnable);

/// Gives a control that takes a secret its font.
void SetSecretFont(HWND hDlg, int nControl);

/// Tells by a text of the language module that something is missing, and moves the focus there.
void AskFor(HWND hDlg, UINT uString, int nControl);

/// Lets a modeless dialog whose keys no message loop knows be walked through: Tab, back with Shift, and Alt
/// with a button's letter, in whatever loop the thread is.
void WalkByKeyboard(HWND hDlg);

/// Makes the Enter key on a link what a click of the mouse is to the dialog.
void ClickLinkByEnter(HWND hDlg, int nLink);

/// Tells screen readers that a control has another text which the dialog paints in its stead.
void TellNewText(HWND hDlg, int nControl);

/// At WM_SYSCOLORCHANGE, which the system tells a dialog only: passes it on to the controls that keep
/// colours, such as links and bars.
void PassColorsOn(HWND hDlg);

/// Paints a whole dialog again, at once.
void PaintAnew(HWND hDlg);
