#include "dialogs/DialogPlacement.h"

#include "tests/support/ImportHook.h"
#include "tests/unit/DialogHarness.h"
#include "tests/unit/LateBinding.h"
#include "tests/unit/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{
constexpr SIZE POPUP = {400, 170};

std::string Text(POINT point)
{
    return std::to_string(point.x) + "," + std::to_string(point.y);
}

RECT g_workArea = {};
bool g_bWorkAreaKnown = true;
bool g_bMonitorKnown = true;
std::vector<RECT> g_askedRects;
DWORD g_dwMonitorFlags = 99;
DWORD g_cbMonitorInfo = 0;

HMONITOR WINAPI AnswerMonitor(const RECT* pRect, DWORD dwFlags)
{
    g_askedRects.push_back(*pRect);
    g_dwMonitorFlags = dwFlags;
    return g_bMonitorKnown ? reinterpret_cast<HMONITOR>(ULONG_PTR{7}) : nullptr;
}

BOOL WINAPI AnswerMonitorInfo(HMONITOR hMonitor, MONITORINFO* pInfo)
{
    EXPECT_EQ(hMonitor, reinterpret_cast<HMONITOR>(ULONG_PTR{7}));
    g_cbMonitorInfo = pInfo->cbSize;
    pInfo->rcWork = g_workArea;
    return TRUE;
}

int WINAPI AnswerMetric(int nIndex)
{
    return nIndex == 16 ? 1024 : nIndex == 17 ? 740 : 0;
}

BOOL WINAPI AnswerParameter(UINT uAction, UINT, PVOID pvParam, UINT)
{
    EXPECT_EQ(uAction, 48U);
    *static_cast<RECT*>(pvParam) = g_workArea;
    return g_bWorkAreaKnown ? TRUE : FALSE;
}

std::vector<std::string> g_moves;
decltype(&MoveWindow) g_pfnMoveWindow = nullptr;
decltype(&SetWindowPos) g_pfnSetWindowPos = nullptr;

BOOL WINAPI RecordMove(HWND hWnd, int nX, int nY, int nWidth, int nHeight, BOOL bRepaint)
{
    g_moves.push_back("move " + Text({nX, nY}) + (bRepaint ? " repainted" : ""));
    return g_pfnMoveWindow(hWnd, nX, nY, nWidth, nHeight, bRepaint);
}

BOOL WINAPI RecordPosition(HWND hWnd, HWND hAfter, int nX, int nY, int nWidth, int nHeight, UINT uFlags)
{
    g_moves.push_back((hAfter == HWND_TOPMOST ? "topmost " : "") + std::to_string(uFlags));
    return g_pfnSetWindowPos(hWnd, hAfter, nX, nY, nWidth, nHeight, uFlags);
}

class DialogPlacementTest : public testing::Test
{
  protected:
    void SetUp() override
    {
        g_taskbarAnswer = TASKBAR_ANSWER();
        g_bWorkAreaKnown = g_bMonitorKnown = true;
        g_askedRects.clear();
        m_hWnd = CreateWindowExW(0, L"STATIC", L"placed", WS_POPUP, 1, 2, POPUP.cx, POPUP.cy, nullptr,
                                 nullptr, nullptr, nullptr);
        m_binding.Set("MonitorFromRect", &AnswerMonitor);
        m_binding.Set("GetMonitorInfoW", &AnswerMonitorInfo);
    }
    void TearDown() override
    {
        DestroyWindow(m_hWnd);
        g_taskbarAnswer = TASKBAR_ANSWER();
    }

    std::string Place()
    {
        SetNotifyDialogLocation(m_hWnd);
        RECT rect = {};
        GetWindowRect(m_hWnd, &rect);
        EXPECT_EQ(rect.right - rect.left, POPUP.cx);
        EXPECT_EQ(rect.bottom - rect.top, POPUP.cy);
        return Text({rect.left, rect.top});
    }

