#include "devservice/RecordText.h"

#include "Include/BoundedText.h"
#include "channel/TrayMessages.h"
#include "devservice/ValueText.h"
#include "modules/chat/ChatPayload.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <locale>
#include <optional>
#include <sstream>

namespace
{
constexpr size_t SHOWN_TEXT = 64;
constexpr size_t SHOWN_BYTES = 16;
constexpr std::wstring_view RAW_PREFIX = L"hex:";
constexpr std::wstring_view MASK = L"***";
constexpr DWORD SHOWN_AS_HEX_FROM = 0x80000000;

struct VALUE_NAME
{
    const wchar_t* pszField;
    DWORD dwValue;
    const wchar_t* pszName;
};

constexpr VALUE_NAME s_aValueNames[] = {
    {L"dwDesktopState", DESKTOP_STATE_LOCKED, L"locked"},
    {L"dwDesktopState", DESKTOP_STATE_UNLOCKED, L"unlocked"},
    {L"dwReverseCode", REVERSE_CODE_FINISHED, L"finished"},
    {L"dwReverseCode", REVERSE_CODE_SHOW_WAIT, L"show wait window"},
    {L"dwReverseCode", REVERSE_CODE_CLOSE_WAIT, L"close wait window"},
    {L"dwReverseCode", REVERSE_CODE_CANCEL, L"cancel"},
    {L"dwRequest", UDP_REQUEST_PORT_LOOKUP, L"port lookup"},
    {L"dwRequest", UDP_REQUEST_CREATE_INVITATION, L"create invitation"},
    {L"dwRequest", UDP_REQUEST_DELETE_INVITATIONS, L"delete all invitations"},
    {L"dwAnswer", PERMISSION_ANSWER_ALLOWED, L"allowed"},
    {L"dwAnswer", PERMISSION_ANSWER_DENIED, L"denied"},
    {L"dwAnswer", PERMISSION_ANSWER_EXPIRED, L"expired"},
    {L"dwAnswer", PERMISSION_ANSWER_WITHDRAWN, L"withdrawn"},
    {L"dwAnswer", PERMISSION_ANSWER_UNUSABLE, L"unusable"},
    {L"nAfType", AF_INET, L"IPv4"},
    {L"nAfType", AF_INET6, L"IPv6"},
};

template <typename Value>
Value ReadValue(std::span<const BYTE> bytes)
{
    Value value = {};
    memcpy(&value, bytes.data(), std::min(bytes.size(), sizeof(value)));
    return value;
}

template <typename Value>
bool WriteValue(std::span<BYTE> bytes, const std::optional<Value>& value)
{
    if (!value)
    {
        return false;
    }
    memcpy(bytes.data(), &*value, sizeof(Value));
    return true;
}

// Records lie in buffers of the heap and their texts at even offsets, so the characters are aligned.
std::wstring_view TextOf(std::span<const BYTE> bytes)
{
    return FixedText(reinterpret_cast<const wchar_t*>(bytes.data()), bytes.size() / sizeof(wchar_t));
}

std::wstring FormatDouble(double dblValue)
{
    std::wostringstream stream;
    stream.imbue(std::locale::classic());
    stream.setf(std::ios::showpoint);
    constexpr int nDigits = 4;
    stream.precision(nDigits);
    stream << dblValue;
    return stream.str();
}

std::wstring FormatBytes(std::span<const BYTE> bytes)
{
    std::wstring text = HexText(bytes.subspan(0, std::min(bytes.size(), SHOWN_BYTES)), L" ");
    if (bytes.size() > SHOWN_BYTES)
    {
        text += L" ...";
    }
    return text;
}

// As the text that it should be; what can't be one is shown as it is.
std::wstring FormatPayload(std::span<const BYTE> payload)
{
    if (payload.size() % sizeof(wchar_t) != 0)
    {
        return FormatBytes(payload);
    }
    return QuotedText(ReadChatText(payload.data(), payload.size()), SHOWN_TEXT);
}

bool IsZero(std::span<const BYTE> bytes)
{
    return std::all_of(bytes.begin(), bytes.end(), [](BYTE bValue) { return bValue == 0; });
}

std::wstring FormatField(const RECORD_FIELD& field, std::span<const BYTE> bytes)
{
    switch (field.kind)
    {
    case FIELD_KIND::Dword:
        return FormatDword(field.pszName, ReadValue<DWORD>(bytes));
    case FIELD_KIND::Qword:
        return std::to_wstring(ReadValue<ULONGLONG>(bytes));
    case FIELD_KIND::Double:
        return FormatDouble(ReadValue<double>(bytes));
    case FIELD_KIND::Text:
        return QuotedText(TextOf(bytes), SHOWN_TEXT);
    case FIELD_KIND::Secret:
        return std::wstring(MASK);
    case FIELD_KIND::Bytes:
    case FIELD_KIND::Record:
        break;
    }
    return FormatBytes(bytes);
}

bool IsText(const RECORD_FIELD& field)
{
    return field.kind == FIELD_KIND::Text || field.kind == FIELD_KIND::Secret;
}

bool IsEmptyField(const RECORD_FIELD& field, std::span<const BYTE> bytes)
{
    return IsText(field) ? TextOf(bytes).empty() : IsZero(bytes);
}

void AppendFields(const RECORD_DESCRIPTION& record, std::span<const BYTE> bytes, const std::wstring& prefix,
                  std::wstring& text)
{
    for (const RECORD_FIELD& field : record.fields)
    {
        // The type at the head is told by the record's name.
        const bool bType = field.uOffset == 0 && std::wstring_view(field.pszName) == L"dwType";
        if (bType || field.uOffset + field.uSize > bytes.size())
        {
            continue;
        }
        const std::span<const BYTE> value = bytes.subspan(field.uOffset, field.uSize);
        if (field.kind == FIELD_KIND::Record)
        {
            AppendFields(*field.pRecord, value, prefix + field.pszName + L'.', text);
            continue;
        }
        if (IsEmptyField(field, value))
        {
            continue;
        }
        if (!text.empty())
        {
            text += L' ';
        }
        text.append(prefix).append(field.pszName).append(L"=").append(FormatField(field, value));
    }
}

struct FIELD_PLACE
{
    const RECORD_FIELD* pField;
    size_t nOffset; // from the start of the outermost record
};

std::optional<FIELD_PLACE> FindField(const RECORD_DESCRIPTION& record, std::wstring_view name)
{
    const size_t nDot = name.find(L'.');
    const auto found = std::find_if(record.fields.begin(), record.fields.end(),
                                    [head = name.substr(0, nDot)](const RECORD_FIELD& field) {
                                        return EqualsNoCase(field.pszName, head);
                                    });
    if (found == record.fields.end())
    {
        return std::nullopt;
    }
    if (nDot == std::wstring_view::npos)
    {
        return FIELD_PLACE{&*found, found->uOffset};
    }
    if (found->pRecord == nullptr)
    {
        return std::nullopt;
    }
    std::optional<FIELD_PLACE> inner = FindField(*found->pRecord, name.substr(nDot + 1));
    if (inner)
    {
        inner->nOffset += found->uOffset;
    }
    return inner;
}

std::wstring FieldNames(const RECORD_DESCRIPTION& record)
{
    std::wstring names;
    for (const RECORD_FIELD& field : record.fields)
    {
        if (!names.empty())
        {
            names += L", ";
        }
        names += field.pszName;
        if (field.pRecord != nullptr)
        {
            names.append(L".(").append(FieldNames(*field.pRecord)).append(L")");
        }
    }
    return names;
}

bool WriteBytes(std::span<BYTE> field, std::wstring_view digits)
{
    const std::optional<std::vector<BYTE>> bytes = ParseHexBytes(digits);
    if (!bytes || bytes->size() > field.size())
    {
        return false;
    }
    std::copy(bytes->begin(), bytes->end(), field.begin());
    return true;
}

bool WriteText(std::span<BYTE> field, std::wstring_view value)
{
    const size_t cchField = field.size() / sizeof(wchar_t);
    if (value.size() >= cchField)
    {
        return false;
    }
    CopyText(reinterpret_cast<wchar_t*>(field.data()), cchField, value);
    return true;
}

bool WriteField(const RECORD_FIELD& field, std::span<BYTE> bytes, std::wstring_view value)
{
    if (value.starts_with(RAW_PREFIX))
    {
        return WriteBytes(bytes, value.substr(RAW_PREFIX.size()));
    }
    switch (field.kind)
    {
    case FIELD_KIND::Dword:
        return WriteValue(bytes, ParseDword(value));
    case FIELD_KIND::Qword:
        return WriteValue(bytes, ParseQword(value));
    case FIELD_KIND::Double:
        return WriteValue(bytes, ParseDouble(value));
    case FIELD_KIND::Text:
    case FIELD_KIND::Secret:
        return WriteText(bytes, value);
    case FIELD_KIND::Bytes:
    case FIELD_KIND::Record:
        break;
    }
    return WriteBytes(bytes, value);
}

std::wstring Expected(const RECORD_FIELD& field)
{
    switch (field.kind)
    {
    case FIELD_KIND::Dword:
        return L"a 32-bit number";
    case FIELD_KIND::Qword:
        return L"a 64-bit number";
    case FIELD_KIND::Double:
        return L"a decimal fraction";
    case FIELD_KIND::Text:
    case FIELD_KIND::Secret:
        return L"a text of at most " + std::to_wstring(field.uSize / sizeof(wchar_t) - 1) + L" characters";
    case FIELD_KIND::Bytes:
    case FIELD_KIND::Record:
        break;
    }
    return L"hexadecimal bytes, at most " + std::to_wstring(field.uSize);
}

std::optional<FIELD_PLACE> FindFieldOrExplain(const RECORD_DESCRIPTION& record, std::wstring_view name,
                                              std::wstring& error)
{
    const std::optional<FIELD_PLACE> place = FindField(record, name);
    if (!place)
    {
        error = std::wstring(record.pszName) + L" has no field " + std::wstring(name) + L"; it has " +
                FieldNames(record);
    }
    return place;
}

bool WriteFieldOrExplain(const RECORD_FIELD& field, std::span<BYTE> bytes, std::wstring_view value,
                         std::wstring& error)
{
    if (WriteField(field, bytes, value))
    {
        return true;
    }
    const std::wstring shown =
        field.kind == FIELD_KIND::Secret ? std::wstring(MASK) : QuotedText(value, SHOWN_TEXT);
    error = std::wstring(field.pszName) + L" takes " + Expected(field) + L", not " + shown;
    return false;
}
} // namespace

