#include "channel/IPv4Resolver.h"

#include "tests/support/ImportHook.h"
#include "tests/support/LoopbackPeer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace
{
using testing::ElementsAre;
using testing::IsEmpty;

constexpr int OUT_OF_MEMORY = 8;
constexpr size_t MAX_RESULT_TEXT = 64;

// What a lookup of a host answers: its addresses and its name, or an error.
struct HostAnswer
{
    int nError = 0;
    std::string name;
    std::vector<std::array<unsigned char, 4>> addresses;
    short nFamily = AF_INET;
    short cbAddress = 4;
};

// The lookups of the system, and what they were asked.
struct PlayedSystem
{
    std::map<std::string, HostAnswer> hosts;
    std::optional<HostAnswer> hostOfAddress;
    std::map<std::string, u_short> servicePorts; // "name/protocol" to port
    std::map<std::string, std::string> services; // "port/protocol" to name
    std::vector<std::string> questions;

    int nAllocationsLeft = -1; // then they fail; below 0 they don't
    std::set<void*> blocks;    // not freed yet
    decltype(&HeapAlloc) pfnHeapAlloc = nullptr;
    decltype(&HeapFree) pfnHeapFree = nullptr;
};
PlayedSystem g_system;

// As the system's own, the records are overwritten by the next question.
hostent* AnswerHost(const HostAnswer& answer)
{
    static HostAnswer s_answer;
    static hostent s_entry;
    static std::vector<char*> s_addresses;
    if (answer.nError != 0)
    {
        WSASetLastError(answer.nError);
        return nullptr;
    }
    s_answer = answer;
    s_addresses.clear();
    for (auto& address : s_answer.addresses)
    {
        s_addresses.push_back(reinterpret_cast<char*>(address.data()));
    }
    s_addresses.push_back(nullptr);
    s_entry = {};
    s_entry.h_name = s_answer.name.data();
    s_entry.h_addrtype = s_answer.nFamily;
    s_entry.h_length = s_answer.cbAddress;
    s_entry.h_addr_list = s_addresses.data();
    return &s_entry;
}

hostent* WSAAPI PlayHostByName(const char* pszName)
{
    g_system.questions.push_back("host " + std::string(pszName));
    const auto answer = g_system.hosts.find(pszName);
    return AnswerHost(answer != g_system.hosts.end() ? answer->second
                                                     : HostAnswer{WSAHOST_NOT_FOUND, "", {}});
}

hostent* WSAAPI PlayHostByAddress(const char* pAddress, int cbAddress, int nFamily)
{
    EXPECT_EQ(cbAddress, 4);
    EXPECT_EQ(nFamily, AF_INET);
    std::string question = "address";
    for (int nByte = 0; nByte < cbAddress; ++nByte)
    {
        question += (nByte == 0 ? " " : ".") + std::to_string(static_cast<unsigned char>(pAddress[nByte]));
    }
    g_system.questions.push_back(question);
    return AnswerHost(g_system.hostOfAddress.value_or(HostAnswer{WSAHOST_NOT_FOUND, "", {}}));
}

servent* AnswerService(const std::string& name, u_short uPort)
{
    static std::string s_name;
    static servent s_service;
    s_name = name;
    s_service = {};
    s_service.s_name = s_name.data();
    s_service.s_port = static_cast<short>(htons(uPort));
    return &s_service;
}

servent* WSAAPI PlayServiceByName(const char* pszName, const char* pszProtocol)
{
    const std::string question = std::string(pszName) + "/" + pszProtocol;
    g_system.questions.push_back("service " + question);
    const auto answer = g_system.servicePorts.find(question);
    return answer != g_system.servicePorts.end() ? AnswerService(pszName, answer->second) : nullptr;
}

servent* WSAAPI PlayServiceByPort(int nPort, const char* pszProtocol)
{
    const u_short uPort = ntohs(static_cast<u_short>(nPort));
    const std::string question = std::to_string(uPort) + "/" + (pszProtocol != nullptr ? pszProtocol : "any");
    g_system.questions.push_back("service " + question);
    const auto answer = g_system.services.find(question);
    return answer != g_system.services.end() ? AnswerService(answer->second, uPort) : nullptr;
}

void* WINAPI CountingHeapAlloc(HANDLE hHeap, DWORD dwFlags, SIZE_T cb)
{
    if (g_system.nAllocationsLeft == 0)
    {
        return nullptr;
    }
    --g_system.nAllocationsLeft;
    void* const pBlock = g_system.pfnHeapAlloc(hHeap, dwFlags, cb);
    g_system.blocks.insert(pBlock);
    return pBlock;
}

BOOL WINAPI CountingHeapFree(HANDLE hHeap, DWORD dwFlags, void* pBlock)
{
    g_system.blocks.erase(pBlock);
    return g_system.pfnHeapFree(hHeap, dwFlags, pBlock);
}

addrinfo Hints(int nFlags = 0, int nSocketType = 0, int nFamily = 0)
{
    addrinfo hints = {};
    hints.ai_flags = nFlags;
    hints.ai_socktype = nSocketType;
    hints.ai_family = nFamily;
    return hints;
}

// One entry as text: "127.0.0.1:80 stream", and what else is set.
std::string EntryText(const addrinfo& entry)
{
    EXPECT_EQ(entry.ai_family, AF_INET);
    EXPECT_EQ(entry.ai_addrlen, 16U);
    sockaddr_in address = {};
    std::memcpy(&address, entry.ai_addr, sizeof(address));
    EXPECT_EQ(address.sin_family, AF_INET);
    const std::map<int, std::string> kinds = {
        {0, " any"}, {SOCK_STREAM, " stream"}, {SOCK_DGRAM, " datagram"}, {SOCK_RAW, " raw"}};
    std::string text;
    for (const unsigned char uByte : {address.sin_addr.S_un.S_un_b.s_b1, address.sin_addr.S_un.S_un_b.s_b2,
                                      address.sin_addr.S_un.S_un_b.s_b3, address.sin_addr.S_un.S_un_b.s_b4})
    {
        text += (text.empty() ? "" : ".") + std::to_string(uByte);
    }
    text += ":" + std::to_string(ntohs(address.sin_port)) + kinds.at(entry.ai_socktype);
    text += entry.ai_protocol != 0 ? " protocol " + std::to_string(entry.ai_protocol) : "";
    text += entry.ai_flags != 0 ? " flags " + std::to_string(entry.ai_flags) : "";
    text += entry.ai_canonname != nullptr ? " called " + std::string(entry.ai_canonname) : "";
    return text;
}

class IPv4ResolverTest : public testing::Test
{
  public:
    ~IPv4ResolverTest() override { EXPECT_THAT(g_system.blocks, IsEmpty()) << "not freed"; }

  protected:
    IPv4ResolverTest()
    {
        g_system = PlayedSystem();
        g_system.pfnHeapAlloc = m_heapAlloc.Original();
        g_system.pfnHeapFree = m_heapFree.Original();
    }

    // The entries of a list as text, and the error on failure.
    static std::vector<std::string> Resolve(const char* pszNode, const char* pszService,
                                            const addrinfo* pHints)
    {
        addrinfo untouched = {};
        addrinfo* pResult = &untouched;
        const int nError = IPv4GetAddrInfo(pszNode, pszService, pHints, &pResult);
        std::vector<std::string> entries;
        if (nError != 0)
        {
            EXPECT_EQ(pResult, nullptr);
            entries.push_back("error " + std::to_string(nError));
            return entries;
        }
        for (const addrinfo* pEntry = pResult; pEntry != nullptr; pEntry = pEntry->ai_next)
        {
            entries.push_back(EntryText(*pEntry));
        }
        IPv4FreeAddrInfo(pResult);
        return entries;
    }
    static std::vector<std::string> Resolve(const char* pszNode, const char* pszService,
                                            const addrinfo& hints)
    {
        return Resolve(pszNode, pszService, &hints);
    }

  private:
    WinsockUse m_winsock;
    ImportHook<decltype(PlayHostByName)> m_byName{"ws2_32.dll", "gethostbyname", &PlayHostByName};
    ImportHook<decltype(PlayHostByAddress)> m_byAddress{"ws2_32.dll", "gethostbyaddr", &PlayHostByAddress};
    ImportHook<decltype(PlayServiceByName)> m_service{"ws2_32.dll", "getservbyname", &PlayServiceByName};
    ImportHook<decltype(PlayServiceByPort)> m_port{"ws2_32.dll", "getservbyport", &PlayServiceByPort};
    ImportHook<decltype(CountingHeapAlloc)> m_heapAlloc{"kernel32.dll", "HeapAlloc", &CountingHeapAlloc};
    ImportHook<decltype(CountingHeapFree)> m_heapFree{"kernel32.dll", "HeapFree", &CountingHeapFree};
};
} // namespace

