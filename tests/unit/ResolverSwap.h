#pragma once

#include "channel/IPv4Resolver.h"
#include "channel/ResolverTable.h"

#include <array>

/// Has the program resolve and free by other functions for as long as the object lives; null leaves one as it
/// is. Objects end in the reverse order of their making.
class ResolverSwap
{
  public:
    explicit ResolverSwap(GETADDRINFO_FUNCTION pfnGetAddrInfo,
                          FREEADDRINFO_FUNCTION pfnFreeAddrInfo = nullptr)
    {
        if (pfnGetAddrInfo != nullptr)
        {
            g_pfnGetAddrInfo = pfnGetAddrInfo;
        }
        if (pfnFreeAddrInfo != nullptr)
        {
            g_pfnFreeAddrInfo = pfnFreeAddrInfo;
        }
    }
    ~ResolverSwap()
    {
        g_pfnGetAddrInfo = m_pfnGetAddrInfo;
        g_pfnFreeAddrInfo = m_pfnFreeAddrInfo;
    }
    ResolverSwap(const ResolverSwap&) = delete;
    ResolverSwap& operator=(const ResolverSwap&) = delete;

    /// The table's own.
    static GETADDRINFO_FUNCTION TableGetAddrInfo()
    {
        return reinterpret_cast<GETADDRINFO_FUNCTION>(GetResolverEntry(RESOLVER_GETADDRINFO));
    }
    static FREEADDRINFO_FUNCTION TableFreeAddrInfo()
    {
        return reinterpret_cast<FREEADDRINFO_FUNCTION>(GetResolverEntry(RESOLVER_FREEADDRINFO));
    }

  private:
    GETADDRINFO_FUNCTION m_pfnGetAddrInfo = g_pfnGetAddrInfo;
    FREEADDRINFO_FUNCTION m_pfnFreeAddrInfo = g_pfnFreeAddrInfo;
};

/// The resolver as it is before its first use, for as long as the object lives.
class UnsettledResolver
{
  public:
    UnsettledResolver()
    {
        for (int nEntry = 0; nEntry < RESOLVER_ENTRIES; ++nEntry)
        {
            m_table[nEntry] = g_ResolverTable[nEntry].pfn;
        }
        Forget();
    }
    ~UnsettledResolver()
    {
        for (int nEntry = 0; nEntry < RESOLVER_ENTRIES; ++nEntry)
        {
            g_ResolverTable[nEntry].pfn = m_table[nEntry];
        }
        g_bResolverSettled = m_bSettled;
    }
    UnsettledResolver(const UnsettledResolver&) = delete;
    UnsettledResolver& operator=(const UnsettledResolver&) = delete;

    static void Forget()
    {
        g_ResolverTable[RESOLVER_GETADDRINFO].pfn = reinterpret_cast<RESOLVER_FUNCTION>(&IPv4GetAddrInfo);
        g_ResolverTable[RESOLVER_GETNAMEINFO].pfn = reinterpret_cast<RESOLVER_FUNCTION>(&IPv4GetNameInfo);
        g_ResolverTable[RESOLVER_FREEADDRINFO].pfn = reinterpret_cast<RESOLVER_FUNCTION>(&IPv4FreeAddrInfo);
        g_bResolverSettled = false;
        g_pfnGetAddrInfo = nullptr;
        g_pfnFreeAddrInfo = nullptr;
    }

  private:
    std::array<RESOLVER_FUNCTION, RESOLVER_ENTRIES> m_table = {};
    bool m_bSettled = g_bResolverSettled;
    ResolverSwap m_cached{nullptr};
};
