#pragma once

#include <map>
#include <string>

#include <winsock2.h>
#include <windows.h>

/// What the desktop looks like to a program that starts now: "on" or "off" of every effect by its name, and
/// the texts of pattern and wallpaper.
using DesktopInForce = std::map<std::string, std::string>;

/// Asks in a fresh process, as a process keeps what it has once read. Empty when that couldn't be started.
DesktopInForce ReadDesktopInForce();

/// Puts all that is named in force for this session; the stored profile stays as it is.
void PutDesktopInForce(const DesktopInForce& desktop);

/// The desktop when all that the mask of desktop options names is off.
DesktopInForce SwitchedOff(DesktopInForce desktop, DWORD dwOptions);