TEST_F(IPv4ResolverTest, WithNeitherHostNorServiceNothingIsFound)
{
    EXPECT_THAT(Resolve(nullptr, nullptr, nullptr), ElementsAre("error 11001"));
    addrinfo hints = Hints();
    hints.ai_addrlen = 1; // would be another error
    EXPECT_THAT(Resolve(nullptr, nullptr, hints), ElementsAre("error 11001"));
}

TEST_F(IPv4ResolverTest, HintsWithFieldsOfAnAnswerAreRefused)
{
    char szName[] = "x";
    sockaddr address = {};
    addrinfo next = {};
    std::array<addrinfo, 4> hints = {};
    hints[0].ai_addrlen = 16;
    hints[1].ai_canonname = szName;
    hints[2].ai_addr = &address;
    hints[3].ai_next = &next;
    for (const addrinfo& hint : hints)
    {
        EXPECT_THAT(Resolve("127.0.0.1", "1", hint), ElementsAre("error 11003"));
    }
}

TEST_F(IPv4ResolverTest, ANameWithoutAHostCannotBeAskedFor)
{
    EXPECT_THAT(Resolve(nullptr, "1", Hints(AI_CANONNAME)), ElementsAre("error 10022"));
}

TEST_F(IPv4ResolverTest, OnlyIPv4OrAnyFamilyIsKnown)
{
    for (const int nFamily : {AF_UNSPEC, AF_INET})
    {
        EXPECT_THAT(Resolve("127.0.0.1", "1", Hints(0, SOCK_STREAM, nFamily)),
                    ElementsAre("127.0.0.1:1 stream flags 4"));
    }
    for (const int nFamily : {AF_INET6, 1, 3, -1})
    {
        EXPECT_THAT(Resolve("127.0.0.1", "1", Hints(0, SOCK_STREAM, nFamily)), ElementsAre("error 10047"));
    }
}

