#include "tests/support/LoopbackPeer.h"

#include <algorithm>
#include <utility>

namespace
{
constexpr size_t MAX_DATAGRAM_BYTES = 65536;
constexpr size_t DISCARD_BYTES = 4096;
constexpr int BACKLOG = 16;

/// The entries of the sockets library, fetched past the executable's import table.
struct WinsockEntries
{
    template <typename Function>
    static Function* Fetch(Function*, const char* pszName)
    {
        static const HMODULE s_hModule = LoadLibraryW(L"ws2_32.dll");
        return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(s_hModule, pszName)));
    }

    decltype(&::WSAStartup) pfnStartup = Fetch(&::WSAStartup, "WSAStartup");
    decltype(&::WSACleanup) pfnCleanup = Fetch(&::WSACleanup, "WSACleanup");
    decltype(&::socket) pfnSocket = Fetch(&::socket, "socket");
    decltype(&::closesocket) pfnClose = Fetch(&::closesocket, "closesocket");
    decltype(&::shutdown) pfnShutdown = Fetch(&::shutdown, "shutdown");
    decltype(&::setsockopt) pfnSetOption = Fetch(&::setsockopt, "setsockopt");
    decltype(&::bind) pfnBind = Fetch(&::bind, "bind");
    decltype(&::listen) pfnListen = Fetch(&::listen, "listen");
    decltype(&::accept) pfnAccept = Fetch(&::accept, "accept");
    decltype(&::getsockname) pfnName = Fetch(&::getsockname, "getsockname");
    decltype(&::select) pfnSelect = Fetch(&::select, "select");
    decltype(&::send) pfnSend = Fetch(&::send, "send");
    decltype(&::recv) pfnReceive = Fetch(&::recv, "recv");
    decltype(&::sendto) pfnSendTo = Fetch(&::sendto, "sendto");
    decltype(&::recvfrom) pfnReceiveFrom = Fetch(&::recvfrom, "recvfrom");
};

const WinsockEntries g_winsock;

/// Counts a time-out down over several waits.
class Deadline
{
  public:
    explicit Deadline(DWORD dwTimeoutMs) : m_qwEnd(GetTickCount64() + dwTimeoutMs) {}
    DWORD Left() const
    {
        const ULONGLONG qwNow = GetTickCount64();
        return m_qwEnd > qwNow ? static_cast<DWORD>(m_qwEnd - qwNow) : 0;
    }

  private:
    ULONGLONG m_qwEnd;
};

sockaddr_in LoopbackAddress(unsigned short nPort)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = static_cast<u_short>(nPort >> 8 | nPort << 8);
    // 127.0.0.1, which reads the same in either byte order's bytes 127, 0, 0, 1.
    address.sin_addr.S_un.S_un_b = {127, 0, 0, 1};
    return address;
}

/// Binds to the port; the result is the port that was taken, 0 when it couldn't be.
unsigned short BindLoopback(SOCKET hSocket, unsigned short nPort)
{
    sockaddr_in address = LoopbackAddress(nPort);
    int nLength = sizeof(address);
    if (g_winsock.pfnBind(hSocket, reinterpret_cast<sockaddr*>(&address), nLength) == SOCKET_ERROR ||
        g_winsock.pfnName(hSocket, reinterpret_cast<sockaddr*>(&address), &nLength) == SOCKET_ERROR)
    {
        return 0;
    }
    return static_cast<unsigned short>(address.sin_port >> 8 | address.sin_port << 8);
}
} // namespace

WinsockUse::WinsockUse()
{
    WSADATA data = {};
    g_winsock.pfnStartup(MAKEWORD(2, 2), &data);
}

WinsockUse::WinsockUse(const WinsockUse&) : WinsockUse() {}

WinsockUse::~WinsockUse()
{
    g_winsock.pfnCleanup();
}

PeerSocket::PeerSocket(int nType, int nProtocol) : m_hSocket(g_winsock.pfnSocket(AF_INET, nType, nProtocol))
{
}

PeerSocket& PeerSocket::operator=(PeerSocket&& other) noexcept
{
    Close();
    m_hSocket = other.Release();
    return *this;
}

SOCKET PeerSocket::Release()
{
    return std::exchange(m_hSocket, INVALID_SOCKET);
}

void PeerSocket::Close()
{
    const SOCKET hSocket = Release();
    if (hSocket != INVALID_SOCKET)
    {
        g_winsock.pfnClose(hSocket);
    }
}

