#pragma once

#include "devservice/ServiceEvent.h"
#include "devservice/SocketHandle.h"

#include <map>
#include <utility>
#include <vector>

enum class LOOKUP_MODE
{
    Answer, // tell the port
    Silent, // take the question and say nothing
};

/// The service's side of the query port: every request is decoded and logged, the port lookup is answered.
/// One thread at a time; the owner waits for the socket to become readable.
class CQueryPort
{
  public:
    using EVENT_FUNCTION = std::function<void(SERVICE_EVENT&)>;

    explicit CQueryPort(EVENT_FUNCTION emit) : m_emit(std::move(emit)) {}

    /// Port 0 takes any free one. False leaves the reason as the last error.
    bool Open(unsigned short nPort);
    void Close();

    SOCKET GetSocket() const { return m_hSocket.get(); }
    unsigned short GetPort() const { return m_hSocket ? BoundPort(m_hSocket.get()) : 0; }

    /// uPort: the port that a lookup is told.
    void SetLookup(LOOKUP_MODE mode, unsigned int uPort);

    /// Takes and answers whatever has arrived.
    void OnReadable();

  private:
    void OnDatagram(const sockaddr_in& from, std::span<const BYTE> bytes);
    void OnRequest(const sockaddr_in& from, DWORD dwRequest);
    void AnswerLookup(const sockaddr_in& to);

    EVENT_FUNCTION m_emit;
    CSocketHandle m_hSocket;
    LOOKUP_MODE m_mode = LOOKUP_MODE::Answer;
    unsigned int m_uLookupPort = 0;
    std::map<unsigned short, DWORD> m_requests; // by the asker's port: the request that its header named
};
