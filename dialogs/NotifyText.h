#pragma once

#include <winsock2.h>
#include <windows.h>

#include "channel/TrayMessages.h"

#include <string>

/*
 * What the notification popup says and when it closes, decided from plain values. Texts come from the
 * language module. Any thread.
 */

constexpr size_t MAX_NOTIFY_TEXT = 4096; // characters of the body, terminator included

/// The body that tells who has connected.
std::wstring ComposeConnectedText(const MSG_TRAYICON_SETTINGS& settings,
                                  const MSG_TRAYICON_CONNECT& connection);

/// The body that tells who has left.
std::wstring ComposeDisconnectedText(const MSG_TRAYICON_CONNECT& connection);

/// The head line of the list of everyone connected.
std::wstring ComposeConnectedCount(DWORD dwClientCount);

/// Whether the close box, or the timer, may close the popup: not while its fixed form stands, and otherwise
/// when nobody is connected any more, or in a connection of the ordinary type that isn't to be kept in sight.
bool MayNotifyClose(const MSG_TRAYICON_SETTINGS& settings, const MSG_TRAYICON_CONNECT& connection);

/// Whether the popup comes with a sound.
bool IsNotifySoundWanted(const MSG_TRAYICON_SETTINGS& settings, bool bSystemAccount);

/// The timer's period in milliseconds, as long as the system can count; 0: no timer.
UINT GetNotifyPeriod(DWORD dwNotifySeconds);
