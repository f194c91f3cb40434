#include "devservice/StandInService.h"

#include "devservice/RecordText.h"

#include <algorithm>
#include <cstddef>
#include <iomanip>
#include <sstream>
#include <utility>

namespace
{
constexpr int SEND_TIMEOUT_MS = 10000;
constexpr int POLL_END_MS = 5000; // for a thread that is woken out of it
constexpr DWORD POLL_AGAIN_MS = 1;
constexpr size_t RECEIVE_BYTES = 65536;
// What nobody asks for is dropped from the oldest on beyond this, so that a service may run for days.
constexpr size_t MOST_PENDING_BYTES = 256 * 1024 * 1024;

const MESSAGE_DESCRIPTION* DescribeWholeRecord(std::span<const BYTE> bytes, MESSAGE_DIRECTION direction)
{
    const MESSAGE_DESCRIPTION* const pMessage = FindMessageDescription(ReadDword(bytes, 0), direction);
    if (pMessage == nullptr || bytes.size() < pMessage->pRecord->uSize)
    {
        return nullptr;
    }
    size_t nSize = pMessage->pRecord->uSize;
    if (pMessage->dwType == MSG_TYPE_CHAT_MESSAGE)
    {
        nSize += ReadDword(bytes, offsetof(MSG_CHAT_MESSAGE, dwMessageLength));
    }
    return bytes.size() == nSize ? pMessage : nullptr;
}

bool WaitWritable(SOCKET hSocket)
{
    WSAPOLLFD poll = {};
    poll.fd = hSocket;
    poll.events = POLLWRNORM;
    return WSAPoll(&poll, 1, SEND_TIMEOUT_MS) > 0 && (poll.revents & POLLWRNORM) != 0;
}

bool SendAll(SOCKET hSocket, std::span<const BYTE> bytes)
{
    while (!bytes.empty())
    {
        constexpr size_t nMost = RECEIVE_BYTES;
        const int cb = send(hSocket, reinterpret_cast<const char*>(bytes.data()),
                            static_cast<int>(std::min(bytes.size(), nMost)), 0);
        if (cb != SOCKET_ERROR)
        {
            bytes = bytes.subspan(static_cast<size_t>(cb));
        }
        else if (WSAGetLastError() != WSAEWOULDBLOCK || !WaitWritable(hSocket))
        {
            return false;
        }
    }
    return true;
}

WSAPOLLFD ReadPoll(SOCKET hSocket)
{
    WSAPOLLFD poll = {};
    poll.fd = hSocket;
    poll.events = POLLRDNORM;
    return poll;
}

CSocketHandle OpenWakeSocket()
{
    CSocketHandle hSocket = OpenLoopbackSocket(SOCK_DGRAM, 0);
    sockaddr_in address = {};
    int cbAddress = sizeof(address);
    if (getsockname(hSocket.get(), reinterpret_cast<sockaddr*>(&address), &cbAddress) == SOCKET_ERROR ||
        connect(hSocket.get(), reinterpret_cast<const sockaddr*>(&address), cbAddress) == SOCKET_ERROR)
    {
        hSocket.reset();
    }
    return hSocket;
}

void DrainWakeSocket(SOCKET hSocket)
{
    char achBytes[16];
    int nTaken = 0;
    do
    {
        nTaken = recv(hSocket, achBytes, sizeof(achBytes), 0);
    } while (nTaken > 0);
}

MSG_VERSION DefaultHandshake()
{
    MSG_VERSION version = {};
    version.dwType = MSG_TYPE_VERSION;
    version.dwVersionWord = 1;
    constexpr char achTail[] = "stand-in 1.0";
    static_assert(sizeof(achTail) - 1 == sizeof(version.abVersionTail));
    std::copy_n(achTail, sizeof(version.abVersionTail), version.abVersionTail);
    return version;
}
} // namespace

struct CStandInService::AGENT
{
    AGENT(unsigned int uAgent, CSocketHandle hAgent) : uNumber(uAgent), hSocket(std::move(hAgent)) {}

    const unsigned int uNumber;

    // Held while bytes go out, so that records of two threads don't mix; also guards the end of the socket.
    std::mutex sendMutex;
    CSocketHandle hSocket;

