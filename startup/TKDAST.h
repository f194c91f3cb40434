#pragma once

#include <winsock2.h>
#include <windows.h>

#include "Include/Handles.h"
#include "Include/UtilDesktop.h"

#include <atomic>

constexpr size_t MAX_USER_NAME = 260;        // characters, terminator included
constexpr size_t MAX_INVITATION_TEXT = 8096; // characters, terminator included

/*
 * The state of the whole process. Unless a line says otherwise the main thread writes it once at start-up,
 * and every thread reads it.
 */
extern HINSTANCE g_hInstance;
extern HMODULE
    g_hResourceModule; // texts, dialogs, icons; g_hInstance when there is no language module; never freed
extern CKernelHandle g_hQuitEvent;   // manual-reset, set when the agent goes; only in the normal run
extern std::atomic<int> g_nExitCode; // of the normal run; any thread
extern DWORD g_dwSessionId;
extern std::atomic<DWORD>
    g_dwDesktopState; // DESKTOP_STATE_*, the last answer of CheckDesktopState; any thread
extern wchar_t g_szDesktopName[MAX_DESKTOP_NAME]; // the desktop that the main thread started on
extern wchar_t g_szUserName[MAX_USER_NAME];
extern CKernelHandle g_hInstanceMapping; // marks this desktop as having its agent
extern DWORD g_bOneTimeSession;
extern DWORD g_bOtiInvitation; // the service handed a one-time agent an invitation; reader thread
extern wchar_t g_szOtiInvitation[MAX_INVITATION_TEXT]; // the text of that invitation; reader thread

constexpr wchar_t SYSTEM_ACCOUNT[] = L"system";

// What the process answers its parent with.
enum AGENT_EXIT_CODE : int
{
    EXIT_AGENT_ENDED = 0,
    EXIT_BAD_PARAMETER = 1,
    EXIT_NO_WINDOW = -14,
    EXIT_SYSTEM_ACCOUNT = -50,
    EXIT_ASKED_TO_END = -56, // by the user, the service or the end of the session
    EXIT_ALREADY_RUNNING = -56,
};

// Answers of CheckDesktopState.
enum DESKTOP_ANSWER : int
{
    DESKTOP_REACHABLE = -44,
    DESKTOP_NOT_REACHABLE = -50,
};

/// The whole life of the process: start-up, command line, normal run. Main thread. Returns the exit code.
int RunTrayAgent(HINSTANCE hInstance, const wchar_t* pszCommandLine);

/// 1 if this is the first agent on this desktop, which it then stays to the end of the process; else 0. Main
/// thread.
int CheckInstance();

/// Whether a person at this desktop can be reached: a DESKTOP_ANSWER, and g_dwDesktopState says the same. May
/// take a second. Any thread.
int CheckDesktopState();
