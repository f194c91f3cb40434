#include "Include/Handles.h"
#include "tests/support/GuardedRecord.h"
#include "tests/support/ImportHook.h"
#include "tests/support/LoopbackPeer.h"
#include "tests/support/ObjectCounts.h"
#include "tests/support/Patience.h"
#include "tests/support/RegistryValue.h"
#include "tests/support/ShellTrayCatcher.h"

#include <gtest/gtest.h>

#include <shellapi.h>

namespace
{
constexpr DWORD MOMENT_MS = 100;

DWORD WINAPI FirstFake()
{
    return 1111;
}

DWORD WINAPI SecondFake()
{
    return 2222;
}

// Stands for the code under test. Volatile, so that the compiler can't take the call into the test's body,
// where it would fetch the import only once.
DWORD (*volatile g_pfnAsk)() = [] { return GetCurrentProcessId(); };

TEST(ImportHookTest, ReplacesTheFunctionForItsLifeOnly)
{
    const DWORD dwReal = g_pfnAsk();
    {
        const ImportHook hook("KERNEL32.DLL", "GetCurrentProcessId", &FirstFake);
        EXPECT_EQ(g_pfnAsk(), 1111u);
        EXPECT_EQ(hook.Original()(), dwReal);
    }
    EXPECT_EQ(g_pfnAsk(), dwReal);
}

TEST(ImportHookTest, NestedHooksComeBackInReverseOrder)
{
    const ImportHook outer("kernel32.dll", "GetCurrentProcessId", &FirstFake);
    {
        const ImportHook inner("kernel32.dll", "GetCurrentProcessId", &SecondFake);
        EXPECT_EQ(g_pfnAsk(), 2222u);
        EXPECT_EQ(inner.Original()(), 1111u);
    }
    EXPECT_EQ(g_pfnAsk(), 1111u);
}

TEST(ImportHookTest, FindsAFunctionThatAnotherModuleExports)
{
    const ImportHook hook("api-ms-win-core-processthreads-l1-1-0.dll", "GetCurrentProcessId", &FirstFake);
    EXPECT_EQ(g_pfnAsk(), 1111u);
}

int WSAAPI FakeCleanup()
{
    return 0;
}

TEST(LoopbackPeerTest, IsOutOfTheReachOfHooks)
{
    const ImportHook hook("ws2_32.dll", "WSACleanup", &FakeCleanup);
    EXPECT_TRUE(LoopbackListener().IsListening());
}

TEST(LoopbackPeerTest, TakenPortIsNotListenedOn)
{
    const LoopbackListener first;
    ASSERT_TRUE(first.IsListening());
    EXPECT_FALSE(LoopbackListener(first.Port()).IsListening());
}

TEST(LoopbackPeerTest, NobodyComesNothingIsAccepted)
{
    LoopbackListener listener;
    EXPECT_FALSE(listener.Accept(MOMENT_MS).has_value());
    LoopbackResponder responder;
    EXPECT_FALSE(responder.Receive(MOMENT_MS).has_value());
}

constexpr wchar_t TEST_KEY[] = L"Software\\TkdastTestSupport";

DWORD StoredValue()
{
    DWORD dwData = 0;
    DWORD dwBytes = sizeof(dwData);
    RegGetValueW(HKEY_CURRENT_USER, TEST_KEY, L"Value", RRF_RT_REG_DWORD, nullptr, &dwData, &dwBytes);
    return dwData;
}

TEST(RegistryValueTest, PutsBackWhatWasThere)
{
    {
        const RegistryValue outer(HKEY_CURRENT_USER, TEST_KEY, L"Value", 7);
        {
            const RegistryValue inner(HKEY_CURRENT_USER, TEST_KEY, L"Value", std::wstring(L"text"));
            EXPECT_EQ(StoredValue(), 0u);
        }
        EXPECT_EQ(StoredValue(), 7u);
    }
    EXPECT_EQ(StoredValue(), 0u);
    RegDeleteKeyW(HKEY_CURRENT_USER, TEST_KEY);
}

NOTIFYICONDATAW SomeIcon()
{
    NOTIFYICONDATAW data = {};
    data.cbSize = sizeof(data);
    data.hWnd = GetDesktopWindow();
    data.uID = 44444;
    data.uFlags = NIF_MESSAGE | NIF_ICON | NIF_TIP | NIF_INFO;
    data.uCallbackMessage = WM_APP;
    data.hIcon = LoadIconW(nullptr, IDI_APPLICATION);
    wcscpy(data.szTip, L"a tip");
    wcscpy(data.szInfo, L"an info");
    wcscpy(data.szInfoTitle, L"a title");
    return data;
}

TEST(ShellTrayCatcherTest, SeesWhatTheTrayIsGiven)
{
    const ShellTrayCatcher tray;
    NOTIFYICONDATAW data = SomeIcon();
    ASSERT_TRUE(Shell_NotifyIconW(NIM_ADD, &data));
    ASSERT_TRUE(tray.WaitForCalls(1, PATIENCE_MS));
    const TrayCall call = tray.Calls().front();
    EXPECT_EQ(call.dwMessage, static_cast<DWORD>(NIM_ADD));
    EXPECT_EQ(call.hWnd, data.hWnd);
    EXPECT_EQ(call.uID, 44444u);
    EXPECT_EQ(call.uFlags, data.uFlags);
    EXPECT_EQ(call.uCallbackMessage, static_cast<UINT>(WM_APP));
    EXPECT_EQ(call.tip, L"a tip");
    EXPECT_EQ(call.info, L"an info");
    EXPECT_EQ(call.infoTitle, L"a title");
    EXPECT_FALSE(call.iconBits.empty());
    EXPECT_FALSE(tray.WaitForCalls(2, MOMENT_MS));
}

TEST(ShellTrayCatcherTest, RefusalFailsTheCallAndIsRecorded)
{
    ShellTrayCatcher tray;
    tray.SetAnswer(false);
    NOTIFYICONDATAW data = SomeIcon();
    EXPECT_FALSE(Shell_NotifyIconW(NIM_ADD, &data));
    EXPECT_EQ(tray.Calls().size(), 1u);
}
TEST(ObjectCountsTest, EveryKindOfObjectIsCountedAsItComesAndGoes)
{
    CountObjects(); // what the counting itself needs is there from now on
    const ObjectCounts before = CountObjects();
    {
        const CKernelHandle hEvent(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        const CGdiObject hBrush(CreateSolidBrush(0x123456));
        const CMenu hMenu(CreateMenu());
        const CWindow hWindow(CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                                              nullptr, nullptr));
        const ObjectCounts during = CountObjects();
        EXPECT_EQ(during.dwHandles, before.dwHandles + 1);
        EXPECT_GE(during.dwGdiObjects, before.dwGdiObjects + 1);
        EXPECT_EQ(during.dwMenus, before.dwMenus + 1);
        EXPECT_EQ(during.dwWindows, before.dwWindows + 1);
        const BYTE abMask[2] = {};
        const CIcon hIcon(CreateIcon(nullptr, 8, 1, 1, 1, abMask, abMask));
        EXPECT_EQ(CountObjects().dwIcons, before.dwIcons + 1);
    }
    EXPECT_EQ(CountObjects(), before);
}

TEST(GuardedRecordTest, TheMemoryEndsWithTheRecord)
{
    for (const size_t nBytes : {1u, 4u, 4095u, 4096u, 4097u, 16212u})
    {
        const GuardedBytes guarded(nBytes);
        guarded.Get()[0] = guarded.Get()[nBytes - 1] = 1;
        MEMORY_BASIC_INFORMATION behind = {};
        VirtualQuery(guarded.Get() + nBytes, &behind, sizeof(behind));
        EXPECT_EQ(behind.BaseAddress, guarded.Get() + nBytes);
        EXPECT_EQ(behind.Protect, static_cast<DWORD>(PAGE_NOACCESS));
    }
}
} // namespace