    CRecordFramer framer{MESSAGE_FROM_AGENT}; // the service's thread only

    // Guarded by the service's mutex.
    AGENT_STATE state;
    bool bCloseAsked = false;
    std::deque<AGENT_RECORD> pending;
    size_t nPendingBytes = 0;
};

CStandInService::CStandInService()
    : m_handshake(DefaultHandshake()), m_queryPort([this](SERVICE_EVENT& event) { Emit(event); }),
      m_prompts([this](SERVICE_EVENT& event) { Emit(event); }, [this] { Wake(); }), m_hWake(OpenWakeSocket())
{
    m_thread = std::thread([this] { Run(); });
}

CStandInService::~CStandInService()
{
    {
        const std::lock_guard lock(m_mutex);
        m_bStopping = true;
        SetEvent(m_hInterrupt.get());
    }
    m_changed.notify_all();
    Wake();
    m_thread.join();
}

void CStandInService::AddSink(SERVICE_EVENT_SINK sink)
{
    const std::lock_guard lock(m_sinkMutex);
    m_sinks.push_back(std::move(sink));
}

void CStandInService::SetResponder(AGENT_RESPONDER responder)
{
    const std::lock_guard lock(m_responderMutex);
    m_responder = std::move(responder);
}

bool CStandInService::Listen(unsigned short nPort)
{
    StopListening();
    CSocketHandle hListener = OpenLoopbackSocket(SOCK_STREAM, nPort);
    if (!hListener)
    {
        return false;
    }
    const unsigned short nBound = BoundPort(hListener.get());
    {
        const std::lock_guard lock(m_mutex);
        m_hListener = std::move(hListener);
    }
    Wake();
    UpdateLookup();
    Note(L"listening on port " + std::to_wstring(nBound));
    return true;
}

void CStandInService::StopListening()
{
    unsigned int uPolls = 0;
    {
        const std::lock_guard lock(m_mutex);
        if (!m_hListener)
        {
            return;
        }
        m_hListener.reset();
        uPolls = m_uPolls;
    }
    Wake();
    AwaitPollAfter(uPolls);
    Note(L"no longer listening");
}

// A closed socket that is still polled goes on taking connections.
void CStandInService::AwaitPollAfter(unsigned int uPolls)
{
    if (std::this_thread::get_id() == m_thread.get_id())
    {
        return; // it doesn't poll now
    }
    std::unique_lock lock(m_mutex);
    m_changed.wait_for(lock, std::chrono::milliseconds(POLL_END_MS),
                       [this, uPolls] { return m_bStopping || m_uPolls != uPolls; });
}

unsigned short CStandInService::GetPort() const
{
    const std::lock_guard lock(m_mutex);
    return m_hListener ? BoundPort(m_hListener.get()) : 0;
}

bool CStandInService::OpenQueryPort(unsigned short nPort, LOOKUP_MODE mode,
                                    std::optional<unsigned int> lookupPort)
{
    {
        const std::lock_guard lock(m_queryMutex);
        const unsigned short nOpen = m_queryPort.GetPort();
        if (nOpen == 0 || nOpen != nPort)
        {
            m_queryPort.Close();
            if (!m_queryPort.Open(nPort))
            {
                return false;
            }
        }
        m_lookupMode = mode;
        m_lookupPort = lookupPort;
    }
    Wake();
    UpdateLookup();
    Note(L"query port " + std::to_wstring(GetQueryPort()) + L" open");
    return true;
}

void CStandInService::CloseQueryPort()
{
    {
        const std::lock_guard lock(m_queryMutex);
        if (m_queryPort.GetPort() == 0)
        {
            return;
        }
        m_queryPort.Close();
    }
    Wake();
    Note(L"query port closed");
}

void CStandInService::SetInvitationAnswer(INVITATION_ANSWER answer)
{
    const std::lock_guard lock(m_queryMutex);
    m_queryPort.SetInvitationAnswer(std::move(answer));
}

void CStandInService::SetDeletionAnswer(DELETION_ANSWER answer)
{
    const std::lock_guard lock(m_queryMutex);
    m_queryPort.SetDeletionAnswer(answer);
}

