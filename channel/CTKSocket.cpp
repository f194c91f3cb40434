#include "channel/CTKSocket.h"

#include "channel/ResolverTable.h"

#include <charconv>
#include <new>

namespace
{
constexpr wchar_t LOOPBACK_IPV4[] = L"127.0.0.1";
constexpr wchar_t LOOPBACK_IPV6[] = L"::1";

constexpr int MAX_RESOLVER_HOST = 1025; // bytes
constexpr int MAX_WIDE_HOST_UNITS = 2050;
constexpr int MAX_PORT_TEXT = 16;

void ToAnsi(const wchar_t* pszWide, char* pszAnsi, int cbAnsi)
{
    if (WideCharToMultiByte(CP_ACP, 0, pszWide, -1, pszAnsi, cbAnsi, nullptr, nullptr) == 0)
    {
        pszAnsi[0] = '\0';
    }
}

int CallResolver(const wchar_t* pszHost, const char* pszPort, const addrinfo& hints, addrinfo** ppResult)
{
    char szHost[MAX_RESOLVER_HOST] = {};
    ToAnsi(pszHost, szHost, MAX_RESOLVER_HOST);
    const int nError = ResolveAddresses(pszHost != nullptr ? szHost : nullptr, pszPort, &hints, ppResult);
    WSASetLastError(nError);
    return nError;
}

// WSATRY_AGAIN is not among them: a resolver that asks for patience knows the name.
bool IsUnknownHost(DWORD dwError)
{
    return dwError == WSAHOST_NOT_FOUND || dwError == WSANO_RECOVERY || dwError == WSANO_DATA;
}
} // namespace

CTKSocket::CTKSocket()
{
    WSADATA data = {};
    m_bWinsockStarted = WSAStartup(MAKEWORD(2, 0), &data) == 0 ? 1 : 0;
}

CTKSocket::~CTKSocket()
{
    Close();
    if (m_pAddrInfo != nullptr)
    {
        FreeAddresses(m_pAddrInfo);
    }
    if (m_bWinsockStarted != 0)
    {
        WSACleanup();
    }
}

int CTKSocket::Close()
{
    // Taken out first, so that two threads that close at once never close a number that is in use again.
    const SOCKET hSocket = m_hSocket.exchange(INVALID_SOCKET);
    shutdown(hSocket, SD_BOTH);
    closesocket(hSocket);
    return 1;
}

int CTKSocket::Shutdown()
{
    shutdown(m_hSocket, SD_BOTH);
    return 1;
}

int CTKSocket::Connect(const wchar_t* pszHost, unsigned int nPort, int nType, int nFamily)
{
    char szPort[MAX_PORT_TEXT] = {};
    std::to_chars(szPort, szPort + MAX_PORT_TEXT - 1, nPort);

    m_nSocketType = nType;
    addrinfo hints = {};
    hints.ai_socktype = nType;
    hints.ai_family = nFamily;

    // The list of an earlier Connect is deliberately not freed: a retry happens at most twice in an agent's
    // life.
    const int nResolved = Resolve(pszHost, szPort, hints, &m_pAddrInfo);
    if (nResolved == 0)
    {
        return nResolved;
    }
    for (const addrinfo* pAddress = m_pAddrInfo; pAddress != nullptr; pAddress = pAddress->ai_next)
    {
        if (ConnectToAddress(*pAddress))
        {
            return 1;
        }
    }
    return 0;
}

bool CTKSocket::ConnectToAddress(const addrinfo& address)
{
    // Taken out first, as in Close, which another thread may call meanwhile.
    const SOCKET hEarlier = m_hSocket.exchange(INVALID_SOCKET);
    if (hEarlier != INVALID_SOCKET)
    {
        closesocket(hEarlier);
    }
    m_hSocket = socket(address.ai_family, address.ai_socktype, 0);
    if (m_hSocket != INVALID_SOCKET && m_nSocketType != SOCK_DGRAM)
    {
        const DWORD bNoDelay = 1;
        setsockopt(m_hSocket, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&bNoDelay),
                   sizeof(bNoDelay));
    }
    return connect(m_hSocket, address.ai_addr, static_cast<int>(address.ai_addrlen)) != SOCKET_ERROR;
}

