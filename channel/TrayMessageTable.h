#pragma once

#include <winsock2.h>
#include <windows.h>

#include <span>

/*
 * Names, sizes and fields of the wire records as data: the one place that a readable log, a script or a
 * document check takes them from. The names are the identifiers of TrayMessages.h themselves.
 */

enum class FIELD_KIND
{
    Dword,
    Qword,
    Double,
    Text,   // wchar_t array
    Secret, // wchar_t array that a log must not show
    Bytes,  // gap or opaque bytes
    Record, // an embedded record, described by RECORD_FIELD::pRecord
};

struct RECORD_DESCRIPTION;

struct RECORD_FIELD
{
    const wchar_t* pszName;
    unsigned int uOffset; // bytes from the start of the record
    unsigned int uSize;   // bytes
    FIELD_KIND kind;
    const RECORD_DESCRIPTION* pRecord; // only for FIELD_KIND::Record
};

struct RECORD_DESCRIPTION
{
    const wchar_t* pszName;
    unsigned int uSize; // bytes, the type included
    std::span<const RECORD_FIELD> fields;
};

enum MESSAGE_DIRECTION : unsigned int
{
    MESSAGE_FROM_SERVICE = 1,
    MESSAGE_FROM_AGENT = 2,
    MESSAGE_BOTH_WAYS = MESSAGE_FROM_SERVICE | MESSAGE_FROM_AGENT,
};

struct MESSAGE_DESCRIPTION
{
    DWORD dwType;
    const wchar_t* pszName;
    MESSAGE_DIRECTION direction;
    const RECORD_DESCRIPTION* pRecord; // MSG_CHAT_MESSAGE is followed by its payload
};

/// Every message of the main channel. Any thread.
std::span<const MESSAGE_DESCRIPTION> GetMessageDescriptions();

/// Every record of the three conversations, embedded ones included. Any thread.
std::span<const RECORD_DESCRIPTION> GetRecordDescriptions();

/// The message of that type that may travel in that direction, or null. Any thread.
const MESSAGE_DESCRIPTION* FindMessageDescription(DWORD dwType, MESSAGE_DIRECTION direction);

/// The record of that name, or null. Any thread.
const RECORD_DESCRIPTION* FindRecordDescription(const wchar_t* pszName);
