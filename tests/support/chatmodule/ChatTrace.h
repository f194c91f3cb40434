#pragma once

#include "channel/NoticeMessages.h"
#include "channel/TrayMessages.h"

#include <cstddef>

/// How the test's chat module behaves and what it has been asked for, shared between the test and the process
/// that has loaded the module through a file mapping of this name. Without the mapping the module does its
/// work and nobody learns of it.
constexpr wchar_t CHAT_TRACE_NAME[] = L"Local\\TkdastTestChatTrace";

constexpr wchar_t TEST_CHAT_TITLE[] = L"Chat of a test";

constexpr ULONGLONG EMPTY_CHAT_HASH = 0xCBF29CE484222325;

struct CHAT_TRACE
{
    // How it behaves.
    volatile LONG bCreateFails;  // no window
    volatile LONG bGoesSilently; // its window doesn't say that it goes

    // What it has been asked for.
    volatile LONG nLoads;
    volatile LONG nCreated;
    volatile LONG nAppended;
    volatile LONG nClosed; // through its export
    volatile LONG nNotices;
    volatile LONG nWindows; // that are open

    volatile DWORD dwThreadId; // of the last creation
    HWND hOwner;
    HWND hChatWindow;
    HWND hAppendedTo; // of the last message
    MSG_CHAT_MESSAGE lastHead;
    ULONGLONG uBytes; // of all messages, heads and payloads
    ULONGLONG uHash;  // over them, in the order of their coming
    UINT uLastNotice; // its window message
    CHAT_CONNECT_NOTICE lastNotice;
};

inline CHAT_TRACE MakeChatTrace()
{
    CHAT_TRACE trace = {};
    trace.uHash = EMPTY_CHAT_HASH;
    return trace;
}

/// The hash of all bytes so far and these.
inline ULONGLONG HashChatBytes(ULONGLONG uHash, const void* pBytes, size_t nBytes)
{
    constexpr ULONGLONG PRIME = 0x100000001B3;
    const BYTE* const pFirst = static_cast<const BYTE*>(pBytes);
    for (size_t n = 0; n < nBytes; ++n)
    {
        uHash = (uHash ^ pFirst[n]) * PRIME;
    }
    return uHash;
}
