#include "channel/ResolverTable.h"

#include "channel/CTKSocket.h"
#include "tests/support/ImportHook.h"
#include "tests/support/LoopbackPeer.h"
#include "tests/support/Patience.h"
#include "tests/unit/ResolverSwap.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace
{
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char SYSTEM_FOLDER[] = "C:\\sys";
const HMODULE SOCKETS = reinterpret_cast<HMODULE>(static_cast<ULONG_PTR>(0x10000));
const HMODULE OLDER = reinterpret_cast<HMODULE>(static_cast<ULONG_PTR>(0x20000));
const std::set<std::string> WHOLE_RESOLVER = {"getaddrinfo", "getnameinfo", "freeaddrinfo"};

addrinfo g_answer;
int g_nFreed;

int WSAAPI PlayGetAddrInfo(const char*, const char*, const addrinfo*, addrinfo** ppResult)
{
    *ppResult = &g_answer;
    return WSATRY_AGAIN;
}

int WSAAPI PlayGetNameInfo(const sockaddr*, socklen_t, char*, DWORD, char*, DWORD, int)
{
    return 0;
}

void WSAAPI PlayFreeAddrInfo(addrinfo*)
{
    ++g_nFreed;
}

const std::map<std::string, RESOLVER_FUNCTION> PLAYED_ENTRIES = {
    {"getaddrinfo", reinterpret_cast<RESOLVER_FUNCTION>(&PlayGetAddrInfo)},
    {"getnameinfo", reinterpret_cast<RESOLVER_FUNCTION>(&PlayGetNameInfo)},
    {"freeaddrinfo", reinterpret_cast<RESOLVER_FUNCTION>(&PlayFreeAddrInfo)},
};

// The system that is played: its folder, and which modules lie in it with which entries.
struct PlayedSystem
{
    UINT cchFolder = sizeof(SYSTEM_FOLDER) - 1; // as it is answered
    std::map<HMODULE, std::set<std::string>> modules;
    std::vector<std::string> calls;
    decltype(&GetProcAddress) pfnGetProcAddress = nullptr;
    decltype(&FreeLibrary) pfnFreeLibrary = nullptr;
};
PlayedSystem g_system;

std::string ModuleName(HMODULE hModule)
{
    return hModule == SOCKETS ? "ws2_32" : "wship6";
}

bool IsPlayed(HMODULE hModule)
{
    return hModule == SOCKETS || hModule == OLDER;
}

UINT WINAPI PlayFolder(char* pszFolder, UINT cchFolder)
{
    EXPECT_EQ(cchFolder, 260U);
    std::memcpy(pszFolder, SYSTEM_FOLDER, sizeof(SYSTEM_FOLDER));
    g_system.calls.emplace_back("folder");
    return g_system.cchFolder;
}

HMODULE WINAPI PlayLoad(const char* pszPath)
{
    const std::string path = pszPath;
    g_system.calls.push_back("load " + path);
    const HMODULE hModule = path == "C:\\sys\\ws2_32" ? SOCKETS : OLDER;
    EXPECT_EQ(path, "C:\\sys\\" + ModuleName(hModule));
    return g_system.modules.count(hModule) != 0 ? hModule : nullptr;
}

FARPROC WINAPI PlayFind(HMODULE hModule, const char* pszName)
{
    if (!IsPlayed(hModule))
    {
        return g_system.pfnGetProcAddress(hModule, pszName);
    }
    g_system.calls.push_back("find " + std::string(pszName));
    const bool bThere = g_system.modules.at(hModule).count(pszName) != 0;
    return bThere ? reinterpret_cast<FARPROC>(PLAYED_ENTRIES.at(pszName)) : nullptr;
}

BOOL WINAPI PlayFree(HMODULE hModule)
{
    if (!IsPlayed(hModule))
    {
        return g_system.pfnFreeLibrary(hModule);
    }
    g_system.calls.push_back("free " + ModuleName(hModule));
    return TRUE;
}

std::set<std::string> Without(const std::string& entry)
{
    std::set<std::string> entries = WHOLE_RESOLVER;
    entries.erase(entry);
    return entries;
}

RESOLVER_FUNCTION Fallback(RESOLVER_ENTRY entry)
{
    const std::array fallbacks = {reinterpret_cast<RESOLVER_FUNCTION>(&IPv4GetAddrInfo),
                                  reinterpret_cast<RESOLVER_FUNCTION>(&IPv4GetNameInfo),
                                  reinterpret_cast<RESOLVER_FUNCTION>(&IPv4FreeAddrInfo)};
    return fallbacks.at(entry);
}

std::vector<RESOLVER_FUNCTION> Table()
{
    return {GetResolverEntry(RESOLVER_GETADDRINFO), GetResolverEntry(RESOLVER_GETNAMEINFO),
            GetResolverEntry(RESOLVER_FREEADDRINFO)};
}

const std::vector<RESOLVER_FUNCTION> FALLBACKS = {
    Fallback(RESOLVER_GETADDRINFO), Fallback(RESOLVER_GETNAMEINFO), Fallback(RESOLVER_FREEADDRINFO)};
const std::vector<RESOLVER_FUNCTION> PLAYED = {
    PLAYED_ENTRIES.at("getaddrinfo"), PLAYED_ENTRIES.at("getnameinfo"), PLAYED_ENTRIES.at("freeaddrinfo")};

class ResolverTableTest : public testing::Test
{
  protected:
    ResolverTableTest()
    {
        g_system = PlayedSystem();
        g_system.pfnGetProcAddress = m_find.Original();
        g_system.pfnFreeLibrary = m_free.Original();
        g_nFreed = 0;
    }

    // The fallbacks stay even if the system gets a resolver later.
    static void ExpectFallbacksForGood()
    {
        EXPECT_EQ(Table(), FALLBACKS);
        g_system.cchFolder = sizeof(SYSTEM_FOLDER) - 1;
        g_system.modules = {{SOCKETS, WHOLE_RESOLVER}, {OLDER, WHOLE_RESOLVER}};
        g_system.calls.clear();
        EXPECT_EQ(Table(), FALLBACKS);
        EXPECT_THAT(g_system.calls, IsEmpty());
    }

  private:
    UnsettledResolver m_unsettled;
    ImportHook<decltype(PlayFolder)> m_folder{"kernel32.dll", "GetSystemDirectoryA", &PlayFolder};
    ImportHook<decltype(PlayLoad)> m_load{"kernel32.dll", "LoadLibraryA", &PlayLoad};
    ImportHook<decltype(PlayFind)> m_find{"kernel32.dll", "GetProcAddress", &PlayFind};
    ImportHook<decltype(PlayFree)> m_free{"kernel32.dll", "FreeLibrary", &PlayFree};
};
} // namespace