std::wstring FormatDword(std::wstring_view field, DWORD dwValue)
{
    std::wstring text = dwValue >= SHOWN_AS_HEX_FROM ? HexDword(dwValue) : std::to_wstring(dwValue);
    for (const VALUE_NAME& known : s_aValueNames)
    {
        if (known.dwValue == dwValue && field == known.pszField)
        {
            text.append(L" (").append(known.pszName).append(L")");
        }
    }
    return text;
}

std::optional<DWORD> FindNamedValue(std::wstring_view field, std::wstring_view name)
{
    const auto found = std::find_if(
        std::begin(s_aValueNames), std::end(s_aValueNames),
        [field, name](const VALUE_NAME& known) { return field == known.pszField && name == known.pszName; });
    return found == std::end(s_aValueNames) ? std::nullopt : std::optional(found->dwValue);
}

std::wstring ValueNames(std::wstring_view field)
{
    std::wstring names;
    for (const VALUE_NAME& known : s_aValueNames)
    {
        if (field == known.pszField)
        {
            names.append(names.empty() ? L"" : L", ").append(known.pszName);
        }
    }
    return names;
}

std::wstring FormatRecord(const RECORD_DESCRIPTION& record, std::span<const BYTE> bytes)
{
    std::wstring text;
    AppendFields(record, bytes, L"", text);
    return text;
}

