#pragma once

#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>

/*
 * A small resolver for systems that have none of their own. It knows IPv4 only, and of Winsock only what its
 * first version had. Functions, arguments and flags are those of the system's getaddrinfo and its kin;
 * results are 0 or a Winsock error. Any thread that has Winsock started.
 */

/// Turns a host and a port, as numbers or as names, into a list of addresses. Without a socket type in the
/// hints each address comes twice, for streams and for datagrams, as far as the service is there for both.
/// The caller frees *ppResult with IPv4FreeAddrInfo; it is null on failure.
int WSAAPI IPv4GetAddrInfo(const char* pszNode, const char* pszService, const addrinfo* pHints,
                           addrinfo** ppResult);

/// Turns an address into the names of its host and its service, or their numbers, each into a buffer that may
/// be left out; sizes are in bytes.
int WSAAPI IPv4GetNameInfo(const sockaddr* pAddress, socklen_t cbAddress, char* pszHost, DWORD cbHost,
                           char* pszService, DWORD cbService, int nFlags);

/// Frees a list of IPv4GetAddrInfo; null is no list and does nothing.
void WSAAPI IPv4FreeAddrInfo(addrinfo* pList);
