#pragma once

#include <winsock2.h>
#include <windows.h>

#include <string>

/// Tells assistive programs of a window that has come up without taking the keyboard: to them it is an alert
/// from now on, whose description is the text, if there is any. The text is for what the window paints
/// itself, which no control says. Where the system can't describe windows the alert is told all the same.
/// Main thread; once, when the window is filled and shown.
void AnnounceWindow(HWND hWnd, const std::wstring& text);
