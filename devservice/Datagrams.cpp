#include "devservice/Datagrams.h"

#include <ws2tcpip.h>

#include <vector>

namespace
{
constexpr size_t LARGEST_DATAGRAM = 65536;
} // namespace

unsigned short PortOf(const END_POINT& endPoint)
{
    const bool bIpv6 = endPoint.address.ss_family == AF_INET6;
    return ntohs(bIpv6 ? reinterpret_cast<const sockaddr_in6&>(endPoint.address).sin6_port
                       : reinterpret_cast<const sockaddr_in&>(endPoint.address).sin_port);
}

std::wstring EndPointName(const END_POINT& endPoint)
{
    return L"port " + std::to_wstring(PortOf(endPoint));
}

void TakeDatagrams(SOCKET hSocket,
                   const std::function<void(const END_POINT& from, std::span<const BYTE> bytes)>& take)
{
    std::vector<BYTE> buffer(LARGEST_DATAGRAM);
    for (;;)
    {
        END_POINT from;
        const int cb =
            recvfrom(hSocket, reinterpret_cast<char*>(buffer.data()), static_cast<int>(buffer.size()), 0,
                     reinterpret_cast<sockaddr*>(&from.address), &from.cbAddress);
        // An asker that has gone already shows as a reset; the next datagram is still good.
        if (cb == SOCKET_ERROR && WSAGetLastError() == WSAECONNRESET)
        {
            continue;
        }
        if (cb == SOCKET_ERROR)
        {
            return;
        }
        take(from, std::span<const BYTE>(buffer.data(), static_cast<size_t>(cb)));
    }
}

void SendDatagram(SOCKET hSocket, const END_POINT& to, std::span<const BYTE> bytes)
{
    sendto(hSocket, reinterpret_cast<const char*>(bytes.data()), static_cast<int>(bytes.size()), 0,
           reinterpret_cast<const sockaddr*>(&to.address), to.cbAddress);
}
