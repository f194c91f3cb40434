#pragma once

#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>

#include <atomic>

/*
 * The system's name resolution, found at run time. The table starts out with the resolver of this program
 * (IPv4Resolver.h); the first use of any entry looks for the system's, once, and takes all of its entries or
 * none: a list must be freed by the resolver that made it.
 *
 * Any thread, without a lock: two first uses at the same moment do the same work twice, with the same result.
 */

using GETADDRINFO_FUNCTION = decltype(&getaddrinfo);
using GETNAMEINFO_FUNCTION = decltype(&getnameinfo);
using FREEADDRINFO_FUNCTION = decltype(&freeaddrinfo);

/// Any of them; cast it back before the call.
using RESOLVER_FUNCTION = void (*)();

enum RESOLVER_ENTRY
{
    RESOLVER_GETADDRINFO,
    RESOLVER_GETNAMEINFO,
    RESOLVER_FREEADDRINFO,
    RESOLVER_ENTRIES
};

struct RESOLVER_ROW
{
    const char* pszName;
    std::atomic<RESOLVER_FUNCTION> pfn;
};

extern RESOLVER_ROW g_ResolverTable[RESOLVER_ENTRIES];
extern std::atomic<bool> g_bResolverSettled;

// What the two functions below have found in the table; null until their first call.
extern std::atomic<GETADDRINFO_FUNCTION> g_pfnGetAddrInfo;
extern std::atomic<FREEADDRINFO_FUNCTION> g_pfnFreeAddrInfo;

/// The entry in force, for the life of the process. Never null. Any thread.
RESOLVER_FUNCTION GetResolverEntry(RESOLVER_ENTRY entry);

/// getaddrinfo by the table. The caller frees *ppResult with FreeAddresses. Result: 0, or a Winsock error;
/// the last error isn't the answer. Any thread that has Winsock started.
int ResolveAddresses(const char* pszNode, const char* pszService, const addrinfo* pHints,
                     addrinfo** ppResult);

/// freeaddrinfo by the table. Any thread.
void FreeAddresses(addrinfo* pList);