bool PeerSocket::WaitReadable(DWORD dwTimeoutMs) const
{
    if (!IsOpen())
    {
        return false;
    }
    fd_set reading;
    reading.fd_count = 1;
    reading.fd_array[0] = m_hSocket;
    timeval time = {static_cast<long>(dwTimeoutMs / 1000), static_cast<long>(dwTimeoutMs % 1000 * 1000)};
    return g_winsock.pfnSelect(0, &reading, nullptr, nullptr, &time) == 1;
}

bool LoopbackConnection::SendAll(const void* pData, size_t nBytes, size_t nChunk)
{
    const auto* pNext = static_cast<const char*>(pData);
    while (nBytes > 0)
    {
        const size_t nPiece = nChunk == 0 ? nBytes : (std::min)(nBytes, nChunk);
        const int nSent = g_winsock.pfnSend(m_socket.Get(), pNext, static_cast<int>(nPiece), 0);
        if (nSent <= 0)
        {
            return false;
        }
        pNext += nSent;
        nBytes -= static_cast<size_t>(nSent);
    }
    return true;
}

bool LoopbackConnection::ReceiveExactly(void* pData, size_t nBytes, DWORD dwTimeoutMs)
{
    const Deadline deadline(dwTimeoutMs);
    auto* pNext = static_cast<char*>(pData);
    while (nBytes > 0)
    {
        if (!m_socket.WaitReadable(deadline.Left()))
        {
            return false;
        }
        const int nReceived = g_winsock.pfnReceive(m_socket.Get(), pNext, static_cast<int>(nBytes), 0);
        if (nReceived <= 0)
        {
            return false;
        }
        pNext += nReceived;
        nBytes -= static_cast<size_t>(nReceived);
    }
    return true;
}

bool LoopbackConnection::WaitForEnd(DWORD dwTimeoutMs)
{
    const Deadline deadline(dwTimeoutMs);
    char achDiscarded[DISCARD_BYTES];
    while (m_socket.WaitReadable(deadline.Left()))
    {
        if (g_winsock.pfnReceive(m_socket.Get(), achDiscarded, sizeof(achDiscarded), 0) <= 0)
        {
            return true;
        }
    }
    return false;
}

void LoopbackConnection::ShutdownSend()
{
    g_winsock.pfnShutdown(m_socket.Get(), SD_SEND);
}

LoopbackListener::LoopbackListener(unsigned short nPort)
    : m_socket(SOCK_STREAM, IPPROTO_TCP), m_nPort(BindLoopback(m_socket.Get(), nPort))
{
    if (m_nPort != 0 && g_winsock.pfnListen(m_socket.Get(), BACKLOG) == SOCKET_ERROR)
    {
        m_nPort = 0;
    }
}

std::optional<LoopbackConnection> LoopbackListener::Accept(DWORD dwTimeoutMs)
{
    if (!m_socket.WaitReadable(dwTimeoutMs))
    {
        return std::nullopt;
    }
    const SOCKET hSocket = g_winsock.pfnAccept(m_socket.Get(), nullptr, nullptr);
    if (hSocket == INVALID_SOCKET)
    {
        return std::nullopt;
    }
    const BOOL bNoDelay = TRUE;
    g_winsock.pfnSetOption(hSocket, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&bNoDelay),
                           sizeof(bNoDelay));
    return std::optional<LoopbackConnection>(std::in_place, hSocket);
}

LoopbackResponder::LoopbackResponder(unsigned short nPort)
    : m_socket(SOCK_DGRAM, IPPROTO_UDP), m_nPort(BindLoopback(m_socket.Get(), nPort))
{
}

std::optional<std::vector<BYTE>> LoopbackResponder::Receive(DWORD dwTimeoutMs)
{
    if (!m_socket.WaitReadable(dwTimeoutMs))
    {
        return std::nullopt;
    }
    std::vector<BYTE> datagram(MAX_DATAGRAM_BYTES);
    int nLength = sizeof(m_sender);
    const int nReceived = g_winsock.pfnReceiveFrom(m_socket.Get(), reinterpret_cast<char*>(datagram.data()),
                                                   static_cast<int>(datagram.size()), 0,
                                                   reinterpret_cast<sockaddr*>(&m_sender), &nLength);
    if (nReceived < 0)
    {
        return std::nullopt;
    }
    datagram.resize(static_cast<size_t>(nReceived));
    return datagram;
}

bool LoopbackResponder::Reply(const void* pData, size_t nBytes)
{
    return g_winsock.pfnSendTo(m_socket.Get(), static_cast<const char*>(pData), static_cast<int>(nBytes), 0,
                               reinterpret_cast<const sockaddr*>(&m_sender),
                               sizeof(m_sender)) == static_cast<int>(nBytes);
}

unsigned short UnusedPort()
{
    const PeerSocket socket(SOCK_STREAM, IPPROTO_TCP);
    return BindLoopback(socket.Get(), 0);
}
