#include "Include/UtilScreenSaver.h"

#include "Include/Handles.h"
#include "tests/support/ImportHook.h"
#include "tests/unit/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{
const HDESK SCREEN_SAVER_DESKTOP = reinterpret_cast<HDESK>(static_cast<ULONG_PTR>(0x1234));

struct SaverScript
{
    bool bRuns = true;
    std::wstring desktopAsked;
    std::vector<HWND> windows; // on the saver's desktop
    std::vector<HWND> closed;
    int nDesktopsClosed = 0;
};
SaverScript g_saver;

HDESK WINAPI FakeOpenDesktop(LPCWSTR pszName, DWORD, BOOL bInherit, ACCESS_MASK dwAccess)
{
    g_saver.desktopAsked = pszName;
    EXPECT_FALSE(bInherit);
    EXPECT_EQ(dwAccess, static_cast<ACCESS_MASK>(DESKTOP_READOBJECTS | DESKTOP_WRITEOBJECTS));
    return g_saver.bRuns ? SCREEN_SAVER_DESKTOP : nullptr;
}

BOOL WINAPI FakeCloseDesktop(HDESK hDesktop)
{
    EXPECT_EQ(hDesktop, SCREEN_SAVER_DESKTOP);
    ++g_saver.nDesktopsClosed;
    return TRUE;
}

BOOL WINAPI FakeEnumDesktopWindows(HDESK hDesktop, WNDENUMPROC pfnWindow, LPARAM lParam)
{
    EXPECT_EQ(hDesktop, SCREEN_SAVER_DESKTOP);
    for (const HWND hWnd : g_saver.windows)
    {
        EXPECT_TRUE(pfnWindow(hWnd, lParam)) << "the enumeration goes on";
    }
    return TRUE;
}

BOOL WINAPI RecordPost(HWND hWnd, UINT uMessage, WPARAM, LPARAM)
{
    EXPECT_EQ(uMessage, static_cast<UINT>(WM_CLOSE));
    g_saver.closed.push_back(hWnd);
    return TRUE;
}

CWindow MakeWindow(DWORD dwStyle)
{
    return CWindow(CreateWindowExW(WS_EX_NOACTIVATE, L"STATIC", L"", WS_POPUP | dwStyle, 0, 0, 1, 1, nullptr,
                                   nullptr, nullptr, nullptr));
}

class ScreenSaverTest : public testing::Test
{
  protected:
    void SetUp() override { g_saver = SaverScript(); }

    ImportHook<decltype(OpenDesktopW)> m_open{"user32.dll", "OpenDesktopW", &FakeOpenDesktop};
    ImportHook<decltype(CloseDesktop)> m_close{"user32.dll", "CloseDesktop", &FakeCloseDesktop};
    ImportHook<decltype(EnumDesktopWindows)> m_windows{"user32.dll", "EnumDesktopWindows",
                                                       &FakeEnumDesktopWindows};
    ImportHook<decltype(PostMessageW)> m_post{"user32.dll", "PostMessageW", &RecordPost};
};
} // namespace

TEST_F(ScreenSaverTest, EveryVisibleWindowOfTheSaversDesktopIsAskedToClose)
{
    const CWindow first = MakeWindow(WS_VISIBLE);
    const CWindow hidden = MakeWindow(0);
    const CWindow last = MakeWindow(WS_VISIBLE);
    g_saver.windows = {first.get(), hidden.get(), last.get()};
    const LogCapture capture("DesktopOptions", log4cxx::Level::getInfo());
    KillScreenSaver();
    EXPECT_THAT(capture.Texts(), testing::Each("INFO KillScreenSaverFunc"));
    EXPECT_EQ(capture.Texts().size(), 3U) << "a line for each window";
    EXPECT_EQ(g_saver.desktopAsked, L"Screen-saver");
    EXPECT_EQ(g_saver.closed, (std::vector<HWND>{first.get(), last.get()}));
    EXPECT_EQ(g_saver.nDesktopsClosed, 1);
}

TEST_F(ScreenSaverTest, WithoutASaversDesktopNothingHappens)
{
    g_saver.bRuns = false;
    g_saver.windows = {GetDesktopWindow()};
    KillScreenSaver();
    EXPECT_TRUE(g_saver.closed.empty());
    EXPECT_EQ(g_saver.nDesktopsClosed, 0);
}
