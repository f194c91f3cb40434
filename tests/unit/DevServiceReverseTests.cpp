#include "Include/BoundedText.h"
#include "devservice/ReverseAttempts.h"
#include "tests/unit/DevServiceFixture.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

namespace
{
constexpr DWORD SILENCE_MS = 50;

using Clock = std::chrono::steady_clock;

class DevServiceReverse : public DevServiceRunner
{
  protected:
    static MSG_REVERSE_CONNECTION Received(TestAgent& agent)
    {
        MSG_REVERSE_CONNECTION record = {};
        EXPECT_TRUE(agent.Receive(record));
        EXPECT_EQ(record.dwType, static_cast<DWORD>(MSG_TYPE_REVERSE_CONNECTION));
        return record;
    }

    static void ExpectCode(TestAgent& agent, REVERSE_CODE code)
    {
        EXPECT_EQ(Received(agent).dwReverseCode, static_cast<DWORD>(code));
    }

    static bool Ask(TestAgent& agent, DWORD bOneTime, REVERSE_CODE code = REVERSE_CODE_CONNECT)
    {
        MSG_REVERSE_CONNECTION request = {};
        request.dwType = MSG_TYPE_REVERSE_CONNECTION;
        request.dwReverseCode = code;
        request.bOneTime = bOneTime;
        CopyText(request.szInvitation, L"invitation");
        CopyText(request.szHost, L"viewer");
        request.dwPort = 6130;
        CopyText(request.szProxySecret, L"secret");
        return agent.Send(BytesOf(request));
    }
};
} // namespace

TEST_F(DevServiceReverse, EachStateIsSentWithItsCodeAndFields)
{
    const auto pAgent = Arrive();
    ExpectHeld(L"reverse wait\nreverse close-wait\nreverse finished szError=busy dwError=5 bSilent=1");
    ExpectCode(*pAgent, REVERSE_CODE_SHOW_WAIT);
    ExpectCode(*pAgent, REVERSE_CODE_CLOSE_WAIT);
    const MSG_REVERSE_CONNECTION result = Received(*pAgent);
    EXPECT_EQ(result.dwReverseCode, static_cast<DWORD>(REVERSE_CODE_FINISHED));
    EXPECT_EQ(FixedText(result.szError), L"busy");
    EXPECT_EQ(result.dwError, 5U);
    EXPECT_EQ(result.bSilent, 1U);
}

TEST_F(DevServiceReverse, AnotherStateIsRefused)
{
    const auto pAgent = Arrive();
    EXPECT_EQ(ErrorOf(L"reverse maybe"), "line 1: not wait, close-wait or finished: \"maybe\"");
}

TEST_F(DevServiceReverse, AResultNamesWhatTheAgentAskedForWithoutItsSecret)
{
    const auto pAgent = Arrive();
    ASSERT_TRUE(Ask(*pAgent, 0));
    ExpectHeld(L"expect REVERSE_CONNECTION\nreverse finished szError=busy");
    const MSG_REVERSE_CONNECTION result = Received(*pAgent);
    EXPECT_EQ(FixedText(result.szHost), L"viewer");
    EXPECT_EQ(result.dwPort, 6130U);
    EXPECT_EQ(FixedText(result.szInvitation), L"invitation");
    EXPECT_EQ(result.szProxySecret[0], L'\0');
}

TEST_F(DevServiceReverse, WithoutAnswersAnAttemptWaitsForTheScript)
{
    const auto pAgent = Arrive();
    ASSERT_TRUE(Ask(*pAgent, 0));
    ExpectHeld(L"expect REVERSE_CONNECTION");
    EXPECT_TRUE(pAgent->Connection().StaysSilent(SILENCE_MS));
}

TEST_F(DevServiceReverse, AnAttemptThatNobodyCancelsTakesItsTimeAndEndsWell)
{
    const auto pAgent = Arrive();
    ExpectHeld(L"answers on");
    const Clock::time_point asked = Clock::now();
    ASSERT_TRUE(Ask(*pAgent, 1));
    ExpectCode(*pAgent, REVERSE_CODE_SHOW_WAIT);
    ExpectCode(*pAgent, REVERSE_CODE_CLOSE_WAIT);
    EXPECT_GE(Clock::now() - asked, REVERSE_ATTEMPT_TIME);
    const MSG_REVERSE_CONNECTION result = Received(*pAgent);
    EXPECT_EQ(result.dwReverseCode, static_cast<DWORD>(REVERSE_CODE_FINISHED));
    EXPECT_EQ(FixedText(result.szError), L"NOERROR");
    EXPECT_EQ(result.bSilent, 1U);
}

TEST_F(DevServiceReverse, ACancelledAttemptEndsAtOnceAndOnlyOnce)
{
    const auto pAgent = Arrive();
    ExpectHeld(L"answers on");
    ASSERT_TRUE(Ask(*pAgent, 0));
    ExpectCode(*pAgent, REVERSE_CODE_SHOW_WAIT);
    const Clock::time_point cancelled = Clock::now();
    for (int nTime = 0; nTime < 2; ++nTime)
    {
        ASSERT_TRUE(Ask(*pAgent, 0, REVERSE_CODE_CANCEL));
    }
    ExpectCode(*pAgent, REVERSE_CODE_CLOSE_WAIT);
    const MSG_REVERSE_CONNECTION result = Received(*pAgent);
    EXPECT_EQ(result.dwReverseCode, static_cast<DWORD>(REVERSE_CODE_FINISHED));
    EXPECT_EQ(result.szError[0], L'\0');
    EXPECT_EQ(result.bSilent, 1U);
    EXPECT_LT(Clock::now() - cancelled, REVERSE_ATTEMPT_TIME);
    EXPECT_TRUE(pAgent->Connection().StaysSilent(SILENCE_MS));
}

TEST_F(DevServiceReverse, AnAttemptThatTheScriptEndsDoesNotEndAgain)
{
    const auto pAgent = Arrive();
    ExpectHeld(L"answers on");
    ASSERT_TRUE(Ask(*pAgent, 0));
    ExpectCode(*pAgent, REVERSE_CODE_SHOW_WAIT);
    ExpectHeld(L"reverse finished szError=busy");
    ExpectCode(*pAgent, REVERSE_CODE_FINISHED);
    ASSERT_TRUE(Ask(*pAgent, 0, REVERSE_CODE_CANCEL));
    ExpectHeld(L"expect REVERSE_CONNECTION dwReverseCode=103");
    EXPECT_TRUE(pAgent->Connection().StaysSilent(SILENCE_MS));
}

TEST_F(DevServiceReverse, AnAgentThatHasGoneTakesItsAttemptWithIt)
{
    {
        const auto pAgent = Arrive();
        ExpectHeld(L"answers on");
        ASSERT_TRUE(Ask(*pAgent, 0));
        ExpectCode(*pAgent, REVERSE_CODE_SHOW_WAIT);
    }
    EXPECT_EQ(m_service.WaitForClose(1, PATIENCE_MS), WAIT_RESULT::Met);
    const auto pNext = Arrive();
    ExpectHeld(L"agent 2");
    ASSERT_TRUE(Ask(*pNext, 0));
    for (const REVERSE_CODE code : {REVERSE_CODE_SHOW_WAIT, REVERSE_CODE_CLOSE_WAIT, REVERSE_CODE_FINISHED})
    {
        ExpectCode(*pNext, code);
    }
    EXPECT_FALSE(Logged(L"not answered"));
}