std::wstring FormatMessage(const MESSAGE_DESCRIPTION& message, std::span<const BYTE> bytes)
{
    std::wstring text = message.pszName;
    text += L" (" + std::to_wstring(bytes.size()) + L" bytes)";
    const std::wstring fields = FormatRecord(*message.pRecord, bytes);
    if (!fields.empty())
    {
        text += L' ' + fields;
    }
    if (bytes.size() > message.pRecord->uSize)
    {
        text += L" payload=" + FormatPayload(bytes.subspan(message.pRecord->uSize));
    }
    return text;
}

const MESSAGE_DESCRIPTION* FindMessageByName(std::wstring_view name, MESSAGE_DIRECTION direction)
{
    const MESSAGE_DESCRIPTION* pOther = nullptr;
    for (const MESSAGE_DESCRIPTION& message : GetMessageDescriptions())
    {
        const bool bNamed = EqualsNoCase(name, message.pszName) ||
                            EqualsNoCase(L"MSG_TYPE_" + std::wstring(name), message.pszName) ||
                            EqualsNoCase(L"MSG_TYPE_TRAYICON_" + std::wstring(name), message.pszName);
        if (bNamed && (message.direction & direction) != 0)
        {
            return &message;
        }
        if (bNamed)
        {
            pOther = &message;
        }
    }
    return pOther;
}

