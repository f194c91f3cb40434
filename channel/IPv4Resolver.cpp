#include "channel/IPv4Resolver.h"

#include "Include/Handles.h"
#include "channel/ResolverTable.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <optional>
#include <string_view>
#include <type_traits>

static_assert(std::is_same_v<decltype(&IPv4GetAddrInfo), GETADDRINFO_FUNCTION>);
static_assert(std::is_same_v<decltype(&IPv4GetNameInfo), GETNAMEINFO_FUNCTION>);
static_assert(std::is_same_v<decltype(&IPv4FreeAddrInfo), FREEADDRINFO_FUNCTION>);
static_assert(sizeof(sockaddr_in) == 16);
static_assert(sizeof(in_addr) == 4);

namespace
{
constexpr int DECIMAL = 10;
constexpr int DOTS_OF_AN_ADDRESS = 3;
constexpr int MAX_ALIAS_ROUNDS = 16;
constexpr size_t MAX_PORT_TEXT = 6; // bytes, terminator included
constexpr char DATAGRAM_PROTOCOL[] = "udp";
constexpr char STREAM_PROTOCOL[] = "tcp";

struct AddressListTraits : HandleTraits::NullInvalid<addrinfo*>
{
    static void Close(Handle pList) noexcept { IPv4FreeAddrInfo(pList); }
};
using CAddressList = CUniqueAny<AddressListTraits>;

// Where a service listens. Ports are in network order.
struct SERVICE_PORTS
{
    int nSocketType = 0;
    u_short uPort = 0;
    // Set when each entry needs a copy for datagrams.
    std::optional<u_short> datagramPort;
};

void* AllocateZeroed(size_t cb)
{
    return HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, cb);
}

void Free(void* p)
{
    const CHeapBlock pOwned(p);
}

char* DuplicateText(const char* pszText)
{
    const size_t cbText = std::strlen(pszText) + 1;
    char* const pszCopy = static_cast<char*>(AllocateZeroed(cbText));
    if (pszCopy != nullptr)
    {
        std::memcpy(pszCopy, pszText, cbText);
    }
    return pszCopy;
}

// A failed lookup in the words of getaddrinfo, which knows fewer of them.
int GetLookupError()
{
    const int nError = WSAGetLastError();
    return nError == WSATRY_AGAIN || nError == WSANO_RECOVERY ? nError : WSAHOST_NOT_FOUND;
}

int CheckHints(const char* pszNode, const addrinfo& hints)
{
    if (hints.ai_addrlen != 0 || hints.ai_canonname != nullptr || hints.ai_addr != nullptr ||
        hints.ai_next != nullptr)
    {
        return WSANO_RECOVERY;
    }
    if ((hints.ai_flags & AI_CANONNAME) != 0 && pszNode == nullptr)
    {
        return WSAEINVAL;
    }
    if (hints.ai_family != AF_UNSPEC && hints.ai_family != AF_INET)
    {
        return WSAEAFNOSUPPORT;
    }
    return hints.ai_socktype > SOCK_RAW ? WSAESOCKTNOSUPPORT : 0;
}

// A number above the range of ports loses its upper bits.
std::optional<u_short> ReadPortNumber(const char* pszService)
{
    char* pszEnd = nullptr;
    const unsigned long uPort = std::strtoul(pszService, &pszEnd, DECIMAL);
    return *pszEnd == '\0' ? std::optional(htons(static_cast<u_short>(uPort))) : std::nullopt;
}

std::optional<u_short> FindServicePort(const char* pszService, const char* pszProtocol)
{
    const servent* const pEntry = getservbyname(pszService, pszProtocol);
    return pEntry != nullptr ? std::optional(static_cast<u_short>(pEntry->s_port)) : std::nullopt;
}

