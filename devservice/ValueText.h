#pragma once

#include <winsock2.h>
#include <windows.h>

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/*
 * Values as a person writes them in a script or reads them in a log. All functions may run on any thread and
 * leave the last error alone.
 */

/// A 32-bit number: decimal, hexadecimal with 0x, or negative (taken modulo 2^32). Empty if the text is
/// anything else.
std::optional<DWORD> ParseDword(std::wstring_view text);

/// A 64-bit number, written as for ParseDword.
std::optional<ULONGLONG> ParseQword(std::wstring_view text);

/// A number from 0 to 65535, written as for ParseDword.
std::optional<unsigned short> ParsePort(std::wstring_view text);

/// A decimal fraction with a point.
std::optional<double> ParseDouble(std::wstring_view text);

/// Pairs of hexadecimal digits; blanks between pairs are allowed. Empty if a digit is wrong or missing.
std::optional<std::vector<BYTE>> ParseHexBytes(std::wstring_view text);

/// Pairs of hexadecimal digits with that separator between them.
std::wstring HexText(std::span<const BYTE> bytes, std::wstring_view separator);

/// "0xFFFFFFC8": eight digits.
std::wstring HexDword(DWORD dwValue);

/// The text in quotes, cut after cchMost characters with a note of its whole length; control characters and
/// quotes are written as the escapes of the script language.
std::wstring QuotedText(std::wstring_view text, size_t cchMost);

/// Whether the texts differ in nothing but the case of their letters, by the system's own table.
bool EqualsNoCase(std::wstring_view left, std::wstring_view right);

/// The text in UTF-8; halves of pairs become replacement characters.
std::string ToUtf8(std::wstring_view text);

/// Bytes that are no UTF-8 become replacement characters; a byte order mark at the start is left out.
std::wstring FromUtf8(std::string_view text);
