#pragma once

#include "channel/TrayMessageTable.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/*
 * Records as text, both ways, by the field table. All functions may run on any thread.
 */

/// The number, with its name where that field's numbers have names: "1111 (allowed)".
std::wstring FormatDword(std::wstring_view field, DWORD dwValue);

/// The number that goes by that name in that field, if one does.
std::optional<DWORD> FindNamedValue(std::wstring_view field, std::wstring_view name);

/// All names of that field's numbers, with commas between them.
std::wstring ValueNames(std::wstring_view field);

/// The fields that are not zero, as "name=value name=value" in the record's order, without the type. Secrets
/// are masked, long texts and bytes cut. Bytes that are missing at the end are left out.
std::wstring FormatRecord(const RECORD_DESCRIPTION& record, std::span<const BYTE> bytes);

/// "MSG_TYPE_X (12 bytes) name=value ...", with what follows the record's head as payload.
std::wstring FormatMessage(const MESSAGE_DESCRIPTION& message, std::span<const BYTE> bytes);

/// The message whose name is MSG_TYPE_ and the text, MSG_TYPE_TRAYICON_ and the text, or the whole text, in
/// any case. Of two with one name the one of that direction wins. Null if there is none.
const MESSAGE_DESCRIPTION* FindMessageByName(std::wstring_view name, MESSAGE_DIRECTION direction);

/// Writes one field from its text. A name may reach into an embedded record with a dot. Numbers are decimal,
/// hexadecimal or negative; bytes are hexadecimal; any field takes raw bytes as "hex:0041", which may also
/// leave a text without its terminator. False leaves the reason in error.
bool SetRecordField(const RECORD_DESCRIPTION& record, std::span<BYTE> bytes, std::wstring_view name,
                    std::wstring_view value, std::wstring& error);

/// Compares one field with a value written as for SetRecordField. False leaves the reason in error, and
/// bEqual is then false.
bool CompareRecordField(const RECORD_DESCRIPTION& record, std::span<const BYTE> bytes, std::wstring_view name,
                        std::wstring_view value, bool& bEqual, std::wstring& error);

// The name under which scripts speak of what follows a record's head.
constexpr std::wstring_view PAYLOAD_FIELD = L"payload";

/// The bytes of a chat message's payload: raw ones behind hex:, else the text in UTF-16LE. Empty if hex:
/// isn't followed by hexadecimal bytes.
std::optional<std::vector<BYTE>> ParsePayload(std::wstring_view value);

/// A zeroed record with its type word.
std::vector<BYTE> MakeRecord(const MESSAGE_DESCRIPTION& message);

/// A little-endian DWORD out of a record; 0 where the bytes end before it.
DWORD ReadDword(std::span<const BYTE> bytes, size_t nOffset);