TEST_F(ResolverTableTest, TheFirstUseTakesAllEntriesOfTheSocketsModuleAndKeepsItLoaded)
{
    g_system.modules = {{SOCKETS, WHOLE_RESOLVER}};
    EXPECT_EQ(Table(), PLAYED);
    EXPECT_THAT(g_system.calls, ElementsAre("folder", "load C:\\sys\\ws2_32", "find getaddrinfo",
                                            "find getaddrinfo", "find getnameinfo", "find freeaddrinfo"));
}

TEST_F(ResolverTableTest, AnyEntryMayBeTheFirstToBeUsed)
{
    g_system.modules = {{SOCKETS, WHOLE_RESOLVER}};
    for (const RESOLVER_ENTRY entry : {RESOLVER_GETADDRINFO, RESOLVER_GETNAMEINFO, RESOLVER_FREEADDRINFO})
    {
        UnsettledResolver::Forget();
        EXPECT_EQ(GetResolverEntry(entry), PLAYED[entry]);
        EXPECT_EQ(Table(), PLAYED);
    }
}

TEST_F(ResolverTableTest, WithoutTheSocketsModuleTheOlderOneIsTaken)
{
    g_system.modules = {{OLDER, WHOLE_RESOLVER}};
    EXPECT_EQ(Table(), PLAYED);
    EXPECT_THAT(g_system.calls,
                ElementsAre("folder", "load C:\\sys\\ws2_32", "load C:\\sys\\wship6", "find getaddrinfo",
                            "find getaddrinfo", "find getnameinfo", "find freeaddrinfo"));
}

TEST_F(ResolverTableTest, ASocketsModuleWithoutAResolverIsFreedAndTheOlderModuleTaken)
{
    g_system.modules = {{SOCKETS, Without("getaddrinfo")}, {OLDER, WHOLE_RESOLVER}};
    EXPECT_EQ(Table(), PLAYED);
    EXPECT_THAT(g_system.calls, ElementsAre("folder", "load C:\\sys\\ws2_32", "find getaddrinfo",
                                            "free ws2_32", "load C:\\sys\\wship6", "find getaddrinfo",
                                            "find getaddrinfo", "find getnameinfo", "find freeaddrinfo"));
}

TEST_F(ResolverTableTest, WithoutAnyModuleTheFallbacksStayForGood)
{
    Table();
    EXPECT_THAT(g_system.calls, ElementsAre("folder", "load C:\\sys\\ws2_32", "load C:\\sys\\wship6"));
    ExpectFallbacksForGood();
}

