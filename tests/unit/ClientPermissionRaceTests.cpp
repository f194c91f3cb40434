#include "dialogs/ClientPermissionDialog.h"
#include "dialogs/PermissionAnswer.h"
#include "tests/support/Watchdog.h"
#include "tests/unit/PermissionHarness.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <iostream>
#include <map>
#include <string>
#include <thread>

namespace
{
constexpr DWORD RACES_LIMIT_MS = 300000;
constexpr int CLICK_RACES = 200;
constexpr int COUNTDOWN_RACES = 100;
constexpr LONGLONG STEP_PER_SECOND = 20000; // of 50 microseconds

void WaitSteps(int nSteps)
{
    LARGE_INTEGER frequency = {};
    LARGE_INTEGER start = {};
    LARGE_INTEGER now = {};
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&start);
    do
    {
        QueryPerformanceCounter(&now);
    } while (now.QuadPart - start.QuadPart < frequency.QuadPart * nSteps / STEP_PER_SECOND);
}

/// A withdrawal that another thread sends while the person, or the clock, answers.
class ClientPermissionRaceTest : public PermissionHarness
{
  protected:
    /// How often each answer won.
    std::map<DWORD, int> Race(int nRounds, const std::function<void(HWND)>& prepare,
                              const std::function<void(HWND)>& answer)
    {
        Watchdog::Allow(RACES_LIMIT_MS);
        std::map<DWORD, int> wins;
        int nLead = 0; // of the withdrawal, in steps: whoever has won starts later the next time
        for (int nRound = 0; nRound < nRounds && !HasFailure(); ++nRound)
        {
            std::atomic<bool> bReady = false;
            std::atomic<bool> bGo = false;
            std::thread service;
            m_trace.Forget();
            EXPECT_EQ(RunPrompt(Prompt(),
                                [&](HWND hDlg) {
                                    prepare(hDlg);
                                    service = std::thread([&] {
                                        bReady = true;
                                        while (!bGo)
                                        {
                                            YieldProcessor();
                                        }
                                        Withdraw();
                                    });
                                    while (!bReady)
                                    {
                                        SwitchToThread();
                                    }
                                    bGo = true;
                                    WaitSteps(nLead);
                                    answer(hDlg);
                                }),
                      1);
            service.join();
            const DWORD dwAnswer = CheckedAnswer();
            ++wins[dwAnswer];
            nLead = dwAnswer == PERMISSION_ANSWER_WITHDRAWN ? std::max(nLead - 1, 0) : nLead + 1;
        }
        return wins;
    }

  private:
    // The wire and the dialog's end tell the same, once.
    DWORD CheckedAnswer()
    {
        const MSG_PERMISSION_PROMPT answer = OnlyAnswer();
        const INT_PTR nEnd = answer.dwAnswer == PERMISSION_ANSWER_ALLOWED   ? PERMISSION_RESULT_ALLOWED
                             : answer.dwAnswer == PERMISSION_ANSWER_EXPIRED ? PERMISSION_RESULT_EXPIRED
                                                                            : PERMISSION_RESULT_DENIED;
        EXPECT_EQ(answer.bAnswered, answer.dwAnswer == PERMISSION_ANSWER_WITHDRAWN ? 0U : 1U);
        EXPECT_EQ(m_trace.Calls("end "), std::vector<std::string>{"end " + std::to_string(nEnd)});
        return answer.dwAnswer;
    }
};

void Report(const char* pszWhat, std::map<DWORD, int>& wins, DWORD dwOther)
{
    testing::Test::RecordProperty("withdrawn", wins[PERMISSION_ANSWER_WITHDRAWN]);
    testing::Test::RecordProperty(pszWhat, wins[dwOther]);
    std::cout << pszWhat << " " << wins[dwOther] << ", withdrawn " << wins[PERMISSION_ANSWER_WITHDRAWN]
              << "\n";
}
} // namespace

TEST_F(ClientPermissionRaceTest, AWithdrawalAndAClickGiveOneAnswer)
{
    std::map<DWORD, int> wins = Race(
        CLICK_RACES, [](HWND) {}, [](HWND hDlg) { Command(hDlg, IDOK); });
    Report("allowed", wins, PERMISSION_ANSWER_ALLOWED);
    EXPECT_EQ(wins[PERMISSION_ANSWER_ALLOWED] + wins[PERMISSION_ANSWER_WITHDRAWN], CLICK_RACES);
}

TEST_F(ClientPermissionRaceTest, AWithdrawalAndTheCountdownsEndGiveOneAnswer)
{
    std::map<DWORD, int> wins = Race(
        COUNTDOWN_RACES, [](HWND hDlg) { Tick(hDlg, PERMISSION_SECONDS - 1); },
        [](HWND hDlg) { Tick(hDlg, 1); });
    Report("expired", wins, PERMISSION_ANSWER_EXPIRED);
    EXPECT_EQ(wins[PERMISSION_ANSWER_EXPIRED] + wins[PERMISSION_ANSWER_WITHDRAWN], COUNTDOWN_RACES);
}
