#pragma once

#include <winsock2.h>
#include <windows.h>

#include "channel/TrayMessages.h"

#include <optional>

/*
 * What the permission prompt answers, and what its countdown does, apart from the window. Any thread.
 */

constexpr WORD IDC_PERMISSION_EXPIRED = 3;       // no control: the command that ends the countdown
constexpr int PERMISSION_SECONDS = 120;          // that a person has
constexpr int LAST_PERMISSION_SECONDS = 6;       // that are counted aloud
constexpr INT_PTR PERMISSION_RESULT_ALLOWED = 1; // the dialog's results
constexpr INT_PTR PERMISSION_RESULT_DENIED = 2;  // also of a prompt that was withdrawn
constexpr INT_PTR PERMISSION_RESULT_EXPIRED = 3;

/// How a prompt ends. As it is made it is a refusal.
struct PERMISSION_OUTCOME
{
    PERMISSION_ANSWER dwAnswer = PERMISSION_ANSWER_DENIED;
    DWORD bAnswered = 1;
    INT_PTR nResult = PERMISSION_RESULT_DENIED;
};

/// What a command of the dialog answers; nothing when it is none of the prompt's. wNotification is the
/// control's notification code: a control that merely tells about itself has decided nothing.
std::optional<PERMISSION_OUTCOME> AnswerToCommand(WORD wCommand, WORD wNotification);

/// The service has ended the prompt, so that nobody has answered.
constexpr PERMISSION_OUTCOME PERMISSION_WITHDRAWN = {PERMISSION_ANSWER_WITHDRAWN, 0,
                                                     PERMISSION_RESULT_DENIED};

/// There was no prompt: nobody could have seen it.
constexpr PERMISSION_OUTCOME PERMISSION_UNUSABLE = {PERMISSION_ANSWER_UNUSABLE, 1, PERMISSION_RESULT_DENIED};

/// Writes outcome and account name into a record and leaves the rest as it came.
void FillAnswer(MSG_PERMISSION_PROMPT& record, const PERMISSION_OUTCOME& outcome);

/// What a countdown does as it reaches a value.
struct COUNTDOWN_STEP
{
    bool bExpired = false;
    bool bBeep = false;
    bool bInvertCaption = false; // of the flash that goes with the beep
};

/// The step to that many seconds left; at none the prompt expires.
COUNTDOWN_STEP DecideCountdownStep(int nSecondsLeft);