TEST_F(IPv4ResolverTest, SocketTypesAboveRawAreRefused)
{
    EXPECT_THAT(Resolve("127.0.0.1", "1", Hints(0, SOCK_DGRAM)), ElementsAre("127.0.0.1:1 datagram flags 4"));
    EXPECT_THAT(Resolve("127.0.0.1", "1", Hints(0, SOCK_RAW)), ElementsAre("127.0.0.1:1 raw flags 4"));
    EXPECT_THAT(Resolve("127.0.0.1", "1", Hints(0, 4)), ElementsAre("error 10044"));
    EXPECT_THAT(Resolve("127.0.0.1", "1", Hints(0, 5)), ElementsAre("error 10044"));
}

TEST_F(IPv4ResolverTest, OfSeveralFaultsTheFirstRuleCounts)
{
    addrinfo hints = Hints(AI_CANONNAME, 4, AF_INET6);
    hints.ai_addrlen = 1;
    EXPECT_THAT(Resolve(nullptr, "none", hints), ElementsAre("error 11003"));
    EXPECT_THAT(Resolve(nullptr, "none", Hints(AI_CANONNAME, 4, AF_INET6)), ElementsAre("error 10022"));
    EXPECT_THAT(Resolve(nullptr, "none", Hints(0, 4, AF_INET6)), ElementsAre("error 10047"));
    EXPECT_THAT(Resolve(nullptr, "none", Hints(0, 4)), ElementsAre("error 10044"));
    EXPECT_THAT(Resolve("none", "none", Hints(0, SOCK_STREAM)), ElementsAre("error 10109"));
}

TEST_F(IPv4ResolverTest, APortNumberIsTakenInDecimal)
{
    const addrinfo hints = Hints(0, SOCK_STREAM);
    EXPECT_THAT(Resolve("1.2.3.4", "6129", hints), ElementsAre("1.2.3.4:6129 stream flags 4"));
    EXPECT_THAT(Resolve("1.2.3.4", "010", hints), ElementsAre("1.2.3.4:10 stream flags 4"));
    EXPECT_THAT(Resolve("1.2.3.4", "65535", hints), ElementsAre("1.2.3.4:65535 stream flags 4"));
    EXPECT_THAT(Resolve("1.2.3.4", "65537", hints), ElementsAre("1.2.3.4:1 stream flags 4")) << "16 bits";
    EXPECT_THAT(Resolve("1.2.3.4", "", hints), ElementsAre("1.2.3.4:0 stream flags 4"));
    EXPECT_THAT(g_system.questions, IsEmpty());
}

