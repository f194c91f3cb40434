#include "devservice/QueryPort.h"

#include "channel/TrayMessages.h"
#include "devservice/RecordText.h"

#include <cstddef>
#include <vector>

namespace
{
constexpr size_t LARGEST_DATAGRAM = 65536;
// Askers that sent a header and then nothing are forgotten when there are so many of them.
constexpr size_t MOST_OPEN_REQUESTS = 256;

std::wstring EndPointName(const sockaddr_in& address)
{
    return L"port " + std::to_wstring(ntohs(address.sin_port));
}

const RECORD_DESCRIPTION* RequestRecord(DWORD dwRequest)
{
    switch (dwRequest)
    {
    case UDP_REQUEST_PORT_LOOKUP:
        return FindRecordDescription(L"MSG_UDP_PORT_LOOKUP");
    case UDP_REQUEST_CREATE_INVITATION:
        return FindRecordDescription(L"MSG_UDP_CREATE_INVITATION");
    default:
        return nullptr;
    }
}

bool IsHeader(std::span<const BYTE> bytes)
{
    return bytes.size() == sizeof(MSG_UDP_HEADER) &&
           ReadDword(bytes, offsetof(MSG_UDP_HEADER, dwProtocol)) == UDP_PROTOCOL;
}
} // namespace

bool CQueryPort::Open(unsigned short nPort)
{
    CSocketHandle hSocket = OpenLoopbackSocket(SOCK_DGRAM, nPort);
    if (!hSocket)
        return false;
    m_hSocket = std::move(hSocket);
    return true;
}

void CQueryPort::Close()
{
    m_hSocket.reset();
    m_requests.clear();
}

void CQueryPort::SetLookup(LOOKUP_MODE mode, unsigned int uPort)
{
    m_mode = mode;
    m_uLookupPort = uPort;
}

void CQueryPort::OnReadable()
{
    std::vector<BYTE> buffer(LARGEST_DATAGRAM);
    for (;;)
    {
        sockaddr_in from = {};
        int cbFrom = sizeof(from);
        const int cb =
            recvfrom(m_hSocket.get(), reinterpret_cast<char*>(buffer.data()), static_cast<int>(buffer.size()),
                     0, reinterpret_cast<sockaddr*>(&from), &cbFrom);
        // An asker that has gone already shows as a reset; the next datagram is still good.
        if (cb == SOCKET_ERROR && WSAGetLastError() == WSAECONNRESET)
            continue;
        if (cb == SOCKET_ERROR)
            return;
        OnDatagram(from, std::span<const BYTE>(buffer.data(), static_cast<size_t>(cb)));
    }
}

void CQueryPort::OnDatagram(const sockaddr_in& from, std::span<const BYTE> bytes)
{
    const auto open = m_requests.find(from.sin_port);
    const DWORD dwOpenRequest = open == m_requests.end() ? 0 : open->second;
    SERVICE_EVENT event;
    event.kind = SERVICE_EVENT_KIND::QueryReceived;
    event.bytes = bytes;
    event.text = EndPointName(from);
    const RECORD_DESCRIPTION* const pRecord = RequestRecord(dwOpenRequest);
    if (pRecord != nullptr && pRecord->uSize == bytes.size())
    {
        event.pRecord = pRecord;
        m_emit(event);
        m_requests.erase(open);
        OnRequest(from, dwOpenRequest);
        return;
    }
    const bool bHeader = IsHeader(bytes);
    if (bHeader)
        event.pRecord = FindRecordDescription(L"MSG_UDP_HEADER");
    m_emit(event);
    if (!bHeader)
        return;
    if (m_requests.size() >= MOST_OPEN_REQUESTS)
        m_requests.clear();
    const DWORD dwRequest = ReadDword(bytes, offsetof(MSG_UDP_HEADER, dwRequest));
    if (RequestRecord(dwRequest) != nullptr)
        m_requests[from.sin_port] = dwRequest;
    else
        OnRequest(from, dwRequest);
}

void CQueryPort::OnRequest(const sockaddr_in& from, DWORD dwRequest)
{
    if (dwRequest == UDP_REQUEST_PORT_LOOKUP && m_mode == LOOKUP_MODE::Answer)
    {
        AnswerLookup(from);
        return;
    }
    SERVICE_EVENT event;
    event.text =
        L"request " + std::to_wstring(dwRequest) + L" of " + EndPointName(from) + L" stays unanswered";
    m_emit(event);
}

void CQueryPort::AnswerLookup(const sockaddr_in& to)
{
    MSG_UDP_PORT_LOOKUP answer = {};
    answer.dwRequest = UDP_REQUEST_PORT_LOOKUP;
    answer.dwPort = m_uLookupPort;
    SERVICE_EVENT event;
    event.kind = SERVICE_EVENT_KIND::QueryAnswered;
    event.pRecord = FindRecordDescription(L"MSG_UDP_PORT_LOOKUP");
    event.bytes = std::span<const BYTE>(reinterpret_cast<const BYTE*>(&answer), sizeof(answer));
    event.text = EndPointName(to);
    m_emit(event);
    sendto(m_hSocket.get(), reinterpret_cast<const char*>(&answer), sizeof(answer), 0,
           reinterpret_cast<const sockaddr*>(&to), sizeof(to));
}
