#pragma once

#include "channel/TrayMessageTable.h"

#include <functional>
#include <span>
#include <string>

enum class SERVICE_EVENT_KIND
{
    Note,           // text
    AgentConnected, // text
    AgentReady,     // the handshake has been answered; text
    AgentGone,      // text, bByService
    RecordSent,     // pMessage, bytes
    RecordReceived, // pMessage, bytes
    RawSent,        // bytes that are no whole record
    RawReceived,    // bytes behind a lost frame
    QueryReceived,  // a datagram on the query port: bytes, pRecord if its kind is known; text says who asked
    QueryAnswered,  // bytes, pRecord; text says who gets it
    PromptReceived, // a datagram of a permission exchange: bytes, pRecord, uPrompt; text says who sent it
    PromptSent,     // the same; text says who gets it
};

/// One thing that happened, as the log and the recording see it. The bytes live only during the call.
struct SERVICE_EVENT
{
    SERVICE_EVENT_KIND kind = SERVICE_EVENT_KIND::Note;
    double dblSeconds = 0;    // since the service object was made
    unsigned int uAgent = 0;  // in order of arrival from 1 on; 0: none
    unsigned int uPrompt = 0; // in the order of their asking from 1 on; 0: none
    const MESSAGE_DESCRIPTION* pMessage = nullptr;
    const RECORD_DESCRIPTION* pRecord = nullptr;
    std::span<const BYTE> bytes;
    std::wstring text;
    bool bByService = false; // AgentGone: the service closed the connection
};

/// Called on whichever thread the thing happened, one call at a time. It must not call the service.
using SERVICE_EVENT_SINK = std::function<void(const SERVICE_EVENT&)>;

/// One line for a person, without the line's end: seconds, who, direction, what. Any thread.
std::wstring FormatEvent(const SERVICE_EVENT& event);
