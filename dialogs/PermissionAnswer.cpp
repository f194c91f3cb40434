#include "dialogs/PermissionAnswer.h"

#include "Include/UtilFile.h"

#include <iterator>

std::optional<PERMISSION_OUTCOME> AnswerToCommand(WORD wCommand, WORD wNotification)
{
    if (wNotification != BN_CLICKED)
    {
        return std::nullopt;
    }
    switch (wCommand)
    {
    case IDOK:
        return PERMISSION_OUTCOME{PERMISSION_ANSWER_ALLOWED, 1, PERMISSION_RESULT_ALLOWED};
    case IDCANCEL:
        return PERMISSION_OUTCOME();
    case IDC_PERMISSION_EXPIRED:
        return PERMISSION_OUTCOME{PERMISSION_ANSWER_EXPIRED, 1, PERMISSION_RESULT_EXPIRED};
    default:
        return std::nullopt;
    }
}

void FillAnswer(MSG_PERMISSION_PROMPT& record, const PERMISSION_OUTCOME& outcome)
{
    record.dwAnswer = outcome.dwAnswer;
    record.bAnswered = outcome.bAnswered;
    GetAccountName(record.szUsername, std::size(record.szUsername));
}

COUNTDOWN_STEP DecideCountdownStep(int nSecondsLeft)
{
    COUNTDOWN_STEP step;
    step.bExpired = nSecondsLeft < 1;
    step.bBeep = !step.bExpired && nSecondsLeft <= LAST_PERMISSION_SECONDS;
    step.bInvertCaption = step.bBeep && nSecondsLeft % 2 == 0;
    return step;
}
