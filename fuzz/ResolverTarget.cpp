#include "fuzz/FuzzTarget.h"

#include "channel/IPv4Resolver.h"
#include "fuzz/RecordMutator.h"
#include "tests/support/ImportHook.h"

#include <algorithm>
#include <iterator>
#include <string>

namespace
{
constexpr std::uint32_t MOST_QUESTIONS = 32; // of one round
constexpr std::uint32_t MOST_ADDRESSES = 8;
constexpr size_t LONGEST_NAME = 1200; // bytes, more than the system's own

// The system's answer to the next question.
struct SYSTEM_ANSWER
{
    CChoices* pChoices = nullptr;
    std::string name;
    std::vector<std::vector<char>> addresses;
    std::vector<char*> list;
    hostent host = {};
    servent service = {};
};
SYSTEM_ANSWER g_answer;

std::string MakeHostName(CChoices& choices)
{
    constexpr const char* NAMES[] = {"localhost",  "127.0.0.1", "a.b.c", "256.1.1.1", "1.2.3", "....", "",
                                     "0x7f.1.1.1", "%s%n",      "alias", "\xFF\xFE",  "6129",  "http"};
    if (choices.OneIn(8))
    {
        return std::string(choices.Number() % LONGEST_NAME, 'h');
    }
    return NAMES[choices.Below(static_cast<std::uint32_t>(std::size(NAMES)))];
}

hostent* MakeHost()
{
    CChoices& choices = *g_answer.pChoices;
    if (choices.OneIn(6))
    {
        constexpr int ERRORS[] = {WSAHOST_NOT_FOUND, WSATRY_AGAIN, WSANO_RECOVERY, WSANO_DATA, 0};
        WSASetLastError(ERRORS[choices.Below(static_cast<std::uint32_t>(std::size(ERRORS)))]);
        return nullptr;
    }
    g_answer.name = MakeHostName(choices);
    g_answer.addresses.clear();
    g_answer.list.clear();
    g_answer.host.h_length = static_cast<short>(choices.OneIn(6) ? choices.Number() % 20 : sizeof(in_addr));
    for (std::uint32_t nLeft = choices.Below(MOST_ADDRESSES); nLeft > 0; --nLeft)
    {
        g_answer.addresses.emplace_back(static_cast<size_t>(g_answer.host.h_length), 'a');
    }
    for (std::vector<char>& address : g_answer.addresses)
    {
        g_answer.list.push_back(address.data());
    }
    g_answer.list.push_back(nullptr);
    g_answer.host.h_name = choices.OneIn(16) ? nullptr : g_answer.name.data();
    g_answer.host.h_addrtype = static_cast<short>(choices.OneIn(6) ? choices.Number() % 40 : AF_INET);
    g_answer.host.h_addr_list = g_answer.list.data();
    return &g_answer.host;
}

servent* MakeService()
{
    CChoices& choices = *g_answer.pChoices;
    if (choices.OneIn(3))
    {
        return nullptr;
    }
    g_answer.name = MakeHostName(choices);
    g_answer.service.s_name = choices.OneIn(16) ? nullptr : g_answer.name.data();
    g_answer.service.s_port = static_cast<short>(choices.Number());
    return &g_answer.service;
}

hostent* WSAAPI HostByName(const char*)
{
    return MakeHost();
}

hostent* WSAAPI HostByAddress(const char*, int, int)
{
    return MakeHost();
}

servent* WSAAPI ServiceByName(const char*, const char*)
{
    return MakeService();
}

servent* WSAAPI ServiceByPort(int, const char*)
{
    return MakeService();
}

void PlayNames(CChoices& choices)
{
    choices.Step("names");
    const std::string node = MakeHostName(choices);
    const std::string service = MakeHostName(choices);
    addrinfo hints = {};
    hints.ai_flags = static_cast<int>(choices.Number());
    hints.ai_family = choices.Below(2) == 0 ? AF_UNSPEC : static_cast<int>(choices.Number() % 30);
    hints.ai_socktype = choices.Below(2) == 0 ? 0 : static_cast<int>(choices.Number());
    hints.ai_protocol = static_cast<int>(choices.Number());
    addrinfo* pList = nullptr;
    const int nError = IPv4GetAddrInfo(choices.OneIn(8) ? nullptr : node.c_str(),
                                       choices.OneIn(4) ? nullptr : service.c_str(),
                                       choices.OneIn(4) ? nullptr : &hints, &pList);
    Expect((nError == 0) == (pList != nullptr), "a list or an error");
    for (const addrinfo* pEntry = pList; pEntry != nullptr; pEntry = pEntry->ai_next)
    {
        Expect(pEntry->ai_family == AF_INET && pEntry->ai_addrlen == sizeof(sockaddr_in) &&
                   pEntry->ai_addr->sa_family == AF_INET,
               "an entry is an address of IPv4");
    }
    IPv4FreeAddrInfo(pList);
}

void PlayAddress(CChoices& choices)
{
    choices.Step("address");
    sockaddr_in address = {};
    address.sin_family = choices.OneIn(8) ? static_cast<short>(choices.Number()) : AF_INET;
    address.sin_port = static_cast<u_short>(choices.Number());
    address.sin_addr.s_addr = choices.Number();
    const DWORD cbHost = choices.Number() % LONGEST_NAME;
    const DWORD cbService = choices.Number() % 64;
    const GuardedBytes host(cbHost);
    const GuardedBytes service(cbService);
    const socklen_t cbAddress = choices.OneIn(8) ? static_cast<socklen_t>(choices.Number()) : sizeof(address);
    IPv4GetNameInfo(reinterpret_cast<const sockaddr*>(&address), cbAddress,
                    choices.OneIn(8) ? nullptr : reinterpret_cast<char*>(host.Get()), cbHost,
                    choices.OneIn(8) ? nullptr : reinterpret_cast<char*>(service.Get()), cbService,
                    static_cast<int>(choices.Number()));
}
} // namespace

size_t FuzzResolver(CChoices& choices)
{
    g_answer.pChoices = &choices;
    const ImportHook hostByName("ws2_32.dll", "gethostbyname", &HostByName);
    const ImportHook hostByAddress("ws2_32.dll", "gethostbyaddr", &HostByAddress);
    const ImportHook serviceByName("ws2_32.dll", "getservbyname", &ServiceByName);
    const ImportHook serviceByPort("ws2_32.dll", "getservbyport", &ServiceByPort);
    const std::uint32_t nQuestions = 1 + choices.Below(MOST_QUESTIONS);
    for (std::uint32_t nQuestion = 0; nQuestion < nQuestions; ++nQuestion)
    {
        if (choices.Below(4) == 1)
        {
            PlayAddress(choices);
        }
        else
        {
            PlayNames(choices);
        }
    }
    return nQuestions;
}
