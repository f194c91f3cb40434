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

// Texts, dialogs, icons: the language module, or g_hInstance when there is none. Never freed.
extern std::atomic<HMODULE> g_hResourceModule;

// Manual-reset, set when the agent goes; only in the normal run.
extern CKernelHandle g_hQuitEvent;

// What the normal run answers. Any thread.
extern std::atomic<int> g_nExitCode;

extern DWORD g_dwSessionId;

// DESKTOP_STATE_*: the last answer of CheckDesktopState, or of its sister in a one-shot run. Any thread.
extern std::atomic<DWORD> g_dwDesktopState;

// The desktop that the main thread started on.
extern wchar_t g_szDesktopName[MAX_DESKTOP_NAME];

extern wchar_t g_szUserName[MAX_USER_NAME];

// Marks this desktop as having its agent.
extern CKernelHandle g_hInstanceMapping;

extern DWORD g_bOneTimeSession;

// Whether the service handed a one-time agent an invitation, and its text. Reader thread.
extern std::atomic<DWORD> g_bOtiInvitation;
extern wchar_t g_szOtiInvitation[MAX_INVITATION_TEXT];

constexpr wchar_t SYSTEM_ACCOUNT[] = L"system";

/// Whether the process runs under the system's account; asks the system. Any thread.
bool IsSystemAccount();

// What the process answers its parent with.
enum AGENT_EXIT_CODE : int
{
    EXIT_AGENT_ENDED = 0,
    EXIT_BAD_PARAMETER = 1,
    EXIT_NO_WINDOW = -14,
    EXIT_SYSTEM_ACCOUNT = -50,
    EXIT_ASKED_TO_END = -56, // by the user, the service or the end of the session
    EXIT_ALREADY_RUNNING = -56,
    // Of a one-shot run that shows something.
    EXIT_NOTHING_SHOWN = 0,
    EXIT_SHOWN = 1,
    // Of the question whether a certificate may be trusted.
    EXIT_TRUSTED = 0,
    EXIT_NOT_TRUSTED = 1,
};

// Answers of CheckDesktopState and CheckDesktopStateCommandLine.
enum DESKTOP_ANSWER : int
{
    DESKTOP_REACHABLE = -44,
    DESKTOP_NOT_REACHABLE = -50,
    DESKTOP_SCREEN_SAVER_STAYS = -64, // of the latter alone
};

/// The whole life of the process: start-up, then the one-shot run that the command line asks for, or the
/// normal run. The line is what follows the program's name. Main thread. Returns the exit code, of
/// AGENT_EXIT_CODE or of the run.
int RunTrayAgent(HINSTANCE hInstance, const wchar_t* pszCommandLine);

/// 1 if this is the first agent on this desktop, which it then stays to the end of the process; else 0. Main
/// thread.
int CheckInstance();

/// Whether a person at this desktop can be reached: a DESKTOP_ANSWER, and g_dwDesktopState says the same. May
/// take a second. Any thread.
int CheckDesktopState();

/// The same question of a run that is on the input desktop already and ends with the answer, a
/// DESKTOP_ANSWER: a running screen saver is closed first, and the desktop of another application can be
/// reached like the agent's own; the name of that one is written down for others, and g_dwDesktopState says
/// locked. May take two seconds. Main thread.
int CheckDesktopStateCommandLine();
