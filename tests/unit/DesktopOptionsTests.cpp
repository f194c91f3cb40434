#include "tray/DesktopOptions.h"

#include "Include/Handles.h"
#include "tests/support/RegistryValue.h"
#include "tests/unit/AgentHarness.h"
#include "tests/unit/LateBinding.h"
#include "tests/unit/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{
using Calls = std::vector<std::string>;
using DesktopOptionsTest = AgentHarness;

constexpr DWORD EVERYTHING = 0x7FF7;
constexpr wchar_t DESKTOP_KEY[] = L"Control Panel\\Desktop";
} // namespace

TEST_F(DesktopOptionsTest, EffectsGoOffInOrderAndComeBackWithPatternAndWallpaperLast)
{
    const RegistryValue smoothing(HKEY_CURRENT_USER, DESKTOP_KEY, L"FontSmoothing", std::wstring(L"2"));
    const RegistryValue pattern(HKEY_CURRENT_USER, DESKTOP_KEY, L"Pattern", std::wstring(L"1 2 3"));
    const RegistryValue wallpaper(HKEY_CURRENT_USER, DESKTOP_KEY, L"Wallpaper",
                                  std::wstring(L"C:\\user.bmp"));
    Window().SetDesktopOptions(EVERYTHING);
    EXPECT_EQ(m_trace.Calls("set"),
              (Calls{"set 21 0 ''", "set 20 0 ''", "set 75 0 0", "set 37 0 0", "set 4133 0 0", "set 4115 0 0",
                     "set 4099 0 0", "set 4105 0 0", "set 4123 0 0", "set 4101 0 0", "set 4117 0 0",
                     "set 4119 0 0", "set 4121 0 0"}));
    EXPECT_EQ(m_trace.Calls("get"),
              (Calls{"get 115 260", "get 74 0", "get 38 0", "get 4132 0", "get 4114 0", "get 4098 0",
                     "get 4104 0", "get 4122 0", "get 4100 0", "get 4116 0", "get 4118 0", "get 4120 0"}));
    EXPECT_EQ(Window().m_dwAppliedOptions, EVERYTHING);
    EXPECT_EQ(Window().m_dwRequestedOptions, EVERYTHING);
    m_trace.Forget();
    Window().RetoreDesktopOptions();
    EXPECT_EQ(m_trace.Calls(),
              (Calls{"set 75 1 0", "set 37 1 0", "set 4133 0 1", "set 4115 0 1", "set 4099 0 1",
                     "set 4105 0 1", "set 4123 0 1", "set 4101 0 1", "set 4117 0 1", "set 4119 0 1",
                     "set 4121 0 1", "set 21 0 '1 2 3'", "set 20 0 'C:\\user.bmp'"}));
    EXPECT_EQ(Window().m_dwAppliedOptions, EVERYTHING) << "cleared by the last disconnect, not here";
    EXPECT_EQ(Window().m_dwRequestedOptions, 1U);
    Window().m_dwAppliedOptions = 1;
}

TEST_F(DesktopOptionsTest, WhatIsOffAlreadyStaysOff)
{
    m_dwEffectsOn = 0;
    m_wallpaper.clear();
    Window().SetDesktopOptions(EVERYTHING);
    EXPECT_EQ(m_trace.Calls("set"), Calls{"set 21 0 ''"}) << "only the pattern, which can't be read";
    EXPECT_EQ(Window().m_dwAppliedOptions, 0x3U);
}

TEST_F(DesktopOptionsTest, ARepeatedMaskAddsNothingAndSetsThePatternAgain)
{
    Window().SetDesktopOptions(EVERYTHING);
    m_dwEffectsOn = 0;
    m_wallpaper.clear();
    m_trace.Forget();
    Window().SetDesktopOptions(EVERYTHING);
    EXPECT_EQ(m_trace.Calls("set"), Calls{"set 21 0 ''"});
    EXPECT_EQ(Window().m_dwAppliedOptions, EVERYTHING) << "and forgets nothing";
    Window().m_dwAppliedOptions = 1;
}

