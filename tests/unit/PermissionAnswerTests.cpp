#include "dialogs/PermissionAnswer.h"

#include "Include/UtilFile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>

namespace
{
constexpr DWORD ID_COUNT = 65536;
constexpr WORD NOTIFICATIONS[] = {BN_CLICKED, 1, BN_DBLCLK, BN_SETFOCUS};

void ExpectOutcome(const std::optional<PERMISSION_OUTCOME>& outcome, DWORD dwAnswer, INT_PTR nResult)
{
    ASSERT_TRUE(outcome.has_value());
    EXPECT_EQ(outcome->dwAnswer, dwAnswer);
    EXPECT_EQ(outcome->bAnswered, 1U);
    EXPECT_EQ(outcome->nResult, nResult);
}
} // namespace

TEST(PermissionAnswerTest, AnOutcomeIsARefusalUntilSomethingElseIsSaid)
{
    ExpectOutcome(PERMISSION_OUTCOME(), 2222, 2);
}

TEST(PermissionAnswerTest, EachCommandHasItsAnswer)
{
    ExpectOutcome(AnswerToCommand(1, BN_CLICKED), 1111, 1);
    ExpectOutcome(AnswerToCommand(2, BN_CLICKED), 2222, 2);
    ExpectOutcome(AnswerToCommand(3, BN_CLICKED), 3333, 3);
}

TEST(PermissionAnswerTest, OfAllCommandsAndNotificationsOneAloneAllows)
{
    int nAllowed = 0;
    int nAnswers = 0;
    for (const WORD wNotification : NOTIFICATIONS)
    {
        for (DWORD dwCommand = 0; dwCommand < ID_COUNT; ++dwCommand)
        {
            const auto outcome = AnswerToCommand(static_cast<WORD>(dwCommand), wNotification);
            nAnswers += outcome ? 1 : 0;
            if (outcome && outcome->dwAnswer == PERMISSION_ANSWER_ALLOWED)
            {
                ++nAllowed;
                EXPECT_EQ(dwCommand, static_cast<DWORD>(IDOK));
                EXPECT_EQ(wNotification, BN_CLICKED);
            }
        }
    }
    EXPECT_EQ(nAllowed, 1);
    EXPECT_EQ(nAnswers, 3);
}

TEST(PermissionAnswerTest, AWithdrawalIsNobodysAnswer)
{
    EXPECT_EQ(PERMISSION_WITHDRAWN.dwAnswer, 4444U);
    EXPECT_EQ(PERMISSION_WITHDRAWN.bAnswered, 0U);
    EXPECT_EQ(PERMISSION_WITHDRAWN.nResult, 2);
}

TEST(PermissionAnswerTest, ADesktopThatCannotBeUsedIsAnswered)
{
    EXPECT_EQ(PERMISSION_UNUSABLE.dwAnswer, 6666U);
    EXPECT_EQ(PERMISSION_UNUSABLE.bAnswered, 1U);
}

TEST(PermissionAnswerTest, AnAnswerChangesThreeFieldsAndNothingElse)
{
    MSG_PERMISSION_PROMPT received = {};
    std::memset(&received, 0xA5, sizeof(received));
    MSG_PERMISSION_PROMPT answer = received;
    FillAnswer(answer, PERMISSION_OUTCOME());
    wchar_t szAccount[std::size(received.szUsername)] = {};
    GetAccountName(szAccount, std::size(szAccount));
    EXPECT_EQ(answer.dwAnswer, 2222U);
    EXPECT_EQ(answer.bAnswered, 1U);
    EXPECT_TRUE(std::equal(std::begin(szAccount), std::end(szAccount), std::begin(answer.szUsername)))
        << "and nothing of what stood there before";
    answer.dwAnswer = received.dwAnswer;
    answer.bAnswered = received.bAnswered;
    std::copy(std::begin(received.szUsername), std::end(received.szUsername), std::begin(answer.szUsername));
    EXPECT_EQ(std::memcmp(&answer, &received, sizeof(answer)), 0);
}

TEST(PermissionAnswerTest, TheLastSixSecondsAreHeardAndTheEndIsSilent)
{
    for (int nSeconds = -3; nSeconds <= PERMISSION_SECONDS; ++nSeconds)
    {
        const COUNTDOWN_STEP step = DecideCountdownStep(nSeconds);
        EXPECT_EQ(step.bExpired, nSeconds < 1) << nSeconds;
        EXPECT_EQ(step.bBeep, nSeconds >= 1 && nSeconds <= 6) << nSeconds;
        EXPECT_EQ(step.bInvertCaption, nSeconds == 6 || nSeconds == 4 || nSeconds == 2) << nSeconds;
    }
}
