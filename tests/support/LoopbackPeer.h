#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include <winsock2.h>
#include <windows.h>

/// Raw sockets on 127.0.0.1 for tests that play the other side of a conversation byte by byte. The Winsock
/// entries are fetched by name before main runs, so import hooks of a test don't touch this side.
/// All operations wait on the calling thread, for a stated number of milliseconds at most; an object belongs
/// to one thread at a time unless an operation says otherwise.

/// Holds Winsock open for the life of its owner.
class WinsockUse
{
  public:
    WinsockUse();
    ~WinsockUse();
    WinsockUse(const WinsockUse&);
    WinsockUse& operator=(const WinsockUse&) = delete;
};

/// A socket that is closed at its end.
class PeerSocket
{
  public:
    /// Opens a socket of the given kind, not bound yet.
    PeerSocket(int nType, int nProtocol);
    /// Takes the socket over.
    explicit PeerSocket(SOCKET hSocket = INVALID_SOCKET) : m_hSocket(hSocket) {}
    PeerSocket(PeerSocket&& other) noexcept : m_hSocket(other.Release()) {}
    PeerSocket& operator=(PeerSocket&& other) noexcept;
    ~PeerSocket() { Close(); }

    SOCKET Get() const { return m_hSocket; }
    bool IsOpen() const { return m_hSocket != INVALID_SOCKET; }
    SOCKET Release();
    void Close();
    /// True when something can be read, accepted, or the other side has closed, within the time.
    bool WaitReadable(DWORD dwTimeoutMs) const;

  private:
    WinsockUse m_winsock;
    SOCKET m_hSocket;
};

/// One accepted stream. Small pieces are sent as they are given (no delay, no gathering). One thread may
/// send while another receives.
class LoopbackConnection
{
  public:
    explicit LoopbackConnection(SOCKET hSocket = INVALID_SOCKET) : m_socket(hSocket) {}

    bool IsOpen() const { return m_socket.IsOpen(); }
    /// Sends all bytes in pieces of nChunk bytes each, 0 for one piece. False when the stream broke.
    bool SendAll(const void* pData, size_t nBytes, size_t nChunk = 0);
    /// True when exactly nBytes have arrived in time; with less the stream is of no more use.
    bool ReceiveExactly(void* pData, size_t nBytes, DWORD dwTimeoutMs);
    /// True when nothing at all, not even the end, arrives for the whole time.
    bool StaysSilent(DWORD dwTimeMs) const { return !m_socket.WaitReadable(dwTimeMs); }
    /// True when the other side ends the stream in time; what it still sends is thrown away.
    bool WaitForEnd(DWORD dwTimeoutMs);
    /// Ends the sending direction; the other side reads to the end and then sees the close.
    void ShutdownSend();
    void Close() { m_socket.Close(); }

  private:
    PeerSocket m_socket;
};

/// Listens for streams on 127.0.0.1.
class LoopbackListener
{
  public:
    /// Port 0 takes any free one.
    explicit LoopbackListener(unsigned short nPort = 0);

    /// False when the port was taken.
    bool IsListening() const { return m_nPort != 0; }
    unsigned short Port() const { return m_nPort; }
    /// Empty when nobody has connected in time.
    std::optional<LoopbackConnection> Accept(DWORD dwTimeoutMs);
    void Close() { m_socket.Close(); }

  private:
    PeerSocket m_socket;
    unsigned short m_nPort;
};

/// Answers datagrams on 127.0.0.1.
class LoopbackResponder
{
  public:
    /// Port 0 takes any free one.
    explicit LoopbackResponder(unsigned short nPort = 0);

    bool IsOpen() const { return m_nPort != 0; }
    unsigned short Port() const { return m_nPort; }
    /// The next datagram, whose sender Reply then answers; empty when none has come in time.
    std::optional<std::vector<BYTE>> Receive(DWORD dwTimeoutMs);
    bool Reply(const void* pData, size_t nBytes);
    void Close() { m_socket.Close(); }

  private:
    PeerSocket m_socket;
    unsigned short m_nPort;
    sockaddr_in m_sender = {};
};

/// A port of 127.0.0.1 on which nobody listened a moment ago: connecting to it is refused.
unsigned short UnusedPort();