unsigned short CStandInService::GetQueryPort() const
{
    const std::lock_guard lock(m_queryMutex);
    return m_queryPort.GetPort();
}

void CStandInService::SetHandshake(std::optional<MSG_VERSION> handshake)
{
    const std::lock_guard lock(m_mutex);
    m_handshake = handshake;
}

std::optional<MSG_VERSION> CStandInService::GetHandshake() const
{
    const std::lock_guard lock(m_mutex);
    return m_handshake;
}

unsigned int CStandInService::CountAgents() const
{
    const std::lock_guard lock(m_mutex);
    return static_cast<unsigned int>(m_agents.size());
}

unsigned int CStandInService::CountReadyAgents() const
{
    const std::lock_guard lock(m_mutex);
    return static_cast<unsigned int>(std::count_if(m_agents.begin(), m_agents.end(),
                                                   [](const auto& pAgent) { return pAgent->state.bReady; }));
}

std::optional<AGENT_STATE> CStandInService::GetAgent(unsigned int uAgent) const
{
    const std::shared_ptr<AGENT> pAgent = FindAgent(uAgent);
    if (!pAgent)
    {
        return std::nullopt;
    }
    const std::lock_guard lock(m_mutex);
    return pAgent->state;
}

WAIT_RESULT CStandInService::WaitForReadyAgents(unsigned int uCount, DWORD dwMilliseconds)
{
    return WaitFor(
        [this, uCount] {
            const auto nReady = std::count_if(m_agents.begin(), m_agents.end(),
                                              [](const auto& pAgent) { return pAgent->state.bReady; });
            return nReady >= static_cast<ptrdiff_t>(uCount) ? WAIT_RESULT::Met : WAIT_RESULT::TimedOut;
        },
        dwMilliseconds);
}

bool CStandInService::Send(unsigned int uAgent, std::span<const BYTE> bytes)
{
    const std::shared_ptr<AGENT> pAgent = FindAgent(uAgent);
    return pAgent && SendTo(*pAgent, bytes);
}

bool CStandInService::SendTo(AGENT& agent, std::span<const BYTE> bytes)
{
    const std::lock_guard lock(agent.sendMutex);
    if (!agent.hSocket)
    {
        return false;
    }
    SERVICE_EVENT event;
    event.uAgent = agent.uNumber;
    event.bytes = bytes;
    event.pMessage = DescribeWholeRecord(bytes, MESSAGE_FROM_SERVICE);
    if (event.pMessage == nullptr)
    {
        event.pMessage = DescribeWholeRecord(bytes, MESSAGE_FROM_AGENT);
    }
    event.kind = event.pMessage != nullptr ? SERVICE_EVENT_KIND::RecordSent : SERVICE_EVENT_KIND::RawSent;
    // Logged first: the answer may be there before send returns.
    Emit(event);
    return SendAll(agent.hSocket.get(), bytes);
}

WAIT_RESULT CStandInService::TakeRecord(unsigned int uAgent,
                                        const std::function<bool(const AGENT_RECORD&)>& accept,
                                        DWORD dwMilliseconds, AGENT_RECORD& record)
{
    const std::shared_ptr<AGENT> pAgent = FindAgent(uAgent);
    if (!pAgent)
    {
        return WAIT_RESULT::AgentGone;
    }
    return WaitFor(
        [&] {
            const auto found = std::find_if(pAgent->pending.begin(), pAgent->pending.end(), accept);
            if (found == pAgent->pending.end())
            {
                return pAgent->state.bConnected ? WAIT_RESULT::TimedOut : WAIT_RESULT::AgentGone;
            }
            record = std::move(*found);
            pAgent->nPendingBytes -= record.bytes.size();
            pAgent->pending.erase(found);
            return WAIT_RESULT::Met;
        },
        dwMilliseconds);
}

std::vector<AGENT_RECORD> CStandInService::GetPending(unsigned int uAgent) const
{
    const std::shared_ptr<AGENT> pAgent = FindAgent(uAgent);
    if (!pAgent)
    {
        return {};
    }
    const std::lock_guard lock(m_mutex);
    return {pAgent->pending.begin(), pAgent->pending.end()};
}

