#include "devservice/SocketHandle.h"

#include "devservice/Datagrams.h"

#include <ws2tcpip.h>

namespace
{
bool BindLoopback(SOCKET hSocket, unsigned short nPort)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(nPort);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return bind(hSocket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != SOCKET_ERROR;
}

bool BindLoopback6(SOCKET hSocket, unsigned short nPort)
{
    sockaddr_in6 address = {};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(nPort);
    address.sin6_addr = in6addr_loopback;
    return bind(hSocket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != SOCKET_ERROR;
}
} // namespace

CWinsockUse::CWinsockUse()
{
    WSADATA data = {};
    m_bStarted = WSAStartup(MAKEWORD(2, 2), &data) == 0;
}

CWinsockUse::~CWinsockUse()
{
    if (m_bStarted)
    {
        WSACleanup();
    }
}

CSocketHandle OpenLoopbackSocket(int nType, unsigned short nPort, int nFamily)
{
    CSocketHandle hSocket(socket(nFamily, nType, 0));
    if (!hSocket)
    {
        return hSocket;
    }
    // Nobody else may take over a port on which agents look for their service.
    const BOOL bExclusive = TRUE;
    setsockopt(hSocket.get(), SOL_SOCKET, SO_EXCLUSIVEADDRUSE, reinterpret_cast<const char*>(&bExclusive),
               sizeof(bExclusive));
    const bool bOpen =
        (nFamily == AF_INET6 ? BindLoopback6(hSocket.get(), nPort) : BindLoopback(hSocket.get(), nPort)) &&
        SetNonBlocking(hSocket.get()) &&
        (nType != SOCK_STREAM || listen(hSocket.get(), SOMAXCONN) != SOCKET_ERROR);
    if (!bOpen)
    {
        hSocket.reset();
    }
    return hSocket;
}

unsigned short BoundPort(SOCKET hSocket)
{
    END_POINT own;
    if (getsockname(hSocket, reinterpret_cast<sockaddr*>(&own.address), &own.cbAddress) == SOCKET_ERROR)
    {
        return 0;
    }
    return PortOf(own);
}

bool SetNonBlocking(SOCKET hSocket)
{
    u_long ulNonBlocking = 1;
    return ioctlsocket(hSocket, FIONBIO, &ulNonBlocking) != SOCKET_ERROR;
}