TEST_F(IPv4ResolverTest, APortNumberWithoutATypeGivesAStreamAndADatagramEntry)
{
    EXPECT_THAT(Resolve("1.2.3.4", "80", nullptr),
                ElementsAre("1.2.3.4:80 stream flags 4", "1.2.3.4:80 datagram flags 4"));
}

TEST_F(IPv4ResolverTest, WithoutAServiceThePortIsZeroAndTheTypeStaysOpen)
{
    EXPECT_THAT(Resolve("1.2.3.4", nullptr, nullptr), ElementsAre("1.2.3.4:0 any flags 4"));
    EXPECT_THAT(Resolve("1.2.3.4", nullptr, Hints(0, SOCK_DGRAM)), ElementsAre("1.2.3.4:0 datagram flags 4"));
}

TEST_F(IPv4ResolverTest, TextThatIsNotWhollyANumberIsTheNameOfAService)
{
    g_system.servicePorts = {{"80x/tcp", 7}, {"http/tcp", 80}, {"0x10/tcp", 8}};
    const addrinfo hints = Hints(0, SOCK_STREAM);
    EXPECT_THAT(Resolve("1.2.3.4", "80x", hints), ElementsAre("1.2.3.4:7 stream flags 4"));
    EXPECT_THAT(Resolve("1.2.3.4", "http", hints), ElementsAre("1.2.3.4:80 stream flags 4"));
    EXPECT_THAT(Resolve("1.2.3.4", "0x10", hints), ElementsAre("1.2.3.4:8 stream flags 4"));
}

TEST_F(IPv4ResolverTest, EachSocketTypeAsksForItsOwnProtocol)
{
    const std::map<int, std::vector<std::string>> asked = {
        {0, {"service s/udp", "service s/tcp"}},
        {SOCK_STREAM, {"service s/tcp"}},
        {SOCK_DGRAM, {"service s/udp"}},
        {SOCK_RAW, {}},
        {-1, {"service s/tcp"}},
    };
    for (const auto& [nSocketType, questions] : asked)
    {
        g_system.questions.clear();
        EXPECT_THAT(Resolve("1.2.3.4", "s", Hints(0, nSocketType)),
                    ElementsAre(nSocketType != 0 ? "error 10109" : "error 11001"));
        EXPECT_EQ(g_system.questions, questions) << nSocketType;
    }
}

TEST_F(IPv4ResolverTest, AServiceWithoutATypeIsListedForTheProtocolsThatKnowIt)
{
    g_system.servicePorts = {{"both/tcp", 1}, {"both/udp", 2}, {"stream/tcp", 3}, {"datagram/udp", 4}};
    EXPECT_THAT(Resolve("1.2.3.4", "both", nullptr),
                ElementsAre("1.2.3.4:1 stream flags 4", "1.2.3.4:2 datagram flags 4"));
    EXPECT_THAT(Resolve("1.2.3.4", "stream", nullptr), ElementsAre("1.2.3.4:3 stream flags 4"));
    EXPECT_THAT(Resolve("1.2.3.4", "datagram", nullptr), ElementsAre("1.2.3.4:4 datagram flags 4"));
}

TEST_F(IPv4ResolverTest, AServiceWithATypeIsListedOnce)
{
    g_system.servicePorts = {{"both/tcp", 1}, {"both/udp", 2}};
    EXPECT_THAT(Resolve("1.2.3.4", "both", Hints(0, SOCK_STREAM)), ElementsAre("1.2.3.4:1 stream flags 4"));
    EXPECT_THAT(Resolve("1.2.3.4", "both", Hints(0, SOCK_DGRAM)), ElementsAre("1.2.3.4:2 datagram flags 4"));
}

TEST_F(IPv4ResolverTest, ALiteralAddressIsOneEntryWithoutALookup)
{
    const addrinfo hints = Hints(0, SOCK_STREAM);
    EXPECT_THAT(Resolve("127.0.0.1", "1", hints), ElementsAre("127.0.0.1:1 stream flags 4"));
    EXPECT_THAT(Resolve("127.0.0.1", "1", Hints(AI_NUMERICHOST, SOCK_STREAM)),
                ElementsAre("127.0.0.1:1 stream flags 4"));
    EXPECT_THAT(g_system.questions, IsEmpty());
}