void CStandInService::ForgetPending(unsigned int uAgent)
{
    const std::shared_ptr<AGENT> pAgent = FindAgent(uAgent);
    if (!pAgent)
    {
        return;
    }
    const std::lock_guard lock(m_mutex);
    pAgent->pending.clear();
    pAgent->nPendingBytes = 0;
}

void CStandInService::CloseAgent(unsigned int uAgent)
{
    const std::shared_ptr<AGENT> pAgent = FindAgent(uAgent);
    if (!pAgent)
    {
        return;
    }
    {
        const std::lock_guard lock(m_mutex);
        pAgent->bCloseAsked = true;
    }
    Wake();
}

WAIT_RESULT CStandInService::WaitForClose(unsigned int uAgent, DWORD dwMilliseconds)
{
    const std::shared_ptr<AGENT> pAgent = FindAgent(uAgent);
    if (!pAgent)
    {
        return WAIT_RESULT::Met;
    }
    return WaitFor([&pAgent] { return pAgent->state.bConnected ? WAIT_RESULT::TimedOut : WAIT_RESULT::Met; },
                   dwMilliseconds);
}

WAIT_RESULT CStandInService::Pause(DWORD dwMilliseconds)
{
    return WaitFor([] { return WAIT_RESULT::TimedOut; }, dwMilliseconds);
}

void CStandInService::Interrupt()
{
    {
        const std::lock_guard lock(m_mutex);
        SetEvent(m_hInterrupt.get());
    }
    m_changed.notify_all();
    m_prompts.Interrupt();
}

bool CStandInService::IsInterrupted() const
{
    return WaitForSingleObject(m_hInterrupt.get(), 0) == WAIT_OBJECT_0;
}

void CStandInService::Note(std::wstring_view text)
{
    EmitAgent(SERVICE_EVENT_KIND::Note, 0, std::wstring(text));
}

void CStandInService::NoteAgent(unsigned int uAgent, std::wstring_view text)
{
    EmitAgent(SERVICE_EVENT_KIND::Note, uAgent, std::wstring(text));
}

// The service's own thread: everything that arrives passes here. Sockets never block, since one that was
// polled may be another by the time it is read.
void CStandInService::Run()
{
    for (;;)
    {
        std::vector<WSAPOLLFD> polls = {ReadPoll(m_hWake.get())};
        std::vector<std::shared_ptr<AGENT>> agents;
        SOCKET hQuery = INVALID_SOCKET;
        SOCKET hListener = INVALID_SOCKET;
        {
            const std::lock_guard lock(m_queryMutex);
            hQuery = m_queryPort.GetSocket();
        }
        {
            const std::lock_guard lock(m_mutex);
            if (m_bStopping)
            {
                break;
            }
            hListener = m_hListener.get();
            agents = m_agents;
        }
        for (const SOCKET hSocket : {hQuery, hListener})
        {
            if (hSocket != INVALID_SOCKET)
            {
                polls.push_back(ReadPoll(hSocket));
            }
        }
        for (const SOCKET hPrompt : m_prompts.GetSockets())
        {
            polls.push_back(ReadPoll(hPrompt));
        }
        std::erase_if(agents, [](const auto& pAgent) { return !pAgent->hSocket; });
        for (const auto& pAgent : agents)
        {
            polls.push_back(ReadPoll(pAgent->hSocket.get()));
        }
        const bool bPolled = WSAPoll(polls.data(), static_cast<ULONG>(polls.size()), -1) != SOCKET_ERROR;
        {
            const std::lock_guard lock(m_mutex);
            ++m_uPolls;
        }
        m_changed.notify_all();
        if (!bPolled)
        {
            // Somebody has closed one of the sockets meanwhile; the next list has it no more.
            Sleep(POLL_AGAIN_MS);
            continue;
        }

        DrainWakeSocket(m_hWake.get());
        {
            const std::lock_guard lock(m_queryMutex);
            if (m_queryPort.GetSocket() != INVALID_SOCKET)
            {
                m_queryPort.OnReadable();
            }
        }
        m_prompts.OnReadable();
        AcceptAgents();
        const size_t nFirstAgent = polls.size() - agents.size();
        for (size_t n = 0; n < agents.size(); ++n)
        {
            if (polls[nFirstAgent + n].revents != 0)
            {
                OnAgentReadable(agents[n]);
            }
            bool bCloseAsked = false;
            {
                const std::lock_guard lock(m_mutex);
                bCloseAsked = agents[n]->bCloseAsked;
            }
            if (bCloseAsked)
            {
                EndAgent(*agents[n], true);
            }
        }
    }
    for (const auto& pAgent : m_agents)
    {
        EndAgent(*pAgent, true);
    }
}