TEST_F(DesktopOptionsTest, WhatTheProfileDoesNotHoldIsLeftOutAndTheRestComesBack)
{
    const RegistryValue wallpaper(HKEY_CURRENT_USER, DESKTOP_KEY, L"Wallpaper",
                                  std::wstring(L"C:\\user.bmp"));
    {
        const RegistryValue smoothing(HKEY_CURRENT_USER, DESKTOP_KEY, L"FontSmoothing");
        const RegistryValue pattern(HKEY_CURRENT_USER, DESKTOP_KEY, L"Pattern");
        Window().m_dwAppliedOptions = DESKTOP_OPTION_FONT_SMOOTHING | DESKTOP_OPTION_DROP_SHADOW |
                                      DESKTOP_OPTION_PATTERN | DESKTOP_OPTION_WALLPAPER;
        Window().RetoreDesktopOptions();
        EXPECT_EQ(m_trace.Calls(), (Calls{"set 4133 0 1", "set 20 0 'C:\\user.bmp'"}));
    }
    m_trace.Forget();
    {
        const ImportHook hook(
            "advapi32.dll", "RegOpenKeyW",
            +[](HKEY, LPCWSTR, PHKEY) -> LSTATUS { return ERROR_ACCESS_DENIED; });
        Window().RetoreDesktopOptions();
    }
    EXPECT_EQ(m_trace.Calls(), Calls{"set 4133 0 1"});
    Window().m_dwAppliedOptions = 1;
}

TEST_F(DesktopOptionsTest, AnEmptyTextComesBackAsItIsAndAValueWithoutAnyDoesNot)
{
    Window().m_dwAppliedOptions = DESKTOP_OPTION_FONT_SMOOTHING | DESKTOP_OPTION_PATTERN;
    for (const size_t cbStored : {sizeof(wchar_t), size_t(0)})
    {
        const std::vector<BYTE> terminator(cbStored);
        const RegistryValue pattern(HKEY_CURRENT_USER, DESKTOP_KEY, L"Pattern", REG_SZ, terminator);
        const RegistryValue smoothing(HKEY_CURRENT_USER, DESKTOP_KEY, L"FontSmoothing", REG_SZ, terminator);
        m_trace.Forget();
        Window().RetoreDesktopOptions();
        EXPECT_EQ(m_trace.Calls(),
                  cbStored != 0 ? (Calls{"set 75 1 0", "set 21 0 ''"}) : Calls{"set 75 1 0"});
    }
    Window().m_dwAppliedOptions = 1;
}

TEST_F(DesktopOptionsTest, WhatCannotBeSwitchedIsNotRestored)
{
    m_bParametersCanBeSet = false;
    Window().SetDesktopOptions(EVERYTHING);
    EXPECT_EQ(Window().m_dwAppliedOptions, 1U);
    m_trace.Forget();
    Window().RetoreDesktopOptions();
    EXPECT_TRUE(m_trace.Calls().empty());
}

TEST_F(DesktopOptionsTest, AMaskOfNoneOrOneDoesNothingAndKeepsTheStoredMask)
{
    Window().m_dwRequestedOptions = 0x20;
    Window().SetDesktopOptions(0);
    Window().SetDesktopOptions(1);
    EXPECT_TRUE(m_trace.Calls().empty());
    EXPECT_EQ(Window().m_dwRequestedOptions, 0x20U);
    Window().SetDesktopOptionsDelayed();
    EXPECT_EQ(m_trace.Calls("set"), Calls{"set 37 0 0"});
}

TEST_F(DesktopOptionsTest, AMissingShellIsWaitedForAndGivenTimeToSettle)
{
    m_bShellIsUp = false;
    Window().SetDesktopOptions(0x20);
    EXPECT_EQ(m_trace.Calls("timer"), Calls{"timer 1025 250"});
    Window().SetDesktopOptions(0x40);
    EXPECT_EQ(m_trace.Calls("timer"), Calls{"timer 1025 250"}) << "a second mask during the wait is dropped";
    Fire(TIMER_DESKTOP_READY);
    EXPECT_TRUE(m_trace.Calls("kill").empty()) << "it goes on until the shell is there";
    m_bShellIsUp = true;
    Fire(TIMER_DESKTOP_READY);
    EXPECT_EQ(m_trace.Calls("kill"), Calls{"kill 1025"});
    EXPECT_EQ(m_trace.Calls("timer"), (Calls{"timer 1025 250", "timer 1026 2500"}));
    Window().SetDesktopOptions(0x80);
    EXPECT_TRUE(m_trace.Calls("set").empty());
    Fire(TIMER_DESKTOP_OPTIONS);
    EXPECT_EQ(m_trace.Calls("set"), Calls{"set 37 0 0"});
    EXPECT_EQ(m_trace.Calls("kill"), (Calls{"kill 1025", "kill 1026"}));
}

TEST_F(DesktopOptionsTest, FontSmoothingStoredAsOffStaysOff)
{
    const RegistryValue smoothing(HKEY_CURRENT_USER, DESKTOP_KEY, L"FontSmoothing", std::wstring(L"0"));
    Window().SetDesktopOptions(0x10);
    EXPECT_EQ(m_trace.Calls("set"), Calls{"set 75 0 0"});
    m_trace.Forget();
    Window().RetoreDesktopOptions();
    EXPECT_TRUE(m_trace.Calls().empty());
}