int ResolveServiceName(const char* pszService, int nSocketType, SERVICE_PORTS& ports)
{
    std::optional<u_short> datagramPort;
    std::optional<u_short> streamPort;
    if (nSocketType == 0 || nSocketType == SOCK_DGRAM)
    {
        datagramPort = FindServicePort(pszService, DATAGRAM_PROTOCOL);
    }
    if (nSocketType < SOCK_DGRAM)
    {
        streamPort = FindServicePort(pszService, STREAM_PROTOCOL);
    }
    if (!datagramPort && !streamPort)
    {
        return nSocketType != 0 ? WSATYPE_NOT_FOUND : WSAHOST_NOT_FOUND;
    }
    ports.nSocketType = nSocketType;
    ports.uPort = streamPort ? *streamPort : *datagramPort;
    if (nSocketType == 0)
    {
        ports.nSocketType = streamPort ? SOCK_STREAM : SOCK_DGRAM;
        ports.datagramPort = streamPort ? datagramPort : std::nullopt;
    }
    return 0;
}

int ResolveService(const char* pszService, int nSocketType, SERVICE_PORTS& ports)
{
    ports.nSocketType = nSocketType;
    if (pszService == nullptr)
    {
        return 0;
    }
    const std::optional<u_short> port = ReadPortNumber(pszService);
    if (!port)
    {
        return ResolveServiceName(pszService, nSocketType, ports);
    }
    ports.uPort = *port;
    if (nSocketType == 0)
    {
        ports.nSocketType = SOCK_STREAM;
        ports.datagramPort = port;
    }
    return 0;
}

CAddressList MakeEntry(int nSocketType, int nProtocol, u_short uPort, const in_addr& address)
{
    CAddressList pEntry(static_cast<addrinfo*>(AllocateZeroed(sizeof(addrinfo))));
    auto* const pSocketAddress = static_cast<sockaddr_in*>(AllocateZeroed(sizeof(sockaddr_in)));
    if (!pEntry || pSocketAddress == nullptr)
    {
        Free(pSocketAddress);
        return CAddressList();
    }
    pSocketAddress->sin_family = AF_INET;
    pSocketAddress->sin_port = uPort;
    pSocketAddress->sin_addr = address;
    addrinfo& entry = *pEntry.get();
    entry.ai_family = AF_INET;
    entry.ai_socktype = nSocketType;
    entry.ai_protocol = nProtocol;
    entry.ai_addrlen = sizeof(sockaddr_in);
    entry.ai_addr = reinterpret_cast<sockaddr*>(pSocketAddress);
    return pEntry;
}

// False without memory.
bool SetCanonicalName(addrinfo& entry, const char* pszName)
{
    entry.ai_canonname = DuplicateText(pszName);
    return entry.ai_canonname != nullptr;
}

bool FindLiteralAddress(const char* pszNode, int nFlags, in_addr& address)
{
    if (pszNode == nullptr)
    {
        address.s_addr = htonl((nFlags & AI_PASSIVE) != 0 ? INADDR_ANY : INADDR_LOOPBACK);
        return true;
    }
    // With fewer dots the system would read a number across their borders.
    if (std::count(pszNode, pszNode + std::strlen(pszNode), '.') != DOTS_OF_AN_ADDRESS)
    {
        return false;
    }
    address.s_addr = inet_addr(pszNode);
    return address.s_addr != INADDR_NONE;
}

int ListLiteralAddress(const char* pszNode, const in_addr& address, const addrinfo& hints,
                       const SERVICE_PORTS& ports, CAddressList& list)
{
    list = MakeEntry(ports.nSocketType, hints.ai_protocol, ports.uPort, address);
    if (!list)
    {
        return WSA_NOT_ENOUGH_MEMORY;
    }
    if (pszNode == nullptr)
    {
        return 0;
    }
    list.get()->ai_flags |= AI_NUMERICHOST;
    if ((hints.ai_flags & AI_CANONNAME) != 0 && !SetCanonicalName(*list.get(), inet_ntoa(address)))
    {
        return WSA_NOT_ENOUGH_MEMORY;
    }
    return 0;
}

