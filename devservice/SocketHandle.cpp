#include "devservice/SocketHandle.h"

CWinsockUse::CWinsockUse()
{
    WSADATA data = {};
    m_bStarted = WSAStartup(MAKEWORD(2, 2), &data) == 0;
}

CWinsockUse::~CWinsockUse()
{
    if (m_bStarted)
        WSACleanup();
}

CSocketHandle OpenLoopbackSocket(int nType, unsigned short nPort)
{
    CSocketHandle hSocket(socket(AF_INET, nType, 0));
    if (!hSocket)
        return hSocket;
    // Nobody else may take over a port on which agents look for their service.
    const BOOL bExclusive = TRUE;
    setsockopt(hSocket.get(), SOL_SOCKET, SO_EXCLUSIVEADDRUSE, reinterpret_cast<const char*>(&bExclusive),
               sizeof(bExclusive));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(nPort);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool bOpen =
        bind(hSocket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != SOCKET_ERROR &&
        SetNonBlocking(hSocket.get()) &&
        (nType != SOCK_STREAM || listen(hSocket.get(), SOMAXCONN) != SOCKET_ERROR);
    if (!bOpen)
        hSocket.reset();
    return hSocket;
}

unsigned short BoundPort(SOCKET hSocket)
{
    sockaddr_in address = {};
    int cbAddress = sizeof(address);
    if (getsockname(hSocket, reinterpret_cast<sockaddr*>(&address), &cbAddress) == SOCKET_ERROR)
        return 0;
    return ntohs(address.sin_port);
}

bool SetNonBlocking(SOCKET hSocket)
{
    u_long ulNonBlocking = 1;
    return ioctlsocket(hSocket, FIONBIO, &ulNonBlocking) != SOCKET_ERROR;
}
