#include "bench/AgentStarts.h"

#include "bench/Stopwatch.h"
#include "channel/TrayMessages.h"

#include <filesystem>

namespace
{
constexpr DWORD WAIT_MS = 20000;
constexpr wchar_t LOG_CONFIGURATION[] = L"TKDAST.Logging.xml";

std::filesystem::path MinimalProgram()
{
    wchar_t szPath[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, szPath, MAX_PATH);
    return std::filesystem::path(szPath).parent_path() / L"bench" / L"minimal_agent.exe";
}

bool Replace(const std::filesystem::path& from, const std::filesystem::path& to)
{
    std::error_code error;
    return std::filesystem::copy_file(from, to, std::filesystem::copy_options::overwrite_existing, error);
}
} // namespace

std::unique_ptr<AgentKind> AgentKind::Product()
{
    std::unique_ptr<AgentKind> pKind(new AgentKind);
    // A copied folder comes with a configuration that logs everything.
    if (!Replace(StageFolder() / LOG_CONFIGURATION, pKind->m_folder.LogConfiguration()))
    {
        return nullptr;
    }
    return pKind;
}

std::unique_ptr<AgentKind> AgentKind::Minimal()
{
    std::unique_ptr<AgentKind> pKind = Product();
    if (pKind == nullptr || !Replace(MinimalProgram(), pKind->m_folder.Program()))
    {
        return nullptr;
    }
    return pKind;
}

AgentSession::AgentSession(const AgentKind& kind, const std::wstring& parameters)
{
    AgentStart start;
    start.commandLine = std::to_wstring(m_listener.Port()) + parameters;
    const Stopwatch stopwatch;
    m_process.emplace(kind.Folder(), start);
    m_connection = m_listener.Accept(WAIT_MS);
    m_bAnswered = m_connection.has_value() && ShakeHands();
    m_dSeconds = stopwatch.Seconds();
}

bool AgentSession::ShakeHands()
{
    MSG_VERSION version = {};
    version.dwType = MSG_TYPE_VERSION;
    return m_connection->SendAll(&version, sizeof(version)) &&
           m_connection->ReceiveExactly(&version, sizeof(version), WAIT_MS) &&
           version.dwType == MSG_TYPE_VERSION && version.dblAgentVersion == TRAY_AGENT_VERSION;
}