bool HasAddresses(const hostent& host)
{
    return host.h_addrtype == AF_INET && host.h_length == sizeof(in_addr) && host.h_addr_list[0] != nullptr;
}

int ListHostAddresses(const hostent& host, const addrinfo& hints, const SERVICE_PORTS& ports,
                      CAddressList& list)
{
    addrinfo** ppEnd = list.put();
    for (char** ppAddress = host.h_addr_list; *ppAddress != nullptr; ++ppAddress)
    {
        in_addr address = {};
        std::memcpy(&address, *ppAddress, sizeof(address));
        *ppEnd = MakeEntry(ports.nSocketType, hints.ai_protocol, ports.uPort, address).release();
        if (*ppEnd == nullptr)
        {
            return WSA_NOT_ENOUGH_MEMORY;
        }
        ppEnd = &(*ppEnd)->ai_next;
    }
    if ((hints.ai_flags & AI_CANONNAME) != 0 && host.h_name != nullptr &&
        !SetCanonicalName(*list.get(), host.h_name))
    {
        return WSA_NOT_ENOUGH_MEMORY;
    }
    return 0;
}

int LookUpHost(const char* pszNode, const addrinfo& hints, const SERVICE_PORTS& ports, CAddressList& list)
{
    // The system's answer lies in a buffer that the next question overwrites.
    char szAlias[NI_MAXHOST] = {};
    for (int nRound = 0; nRound < MAX_ALIAS_ROUNDS; ++nRound)
    {
        const hostent* const pHost = gethostbyname(pszNode);
        if (pHost == nullptr)
        {
            return GetLookupError();
        }
        if (HasAddresses(*pHost))
        {
            return ListHostAddresses(*pHost, hints, ports, list);
        }
        // An empty name would be taken for this computer.
        if (pHost->h_name == nullptr || pHost->h_name[0] == '\0' || std::strcmp(pHost->h_name, pszNode) == 0)
        {
            return WSAHOST_NOT_FOUND;
        }
        lstrcpynA(szAlias, pHost->h_name, NI_MAXHOST);
        pszNode = szAlias;
    }
    return WSANO_RECOVERY;
}

// Each copy stands behind its original, so that the addresses keep their order.
int AddDatagramCopies(addrinfo* pList, u_short uPort)
{
    for (addrinfo* pEntry = pList; pEntry != nullptr;)
    {
        const auto* const pAddress = reinterpret_cast<const sockaddr_in*>(pEntry->ai_addr);
        addrinfo* const pCopy =
            MakeEntry(SOCK_DGRAM, pEntry->ai_protocol, uPort, pAddress->sin_addr).release();
        if (pCopy == nullptr)
        {
            return WSA_NOT_ENOUGH_MEMORY;
        }
        pCopy->ai_flags = pEntry->ai_flags;
        pCopy->ai_next = pEntry->ai_next;
        pEntry->ai_next = pCopy;
        pEntry = pCopy->ai_next;
    }
    return 0;
}

int ListAddresses(const char* pszNode, const addrinfo& hints, const SERVICE_PORTS& ports, CAddressList& list)
{
    in_addr address = {};
    if (FindLiteralAddress(pszNode, hints.ai_flags, address))
    {
        return ListLiteralAddress(pszNode, address, hints, ports, list);
    }
    if ((hints.ai_flags & AI_NUMERICHOST) != 0)
    {
        return WSAHOST_NOT_FOUND;
    }
    return LookUpHost(pszNode, hints, ports, list);
}

int CopyResult(char* pszTo, DWORD cbTo, std::string_view text)
{
    if (text.size() >= cbTo)
    {
        return WSANO_RECOVERY;
    }
    text.copy(pszTo, text.size());
    pszTo[text.size()] = '\0';
    return 0;
}

