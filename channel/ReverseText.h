#pragma once

#include <winsock2.h>
#include <windows.h>

#include "channel/TrayMessages.h"

#include <cstddef>
#include <string>
#include <string_view>

/*
 * What is said of a reverse connection that has come to its end. The service's texts are shown as they are,
 * and cut, not refused, where they are longer than there is room. Any thread.
 */

// In szError: a one-time join has led to its session.
constexpr std::wstring_view REVERSE_JOINED = L"NOERROR";

constexpr size_t MAX_REVERSE_FORMAT = 2048; // characters, terminator included
constexpr size_t MAX_REVERSE_REASON = 2048; // characters, terminator included

/// Whether a one-time join has led to its session: there is nothing to tell then.
bool HasJoined(const MSG_REVERSE_CONNECTION& record);

/// Why it failed: in the service's words, or else in the system's for its error number.
std::wstring ComposeReverseReason(const MSG_REVERSE_CONNECTION& record);

/// The whole message. The format takes one text: the invitation of a one-time join, otherwise the reason.
std::wstring ComposeReverseResult(const MSG_REVERSE_CONNECTION& record, std::wstring_view format);