TEST_F(IPv4ResolverTest, OnlyThreeDotsMakeALiteralAddress)
{
    for (const char* const pszNode : {"1", "1.2", "1.2.3", "1.2.3.4.", "1.2.3.256", "a.b.c.d", "", "::1"})
    {
        g_system.questions.clear();
        EXPECT_THAT(Resolve(pszNode, "1", nullptr), ElementsAre("error 11001"));
        EXPECT_THAT(g_system.questions, ElementsAre("host " + std::string(pszNode)));
    }
}

TEST_F(IPv4ResolverTest, WithoutAHostTheAddressIsThatOfThisMachine)
{
    EXPECT_THAT(Resolve(nullptr, "1", Hints(AI_PASSIVE, SOCK_STREAM)), ElementsAre("0.0.0.0:1 stream"));
    EXPECT_THAT(Resolve(nullptr, "1", Hints(0, SOCK_STREAM)), ElementsAre("127.0.0.1:1 stream"));
    EXPECT_THAT(Resolve(nullptr, "1", nullptr), ElementsAre("127.0.0.1:1 stream", "127.0.0.1:1 datagram"));
}

TEST_F(IPv4ResolverTest, ANameWhereANumberWasAnnouncedIsNotLookedUp)
{
    g_system.hosts["host"] = {0, "host", {{1, 2, 3, 4}}};
    EXPECT_THAT(Resolve("host", "1", Hints(AI_NUMERICHOST)), ElementsAre("error 11001"));
    EXPECT_THAT(g_system.questions, IsEmpty());
}

TEST_F(IPv4ResolverTest, TheNameOfALiteralAddressIsItsText)
{
    EXPECT_THAT(Resolve("010.1.2.3", "1", Hints(AI_CANONNAME, SOCK_STREAM)),
                ElementsAre("8.1.2.3:1 stream flags 4 called 8.1.2.3"));
}

TEST_F(IPv4ResolverTest, TheProtocolOfTheHintsIsThatOfTheEntries)
{
    addrinfo hints = Hints(0, SOCK_STREAM);
    hints.ai_protocol = IPPROTO_TCP;
    EXPECT_THAT(Resolve("1.2.3.4", "1", hints), ElementsAre("1.2.3.4:1 stream protocol 6 flags 4"));
}

TEST_F(IPv4ResolverTest, AHostIsListedWithAllItsAddressesInTheirOrder)
{
    g_system.hosts["host"] = {0, "host", {{9, 9, 9, 9}, {1, 2, 3, 4}, {5, 6, 7, 8}}};
    EXPECT_THAT(Resolve("host", "1", Hints(0, SOCK_STREAM)),
                ElementsAre("9.9.9.9:1 stream", "1.2.3.4:1 stream", "5.6.7.8:1 stream"));
    EXPECT_THAT(g_system.questions, ElementsAre("host host"));
}

TEST_F(IPv4ResolverTest, EachAddressOfAHostIsFollowedByItsDatagramCopy)
{
    g_system.hosts["host"] = {0, "called", {{1, 2, 3, 4}, {5, 6, 7, 8}}};
    EXPECT_THAT(Resolve("host", "1", Hints(AI_CANONNAME)),
                ElementsAre("1.2.3.4:1 stream called called", "1.2.3.4:1 datagram", "5.6.7.8:1 stream",
                            "5.6.7.8:1 datagram"));
}

TEST_F(IPv4ResolverTest, TheFirstEntryOfAHostCarriesItsNameWhenAskedFor)
{
    g_system.hosts["host"] = {0, "host.example", {{1, 2, 3, 4}, {5, 6, 7, 8}}};
    EXPECT_THAT(Resolve("host", "1", Hints(AI_CANONNAME, SOCK_STREAM)),
                ElementsAre("1.2.3.4:1 stream called host.example", "5.6.7.8:1 stream"));
    EXPECT_THAT(Resolve("host", "1", Hints(0, SOCK_STREAM)),
                ElementsAre("1.2.3.4:1 stream", "5.6.7.8:1 stream"));
}

