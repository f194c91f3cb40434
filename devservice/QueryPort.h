#pragma once

#include "devservice/Datagrams.h"
#include "devservice/ServiceEvent.h"

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

enum class LOOKUP_MODE
{
    Answer, // tell the port
    Silent, // take the question and say nothing
};

enum class ANSWER_MODE
{
    Silent,    // take the request and say nothing
    WrongSize, // answer with a datagram of a byte too few
    Answer,
};

/// What becomes of a request for an invitation.
struct INVITATION_ANSWER
{
    ANSWER_MODE mode = ANSWER_MODE::Silent;
    DWORD dwError = 0; // else a refusal, and no text follows
    std::wstring error;
    std::vector<BYTE> text;             // as it goes over the wire
    std::optional<DWORD> claimedLength; // the length told, where it isn't the text's own
    bool bTextFollows = true;
};

/// What becomes of a request to delete all invitations.
struct DELETION_ANSWER
{
    ANSWER_MODE mode = ANSWER_MODE::Silent;
    DWORD dwStatus = 0;
    std::optional<DWORD> count; // empty: those made since the last deletion
};

/// The service's side of the query port: every request is decoded and logged, and answered as it was told to.
/// One thread at a time; the owner waits for the socket to become readable.
class CQueryPort
{
  public:
    using EVENT_FUNCTION = std::function<void(SERVICE_EVENT&)>;

    explicit CQueryPort(EVENT_FUNCTION emit) : m_emit(std::move(emit)) {}

    /// Port 0 takes any free one. False leaves the reason as the last error.
    bool Open(unsigned short nPort);
    /// Requests are no longer answered; Open may follow.
    void Close();

    /// The object's own; invalid while closed.
    SOCKET GetSocket() const { return m_hSocket.get(); }
    /// 0 while closed.
    unsigned short GetPort() const { return m_hSocket ? BoundPort(m_hSocket.get()) : 0; }

    /// uPort: the port that a lookup is told.
    void SetLookup(LOOKUP_MODE mode, unsigned int uPort);

    /// How requests for invitations, and for their deletion, are answered from now on; at first not at all.
    void SetInvitationAnswer(INVITATION_ANSWER answer) { m_invitation = std::move(answer); }
    void SetDeletionAnswer(DELETION_ANSWER answer) { m_deletion = answer; }

    /// Takes and answers whatever has arrived.
    void OnReadable();

  private:
    void OnDatagram(const END_POINT& from, std::span<const BYTE> bytes);
    void OnRequest(const END_POINT& from, DWORD dwRequest);
    void NoteUnanswered(const END_POINT& from, DWORD dwRequest);
    void AnswerLookup(const END_POINT& to);
    void AnswerInvitation(const END_POINT& to);
    void AnswerDeletion(const END_POINT& to);
    void Send(const END_POINT& to, const wchar_t* pszRecord, std::span<const BYTE> bytes);

    EVENT_FUNCTION m_emit;
    CSocketHandle m_hSocket;
    LOOKUP_MODE m_mode = LOOKUP_MODE::Answer;
    unsigned int m_uLookupPort = 0;
    INVITATION_ANSWER m_invitation;
    DELETION_ANSWER m_deletion;
    DWORD m_dwInvitations = 0;                  // made and not deleted
    std::map<unsigned short, DWORD> m_requests; // by the asker's port: the request that its header named
};
