#include "tests/e2e/ServiceChannel.h"

#include "channel/TrayMessageTable.h"
#include "channel/TrayMessages.h"
#include "tests/support/Patience.h"

#include <chrono>
#include <cstring>

namespace
{
constexpr DWORD STOP_LATENCY_MS = 100;
} // namespace

ServiceChannel::ServiceChannel(LoopbackConnection&& connection)
    : m_connection(std::move(connection)), m_reader([this] { Read(); })
{
}

ServiceChannel::~ServiceChannel()
{
    m_bStop = true;
    m_reader.join();
}

bool ServiceChannel::Send(const void* pData, size_t nBytes, size_t nChunk)
{
    return m_connection.SendAll(pData, nBytes, nChunk);
}

std::optional<ServiceChannel::Record> ServiceChannel::TakeRecord(DWORD dwType, DWORD dwTimeoutMs)
{
    std::unique_lock guard(m_lock);
    std::deque<Record>& records = m_records[dwType];
    m_changed.wait_for(guard, std::chrono::milliseconds(dwTimeoutMs),
                       [&] { return !records.empty() || m_bEnded; });
    if (records.empty())
    {
        return std::nullopt;
    }
    Record record = std::move(records.front());
    records.pop_front();
    return record;
}

size_t ServiceChannel::CountOf(DWORD dwType) const
{
    const std::lock_guard guard(m_lock);
    const auto found = m_records.find(dwType);
    return found == m_records.end() ? 0 : found->second.size();
}

bool ServiceChannel::IsFrameIntact() const
{
    const std::lock_guard guard(m_lock);
    return m_bFrameIntact;
}

bool ServiceChannel::WaitForEnd(DWORD dwTimeoutMs) const
{
    std::unique_lock guard(m_lock);
    return m_changed.wait_for(guard, std::chrono::milliseconds(dwTimeoutMs), [&] { return m_bEnded; });
}

void ServiceChannel::Read()
{
    while (!m_bStop)
    {
        if (!m_connection.StaysSilent(STOP_LATENCY_MS) && !ReadRecord())
        {
            break;
        }
    }
    const std::lock_guard guard(m_lock);
    m_bEnded = true;
    m_changed.notify_all();
}

bool ServiceChannel::ReadRecord()
{
    DWORD dwType = 0;
    if (!m_connection.ReceiveExactly(&dwType, sizeof(dwType), PATIENCE_MS))
    {
        return false;
    }
    const MESSAGE_DESCRIPTION* pMessage = FindMessageDescription(dwType, MESSAGE_FROM_AGENT);
    if (pMessage == nullptr)
    {
        const std::lock_guard guard(m_lock);
        m_bFrameIntact = false;
        return false;
    }
    Record record(pMessage->pRecord->uSize);
    std::memcpy(record.data(), &dwType, sizeof(dwType));
    if (!m_connection.ReceiveExactly(record.data() + sizeof(dwType), record.size() - sizeof(dwType),
                                     PATIENCE_MS))
    {
        return false;
    }
    if (dwType == MSG_TYPE_CHAT_MESSAGE && !ReadPayload(record))
    {
        return false;
    }
    const std::lock_guard guard(m_lock);
    m_records[dwType].push_back(std::move(record));
    m_changed.notify_all();
    return true;
}

// Puts what follows its head behind it.
bool ServiceChannel::ReadPayload(Record& record)
{
    DWORD dwLength = 0;
    std::memcpy(&dwLength, record.data() + offsetof(MSG_CHAT_MESSAGE, dwMessageLength), sizeof(dwLength));
    const size_t nHead = record.size();
    record.resize(nHead + dwLength);
    return dwLength == 0 || m_connection.ReceiveExactly(record.data() + nHead, dwLength, PATIENCE_MS);
}