TEST_F(IPv4ResolverTest, AFailedLookupIsToldInThreeErrors)
{
    const std::map<int, std::string> errors = {
        {WSAHOST_NOT_FOUND, "error 11001"}, {WSATRY_AGAIN, "error 11002"},
        {WSANO_RECOVERY, "error 11003"},    {WSANO_DATA, "error 11001"},
        {WSANOTINITIALISED, "error 11001"},
    };
    for (const auto& [nError, text] : errors)
    {
        g_system.hosts["host"] = {nError, "", {}};
        EXPECT_THAT(Resolve("host", "1", nullptr), ElementsAre(text));
    }
}

TEST_F(IPv4ResolverTest, AnAliasIsLookedUpByTheNameItStandsFor)
{
    g_system.hosts["alias"] = {0, "second", {}};
    g_system.hosts["second"] = {0, "third", {}};
    g_system.hosts["third"] = {0, "last", {{1, 2, 3, 4}}};
    EXPECT_THAT(Resolve("alias", "1", Hints(AI_CANONNAME, SOCK_STREAM)),
                ElementsAre("1.2.3.4:1 stream called last"));
    EXPECT_THAT(g_system.questions, ElementsAre("host alias", "host second", "host third"));
}

TEST_F(IPv4ResolverTest, AnAliasThatLeadsNowhereBringsTheErrorOfItsName)
{
    g_system.hosts["alias"] = {0, "busy", {}};
    g_system.hosts["busy"] = {WSATRY_AGAIN, "", {}};
    EXPECT_THAT(Resolve("alias", "1", nullptr), ElementsAre("error 11002"));
}

TEST_F(IPv4ResolverTest, AliasesAreFollowedSixteenRoundsAndNoFurther)
{
    for (int nAlias = 0; nAlias < 20; ++nAlias)
    {
        g_system.hosts["a" + std::to_string(nAlias)] = {0, "a" + std::to_string(nAlias + 1), {}};
    }
    EXPECT_THAT(Resolve("a0", "1", nullptr), ElementsAre("error 11003"));
    EXPECT_EQ(g_system.questions.size(), 16U);
    g_system.hosts["a15"].addresses = {{1, 2, 3, 4}};
    EXPECT_THAT(Resolve("a0", "1", Hints(0, SOCK_STREAM)), ElementsAre("1.2.3.4:1 stream"));
}

TEST_F(IPv4ResolverTest, AHostWithoutAddressesAndAnotherNameIsNotFound)
{
    for (const char* const pszName : {"host", ""})
    {
        g_system.hosts["host"] = {0, pszName, {}};
        EXPECT_THAT(Resolve("host", "1", nullptr), ElementsAre("error 11001"));
    }
    EXPECT_EQ(g_system.questions.size(), 2U);
}

TEST_F(IPv4ResolverTest, AddressesOfAnotherKindAreNone)
{
    g_system.hosts["host"] = {0, "host", {{1, 2, 3, 4}}, AF_INET6, 4};
    EXPECT_THAT(Resolve("host", "1", nullptr), ElementsAre("error 11001"));
    g_system.hosts["host"] = {0, "host", {{1, 2, 3, 4}}, AF_INET, 16};
    EXPECT_THAT(Resolve("host", "1", nullptr), ElementsAre("error 11001"));
}

TEST_F(IPv4ResolverTest, AnAliasLongerThanAnyNameIsCut)
{
    const std::string longName(5000, 'x');
    g_system.hosts["alias"] = {0, longName, {}};
    g_system.hosts[longName.substr(0, NI_MAXHOST - 1)] = {0, "host", {{1, 2, 3, 4}}};
    EXPECT_THAT(Resolve("alias", "1", Hints(0, SOCK_STREAM)), ElementsAre("1.2.3.4:1 stream"));
}

TEST_F(IPv4ResolverTest, EachAllocationThatFailsIsToldAndNothingIsLeftBehind)
{
    g_system.hosts["host"] = {0, "host", {{1, 2, 3, 4}, {5, 6, 7, 8}}};
    // Entry and address each, and the name; the datagram copies double the entries.
    const std::map<const char*, int> allocations = {{"127.0.0.1", 5}, {"host", 9}};
    for (const auto& [pszNode, nAllocations] : allocations)
    {
        for (int nSpared = 0; nSpared < nAllocations; ++nSpared)
        {
            g_system.nAllocationsLeft = nSpared;
            EXPECT_THAT(Resolve(pszNode, "1", Hints(AI_CANONNAME)),
                        ElementsAre("error " + std::to_string(OUT_OF_MEMORY)))
                << pszNode << ' ' << nSpared;
            EXPECT_THAT(g_system.blocks, IsEmpty());
        }
        g_system.nAllocationsLeft = nAllocations;
        EXPECT_NE(Resolve(pszNode, "1", Hints(AI_CANONNAME)).front(), "error 8");
    }
}

