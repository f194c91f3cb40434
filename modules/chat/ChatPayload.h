#pragma once

#include <winsock2.h>
#include <windows.h>

#include "Include/BoundedText.h"
#include "channel/TrayMessages.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

/*
 * What two chat windows say to each other: MSG_CHAT_MESSAGE with its payload, the same in both directions.
 * The agent between them carries the bytes and doesn't look into them.
 *
 *   szUsername       who says it; the whole field may be filled, without a terminator
 *   dwMessageLength  bytes of payload
 *   payload          UTF-16LE text without a terminator; lines end with "\r\n" or "\n"
 *
 * A payload may be empty, which is an empty text. The last byte of an odd number is ignored. Nothing promises
 * that the text is well-formed or printable: it may hold zeros, control characters and halves of surrogate
 * pairs, and whoever shows it makes it harmless.
 *
 * Any thread.
 */

/// What a record can tell the length of, in characters.
constexpr size_t MAX_CHAT_PAYLOAD = MAXDWORD / sizeof(wchar_t);

/// Who a message is from. The view lives as long as the record.
inline std::wstring_view ChatSender(const MSG_CHAT_MESSAGE& message) noexcept
{
    return FixedText(message.szUsername);
}

/// The text of a payload of cbPayload bytes, of which the first cchMost characters are taken.
inline std::wstring ReadChatText(const void* pPayload, size_t cbPayload, size_t cchMost = std::wstring::npos)
{
    std::wstring text(std::min(cbPayload / sizeof(wchar_t), cchMost), L'\0');
    // Copied, since nothing says that the payload stands at an even address.
    std::memcpy(text.data(), pPayload, text.size() * sizeof(wchar_t));
    return text;
}

/// The text of a whole record: the dwMessageLength bytes that follow the head must be there.
inline std::wstring ReadChatText(const MSG_CHAT_MESSAGE& message, size_t cchMost = std::wstring::npos)
{
    return ReadChatText(&message + 1, message.dwMessageLength, cchMost);
}

/// A whole record, head and payload, as it goes over the wire. A name that doesn't fit is cut, as is a text
/// of more than MAX_CHAT_PAYLOAD.
inline std::vector<char> MakeChatRecord(std::wstring_view username, std::wstring_view text)
{
    const size_t cbText = std::min(text.size(), MAX_CHAT_PAYLOAD) * sizeof(wchar_t);
    MSG_CHAT_MESSAGE head = {};
    head.dwType = MSG_TYPE_CHAT_MESSAGE;
    CopyText(head.szUsername, username);
    head.dwMessageLength = static_cast<DWORD>(cbText);
    std::vector<char> record(sizeof(head) + cbText);
    std::memcpy(record.data(), &head, sizeof(head));
    std::memcpy(record.data() + sizeof(head), text.data(), cbText);
    return record;
}
