#pragma once

#include "tests/e2e/AgentTest.h"
#include "tests/support/ShellTrayCatcher.h"

#include <optional>
#include <vector>

/// An agent whose icon the test receives in the shell's place.
class TrayTest : public AgentTest
{
  protected:
    void SetUp() override { MeetLockedAgent(); }

    /// The calls of the shell so far, when the agent has handled all that was sent.
    std::vector<TrayCall> Calls()
    {
        ExpectEcho();
        return m_catcher->Calls();
    }

    std::optional<ShellTrayCatcher> m_catcher{std::in_place};
};
