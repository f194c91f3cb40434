#pragma once

#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>

#include <atomic>
#include <memory>

// Where everybody is that the agent talks to.
constexpr wchar_t SERVICE_HOST[] = L"localhost";

/*
 * The agent's only way to the network, and it is only ever pointed at "localhost". One object is the
 * long-lived main channel, others live for one UDP exchange. All sockets stay in blocking mode; the options
 * of SetTimeouts are the only time limits.
 *
 * There is no lock. Any thread may write, each message in one send; one thread reads; Close may come from any
 * thread and is how a blocked reader is made to return.
 *
 * Results are 1 and 0 with the last error left as the last call left it, unless an operation says otherwise.
 */
class CTKSocket
{
  public:
    /// Starts Winsock for this object's life. Whether it started shows in the calls that need it.
    CTKSocket();
    virtual ~CTKSocket();
    CTKSocket(const CTKSocket&) = delete;
    CTKSocket& operator=(const CTKSocket&) = delete;

    /// Shuts down and closes whatever is there, an invalid socket included. Returns 1. Any thread.
    int Close();

    /// Shuts down both directions and leaves the socket open. Returns 1. Any thread.
    int Shutdown();

    /// Resolves the host and connects to the first of its addresses that accepts. nType is SOCK_STREAM or
    /// SOCK_DGRAM, nFamily an address family or 0 for any. A datagram socket is connected too, so that only
    /// that port can answer. One thread at a time.
    int Connect(const wchar_t* pszHost, unsigned int nPort, int nType, int nFamily);

    /// Resolves a host; only "localhost" gets further tries, since a broken hosts file must not cut the agent
    /// off from its own machine. The caller frees *ppResult with FreeAddresses. On failure the last error is
    /// the first try's.
    int Resolve(const wchar_t* pszHost, const char* pszPort, const addrinfo& hints, addrinfo** ppResult);

    /// The same for a host in the ANSI code page.
    int Resolve(const char* pszHost, const char* pszPort, const addrinfo& hints, addrinfo** ppResult);

    /// The object's own; INVALID_SOCKET before the first Connect and from Close on. Any thread.
    SOCKET GetSocket() const { return m_hSocket; }

    /// One recv of at most n bytes; returns its result.
    int Read(char* p, long long n);

    /// Reads exactly n bytes. On failure what was read so far is lost: the stream is dead.
    int ReadAll(char* p, int n);

    /// One datagram of exactly n bytes; any other length is a failure.
    int ReadDatagram(char* p, unsigned int n);

    /// One send of n bytes; returns its result.
    int Write(const char* p, long long n);

    /// One send that must take all n bytes; a short write is a failure and nothing is sent again.
    int WriteAll(const char* p, long long n);

    /// One datagram of n bytes; 0 at once on an invalid socket.
    int WriteDatagram(const void* p, unsigned int n);

    /// Time limit in milliseconds for each read and write from now on, 0 for none. Fails without a socket,
    /// and Connect makes the socket: a limit that is set before the first Connect never applies. Any thread.
    int SetTimeouts(unsigned int nMilliseconds);

  private:
    DWORD m_bWinsockStarted = 0;
    std::atomic<SOCKET> m_hSocket = INVALID_SOCKET;
    int m_nSocketType = 0;
    addrinfo* m_pAddrInfo = nullptr;

    bool ConnectToAddress(const addrinfo& address);
};

/// True if there is an object and it holds a socket. Any thread.
bool IsSocketValid(const CTKSocket* pSocket);

/// A new socket for threads to share, each with a reference of its own; null without memory. Any thread.
std::shared_ptr<CTKSocket> CreateSharedSocket();
