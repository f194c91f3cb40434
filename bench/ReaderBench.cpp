#include "bench/AgentWindow.h"
#include "bench/Benchmarks.h"
#include "bench/Report.h"
#include "bench/Stopwatch.h"

#include "Include/TKLogging.h"
#include "channel/TrayMessages.h"
#include "tests/support/AgentFolder.h"
#include "tests/support/LoopbackPeer.h"
#include "tray/TKDASTWindow.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>
#include <thread>

namespace
{
constexpr double LEAST_OF_BARE_LOOP = 0.9;
constexpr size_t SMALLEST_WITH_LIMIT = 1592; // bytes; below, the switch to the next record is all there is
constexpr int ROUNDS = 9;
constexpr double ROUND_SECONDS = 0.35;
constexpr size_t TRIAL_RECORDS = 500;
constexpr size_t BATCH_BYTES = 256 * 1024;
constexpr DWORD WAIT_MS = BENCH_WAIT_MS;

struct RECORD_KIND
{
    DWORD dwType;
    size_t nBytes;
    size_t nFieldOffset; // of the one field that isn't zero; 0: there is none
    DWORD dwField;
};

// Records that the reader takes without an answer, one of each size. They leave the icon hidden: what the
// shell takes for a change of it isn't the reader's. No message of 8 bytes goes unanswered, so a reserved
// type and an unknown one stand for it: two receives of 4 bytes, too.
constexpr RECORD_KIND s_aKinds[] = {
    {MSG_TYPE_RESERVED_40005, 2 * sizeof(DWORD), 0, 0},
    {MSG_TYPE_TRAYICON_CONNECT_COUNT, sizeof(MSG_TRAYICON_CONNECT), 0, 0},
    {MSG_TYPE_TRAYICON_SETTINGS_UPDATE, sizeof(MSG_TRAYICON_SETTINGS),
     offsetof(MSG_TRAYICON_SETTINGS, dwDefaultConnectionType), ORDINARY_CONNECTION_TYPE},
    {MSG_TYPE_REVERSE_CONNECTION, sizeof(MSG_REVERSE_CONNECTION), 0, 0},
};

/// The service's side of one stream; the same for the agent and for the bare loop.
class RecordSource
{
  public:
    RecordSource(LoopbackConnection& connection, const RECORD_KIND& kind)
        : m_connection(connection), m_nRecordBytes(kind.nBytes),
          m_batch(std::max<size_t>(BATCH_BYTES / kind.nBytes, 1) * kind.nBytes)
    {
        for (size_t nOffset = 0; nOffset < m_batch.size(); nOffset += m_nRecordBytes)
        {
            if (kind.nFieldOffset != 0)
            {
                std::memcpy(m_batch.data() + nOffset + kind.nFieldOffset, &kind.dwField,
                            sizeof(kind.dwField));
            }
            std::memcpy(m_batch.data() + nOffset, &kind.dwType, sizeof(kind.dwType));
        }
    }

    /// Seconds from the first byte to the echo of the record that ends the stream: with one record read to a
    /// wrong size the echo would not come. Empty when it doesn't.
    std::optional<double> Send(size_t nRecords)
    {
        const Stopwatch stopwatch;
        for (size_t nLeft = nRecords * m_nRecordBytes; nLeft > 0;)
        {
            const size_t nPart = std::min(nLeft, m_batch.size());
            if (!m_connection.SendAll(m_batch.data(), nPart))
            {
                return std::nullopt;
            }
            nLeft -= nPart;
        }
        const DWORD dwEnd = MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE;
        DWORD dwEcho = 0;
        if (!m_connection.SendAll(&dwEnd, sizeof(dwEnd)) ||
            !m_connection.ReceiveExactly(&dwEcho, sizeof(dwEcho), WAIT_MS) || dwEcho != dwEnd)
        {
            return std::nullopt;
        }
        return stopwatch.Seconds();
    }

  private:
    LoopbackConnection& m_connection;
    size_t m_nRecordBytes;
    std::vector<char> m_batch;
};

bool ReceiveExactly(SOCKET hSocket, char* pTo, int nBytes)
{
    while (nBytes > 0)
    {
        const int nReceived = recv(hSocket, pTo, nBytes, 0);
        if (nReceived <= 0)
        {
            return false;
        }
        pTo += nReceived;
        nBytes -= nReceived;
    }
    return true;
}

/// The least that a reader of typed records can do: a receive for the type, a receive for the rest.
class BareLoop
{
  public:
    explicit BareLoop(LoopbackListener& listener) : m_socket(SOCK_STREAM, IPPROTO_TCP)
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(listener.Port());
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const BOOL bNoDelay = TRUE;
        if (setsockopt(m_socket.Get(), IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&bNoDelay),
                       sizeof(bNoDelay)) == 0 &&
            connect(m_socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0)
        {
            m_connection = listener.Accept(WAIT_MS);
        }
    }