int CTKSocket::Resolve(const wchar_t* pszHost, const char* pszPort, const addrinfo& hints,
                       addrinfo** ppResult)
{
    if (CallResolver(pszHost, pszPort, hints, ppResult) == 0)
    {
        return 1;
    }
    const DWORD dwError = GetLastError();
    if (IsUnknownHost(dwError) && lstrcmpiW(pszHost, SERVICE_HOST) == 0)
    {
        const wchar_t* pszLoopback = hints.ai_family == AF_INET6 ? LOOPBACK_IPV6 : LOOPBACK_IPV4;
        if (CallResolver(pszLoopback, pszPort, hints, ppResult) == 0)
        {
            return 1;
        }
        wchar_t szComputer[MAX_RESOLVER_HOST] = {};
        DWORD cchComputer = MAX_RESOLVER_HOST;
        GetComputerNameW(szComputer, &cchComputer);
        if (CallResolver(szComputer, pszPort, hints, ppResult) == 0)
        {
            return 1;
        }
    }
    SetLastError(dwError);
    return 0;
}

int CTKSocket::Resolve(const char* pszHost, const char* pszPort, const addrinfo& hints, addrinfo** ppResult)
{
    wchar_t szHost[MAX_WIDE_HOST_UNITS] = {};
    if (MultiByteToWideChar(CP_ACP, 0, pszHost, -1, szHost, MAX_WIDE_HOST_UNITS) == 0)
    {
        return 0;
    }
    return Resolve(szHost, pszPort, hints, ppResult);
}

int CTKSocket::Read(char* p, long long n)
{
    return recv(m_hSocket, p, static_cast<int>(n), 0);
}

int CTKSocket::ReadAll(char* p, int n)
{
    int nMissing = n;
    while (nMissing > 0)
    {
        const int nRead = Read(p, nMissing);
        if (nRead > 0)
        {
            p += nRead;
            nMissing -= nRead;
        }
        else if (nRead == 0 || WSAGetLastError() != WSAEWOULDBLOCK)
        {
            return 0;
        }
    }
    return 1;
}

int CTKSocket::ReadDatagram(char* p, unsigned int n)
{
    if (m_hSocket == INVALID_SOCKET)
    {
        return 0;
    }
    return Read(p, n) == static_cast<int>(n) ? 1 : 0;
}

int CTKSocket::Write(const char* p, long long n)
{
    return send(m_hSocket, p, static_cast<int>(n), 0);
}

int CTKSocket::WriteAll(const char* p, long long n)
{
    return Write(p, n) == n ? 1 : 0;
}

int CTKSocket::WriteDatagram(const void* p, unsigned int n)
{
    if (m_hSocket == INVALID_SOCKET)
    {
        return 0;
    }
    return WriteAll(static_cast<const char*>(p), n);
}

int CTKSocket::SetTimeouts(unsigned int nMilliseconds)
{
    if (m_hSocket == INVALID_SOCKET)
    {
        return 0;
    }
    for (const int nOption : {SO_RCVTIMEO, SO_SNDTIMEO})
    {
        const DWORD dwTimeout = nMilliseconds;
        if (setsockopt(m_hSocket, SOL_SOCKET, nOption, reinterpret_cast<const char*>(&dwTimeout),
                       sizeof(dwTimeout)) == SOCKET_ERROR)
        {
            return 0;
        }
    }
    return 1;
}

bool IsSocketValid(const CTKSocket* pSocket)
{
    return pSocket != nullptr && pSocket->GetSocket() != INVALID_SOCKET;
}

std::shared_ptr<CTKSocket> CreateSharedSocket()
{
    try
    {
        return std::make_shared<CTKSocket>();
    }
    catch (const std::bad_alloc&)
    {
        return nullptr;
    }
}
