#pragma once

#include "Include/Handles.h"

/*
 * The runs that do one thing for the program that started them and answer it by the exit code. They come
 * behind the start-up that every run has, in place of the normal run: no window, no quit event, no mark on
 * the desktop, and they also run under the system's account.
 */

/// What start-up hands to a run.
struct ONE_SHOT_CONTEXT
{
    const wchar_t* pszCommandLine;
    CDesktop& inputDesktop; // the desktop with the user's input when the process started; may be empty
};

enum class SWITCH_MATCH
{
    Anywhere,  // somewhere in the line
    WholeLine, // the line is the switch and nothing else
};

struct ONE_SHOT_RUN
{
    const wchar_t* pszSwitch; // case-sensitive
    SWITCH_MATCH match;
    int (*pfnRun)(const ONE_SHOT_CONTEXT& context); // main thread; result: the exit code
};

/// The run that the line asks for, the first of several; null for a line of the normal run. Any thread.
const ONE_SHOT_RUN* FindOneShotRun(const wchar_t* pszCommandLine);
