#pragma once

#include "tests/support/LoopbackPeer.h"

#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

/// The service's end of one main channel. A thread of its own takes every record of the agent as it comes, so
/// that neither side ever waits with full buffers; the test sends and asks for what has arrived.
class ServiceChannel
{
  public:
    using Record = std::vector<BYTE>;

    explicit ServiceChannel(LoopbackConnection&& connection);
    ~ServiceChannel();
    ServiceChannel(const ServiceChannel&) = delete;
    ServiceChannel& operator=(const ServiceChannel&) = delete;

    /// In pieces of nChunk bytes, 0 for one piece.
    bool Send(const void* pData, size_t nBytes, size_t nChunk = 0);
    template <typename Type>
    bool Send(const Type& record)
    {
        return Send(&record, sizeof(record));
    }

    /// The oldest record of the type that wasn't taken yet, waited for.
    std::optional<Record> TakeRecord(DWORD dwType, DWORD dwTimeoutMs);
    /// Records of the type that came and weren't taken.
    size_t CountOf(DWORD dwType) const;
    /// False once the agent has sent a type that no agent sends: all behind it is guesswork.
    bool IsFrameIntact() const;
    bool WaitForEnd(DWORD dwTimeoutMs) const;
    /// Ends the service's sending direction: the agent reads all that was sent and then the close.
    void ShutdownSend() { m_connection.ShutdownSend(); }

  private:
    void Read();
    bool ReadRecord();
    bool ReadPayload(Record& record);

    LoopbackConnection m_connection;
    mutable std::mutex m_lock;
    mutable std::condition_variable m_changed;
    std::map<DWORD, std::deque<Record>> m_records;
    bool m_bFrameIntact = true;
    bool m_bEnded = false;
    std::atomic<bool> m_bStop = false;
    std::thread m_reader;
};