void CStandInService::AcceptAgents()
{
    for (;;)
    {
        SOCKET hAccepted = INVALID_SOCKET;
        {
            const std::lock_guard lock(m_mutex);
            if (m_hListener)
            {
                hAccepted = accept(m_hListener.get(), nullptr, nullptr);
            }
        }
        if (hAccepted == INVALID_SOCKET)
        {
            return;
        }
        AddAgent(hAccepted);
    }
}

void CStandInService::AddAgent(SOCKET hSocket)
{
    CSocketHandle hOwned(hSocket);
    SetNonBlocking(hSocket);
    const BOOL bNoDelay = TRUE;
    setsockopt(hSocket, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&bNoDelay), sizeof(bNoDelay));
    std::shared_ptr<AGENT> pAgent;
    std::optional<MSG_VERSION> handshake;
    {
        const std::lock_guard lock(m_mutex);
        pAgent = std::make_shared<AGENT>(static_cast<unsigned int>(m_agents.size()) + 1, std::move(hOwned));
        pAgent->state.bConnected = true;
        handshake = m_handshake;
        pAgent->state.bReady = !handshake;
        m_agents.push_back(pAgent);
    }
    EmitAgent(SERVICE_EVENT_KIND::AgentConnected, pAgent->uNumber, L"connected");
    if (handshake)
    {
        SendTo(*pAgent,
               std::span<const BYTE>(reinterpret_cast<const BYTE*>(&*handshake), sizeof(*handshake)));
    }
    m_changed.notify_all();
}

void CStandInService::OnAgentReadable(const std::shared_ptr<AGENT>& pAgent)
{
    if (!pAgent->hSocket)
    {
        return;
    }
    const bool bOpen = TakeBytes(*pAgent);
    AGENT_RECORD record = {};
    while (pAgent->framer.Next(record.bytes, record.pMessage) != FRAME_RESULT::NeedMore)
    {
        OnAgentRecord(*pAgent, std::exchange(record, {}));
    }
    if (!bOpen)
    {
        EndAgent(*pAgent, false);
    }
}

bool CStandInService::TakeBytes(AGENT& agent)
{
    std::vector<BYTE> buffer(RECEIVE_BYTES);
    const int cb =
        recv(agent.hSocket.get(), reinterpret_cast<char*>(buffer.data()), static_cast<int>(buffer.size()), 0);
    if (cb == SOCKET_ERROR)
    {
        return WSAGetLastError() == WSAEWOULDBLOCK;
    }
    agent.framer.Append(std::span<const BYTE>(buffer.data(), static_cast<size_t>(cb)));
    return cb > 0;
}

void CStandInService::OnAgentRecord(AGENT& agent, AGENT_RECORD record)
{
    SERVICE_EVENT event;
    event.uAgent = agent.uNumber;
    event.pMessage = record.pMessage;
    event.bytes = record.bytes;
    event.kind =
        record.pMessage != nullptr ? SERVICE_EVENT_KIND::RecordReceived : SERVICE_EVENT_KIND::RawReceived;
    Emit(event);
    const bool bFirstLoss = record.pMessage == nullptr && !agent.state.bFrameLost;
    if (bFirstLoss)
    {
        NoteAgent(agent.uNumber, L"unknown type " + std::to_wstring(ReadDword(record.bytes, 0)) +
                                     L": the frame is lost, all that follows is raw");
    }
    if (record.pMessage != nullptr && record.pMessage->dwType == MSG_TYPE_VERSION)
    {
        OnHandshakeAnswer(agent, record.bytes);
    }
    if (record.pMessage != nullptr)
    {
        const std::lock_guard lock(m_responderMutex);
        if (m_responder.onRecord)
        {
            m_responder.onRecord(agent.uNumber, record);
        }
    }
    {
        const std::lock_guard lock(m_mutex);
        agent.state.bFrameLost = agent.framer.IsFrameLost();
        agent.nPendingBytes += record.bytes.size();
        agent.pending.push_back(std::move(record));
        while (agent.nPendingBytes > MOST_PENDING_BYTES)
        {
            agent.nPendingBytes -= agent.pending.front().bytes.size();
            agent.pending.pop_front();
        }
    }
    m_changed.notify_all();
}