bool SetRecordField(const RECORD_DESCRIPTION& record, std::span<BYTE> bytes, std::wstring_view name,
                    std::wstring_view value, std::wstring& error)
{
    const std::optional<FIELD_PLACE> place = FindFieldOrExplain(record, name, error);
    return place && WriteFieldOrExplain(*place->pField, bytes.subspan(place->nOffset, place->pField->uSize),
                                        value, error);
}

bool CompareRecordField(const RECORD_DESCRIPTION& record, std::span<const BYTE> bytes, std::wstring_view name,
                        std::wstring_view value, bool& bEqual, std::wstring& error)
{
    bEqual = false;
    const std::optional<FIELD_PLACE> place = FindFieldOrExplain(record, name, error);
    if (!place)
    {
        return false;
    }
    const RECORD_FIELD& field = *place->pField;
    std::vector<BYTE> wanted(field.uSize);
    if (!WriteFieldOrExplain(field, wanted, value, error))
    {
        return false;
    }
    const std::span<const BYTE> actual = bytes.subspan(place->nOffset, field.uSize);
    bEqual = IsText(field) && !value.starts_with(RAW_PREFIX)
                 ? TextOf(actual) == TextOf(wanted)
                 : std::equal(actual.begin(), actual.end(), wanted.begin());
    return true;
}

std::optional<std::vector<BYTE>> ParsePayload(std::wstring_view value)
{
    if (value.starts_with(RAW_PREFIX))
    {
        return ParseHexBytes(value.substr(RAW_PREFIX.size()));
    }
    const std::span<const BYTE> text(reinterpret_cast<const BYTE*>(value.data()),
                                     value.size() * sizeof(wchar_t));
    return std::vector<BYTE>(text.begin(), text.end());
}

std::vector<BYTE> MakeRecord(const MESSAGE_DESCRIPTION& message)
{
    std::vector<BYTE> bytes(message.pRecord->uSize);
    memcpy(bytes.data(), &message.dwType, sizeof(message.dwType));
    return bytes;
}

DWORD ReadDword(std::span<const BYTE> bytes, size_t nOffset)
{
    if (nOffset + sizeof(DWORD) > bytes.size())
    {
        return 0;
    }
    return ReadValue<DWORD>(bytes.subspan(nOffset, sizeof(DWORD)));
}
