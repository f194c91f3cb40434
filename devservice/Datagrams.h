#pragma once

#include "devservice/SocketHandle.h"

#include <functional>
#include <span>
#include <string>

/*
 * Datagrams of either address family. All functions may run on any thread, one at a time for a socket.
 */

/// Where a datagram comes from or goes to.
struct END_POINT
{
    sockaddr_storage address = {};
    int cbAddress = sizeof(address);
};

/// The port, in the machine's byte order.
unsigned short PortOf(const END_POINT& endPoint);

/// "port 50123", for the log.
std::wstring EndPointName(const END_POINT& endPoint);

/// Hands over whatever has arrived, datagram by datagram. The bytes live only during the call.
void TakeDatagrams(SOCKET hSocket,
                   const std::function<void(const END_POINT& from, std::span<const BYTE> bytes)>& take);

/// Sends one datagram. One that can't be sent is lost, as any may be.
void SendDatagram(SOCKET hSocket, const END_POINT& to, std::span<const BYTE> bytes);
