#include "devservice/QueryPort.h"

#include "Include/BoundedText.h"
#include "channel/TrayMessages.h"
#include "devservice/RecordText.h"

#include <cstddef>

namespace
{
// Askers that sent a header and then nothing are forgotten when there are so many of them.
constexpr size_t MOST_OPEN_REQUESTS = 256;

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

// The bytes of an answer that is sent in that way.
template <typename Record>
std::span<const BYTE> ImageOf(const Record& record, ANSWER_MODE mode)
{
    return {reinterpret_cast<const BYTE*>(&record),
            sizeof(record) - (mode == ANSWER_MODE::WrongSize ? 1 : 0)};
}
} // namespace

bool CQueryPort::Open(unsigned short nPort)
{
    CSocketHandle hSocket = OpenLoopbackSocket(SOCK_DGRAM, nPort);
    if (!hSocket)
    {
        return false;
    }
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
    TakeDatagrams(m_hSocket.get(),
                  [this](const END_POINT& from, std::span<const BYTE> bytes) { OnDatagram(from, bytes); });
}

void CQueryPort::OnDatagram(const END_POINT& from, std::span<const BYTE> bytes)
{
    const auto open = m_requests.find(PortOf(from));
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
    {
        event.pRecord = FindRecordDescription(L"MSG_UDP_HEADER");
    }
    m_emit(event);
    if (!bHeader)
    {
        return;
    }
    if (m_requests.size() >= MOST_OPEN_REQUESTS)
    {
        m_requests.clear();
    }
    const DWORD dwRequest = ReadDword(bytes, offsetof(MSG_UDP_HEADER, dwRequest));
    if (RequestRecord(dwRequest) != nullptr)
    {
        m_requests[PortOf(from)] = dwRequest;
    }
    else
    {
        OnRequest(from, dwRequest);
    }
}

void CQueryPort::OnRequest(const END_POINT& from, DWORD dwRequest)
{
    if (dwRequest == UDP_REQUEST_PORT_LOOKUP && m_mode == LOOKUP_MODE::Answer)
    {
        AnswerLookup(from);
    }
    else if (dwRequest == UDP_REQUEST_CREATE_INVITATION && m_invitation.mode != ANSWER_MODE::Silent)
    {
        AnswerInvitation(from);
    }
    else if (dwRequest == UDP_REQUEST_DELETE_INVITATIONS && m_deletion.mode != ANSWER_MODE::Silent)
    {
        AnswerDeletion(from);
    }
    else
    {
        NoteUnanswered(from, dwRequest);
    }
}

void CQueryPort::NoteUnanswered(const END_POINT& from, DWORD dwRequest)
{
    SERVICE_EVENT event;
    event.text =
        L"request " + std::to_wstring(dwRequest) + L" of " + EndPointName(from) + L" stays unanswered";
    m_emit(event);
}

void CQueryPort::AnswerLookup(const END_POINT& to)
{
    MSG_UDP_PORT_LOOKUP answer = {};
    answer.dwRequest = UDP_REQUEST_PORT_LOOKUP;
    answer.dwPort = m_uLookupPort;
    Send(to, L"MSG_UDP_PORT_LOOKUP", ImageOf(answer, ANSWER_MODE::Answer));
}

void CQueryPort::AnswerInvitation(const END_POINT& to)
{
    MSG_UDP_CREATE_INVITATION answer = {};
    answer.dwRequest = UDP_REQUEST_CREATE_INVITATION;
    answer.dwError = m_invitation.dwError;
    CopyText(answer.szError, m_invitation.error);
    answer.dwInvitationLength =
        m_invitation.claimedLength.value_or(static_cast<DWORD>(m_invitation.text.size()));
    Send(to, L"MSG_UDP_CREATE_INVITATION", ImageOf(answer, m_invitation.mode));
    if (m_invitation.mode != ANSWER_MODE::Answer || answer.dwError != 0)
    {
        return;
    }
    ++m_dwInvitations;
    if (m_invitation.bTextFollows)
    {
        Send(to, nullptr, m_invitation.text);
    }
}

void CQueryPort::AnswerDeletion(const END_POINT& to)
{
    const MSG_UDP_DELETE_INVITATIONS answer = {UDP_REQUEST_DELETE_INVITATIONS, m_deletion.dwStatus,
                                               m_deletion.count.value_or(m_dwInvitations)};
    if (m_deletion.mode == ANSWER_MODE::Answer && m_deletion.dwStatus != UDP_DELETE_STATUS_BUSY)
    {
        m_dwInvitations = 0;
    }
    Send(to, L"MSG_UDP_DELETE_INVITATIONS", ImageOf(answer, m_deletion.mode));
}

// pszRecord is null for bytes that are no record.
void CQueryPort::Send(const END_POINT& to, const wchar_t* pszRecord, std::span<const BYTE> bytes)
{
    SERVICE_EVENT event;
    event.kind = SERVICE_EVENT_KIND::QueryAnswered;
    event.pRecord = pszRecord != nullptr ? FindRecordDescription(pszRecord) : nullptr;
    event.bytes = bytes;
    event.text = EndPointName(to);
    m_emit(event);
    SendDatagram(m_hSocket.get(), to, bytes);
}
