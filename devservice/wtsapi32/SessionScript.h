#pragma once

#include <winsock2.h>
#include <windows.h>

/// What the module in place of wtsapi32.dll answers, shared between whoever plays the session and any number
/// of agents through a file mapping of this name. Without the mapping the module answers for an active,
/// unlocked session.
constexpr wchar_t SESSION_SCRIPT_NAME[] = L"Local\\TkdastTestSessionScript";

struct SESSION_SCRIPT
{
    volatile LONG bQueriesFail;   // every query fails with ERROR_GEN_FAILURE
    volatile LONG nConnectState;  // a WTS_CONNECTSTATE_CLASS
    volatile LONG nSessionFlags;  // WTS_SESSIONSTATE_LOCK or WTS_SESSIONSTATE_UNLOCK
    volatile LONG nLevel;         // of the extended session data; 1 is the known one
    volatile LONG nAnsweredBytes; // of the extended session data; 0 leaves the natural size
    volatile LONG nStateQueries;  // counts the questions for the connect state
    volatile LONG nOpenBlocks;    // blocks handed out and not freed yet, in all agents
};

// Values of the system's own header, which the module can't include.
constexpr LONG SESSION_STATE_ACTIVE = 0;       // WTSActive
constexpr LONG SESSION_STATE_DISCONNECTED = 4; // WTSDisconnected
constexpr LONG SESSION_FLAGS_LOCKED = 0;       // WTS_SESSIONSTATE_LOCK
constexpr LONG SESSION_FLAGS_UNLOCKED = 1;     // WTS_SESSIONSTATE_UNLOCK
constexpr LONG SESSION_KNOWN_LEVEL = 1;

/// Answers for an active, unlocked session.
inline SESSION_SCRIPT MakeActiveSession()
{
    return SESSION_SCRIPT{0, SESSION_STATE_ACTIVE, SESSION_FLAGS_UNLOCKED, SESSION_KNOWN_LEVEL, 0, 0, 0};
}
