#include "tests/soak/StagedAgent.h"

#include <string>

namespace
{
AgentStart PointedAt(const CStandInService& service)
{
    AgentStart start;
    start.commandLine = std::to_wstring(service.GetPort());
    return start;
}
} // namespace

bool PrepareService(CStandInService& service)
{
    MSG_VERSION version = {};
    version.dwType = MSG_TYPE_VERSION;
    service.SetHandshake(version);
    return service.Listen(0);
}

StagedAgent::StagedAgent(const AgentFolder& folder, CStandInService& service)
    : m_process(folder, PointedAt(service))
{
    const unsigned int uAgent = service.CountReadyAgents() + 1;
    if (service.WaitForReadyAgents(uAgent, PATIENCE_MS) != WAIT_RESULT::Met)
    {
        return;
    }
    const HWND hTrayWindow = m_process.WaitForTrayWindow(PATIENCE_MS);
    if (hTrayWindow != nullptr)
    {
        m_visited = VISITED_AGENT{uAgent, hTrayWindow, true};
    }
}