TEST_F(IPv4ResolverTest, NoListIsFreedToo)
{
    IPv4FreeAddrInfo(nullptr);
    EXPECT_THAT(g_system.blocks, IsEmpty());
}

namespace
{
// An address to be named, and the buffers for its names.
struct NameQuestion
{
    sockaddr_in address = {};
    socklen_t cbAddress = sizeof(address);
    char szHost[MAX_RESULT_TEXT] = "untouched";
    char szService[MAX_RESULT_TEXT] = "untouched";
    DWORD cbHost = MAX_RESULT_TEXT;
    DWORD cbService = MAX_RESULT_TEXT;

    explicit NameQuestion(u_short uPort = 80)
    {
        address.sin_family = AF_INET;
        address.sin_port = htons(uPort);
        address.sin_addr.s_addr = htonl(0x01020304);
    }

    int Ask(int nFlags)
    {
        return IPv4GetNameInfo(reinterpret_cast<const sockaddr*>(&address), cbAddress, szHost, cbHost,
                               szService, cbService, nFlags);
    }
};

using IPv4NamesTest = IPv4ResolverTest;
} // namespace

TEST_F(IPv4NamesTest, AnAddressMustBeThereAndWhole)
{
    NameQuestion question;
    EXPECT_EQ(IPv4GetNameInfo(nullptr, 16, question.szHost, MAX_RESULT_TEXT, nullptr, 0, 0), WSANO_RECOVERY);
    for (const socklen_t cbAddress : {0, 15})
    {
        question.cbAddress = cbAddress;
        EXPECT_EQ(question.Ask(NI_NUMERICHOST), WSANO_RECOVERY);
    }
    EXPECT_STREQ(question.szHost, "untouched");
}

TEST_F(IPv4NamesTest, ANegativeSizeCountsAsALargeOne)
{
    NameQuestion question;
    question.cbAddress = -1;
    EXPECT_EQ(question.Ask(NI_NUMERICHOST | NI_NUMERICSERV), 0);
    EXPECT_STREQ(question.szHost, "1.2.3.4");
}

TEST_F(IPv4NamesTest, OtherFamiliesAreNotKnown)
{
    NameQuestion question;
    question.address.sin_family = AF_INET6;
    question.cbHost = 0;
    question.cbService = 0;
    EXPECT_EQ(question.Ask(0), WSAEAFNOSUPPORT);
}

TEST_F(IPv4NamesTest, SomethingMustBeAskedFor)
{
    NameQuestion question;
    const auto* const pAddress = reinterpret_cast<const sockaddr*>(&question.address);
    EXPECT_EQ(IPv4GetNameInfo(pAddress, 16, nullptr, MAX_RESULT_TEXT, nullptr, MAX_RESULT_TEXT, 0),
              WSAHOST_NOT_FOUND);
    question.cbHost = 0;
    question.cbService = 0;
    EXPECT_EQ(question.Ask(NI_NUMERICHOST | NI_NAMEREQD), WSAHOST_NOT_FOUND) << "before the flags";
}

TEST_F(IPv4NamesTest, ANumberThatMustBeANameIsAContradiction)
{
    NameQuestion question;
    EXPECT_EQ(question.Ask(NI_NUMERICHOST | NI_NAMEREQD), WSAEINVAL);
    EXPECT_THAT(g_system.questions, IsEmpty());
}

TEST_F(IPv4NamesTest, EitherResultMayBeLeftOut)
{
    NameQuestion host;
    host.cbService = 0;
    EXPECT_EQ(host.Ask(NI_NUMERICHOST), 0);
    EXPECT_STREQ(host.szHost, "1.2.3.4");
    EXPECT_STREQ(host.szService, "untouched");
    NameQuestion service;
    service.cbHost = 0;
    EXPECT_EQ(service.Ask(NI_NAMEREQD), 0);
    EXPECT_STREQ(service.szService, "80");
    EXPECT_THAT(g_system.questions, ElementsAre("service 80/any"));
}