void CStandInService::OnHandshakeAnswer(AGENT& agent, std::span<const BYTE> bytes)
{
    MSG_VERSION version = {};
    std::copy(bytes.begin(), bytes.end(), reinterpret_cast<BYTE*>(&version));
    std::wostringstream text;
    text.imbue(std::locale::classic());
    text << L"handshake answered: versions " << std::fixed << std::setprecision(1) << version.dblAgentVersion
         << L" and " << version.dblAgentVersion2 << L", session " << version.dwSessionId;
    EmitAgent(SERVICE_EVENT_KIND::AgentReady, agent.uNumber, text.str());
    const std::lock_guard lock(m_mutex);
    agent.state.bReady = true;
    agent.state.dwSessionId = version.dwSessionId;
}

void CStandInService::EndAgent(AGENT& agent, bool bByService)
{
    {
        const std::lock_guard lock(agent.sendMutex);
        if (!agent.hSocket)
        {
            return;
        }
        shutdown(agent.hSocket.get(), SD_SEND);
        agent.hSocket.reset();
    }
    SERVICE_EVENT event;
    event.kind = SERVICE_EVENT_KIND::AgentGone;
    event.uAgent = agent.uNumber;
    event.bByService = bByService;
    event.text = bByService ? L"closed by the service" : L"closed by the agent";
    if (agent.framer.Pending() > 0)
    {
        event.text += L", within a record";
    }
    Emit(event);
    {
        const std::lock_guard lock(m_responderMutex);
        if (m_responder.onGone)
        {
            m_responder.onGone(agent.uNumber);
        }
    }
    {
        const std::lock_guard lock(m_mutex);
        agent.state.bConnected = false;
    }
    m_changed.notify_all();
}

std::shared_ptr<CStandInService::AGENT> CStandInService::FindAgent(unsigned int uAgent) const
{
    const std::lock_guard lock(m_mutex);
    if (uAgent == 0 || uAgent > m_agents.size())
    {
        return nullptr;
    }
    return m_agents[uAgent - 1];
}

// The test runs with the service locked and answers TimedOut for "not yet".
WAIT_RESULT CStandInService::WaitFor(const std::function<WAIT_RESULT()>& test, DWORD dwMilliseconds)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(dwMilliseconds);
    std::unique_lock lock(m_mutex);
    for (bool bTimeLeft = true;;)
    {
        const WAIT_RESULT result = test();
        if (result != WAIT_RESULT::TimedOut)
        {
            return result;
        }
        if (IsInterrupted())
        {
            return WAIT_RESULT::Interrupted;
        }
        if (!bTimeLeft)
        {
            return WAIT_RESULT::TimedOut;
        }
        if (dwMilliseconds == INFINITE)
        {
            m_changed.wait(lock);
        }
        else
        {
            bTimeLeft = m_changed.wait_until(lock, deadline) == std::cv_status::no_timeout;
        }
    }
}

void CStandInService::Emit(SERVICE_EVENT& event)
{
    const std::lock_guard lock(m_sinkMutex);
    event.dblSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
    for (const SERVICE_EVENT_SINK& sink : m_sinks)
    {
        sink(event);
    }
}

void CStandInService::EmitAgent(SERVICE_EVENT_KIND kind, unsigned int uAgent, std::wstring text)
{
    SERVICE_EVENT event;
    event.kind = kind;
    event.uAgent = uAgent;
    event.text = std::move(text);
    Emit(event);
}

void CStandInService::UpdateLookup()
{
    const std::lock_guard lock(m_queryMutex);
    m_queryPort.SetLookup(m_lookupMode, m_lookupPort.value_or(GetPort()));
}

void CStandInService::Wake()
{
    const char chByte = 0;
    send(m_hWake.get(), &chByte, sizeof(chByte), 0);
}
