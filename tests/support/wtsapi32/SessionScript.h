#pragma once

#include <winsock2.h>
#include <windows.h>

/// What the test module in place of wtsapi32.dll answers, shared between the tests and any number of agents
/// through a file mapping of this name. Without the mapping the module answers for an active, unlocked
/// session.
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