TEST_F(IPv4NamesTest, AServiceIsNamedByItsProtocol)
{
    g_system.services = {{"80/any", "web"}, {"80/udp", "quick"}};
    NameQuestion question;
    EXPECT_EQ(question.Ask(NI_NUMERICHOST), 0);
    EXPECT_STREQ(question.szService, "web");
    EXPECT_EQ(question.Ask(NI_NUMERICHOST | NI_DGRAM), 0);
    EXPECT_STREQ(question.szService, "quick");
    g_system.questions.clear();
    EXPECT_EQ(question.Ask(NI_NUMERICHOST | NI_NUMERICSERV), 0);
    EXPECT_STREQ(question.szService, "80");
    EXPECT_THAT(g_system.questions, IsEmpty());
}

TEST_F(IPv4NamesTest, AnUnknownServiceIsItsPort)
{
    NameQuestion question(65535);
    EXPECT_EQ(question.Ask(NI_NUMERICHOST), 0);
    EXPECT_STREQ(question.szService, "65535");
}

TEST_F(IPv4NamesTest, ATextThatDoesNotFitIsAFailure)
{
    g_system.services = {{"80/any", "web"}};
    NameQuestion question;
    question.cbService = 3;
    EXPECT_EQ(question.Ask(NI_NUMERICHOST), WSANO_RECOVERY);
    EXPECT_STREQ(question.szHost, "untouched");
    question.cbService = 4;
    EXPECT_EQ(question.Ask(NI_NUMERICHOST), 0);
    question.cbService = 2;
    EXPECT_EQ(question.Ask(NI_NUMERICHOST | NI_NUMERICSERV), WSANO_RECOVERY);

    question.cbService = 0;
    question.cbHost = 7;
    EXPECT_EQ(question.Ask(NI_NUMERICHOST), WSANO_RECOVERY);
    question.cbHost = 8;
    EXPECT_EQ(question.Ask(NI_NUMERICHOST), 0);
    EXPECT_STREQ(question.szHost, "1.2.3.4");
    g_system.hostOfAddress = {0, "host.example", {}};
    EXPECT_EQ(question.Ask(0), WSANO_RECOVERY);
}

TEST_F(IPv4NamesTest, AHostIsNamedWholeOrByItsFirstLabel)
{
    g_system.hostOfAddress = {0, "host.in.example", {}};
    NameQuestion question;
    EXPECT_EQ(question.Ask(NI_NUMERICSERV), 0);
    EXPECT_STREQ(question.szHost, "host.in.example");
    EXPECT_EQ(question.Ask(NI_NUMERICSERV | NI_NOFQDN), 0);
    EXPECT_STREQ(question.szHost, "host");
    EXPECT_THAT(g_system.questions, ElementsAre("address 1.2.3.4", "address 1.2.3.4"));
    g_system.hostOfAddress = {0, "plain", {}};
    EXPECT_EQ(question.Ask(NI_NUMERICSERV | NI_NOFQDN | NI_NAMEREQD), 0);
    EXPECT_STREQ(question.szHost, "plain");
}

TEST_F(IPv4NamesTest, AHostWithoutANameIsItsAddressUnlessANameIsRequired)
{
    for (const int nError : {WSAHOST_NOT_FOUND, WSATRY_AGAIN, WSANO_RECOVERY, WSANO_DATA})
    {
        g_system.hostOfAddress = {nError, "", {}};
        NameQuestion question;
        EXPECT_EQ(question.Ask(NI_NUMERICSERV | NI_NOFQDN), 0);
        EXPECT_STREQ(question.szHost, "1.2.3.4");
        EXPECT_EQ(question.Ask(NI_NUMERICSERV | NI_NAMEREQD), nError);
    }
}

TEST(IPv4RealLookupTest, LocalhostIsFoundByTheSystemsOwnLookup)
{
    const WinsockUse winsock;
    const addrinfo hints = Hints(0, SOCK_STREAM);
    addrinfo* pResult = nullptr;
    ASSERT_EQ(IPv4GetAddrInfo("localhost", "6129", &hints, &pResult), 0);
    EXPECT_EQ(EntryText(*pResult), "127.0.0.1:6129 stream");
    IPv4FreeAddrInfo(pResult);
}
