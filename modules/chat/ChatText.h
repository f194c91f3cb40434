#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/*
 * What the chat window says, as plain text. Whatever comes from somebody else is made harmless here: it can
 * neither break out of its line nor turn the words around it. Any thread.
 */

constexpr size_t MAX_CHAT_TEXT = 32000;      // characters of one message
constexpr size_t MAX_SHOWN_NAME = 64;        // characters, the ellipsis included
constexpr wchar_t CHAT_LINE_END[] = L"\r\n"; // as an edit control has it

/// A name in one line: control characters become blanks, marks that turn the direction of writing go, and
/// what is too long ends in "…".
std::wstring CleanChatName(std::wstring_view name);

/// A text whose lines end with "\n", without such ends at its own end; tabs stay, other control characters
/// and broken characters become U+FFFD, marks that turn the direction of writing go, and what is longer than
/// MAX_CHAT_TEXT ends in "…".
std::wstring CleanChatText(std::wstring_view text);

/// The lines of the history for one message; name and text must be clean. All lines but the first are
/// indented, so that a message can't pass for several.
std::wstring ComposeChatLine(std::wstring_view time, std::wstring_view name, std::wstring_view text);

/// The line of the history for something that nobody has said.
std::wstring ComposeNoticeLine(std::wstring_view time, std::wstring_view notice);

/// Who a connect notice of the agent is about: "Alice" of "Alice connected". The agent cuts a notice that
/// doesn't fit its field of cchField characters, so the last word may be missing in part.
std::wstring_view NameOfNotice(std::wstring_view notice, bool bConnected, size_t cchField);

/// The name or text so that it stands by itself where the direction of writing changes: as it is, or between
/// two invisible marks.
std::wstring IsolateText(std::wstring_view text);

/// Whether a text says anything: blanks and line ends alone don't.
bool IsWorthSending(std::wstring_view text);

/// The key that reaches a control by its label ("S" of "&Send"), in upper case; zero when there is none.
wchar_t AccessKeyOf(std::wstring_view label);
