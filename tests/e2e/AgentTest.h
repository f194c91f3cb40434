#pragma once

#include "tests/e2e/ServiceChannel.h"
#include "tests/support/AgentFolder.h"
#include "tests/support/AgentProcess.h"
#include "tests/support/LoopbackPeer.h"
#include "tests/support/Patience.h"
#include "tests/support/RegistryValue.h"
#include "tests/support/SessionScript.h"

#include "channel/TrayMessages.h"

#include <gtest/gtest.h>

#include <memory>
#include <ostream>
#include <string>

constexpr wchar_t SERVICE_SETTINGS_KEY[] =
    L"SOFTWARE\\Tessaran Development\\Kestrel Desk Assist Service\\Settings";

// How long nothing must come where nothing is the answer.
constexpr DWORD SILENCE_MS = 700;

constexpr DWORD EXIT_CODE_ENDED = 0;
constexpr DWORD EXIT_CODE_BAD_PARAMETER = 1;
constexpr DWORD EXIT_CODE_ALREADY_RUNNING = 0xFFFFFFC8; // -56
constexpr DWORD EXIT_CODE_ASKED_TO_END = 0xFFFFFFC8;    // -56

/// Whatever ends an agent.
enum class WAY_OUT
{
    ServiceGoes,
    ServiceSendsExit,
    WindowIsClosed,
    SessionEnds,
};
constexpr WAY_OUT WAYS_OUT[] = {WAY_OUT::ServiceGoes, WAY_OUT::ServiceSendsExit, WAY_OUT::WindowIsClosed,
                                WAY_OUT::SessionEnds};
std::ostream& operator<<(std::ostream& stream, WAY_OUT wayOut);

/// A service's port, a folder to start agents from, a machine without a registered port, and a session that
/// is active and unlocked.
class AgentTest : public testing::Test
{
  protected:
    AgentTest();

    std::wstring ServicePort() const { return std::to_wstring(m_listener.Port()); }
    /// Starts an agent that is told to find the service on m_listener.
    void StartAgent();
    void StartAgent(const AgentStart& start);
    /// Starts an agent on the given command line.
    void StartAgent(const std::wstring& commandLine);
    /// Waits for the agent on the listener and opens m_channel.
    void AcceptAgent(LoopbackListener& listener);
    void AcceptAgent() { AcceptAgent(m_listener); }
    /// Greets the agent on m_channel and waits for its answer.
    void ShakeHands();
    /// Starts an agent in a locked session and greets it: with nobody to reach, the report behind the
    /// greeting brings no refresh of its own into what a test watches.
    void MeetLockedAgent(const AgentStart& start);
    void MeetLockedAgent();
    /// A blocking-mode message and its echo: the agent is alive and reads at a record's beginning.
    void ExpectEcho();
    /// The service goes; the agent must follow in order.
    void ExpectEndWithService();
    void ExpectExit(const AgentProcess& agent, DWORD dwExitCode);
    /// Ends m_agent that way and waits for its end.
    void Leave(WAY_OUT wayOut);

    /// Sends settings under which the icon is shown and nothing is told, and waits for the agent's answer.
    bool SendSettings(DWORD bPermissionRequired = 0, const wchar_t* pszTip = L"Kestrel");
    bool SendConnect(DWORD dwType, DWORD dwConnectCount);
    /// Sends a mask of desktop options and waits for its acknowledgement.
    bool SendDesktopEffects(DWORD dwEffects);
    /// The desktop's state as the agent reports it next.
    DWORD TakeDesktopState();

    AgentFolder m_folder;
    LoopbackListener m_listener;
    RegistryValue m_noPort;
    SessionScript m_session;
    std::unique_ptr<AgentProcess> m_agent;
    std::unique_ptr<ServiceChannel> m_channel;
};

/// Settings under which the icon is shown and nothing is told.
MSG_TRAYICON_SETTINGS PlainSettings(DWORD dwType = MSG_TYPE_TRAYICON_SETTINGS);

/// A greeting whose fields the agent must echo or overwrite, none of them zero.
MSG_VERSION OddVersion();

/// The record as its bytes; T must have its size.
template <typename T>
T RecordAs(const ServiceChannel::Record& bytes)
{
    T record = {};
    EXPECT_EQ(bytes.size(), sizeof(T));
    if (bytes.size() == sizeof(T))
    {
        memcpy(&record, bytes.data(), sizeof(T));
    }
    return record;
}