    HWND m_hWnd = nullptr;
    LateBinding m_binding;
    ImportHook<decltype(GetSystemMetrics)> m_metrics{"user32.dll", "GetSystemMetrics", &AnswerMetric};
    ImportHook<decltype(SystemParametersInfoW)> m_parameters{"user32.dll", "SystemParametersInfoW",
                                                             &AnswerParameter};
};
} // namespace

TEST(DialogPlacement, FollowsTheTaskbarsEdge)
{
    EXPECT_EQ(Text(PlaceByTaskbar({0, 1040, 1920, 1080}, ABE_BOTTOM, {0, 0, 1920, 1040}, POPUP)), "1516,866");
    EXPECT_EQ(Text(PlaceByTaskbar({1850, 0, 1920, 1080}, ABE_RIGHT, {0, 0, 1850, 1080}, POPUP)), "1446,906");
    EXPECT_EQ(Text(PlaceByTaskbar({0, 0, 70, 1080}, ABE_LEFT, {70, 0, 1920, 1080}, POPUP)), "1446,906")
        << "by the size of the work area";
    EXPECT_EQ(Text(PlaceByTaskbar({0, 0, 1920, 40}, ABE_TOP, {0, 40, 1920, 1080}, POPUP)), "1516,866");
    EXPECT_EQ(Text(PlaceByTaskbar({0, 0, 1920, 40}, 17, {0, 40, 1920, 1080}, POPUP)), "1516,866");
}

TEST(DialogPlacement, TakesSizesForEdgesOnADisplayThatDoesNotStartAtTheOrigin)
{
    EXPECT_EQ(Text(PlaceByTaskbar({1920, 1040, 3840, 1080}, ABE_BOTTOM, {1920, 0, 3840, 1040}, POPUP)),
              "1516,866")
        << "left of the second display's corner";
    EXPECT_EQ(Text(PlaceByTaskbar({1210, 1080, 1280, 2104}, ABE_RIGHT, {0, 1080, 1210, 2104}, POPUP)),
              "806,850")
        << "above the lower display's corner";
    EXPECT_EQ(Text(PlaceByTaskbar({-1280, 984, 0, 1024}, ABE_BOTTOM, {-1280, 0, 0, 984}, POPUP)), "876,810");
}

TEST(DialogPlacement, StaysClearOfATaskbarThatCannotBeAsked)
{
    EXPECT_EQ(Text(PlaceByWorkArea({1024, 740}, {0, 0, 1024, 700}, POPUP)), "584,490");
    EXPECT_EQ(Text(PlaceByWorkArea({1024, 740}, {0, 0, 1024, 740}, POPUP)), "594,540") << "at least 30";
    EXPECT_EQ(Text(PlaceByWorkArea({1024, 740}, {0, 0, 1024, 768}, POPUP)), "594,568");
    EXPECT_EQ(Text(PlaceByScreen({1024, 740}, POPUP)), "594,540");
}

TEST_F(DialogPlacementTest, AsksTheTaskbarAndItsDisplay)
{
    g_taskbarAnswer.bAnswers = true;
    g_taskbarAnswer.uEdge = ABE_BOTTOM;
    g_taskbarAnswer.rect = {0, 728, 1024, 768};
    g_workArea = {0, 0, 1024, 728};
    const LogCapture capture("NotifyDialog");
    EXPECT_EQ(Place(), "620,554");
    EXPECT_EQ(g_taskbarAnswer.dwMessage, 5U);
    EXPECT_EQ(g_taskbarAnswer.cbData, 48U);
    ASSERT_EQ(g_askedRects.size(), 1U);
    EXPECT_EQ(g_askedRects[0].top, 728);
    EXPECT_EQ(g_dwMonitorFlags, 0U) << "a taskbar on no display counts for nothing";
    EXPECT_EQ(g_cbMonitorInfo, 40U);
    EXPECT_EQ(m_binding.OpenModules(), 0);
    EXPECT_THAT(capture.Texts(),
                testing::ElementsAre("INFO SetNotifyDialogLocation", "INFO GetDisplayWorkArea"));
}

