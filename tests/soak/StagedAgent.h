#pragma once

#include "devservice/StandInService.h"
#include "tests/soak/ViewerVisits.h"
#include "tests/support/AgentFolder.h"
#include "tests/support/AgentProcess.h"
#include "tests/support/Patience.h"

#include <optional>

/// The service's side, listening, with the handshake ready. False when it can't listen.
bool PrepareService(CStandInService& service);

/// A staged agent that has answered the service's handshake.
class StagedAgent
{
  public:
    /// The next agent of the service.
    StagedAgent(const AgentFolder& folder, CStandInService& service);

    /// Empty when it didn't answer.
    std::optional<VISITED_AGENT> Visited() const { return m_visited; }
    const AgentProcess& Process() const { return m_process; }

  private:
    AgentProcess m_process;
    std::optional<VISITED_AGENT> m_visited;
};
