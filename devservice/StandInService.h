#pragma once

#include "channel/TrayMessages.h"
#include "devservice/PermissionPrompts.h"
#include "devservice/QueryPort.h"
#include "devservice/RecordFramer.h"
#include "devservice/ServiceEvent.h"
#include "devservice/SocketHandle.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

/// One message of an agent that nobody has asked for yet.
struct AGENT_RECORD
{
    const MESSAGE_DESCRIPTION* pMessage; // null: raw bytes behind a lost frame
    std::vector<BYTE> bytes;
};

enum class WAIT_RESULT
{
    Met,
    TimedOut,
    AgentGone,   // and what was waited for hadn't come
    Interrupted, // Interrupt was called
};

struct AGENT_STATE
{
    bool bConnected = false;
    bool bReady = false; // the handshake has been answered
    bool bFrameLost = false;
    DWORD dwSessionId = 0; // once ready
};

/// What is done about agents at once, on the service's thread and one call at a time. It may call the
/// service.
struct AGENT_RESPONDER
{
    /// A record has come; nobody can take it before this returns. Raw bytes don't count.
    std::function<void(unsigned int uAgent, const AGENT_RECORD& record)> onRecord;
    /// The agent's connection is closed.
    std::function<void(unsigned int uAgent)> onGone;
};

/// Plays the service's side of the main channel, of the query port and of permission exchanges on 127.0.0.1,
/// for any number of agents at once. Agents are numbered from 1 on in the order of their arrival and keep
/// their number after they have gone. A thread of its own takes what arrives; all operations may be called
/// from any thread except from inside an event sink.
class CStandInService
{
  public:
    CStandInService();
    ~CStandInService();
    CStandInService(const CStandInService&) = delete;
    CStandInService& operator=(const CStandInService&) = delete;

    /// The sink sees everything from now on, one call at a time.
    void AddSink(SERVICE_EVENT_SINK sink);

    /// Instead of an earlier one; empty functions take it away. On return no call of the earlier one runs or
    /// comes. Not from inside a responder.
    void SetResponder(AGENT_RESPONDER responder);

    /// Starts to listen for agents, instead of where it listened before. Port 0 takes any free one. False
    /// leaves the reason as the last error; the service then doesn't listen.
    bool Listen(unsigned short nPort);
    /// Agents that are connected stay so. On return nobody can connect any more.
    void StopListening();
    /// 0 when it doesn't listen.
    unsigned short GetPort() const;

    /// Opens the query port. lookupPort: what a port lookup is told; empty means the port that GetPort gives
    /// at that time. Opening it again on the same port only changes the answers. False leaves the reason as
    /// the last error.
    bool OpenQueryPort(unsigned short nPort, LOOKUP_MODE mode, std::optional<unsigned int> lookupPort);
    /// Requests are no longer answered.
    void CloseQueryPort();
    /// How requests for invitations, and for their deletion, are answered from now on; at first not at all.
    void SetInvitationAnswer(INVITATION_ANSWER answer);
    void SetDeletionAnswer(DELETION_ANSWER answer);
    /// 0 when it is closed.
    unsigned short GetQueryPort() const;

    /// The permission exchanges. Naming their ports to agents is up to the caller.
    CPermissionPrompts& Prompts() { return m_prompts; }

    /// What an agent that connects is sent at once; empty means nothing.
    void SetHandshake(std::optional<MSG_VERSION> handshake);
    /// What SetHandshake has set; at first a handshake of the service's own.
    std::optional<MSG_VERSION> GetHandshake() const;

    /// Agents that have ever connected.
    unsigned int CountAgents() const;
    /// Agents that have ever answered the handshake, or, without one, connected.
    unsigned int CountReadyAgents() const;
    /// Empty for an agent that has never come.
    std::optional<AGENT_STATE> GetAgent(unsigned int uAgent) const;

    /// Waits until CountReadyAgents gives so many.
    WAIT_RESULT WaitForReadyAgents(unsigned int uCount, DWORD dwMilliseconds);

