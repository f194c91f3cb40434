#pragma once

#include "tests/support/AgentFolder.h"
#include "tests/support/AgentProcess.h"
#include "tests/support/LoopbackPeer.h"

#include <memory>
#include <optional>
#include <string>

/// Makes the minimal agent create a window, as the product does before it connects.
constexpr wchar_t WITH_HIDDEN_WINDOW[] = L" window";

/// A program that plays the agent, in a copy of the staged tree with the log configuration as shipped.
/// Both agents are started from such a folder, under the same name and beside the same session module.
class AgentKind
{
  public:
    /// The staged agent.
    static std::unique_ptr<AgentKind> Product();
    /// The minimal agent in its place.
    static std::unique_ptr<AgentKind> Minimal();

    const AgentFolder& Folder() const { return m_folder; }

  private:
    AgentFolder m_folder;

    AgentKind() = default;
};

/// Both, as every comparison needs them.
struct AgentKinds
{
    std::unique_ptr<AgentKind> pProduct = AgentKind::Product();
    std::unique_ptr<AgentKind> pMinimal = AgentKind::Minimal();

    bool AreReady() const { return pProduct != nullptr && pMinimal != nullptr; }
};

/// One running agent that has answered the service's first record.
class AgentSession
{
  public:
    /// The parameters come behind the port on the command line.
    explicit AgentSession(const AgentKind& kind, const std::wstring& parameters = L"");

    bool HasAnswered() const { return m_bAnswered; }
    /// From before the start of the process to the answer.
    double Seconds() const { return m_dSeconds; }
    const AgentProcess& Process() const { return *m_process; }

  private:
    LoopbackListener m_listener;
    std::optional<AgentProcess> m_process;
    std::optional<LoopbackConnection> m_connection;
    bool m_bAnswered = false;
    double m_dSeconds = 0;

    bool ShakeHands();
};