TEST_F(DesktopOptionsTest, AWallpaperOfMoreThan129CharactersStaysOff)
{
    for (const size_t cchPath : {129U, 130U})
    {
        const std::wstring path(cchPath, L'x');
        // The terminator counts, too.
        const auto* const pBytes = reinterpret_cast<const BYTE*>(path.data());
        const RegistryValue wallpaper(
            HKEY_CURRENT_USER, DESKTOP_KEY, L"Wallpaper", REG_SZ,
            std::vector<BYTE>(pBytes, pBytes + (path.size() + 1) * sizeof(wchar_t)));
        Window().SetDesktopOptions(DESKTOP_OPTION_WALLPAPER);
        m_trace.Forget();
        Window().RetoreDesktopOptions();
        EXPECT_EQ(m_trace.Calls("set").size(), cchPath == 129 ? 1U : 0U) << cchPath;
    }
}

TEST_F(DesktopOptionsTest, TheGoingAgentRestores)
{
    Window().SetDesktopOptions(0x20);
    m_trace.Forget();
    SendMessageW(Window().m_hWnd, WM_CLOSE, 0, 0);
    EXPECT_EQ(m_trace.Calls("set"), Calls{"set 37 1 0"});
}

TEST_F(DesktopOptionsTest, AnAgentThatTheServiceEndsRestoresAtOnceAndOnceMoreAsItGoes)
{
    const CKernelHandle hThread(
        OpenThread(SYNCHRONIZE, FALSE, GetWindowThreadProcessId(Window().m_hWnd, nullptr)));
    Window().SetDesktopOptions(0x20);
    m_trace.Forget();
    MSG_TRAYICON_EXIT leave = {};
    leave.dwType = MSG_TYPE_TRAYICON_EXIT;
    Send(leave);
    ASSERT_EQ(WaitForSingleObject(hThread.get(), PATIENCE_MS), WAIT_OBJECT_0);
    EXPECT_EQ(m_trace.Calls("set"), (Calls{"set 37 1 0", "set 37 1 0"}));
}

namespace
{
std::vector<std::string> g_actions;
BOOL g_bActionWorks = TRUE;

BOOL WINAPI FakeExitWindows(UINT uFlags, DWORD)
{
    g_actions.push_back("exit " + std::to_string(uFlags));
    return g_bActionWorks;
}

BOOL WINAPI FakeLock()
{
    g_actions.emplace_back("lock");
    return g_bActionWorks;
}

HWND WINAPI NoForeground()
{
    return nullptr;
}

BOOL WINAPI RefusePost(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam)
{
    EXPECT_EQ(hWnd, nullptr);
    EXPECT_EQ(lParam, 0);
    g_actions.push_back("post " + std::to_string(uMessage) + " " + std::to_string(wParam));
    return FALSE;
}
} // namespace

TEST(SessionActions, LogoffAsksTheApplicationsUnlessForced)
{
    const LogCapture capture("DesktopOptions", log4cxx::Level::getInfo());
    const ImportHook hook("user32.dll", "ExitWindowsEx", &FakeExitWindows);
    g_actions.clear();
    g_bActionWorks = TRUE;
    EXPECT_EQ(Logoff(0), 1);
    g_bActionWorks = FALSE;
    EXPECT_EQ(Logoff(1), 0);
    EXPECT_EQ(g_actions, (Calls{"exit 0", "exit 4"}));
    EXPECT_THAT(capture.Texts(), testing::ElementsAre("INFO bForce=0", "INFO bForce=1"));
}

TEST(SessionActions, AWorkstationThatCannotBeLockedIsCoveredByAScreenSaver)
{
    const ImportHook foreground("user32.dll", "GetForegroundWindow", &NoForeground);
    const ImportHook post("user32.dll", "PostMessageW", &RefusePost);
    LateBinding binding;
    binding.Set("LockWorkStation", &FakeLock);
    g_actions.clear();
    g_bActionWorks = FALSE;
    EXPECT_EQ(LockWorkstation(), 1) << "even when that doesn't work either";
    binding.SetMissing("LockWorkStation");
    EXPECT_EQ(LockWorkstation(), 1);
    EXPECT_EQ(g_actions, (Calls{"lock", "post 274 61760", "post 274 61760"}));
    EXPECT_EQ(binding.OpenModules(), 0);
}

TEST(SessionActions, AWorkstationThatCanBeLockedNeedsNoScreenSaver)
{
    const ImportHook post("user32.dll", "PostMessageW", &RefusePost);
    LateBinding binding;
    binding.Set("LockWorkStation", &FakeLock);
    g_actions.clear();
    g_bActionWorks = TRUE;
    EXPECT_EQ(LockWorkstation(), 1);
    EXPECT_EQ(g_actions, Calls{"lock"});
    EXPECT_EQ(binding.OpenModules(), 0);
}
