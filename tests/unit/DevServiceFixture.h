#pragma once

#include "devservice/Recording.h"
#include "devservice/ScriptRunner.h"
#include "devservice/StandInService.h"
#include "devservice/ValueText.h"
#include "tests/unit/DevServiceTestAgent.h"

#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

/// A service on ports of its own, whose log is kept.
class DevService : public testing::Test
{
  protected:
    DevService()
    {
        m_service.AddSink([this](const SERVICE_EVENT& event) {
            const std::lock_guard lock(m_logMutex);
            m_log += FormatEvent(event).substr(11) + L'\n';
            m_recording += FormatRecordedStep(event);
        });
    }

    void SetUp() override { ASSERT_TRUE(m_service.Listen(0)); }

    /// The next agent, connected and with its handshake done.
    std::unique_ptr<TestAgent> Arrive(DWORD dwSessionId = TEST_SESSION)
    {
        auto pAgent = std::make_unique<TestAgent>(m_service.GetPort());
        ++m_uArrived;
        EXPECT_TRUE(pAgent->ShakeHands(dwSessionId));
        EXPECT_EQ(m_service.WaitForReadyAgents(m_uArrived, PATIENCE_MS), WAIT_RESULT::Met);
        return pAgent;
    }

    std::wstring Log()
    {
        const std::lock_guard lock(m_logMutex);
        return m_log;
    }

    bool Logged(std::wstring_view text) { return Log().find(text) != std::wstring::npos; }

    std::wstring Recording()
    {
        const std::lock_guard lock(m_logMutex);
        return m_recording;
    }

    WAIT_RESULT Take(unsigned int uAgent, DWORD dwType, AGENT_RECORD& record,
                     DWORD dwMilliseconds = PATIENCE_MS)
    {
        return m_service.TakeRecord(
            uAgent,
            [dwType](const AGENT_RECORD& candidate) {
                return candidate.pMessage != nullptr && candidate.pMessage->dwType == dwType;
            },
            dwMilliseconds, record);
    }

    std::mutex m_logMutex;
    std::wstring m_log;
    std::wstring m_recording;
    unsigned int m_uArrived = 0;
    CStandInService m_service;
};

/// A service with a script runner.
class DevServiceRunner : public DevService
{
  protected:
    DevServiceRunner() : m_runner(m_service, Settings()) {}

    static SCRIPT_SETTINGS Settings()
    {
        SCRIPT_SETTINGS settings;
        settings.nPort = 0;
        settings.nQueryPort = 0;
        settings.programFolder = L"C:\\folder";
        return settings;
    }

    SCRIPT_RESULT Run(std::wstring_view text)
    {
        std::vector<SCRIPT_STATEMENT> statements;
        std::wstring error;
        EXPECT_TRUE(ParseScript(text, statements, error) && CScriptRunner::Check(statements, error))
            << ToUtf8(error);
        return m_runner.Run(statements);
    }

    void ExpectHeld(std::wstring_view text)
    {
        EXPECT_EQ(Run(text), SCRIPT_RESULT::Done) << ToUtf8(m_runner.GetError());
    }

    /// Waits until the service has whatever that agent has sent, by one more record, which is taken again.
    void AwaitRecords(TestAgent& agent)
    {
        ASSERT_TRUE(agent.SendType(MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE));
        AGENT_RECORD record = {};
        ASSERT_EQ(Take(m_uArrived, MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE, record), WAIT_RESULT::Met);
    }

    std::string ErrorOf(std::wstring_view text)
    {
        EXPECT_EQ(Run(text), SCRIPT_RESULT::Failed);
        return ToUtf8(m_runner.GetError());
    }

    CScriptRunner m_runner;
};
