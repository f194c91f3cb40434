#pragma once

#include <winsock2.h>
#include <windows.h>

#include <string>
#include <string_view>

/*
 * What the icon shows, decided from plain values. CTaskBarWindow carries it out.
 */

// MSG_TRAYICON_SETTINGS::dwTrayIcon. Any other value means the same as TRAY_ICON_SHOWN.
enum TRAY_ICON_MODE : DWORD
{
    TRAY_ICON_HIDDEN = 0,
    TRAY_ICON_SHOWN = 1,
    TRAY_ICON_WHILE_CONNECTED = 2,
};

// MSG_TRAYICON_CONNECT::dwConnectionType. The ordinary type obeys the user's settings; every other makes
// itself seen, and the second kind has a setting of its own.
constexpr DWORD ALWAYS_ANNOUNCED_CONNECTION_TYPE = 0;
constexpr DWORD ORDINARY_CONNECTION_TYPE = 1;
constexpr DWORD SECOND_KIND_CONNECTION_TYPE = 2;

enum class TRAY_ICON_PRESENCE
{
    Shown,
    Hidden,       // taken away if it is there
    HiddenAlways, // taken away without looking whether it is there
};

/// Whether the icon must be there. Any thread.
TRAY_ICON_PRESENCE DecideTrayIconPresence(DWORD dwMode, DWORD dwConnectionType, bool bOneTimeSession,
                                          bool bConnected);

enum class TRAY_ICON_IMAGE
{
    Active,
    Idle,
    Permission,
};

/// The image while the service isn't reconfiguring. Any thread.
TRAY_ICON_IMAGE ChooseTrayIconImage(bool bConnected, bool bPermissionRequired);

/// Milliseconds to the next attempt after so many that failed in a row. Any thread.
UINT GetTrayRetryPeriod(int nRetries);

constexpr size_t TIP_LENGTH_OF_OLD_SHELL = 64; // characters, terminator included
constexpr size_t TIP_LENGTH = 128;             // characters, terminator included

/// The tip: dots always end it, and a text with something in front loses its last character to them. prefix
/// is what stands in front, already joined; cchTip is the shell's room. Empty when there is no text. Any
/// thread.
std::wstring ComposeTrayTip(std::wstring_view text, std::wstring_view prefix, bool bPrefixed, size_t cchTip);
