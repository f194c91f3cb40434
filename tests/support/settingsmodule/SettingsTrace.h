#pragma once

#include <winsock2.h>
#include <windows.h>

/// How the test's settings module answers and what it has been asked for, shared between the test and the
/// process that has loaded the module through a file mapping of this name.
constexpr wchar_t SETTINGS_TRACE_NAME[] = L"Local\\TkdastTestSettingsTrace";

constexpr size_t MAX_SETTINGS_LANGUAGE = 16; // characters, terminator included

struct SETTINGS_TRACE
{
    volatile LONG nResult; // what the dialog answers

    volatile LONG nLoads;
    volatile LONG nFreed;
    volatile LONG nModes;   // calls of the application's mode
    volatile LONG nDialogs; // calls of the dialog
    volatile LONG nModesBeforeDialog;
    HWND hOwner;                               // of the last dialog
    wchar_t szLanguage[MAX_SETTINGS_LANGUAGE]; // in the environment, at the last dialog
};
