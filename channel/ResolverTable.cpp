#include "channel/ResolverTable.h"

#include "Include/Handles.h"
#include "Include/SystemCall.h"
#include "channel/IPv4Resolver.h"

#include <cstdio>
#include <iterator>

RESOLVER_ROW g_ResolverTable[RESOLVER_ENTRIES] = {
    {"getaddrinfo", reinterpret_cast<RESOLVER_FUNCTION>(&IPv4GetAddrInfo)},
    {"getnameinfo", reinterpret_cast<RESOLVER_FUNCTION>(&IPv4GetNameInfo)},
    {"freeaddrinfo", reinterpret_cast<RESOLVER_FUNCTION>(&IPv4FreeAddrInfo)},
};
std::atomic<bool> g_bResolverSettled = false;
std::atomic<GETADDRINFO_FUNCTION> g_pfnGetAddrInfo = nullptr;
std::atomic<FREEADDRINFO_FUNCTION> g_pfnFreeAddrInfo = nullptr;

namespace
{
// Older systems have the resolver in a module of its own. The loader adds the extension.
constexpr const char* SOCKETS_MODULE = "\\ws2_32";
constexpr const char* OLDER_RESOLVER_MODULE = "\\wship6";
constexpr size_t MAX_MODULE_PATH = MAX_PATH + 16; // bytes, terminator included

RESOLVER_FUNCTION FindResolverEntry(HMODULE hModule, RESOLVER_ENTRY entry)
{
    return FindModuleEntry<RESOLVER_FUNCTION>(hModule, g_ResolverTable[entry].pszName);
}

// Empty when there is no such module, or no resolver in it.
CModule LoadResolverModule(const char* pszSystemDirectory, const char* pszModule)
{
    char szPath[MAX_MODULE_PATH] = {};
    std::snprintf(szPath, std::size(szPath), "%s%s", pszSystemDirectory, pszModule);
    CModule hModule(LoadLibraryA(szPath));
    if (hModule && FindResolverEntry(hModule.get(), RESOLVER_GETADDRINFO) == nullptr)
    {
        hModule.reset();
    }
    return hModule;
}

CModule FindResolverModule()
{
    char szSystemDirectory[MAX_PATH] = {};
    const UINT cchDirectory = GetSystemDirectoryA(szSystemDirectory, MAX_PATH);
    if (cchDirectory == 0 || cchDirectory >= MAX_PATH)
    {
        return CModule();
    }
    CModule hModule = LoadResolverModule(szSystemDirectory, SOCKETS_MODULE);
    if (!hModule)
    {
        hModule = LoadResolverModule(szSystemDirectory, OLDER_RESOLVER_MODULE);
    }
    return hModule;
}

// False, with the table as it was, when one of the entries is missing.
bool TakeResolver(HMODULE hModule)
{
    RESOLVER_FUNCTION functions[RESOLVER_ENTRIES] = {};
    for (int nEntry = 0; nEntry < RESOLVER_ENTRIES; ++nEntry)
    {
        functions[nEntry] = FindResolverEntry(hModule, static_cast<RESOLVER_ENTRY>(nEntry));
        if (functions[nEntry] == nullptr)
        {
            return false;
        }
    }
    for (int nEntry = 0; nEntry < RESOLVER_ENTRIES; ++nEntry)
    {
        g_ResolverTable[nEntry].pfn = functions[nEntry];
    }
    return true;
}

void SettleResolverTable()
{
    CModule hModule = FindResolverModule();
    if (hModule && TakeResolver(hModule.get()))
    {
        // The table points into the module, which therefore stays loaded to the end of the process.
        static_cast<void>(hModule.release());
    }
    g_bResolverSettled = true;
}
} // namespace

RESOLVER_FUNCTION GetResolverEntry(RESOLVER_ENTRY entry)
{
    if (!g_bResolverSettled)
    {
        SettleResolverTable();
    }
    return g_ResolverTable[entry].pfn;
}

int ResolveAddresses(const char* pszNode, const char* pszService, const addrinfo* pHints, addrinfo** ppResult)
{
    if (g_pfnGetAddrInfo == nullptr)
    {
        g_pfnGetAddrInfo = reinterpret_cast<GETADDRINFO_FUNCTION>(GetResolverEntry(RESOLVER_GETADDRINFO));
    }
    return g_pfnGetAddrInfo.load()(pszNode, pszService, pHints, ppResult);
}

void FreeAddresses(addrinfo* pList)
{
    if (g_pfnFreeAddrInfo == nullptr)
    {
        g_pfnFreeAddrInfo = reinterpret_cast<FREEADDRINFO_FUNCTION>(GetResolverEntry(RESOLVER_FREEADDRINFO));
    }
    g_pfnFreeAddrInfo.load()(pList);
}
