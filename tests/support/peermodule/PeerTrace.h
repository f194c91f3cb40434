#pragma once

#include <winsock2.h>
#include <windows.h>

/// How the test's peer module behaves and what it has been asked for, shared between the test and the module
/// through a file mapping of this name. The test makes it before it has the module loaded.
constexpr wchar_t PEER_TRACE_NAME[] = L"Local\\TkdastTestPeerTrace";

/// The one error that the module has words for, and the words.
constexpr DWORD TEST_PEER_ERROR = 0x80630001;
constexpr wchar_t TEST_PEER_WORDS[] = L"A peer said %1.\r\n";

constexpr int MAX_PEER_CALLS = 16;
constexpr int MAX_PEER_CALL_TEXT = 32;

struct PEER_TRACE
{
    // How it behaves.
    HRESULT hrStartup;
    HRESULT hrFirstRegister;
    HRESULT hrNextRegister;
    HRESULT hrUnregister;

    // What it has been asked for.
    LONG nLoaded; // 1 while it is
    LONG nLoads;
    LONG nRegistered;
    LONG nCalls;
    char aszCalls[MAX_PEER_CALLS][MAX_PEER_CALL_TEXT]; // the function, and the number it was given

    // The last registration.
    GUID idApplication;
    GUID idUnregistered;
    DWORD cbData;
    BOOL bHasData;
    BOOL bHasArguments;
    DWORD dwScope;
    wchar_t szDescription[MAX_PATH];
    wchar_t szApplication[MAX_PATH];
};
