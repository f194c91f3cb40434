#include "devservice/Person.h"

#include "Include/Handles.h"
#include "devservice/FileDrag.h"
#include "tests/support/ImportHook.h"
#include "tests/unit/DevServiceFixture.h"

#include <gtest/gtest.h>

#include <utility>

namespace
{
bool NoPause(DWORD)
{
    return false;
}

int g_nFreedBlocks = 0;
decltype(&GlobalFree) g_pfnGlobalFree = nullptr;

HGLOBAL WINAPI CountFreed(HGLOBAL hBlock)
{
    ++g_nFreedBlocks;
    return g_pfnGlobalFree(hBlock);
}

decltype(&EnumWindows) g_pfnEnumWindows = nullptr;

/// The second list is empty: the window that was seen has gone or changed.
BOOL WINAPI ListWindowsOnce(WNDENUMPROC pfnTake, LPARAM lParam)
{
    const auto pfnEnumWindows = std::exchange(g_pfnEnumWindows, nullptr);
    return pfnEnumWindows == nullptr || pfnEnumWindows(pfnTake, lParam);
}
} // namespace

TEST(DevServicePerson, OnlyKeysWithANameArePressed)
{
    for (const wchar_t* const pszKey : {L"", L"a", L"AB", L"escape", L"F1", L"ß"})
    {
        EXPECT_FALSE(PressKey(pszKey)) << pszKey;
    }
}

TEST(DevServicePerson, TheProgramsOwnWindowsAreNotThePersonsBusiness)
{
    const CWindow window(CreateWindowExW(WS_EX_NOACTIVATE, L"STATIC", L"A title of its own",
                                         WS_POPUP | WS_VISIBLE, 0, 0, 10, 10, nullptr, nullptr, nullptr,
                                         nullptr));
    EXPECT_EQ(FindShownWindow(L"title of its own"), nullptr);
    EXPECT_FALSE(WaitForShownWindow(L"title of its own", true, 1000, NoPause));
    EXPECT_TRUE(WaitForShownWindow(L"title of its own", false, 0, NoPause)) << "it is as wanted at once";
}

TEST_F(DevServiceRunner, TheWindowIsTheOneThatWasSeenWhileItWasWaitedFor)
{
    const CWindow window(CreateWindowExW(WS_EX_NOACTIVATE, L"STATIC", L"A title for a moment",
                                         WS_POPUP | WS_VISIBLE, 0, 0, 10, 10, nullptr, nullptr, nullptr,
                                         nullptr));
    const ImportHook process(
        "kernel32.dll", "GetCurrentProcessId", +[]() -> DWORD { return 0; });
    const ImportHook windows("user32.dll", "EnumWindows", &ListWindowsOnce);
    g_pfnEnumWindows = windows.Original();
    ExpectHeld(L"window \"A title for a moment\" within=0\n"
               L"timer 888\n");
}

TEST(DevServicePerson, AListOfFilesThatCannotBeFilledIsFreed)
{
    const ImportHook lock(
        "kernel32.dll", "GlobalLock", +[](HGLOBAL) -> LPVOID { return nullptr; });
    const ImportHook freed("kernel32.dll", "GlobalFree", &CountFreed);
    g_pfnGlobalFree = freed.Original();
    g_nFreedBlocks = 0;
    EXPECT_EQ(MakeFileList({L"C:\\a"}), nullptr);
    EXPECT_EQ(g_nFreedBlocks, 1);
}

TEST(DevServicePerson, AnIconWithoutAnAgentOpensNoMenu)
{
    EXPECT_FALSE(OpenTrayMenu(reinterpret_cast<HWND>(static_cast<ULONG_PTR>(0xFFFF)), 1000, NoPause));
}