TEST_F(DialogPlacementTest, ShowsTheWindowOnTopWithoutActivatingIt)
{
    const HWND hOther = CreateWindowExW(0, L"STATIC", L"other", WS_POPUP | WS_VISIBLE, 0, 0, 50, 50, nullptr,
                                        nullptr, nullptr, nullptr);
    SetActiveWindow(hOther);
    g_workArea = {0, 0, 1024, 700};
    Place();
    EXPECT_TRUE(IsWindowVisible(m_hWnd));
    EXPECT_NE(GetWindowLongPtrW(m_hWnd, GWL_EXSTYLE) & WS_EX_TOPMOST, 0);
    EXPECT_EQ(GetActiveWindow(), hOther);
    DestroyWindow(hOther);
}

TEST_F(DialogPlacementTest, AWindowIsShownWhereItIsToStand)
{
    const ImportHook move("user32.dll", "MoveWindow", &RecordMove);
    const ImportHook position("user32.dll", "SetWindowPos", &RecordPosition);
    g_pfnMoveWindow = move.Original();
    g_pfnSetWindowPos = position.Original();
    g_moves.clear();
    g_workArea = {0, 0, 1024, 700};
    Place();
    EXPECT_THAT(g_moves, testing::ElementsAre("move 584,490 repainted", "topmost 595"));
}

TEST_F(DialogPlacementTest, FallsBackToTheWorkAreaAndThenToTheScreen)
{
    g_workArea = {0, 0, 1024, 700};
    EXPECT_EQ(Place(), "584,490") << "no taskbar answers";
    g_taskbarAnswer.bAnswers = true;
    g_bMonitorKnown = false;
    EXPECT_EQ(Place(), "584,490") << "a taskbar on no display";
    g_bWorkAreaKnown = false;
    EXPECT_EQ(Place(), "594,540");
}

TEST_F(DialogPlacementTest, AWorkAreaIsOnlyTouchedWhenItIsKnown)
{
    RECT workArea = {1, 2, 3, 4};
    g_bMonitorKnown = false;
    EXPECT_EQ(GetDisplayWorkArea({0, 0, 1, 1}, workArea), 0);
    g_bMonitorKnown = true;
    m_binding.SetMissing("GetMonitorInfoW");
    EXPECT_EQ(GetDisplayWorkArea({0, 0, 1, 1}, workArea), 0);
    m_binding.Set("GetMonitorInfoW", &AnswerMonitorInfo);
    m_binding.SetMissing("MonitorFromRect");
    EXPECT_EQ(GetDisplayWorkArea({0, 0, 1, 1}, workArea), 0);
    m_binding.SetMissingModule(L"User32.DLL");
    EXPECT_EQ(GetDisplayWorkArea({0, 0, 1, 1}, workArea), 0);
    EXPECT_EQ(workArea.left, 1);
    EXPECT_EQ(workArea.bottom, 4);
    EXPECT_EQ(m_binding.OpenModules(), 0);
}

TEST(DialogPlacement, TheSystemsOwnDisplayHasAWorkArea)
{
    RECT workArea = {};
    EXPECT_EQ(GetDisplayWorkArea({10, 10, 20, 20}, workArea), 1);
    EXPECT_GT(workArea.right, 0);
    EXPECT_GT(workArea.bottom, 0);
    EXPECT_EQ(GetDisplayWorkArea({-9000, -9000, -8900, -8900}, workArea), 0);
}

TEST(DialogPlacement, WithoutAShellTheTaskbarIsNotAsked)
{
    EXPECT_EQ(LoadAppBarMessage(), FindWindowW(L"Shell_TrayWnd", nullptr) != nullptr ? 1 : 0);
    const ImportHook hook(
        "user32.dll", "FindWindowW", +[](LPCWSTR, LPCWSTR) -> HWND { return nullptr; });
    EXPECT_EQ(LoadAppBarMessage(), 0);
}