    /// Sends bytes as they are. False when the agent is gone or doesn't take them within ten seconds.
    bool Send(unsigned int uAgent, std::span<const BYTE> bytes);

    /// Waits for the first unasked-for message that the test accepts and takes it out; all others stay.
    /// The test runs with the service locked.
    WAIT_RESULT TakeRecord(unsigned int uAgent, const std::function<bool(const AGENT_RECORD&)>& accept,
                           DWORD dwMilliseconds, AGENT_RECORD& record);
    /// Copies of the messages that nobody has asked for.
    std::vector<AGENT_RECORD> GetPending(unsigned int uAgent) const;
    /// Drops them.
    void ForgetPending(unsigned int uAgent);

    /// Closes the connection soon; WaitForClose tells when.
    void CloseAgent(unsigned int uAgent);
    /// Met when the connection is closed, by whichever side, or there has never been one.
    WAIT_RESULT WaitForClose(unsigned int uAgent, DWORD dwMilliseconds);

    /// Waits out the time, or until interrupted; INFINITE is for ever.
    WAIT_RESULT Pause(DWORD dwMilliseconds);

    /// Ends all waits, present and future.
    void Interrupt();
    /// Whether Interrupt was called.
    bool IsInterrupted() const;
    /// Manual-reset, set by Interrupt; for waits on other things. The service's own.
    HANDLE GetInterruptEvent() const { return m_hInterrupt.get(); }

    /// Puts a line into the log.
    void Note(std::wstring_view text);
    /// The same, about an agent.
    void NoteAgent(unsigned int uAgent, std::wstring_view text);

  private:
    struct AGENT;

    void Run();
    void AcceptAgents();
    void AddAgent(SOCKET hSocket);
    void OnAgentReadable(const std::shared_ptr<AGENT>& pAgent);
    bool TakeBytes(AGENT& agent);
    void OnAgentRecord(AGENT& agent, AGENT_RECORD record);
    void OnHandshakeAnswer(AGENT& agent, std::span<const BYTE> bytes);
    void EndAgent(AGENT& agent, bool bByService);
    bool SendTo(AGENT& agent, std::span<const BYTE> bytes);
    std::shared_ptr<AGENT> FindAgent(unsigned int uAgent) const;
    WAIT_RESULT WaitFor(const std::function<WAIT_RESULT()>& test, DWORD dwMilliseconds);
    void Emit(SERVICE_EVENT& event);
    void EmitAgent(SERVICE_EVENT_KIND kind, unsigned int uAgent, std::wstring text);
    void UpdateLookup();
    void AwaitPollAfter(unsigned int uPolls);
    void Wake();

    const CWinsockUse m_winsock;
    const CKernelHandle m_hInterrupt{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    const std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();

    std::mutex m_sinkMutex;
    std::vector<SERVICE_EVENT_SINK> m_sinks;

    // Held while the responder runs. Taken before all others.
    std::mutex m_responderMutex;
    AGENT_RESPONDER m_responder;

    // Guards all below it. Never held while bytes are sent to an agent or while a sink runs.
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    CSocketHandle m_hListener;
    unsigned int m_uPolls = 0; // that the service's thread has come back from
    std::vector<std::shared_ptr<AGENT>> m_agents;
    std::optional<MSG_VERSION> m_handshake;
    bool m_bStopping = false;

    // Guards the query port, whose answers go out, and are logged, under it. Taken before m_mutex, never
    // after.
    mutable std::mutex m_queryMutex;
    CQueryPort m_queryPort;
    LOOKUP_MODE m_lookupMode = LOOKUP_MODE::Answer;
    std::optional<unsigned int> m_lookupPort;

    // Its own lock is taken before m_mutex, never after.
    CPermissionPrompts m_prompts;

    CSocketHandle m_hWake; // connected to itself: one byte wakes the thread
    std::thread m_thread;
};
