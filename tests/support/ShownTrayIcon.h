#pragma once

#include <string>
#include <vector>

#include <winsock2.h>
#include <windows.h>

/// An icon that the shell's own tray shows, as it stands on the screen.
struct ShownTrayIcon
{
    std::wstring tip;
    RECT place = {}; // on the screen
};

/// The icons in the tray of this desktop's shell. It reads the shell's tool tips, which on the test system
/// know place and text of each icon.
std::vector<ShownTrayIcon> ReadShownTrayIcons();

/// The balloons that the tray shows.
std::vector<std::wstring> ReadShownBalloons();

/// How far the picture on the screen is from that of the icon, drawn small on the tray's ground, between 0
/// for the very same and 1.
double DistanceFromIcon(const ShownTrayIcon& shown, HICON hIcon);