TEST_F(ResolverTableTest, WithoutAResolverInEitherModuleBothAreFreedAndTheFallbacksStayForGood)
{
    g_system.modules = {{SOCKETS, {}}, {OLDER, {}}};
    Table();
    EXPECT_THAT(g_system.calls,
                ElementsAre("folder", "load C:\\sys\\ws2_32", "find getaddrinfo", "free ws2_32",
                            "load C:\\sys\\wship6", "find getaddrinfo", "free wship6"));
    ExpectFallbacksForGood();
}

TEST_F(ResolverTableTest, ASystemFolderThatCannotBeReadKeepsTheFallbacksForGood)
{
    for (const UINT cchFolder : {0U, 260U, 1000U})
    {
        UnsettledResolver::Forget();
        g_system.calls.clear();
        g_system.cchFolder = cchFolder;
        g_system.modules = {{SOCKETS, WHOLE_RESOLVER}};
        Table();
        EXPECT_THAT(g_system.calls, ElementsAre("folder"));
        ExpectFallbacksForGood();
    }
}

TEST_F(ResolverTableTest, AModuleThatLacksAnotherEntryIsFreedAndTheFallbacksStayForGood)
{
    for (const char* const pszMissing : {"getnameinfo", "freeaddrinfo"})
    {
        for (const HMODULE hModule : {SOCKETS, OLDER})
        {
            UnsettledResolver::Forget();
            g_system.calls.clear();
            g_system.modules = {{hModule, Without(pszMissing)}};
            Table();
            ASSERT_FALSE(g_system.calls.empty());
            EXPECT_EQ(g_system.calls.back(), "free " + ModuleName(hModule)) << pszMissing;
            ExpectFallbacksForGood();
        }
    }
}

TEST_F(ResolverTableTest, WhenTheSocketsModuleLacksAnotherEntryTheOlderOneIsNotAsked)
{
    g_system.modules = {{SOCKETS, Without("freeaddrinfo")}, {OLDER, WHOLE_RESOLVER}};
    Table();
    EXPECT_THAT(g_system.calls, Each(testing::Not("load C:\\sys\\wship6")));
    ExpectFallbacksForGood();
}

TEST_F(ResolverTableTest, CallsGoToTheTableAndBringItsAnswersBack)
{
    g_system.modules = {{SOCKETS, WHOLE_RESOLVER}};
    addrinfo* pResult = nullptr;
    EXPECT_EQ(ResolveAddresses("host", "1", nullptr, &pResult), WSATRY_AGAIN);
    EXPECT_EQ(pResult, &g_answer);
    FreeAddresses(pResult);
    EXPECT_EQ(g_nFreed, 1);
}

TEST_F(ResolverTableTest, AListMayBeFreedBeforeAnyWasAskedFor)
{
    g_system.modules = {{SOCKETS, WHOLE_RESOLVER}};
    FreeAddresses(&g_answer);
    EXPECT_EQ(g_nFreed, 1);
}

TEST_F(ResolverTableTest, WithoutAResolverInTheSystemASocketStillFindsLocalhost)
{
    LoopbackListener listener;
    LoopbackResponder responder;
    for (const int nFamily : {AF_UNSPEC, AF_INET})
    {
        CTKSocket stream;
        EXPECT_EQ(stream.Connect(L"localhost", listener.Port(), SOCK_STREAM, nFamily), 1);
        EXPECT_TRUE(listener.Accept(PATIENCE_MS).has_value());
        CTKSocket datagram;
        EXPECT_EQ(datagram.Connect(L"localhost", responder.Port(), SOCK_DGRAM, nFamily), 1);
        EXPECT_EQ(datagram.WriteDatagram("x", 1), 1);
        EXPECT_TRUE(responder.Receive(PATIENCE_MS).has_value());
    }
    ExpectFallbacksForGood();
}

TEST_F(ResolverTableTest, WithoutAResolverInTheSystemThereIsNoIPv6)
{
    CTKSocket socket;
    EXPECT_EQ(socket.Connect(L"localhost", 1, SOCK_STREAM, AF_INET6), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(WSAEAFNOSUPPORT));
}

TEST(RealResolverTableTest, TheSystemsOwnResolverIsFoundByAllThreadsThatComeFirst)
{
    const UnsettledResolver unsettled;
    std::array<std::vector<RESOLVER_FUNCTION>, 4> found;
    std::vector<std::thread> threads;
    threads.reserve(found.size());
    for (std::vector<RESOLVER_FUNCTION>& table : found)
    {
        threads.emplace_back([&table] { table = Table(); });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    const HMODULE hSockets = GetModuleHandleW(L"ws2_32.dll");
    std::vector<RESOLVER_FUNCTION> expected;
    for (const char* const pszName : {"getaddrinfo", "getnameinfo", "freeaddrinfo"})
    {
        expected.push_back(reinterpret_cast<RESOLVER_FUNCTION>(GetProcAddress(hSockets, pszName)));
    }
    EXPECT_THAT(found, Each(expected));
}