    ~BareLoop()
    {
        EndRun();
        m_connection.reset();
    }
    BareLoop(const BareLoop&) = delete;
    BareLoop& operator=(const BareLoop&) = delete;

    bool IsConnected() const { return m_connection.has_value(); }
    LoopbackConnection& Connection() { return *m_connection; }

    /// Reads records of that size on a thread of its own, until EndRun.
    void Run(size_t nRecordBytes)
    {
        EndRun();
        m_thread = std::thread([this, nRecordBytes] { Read(static_cast<int>(nRecordBytes)); });
    }

  private:
    WinsockUse m_winsock;
    PeerSocket m_socket;
    std::optional<LoopbackConnection> m_connection;
    std::thread m_thread;

    void Read(int nRecordBytes) const
    {
        std::vector<char> record(static_cast<size_t>(nRecordBytes));
        DWORD dwType = 0;
        while (ReceiveExactly(m_socket.Get(), reinterpret_cast<char*>(&dwType), sizeof(dwType)) &&
               dwType != MSG_TYPE_VERSION)
        {
            const bool bGood =
                dwType == MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE
                    ? send(m_socket.Get(), reinterpret_cast<const char*>(&dwType), sizeof(dwType), 0) > 0
                    : ReceiveExactly(m_socket.Get(), record.data(),
                                     nRecordBytes - static_cast<int>(sizeof(dwType)));
            if (!bGood)
            {
                return;
            }
        }
    }

    void EndRun()
    {
        const DWORD dwEnd = MSG_TYPE_VERSION;
        if (m_thread.joinable())
        {
            m_connection->SendAll(&dwEnd, sizeof(dwEnd));
            m_thread.join();
        }
    }
};

std::string FigureName(const RECORD_KIND& kind)
{
    return "reader, " + std::to_string(kind.nBytes) + "-byte records / bare loop";
}

void MeasureKind(Report& report, const RECORD_KIND& kind, AgentWindow& agent, BareLoop& bareLoop)
{
    const std::string name = FigureName(kind);
    RecordSource toAgent(agent.Connection(), kind);
    RecordSource toBareLoop(bareLoop.Connection(), kind);
    bareLoop.Run(kind.nBytes);

    const std::optional<double> trial = toBareLoop.Send(TRIAL_RECORDS);
    const bool bWarm = trial.has_value() && toAgent.Send(TRIAL_RECORDS).has_value();
    const size_t nRecords =
        bWarm ? std::max(TRIAL_RECORDS, static_cast<size_t>(TRIAL_RECORDS / *trial * ROUND_SECONDS)) : 0;
    std::vector<double> agentRates;
    std::vector<double> bareRates;
    for (int nRound = 0; bWarm && nRound < ROUNDS; ++nRound)
    {
        const std::optional<double> bareSeconds = toBareLoop.Send(nRecords);
        const std::optional<double> agentSeconds = toAgent.Send(nRecords);
        if (!bareSeconds || !agentSeconds)
        {
            break;
        }
        bareRates.push_back(static_cast<double>(nRecords) / *bareSeconds);
        agentRates.push_back(static_cast<double>(nRecords) / *agentSeconds);
    }
    if (agentRates.size() != ROUNDS)
    {
        report.Fail(name + ": no echo at the end of the stream");
        return;
    }
    const Comparison comparison = Compare(agentRates, bareRates);
    const Bound bound = kind.nBytes >= SMALLEST_WITH_LIMIT ? Bound::RatioAtLeast : Bound::None;
    report.Add({name, "records/s", comparison.dMeasured, comparison.dReference, comparison.dRatio, bound,
                LEAST_OF_BARE_LOOP});
}
} // namespace

std::vector<std::string> ReaderFigureNames()
{
    std::vector<std::string> names;
    std::transform(std::begin(s_aKinds), std::end(s_aKinds), std::back_inserter(names), FigureName);
    return names;
}

void MeasureReader(Report& report)
{
    if (!ConfigureLogging((StageFolder() / L"TKDAST.Logging.xml").c_str()))
    {
        report.Fail("reader: the staged log configuration can't be read");
        return;
    }
    LoopbackListener listener;
    AgentWindow agent(listener, GetModuleHandleW(nullptr));
    agent.HideIcon();
    BareLoop bareLoop(listener);
    if (!agent.IsConnected() || !bareLoop.IsConnected() || !agent.ShakeHands())
    {
        report.Fail("reader: no connection");
        return;
    }
    for (const RECORD_KIND& kind : s_aKinds)
    {
        MeasureKind(report, kind, agent, bareLoop);
    }
}
