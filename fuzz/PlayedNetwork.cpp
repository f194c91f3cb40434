#include "fuzz/PlayedNetwork.h"

#include "tests/unit/ResolverSwap.h"

#include <memory>
#include <utility>

#include <ws2tcpip.h>

namespace
{
constexpr SOCKET PLAYED_SOCKET = 0x4B4B;

int WSAAPI ResolveToLoopback(const char*, const char*, const addrinfo* pHints, addrinfo** ppResult)
{
    static sockaddr_in s_address = {};
    static addrinfo s_entry = {};
    s_address.sin_family = AF_INET;
    s_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    s_entry.ai_family = AF_INET;
    s_entry.ai_socktype = pHints->ai_socktype;
    s_entry.ai_addrlen = sizeof(s_address);
    s_entry.ai_addr = reinterpret_cast<sockaddr*>(&s_address);
    *ppResult = &s_entry;
    return 0;
}

void WSAAPI KeepAddresses(addrinfo*) {}

std::unique_ptr<ResolverSwap> g_pResolver;

int Refuse()
{
    WSASetLastError(WSAENOTSOCK);
    return SOCKET_ERROR;
}
} // namespace

CPlayedNetwork* CPlayedNetwork::s_pThis = nullptr;

CPlayedNetwork::CPlayedNetwork(RECEIVE receive, SENT sent)
    : m_receive(std::move(receive)), m_sent(std::move(sent))
{
    s_pThis = this;
    g_pResolver = std::make_unique<ResolverSwap>(ResolveToLoopback, KeepAddresses);
}

CPlayedNetwork::~CPlayedNetwork()
{
    g_pResolver.reset();
    s_pThis = nullptr;
}

SOCKET WSAAPI CPlayedNetwork::Open(int, int, int)
{
    return PLAYED_SOCKET;
}

int WSAAPI CPlayedNetwork::Connect(SOCKET hSocket, const sockaddr*, int)
{
    return hSocket == PLAYED_SOCKET ? 0 : Refuse();
}

int WSAAPI CPlayedNetwork::Receive(SOCKET hSocket, char* pTo, int nMost, int)
{
    return hSocket == PLAYED_SOCKET ? s_pThis->m_receive(pTo, nMost) : Refuse();
}

int WSAAPI CPlayedNetwork::Send(SOCKET hSocket, const char* pBytes, int nBytes, int)
{
    if (hSocket != PLAYED_SOCKET)
    {
        return Refuse();
    }
    s_pThis->m_sent(pBytes, nBytes);
    return nBytes;
}

int WSAAPI CPlayedNetwork::Close(SOCKET hSocket)
{
    return hSocket == PLAYED_SOCKET ? 0 : Refuse();
}

int WSAAPI CPlayedNetwork::Shutdown(SOCKET hSocket, int)
{
    return hSocket == PLAYED_SOCKET ? 0 : Refuse();
}

int WSAAPI CPlayedNetwork::SetOption(SOCKET hSocket, int, int, const char*, int)
{
    return hSocket == PLAYED_SOCKET ? 0 : Refuse();
}