int NameService(const sockaddr_in& address, char* pszService, DWORD cbService, int nFlags)
{
    if ((nFlags & NI_NUMERICSERV) == 0)
    {
        const char* const pszProtocol = (nFlags & NI_DGRAM) != 0 ? DATAGRAM_PROTOCOL : nullptr;
        const servent* const pEntry = getservbyport(address.sin_port, pszProtocol);
        if (pEntry != nullptr && pEntry->s_name != nullptr)
        {
            return CopyResult(pszService, cbService, pEntry->s_name);
        }
    }
    char szPort[MAX_PORT_TEXT] = {};
    std::to_chars(szPort, std::end(szPort), ntohs(address.sin_port));
    return CopyResult(pszService, cbService, szPort);
}

int NameHost(const sockaddr_in& address, char* pszHost, DWORD cbHost, int nFlags)
{
    if ((nFlags & NI_NUMERICHOST) == 0)
    {
        const hostent* const pEntry = gethostbyaddr(reinterpret_cast<const char*>(&address.sin_addr),
                                                    sizeof(address.sin_addr), AF_INET);
        if (pEntry != nullptr && pEntry->h_name != nullptr)
        {
            const std::string_view name = pEntry->h_name;
            const size_t cbLabel = (nFlags & NI_NOFQDN) != 0 ? name.find('.') : std::string_view::npos;
            return CopyResult(pszHost, cbHost, name.substr(0, cbLabel));
        }
        if ((nFlags & NI_NAMEREQD) != 0)
        {
            const int nError = WSAGetLastError();
            return nError != 0 ? nError : WSAHOST_NOT_FOUND;
        }
    }
    return CopyResult(pszHost, cbHost, inet_ntoa(address.sin_addr));
}
} // namespace

int WSAAPI IPv4GetAddrInfo(const char* pszNode, const char* pszService, const addrinfo* pHints,
                           addrinfo** ppResult)
{
    *ppResult = nullptr;
    if (pszNode == nullptr && pszService == nullptr)
    {
        return WSAHOST_NOT_FOUND;
    }
    const addrinfo hints = pHints != nullptr ? *pHints : addrinfo();
    int nError = CheckHints(pszNode, hints);
    SERVICE_PORTS ports;
    if (nError == 0)
    {
        nError = ResolveService(pszService, hints.ai_socktype, ports);
    }
    CAddressList list;
    if (nError == 0)
    {
        nError = ListAddresses(pszNode, hints, ports, list);
    }
    if (nError == 0 && ports.datagramPort)
    {
        nError = AddDatagramCopies(list.get(), *ports.datagramPort);
    }
    if (nError == 0)
    {
        *ppResult = list.release();
    }
    return nError;
}

int WSAAPI IPv4GetNameInfo(const sockaddr* pAddress, socklen_t cbAddress, char* pszHost, DWORD cbHost,
                           char* pszService, DWORD cbService, int nFlags)
{
    // A negative size passes as a large one.
    if (pAddress == nullptr || static_cast<size_t>(cbAddress) < sizeof(sockaddr_in))
    {
        return WSANO_RECOVERY;
    }
    if (pAddress->sa_family != AF_INET)
    {
        return WSAEAFNOSUPPORT;
    }
    const bool bHost = pszHost != nullptr && cbHost != 0;
    const bool bService = pszService != nullptr && cbService != 0;
    if (!bHost && !bService)
    {
        return WSAHOST_NOT_FOUND;
    }
    if ((nFlags & NI_NUMERICHOST) != 0 && (nFlags & NI_NAMEREQD) != 0)
    {
        return WSAEINVAL;
    }
    sockaddr_in address = {};
    std::memcpy(&address, pAddress, sizeof(address));
    int nError = bService ? NameService(address, pszService, cbService, nFlags) : 0;
    if (nError == 0 && bHost)
    {
        nError = NameHost(address, pszHost, cbHost, nFlags);
    }
    return nError;
}

void WSAAPI IPv4FreeAddrInfo(addrinfo* pList)
{
    while (pList != nullptr)
    {
        addrinfo* const pNext = pList->ai_next;
        Free(pList->ai_canonname);
        Free(pList->ai_addr);
        Free(pList);
        pList = pNext;
    }
}
