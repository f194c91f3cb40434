#include "dialogs/GradientFill.h"

#include "tests/support/ImportHook.h"
#include "tests/unit/LateBinding.h"

#include <gtest/gtest.h>

#include <vector>

namespace
{
struct FILL
{
    std::vector<TRIVERTEX> vertices;
    GRADIENT_RECT corners;
    ULONG nRects;
    ULONG uMode;
};

std::vector<FILL> g_fills;
BOOL g_bAnswer = TRUE;

BOOL WINAPI RecordFill(HDC, TRIVERTEX* pVertices, ULONG nVertices, void* pRects, ULONG nRects, ULONG uMode)
{
    g_fills.push_back({std::vector<TRIVERTEX>(pVertices, pVertices + nVertices),
                       *static_cast<GRADIENT_RECT*>(pRects), nRects, uMode});
    return g_bAnswer;
}

int g_nAskedCapability = 0;

int WINAPI NoBrushes(HDC, int nCapability)
{
    g_nAskedCapability = nCapability;
    return 0;
}

void ExpectVertex(const TRIVERTEX& vertex, LONG nX, LONG nY, COLOR16 red, COLOR16 green, COLOR16 blue)
{
    EXPECT_EQ(vertex.x, nX);
    EXPECT_EQ(vertex.y, nY);
    EXPECT_EQ(vertex.Red, red);
    EXPECT_EQ(vertex.Green, green);
    EXPECT_EQ(vertex.Blue, blue);
    EXPECT_EQ(vertex.Alpha, 0);
}

class GradientFillTest : public testing::Test
{
  protected:
    void SetUp() override
    {
        UnloadGradientFill();
        g_fills.clear();
        g_bAnswer = TRUE;
    }
    void TearDown() override { UnloadGradientFill(); }

    int Fill(BOOL bHorizontal = FALSE)
    {
        return FillGradientRect(nullptr, &m_rect, GRADIENT_TOP_COLOR, GRADIENT_BOTTOM_COLOR, bHorizontal);
    }

    RECT m_rect = {3, 5, 70, 90};
    LateBinding m_binding;
};
} // namespace

TEST_F(GradientFillTest, RunsFromTopLeftToBottomRightInBothColours)
{
    m_binding.Set("GradientFill", &RecordFill);
    ASSERT_EQ(LoadGradientFill(), 1);
    EXPECT_EQ(Fill(), 1);
    ASSERT_EQ(g_fills.size(), 1U);
    ASSERT_EQ(g_fills[0].vertices.size(), 2U);
    ExpectVertex(g_fills[0].vertices[0], 3, 5, 0xDD00, 0xEC00, 0xFE00);
    ExpectVertex(g_fills[0].vertices[1], 70, 90, 0x8100, 0xA900, 0xE200);
    EXPECT_EQ(g_fills[0].corners.UpperLeft, 0U);
    EXPECT_EQ(g_fills[0].corners.LowerRight, 1U);
    EXPECT_EQ(g_fills[0].nRects, 1U);
    EXPECT_EQ(g_fills[0].uMode, static_cast<ULONG>(GRADIENT_FILL_RECT_V));
    EXPECT_EQ(Fill(TRUE), 1);
    EXPECT_EQ(g_fills[1].uMode, static_cast<ULONG>(GRADIENT_FILL_RECT_H));
}

TEST_F(GradientFillTest, AFailedFillIsTold)
{
    m_binding.Set("GradientFill", &RecordFill);
    ASSERT_EQ(LoadGradientFill(), 1);
    g_bAnswer = FALSE;
    EXPECT_EQ(Fill(), 0);
    EXPECT_EQ(g_fills.size(), 1U);
}

TEST_F(GradientFillTest, IsLoadedOnceAndForgottenAtOnce)
{
    EXPECT_EQ(LoadGradientFill(), 1);
    EXPECT_EQ(LoadGradientFill(), 1);
    EXPECT_EQ(m_binding.OpenModules(), 1);
    UnloadGradientFill();
    EXPECT_EQ(m_binding.OpenModules(), 0);
    EXPECT_EQ(Fill(), 0);
    UnloadGradientFill();
    EXPECT_EQ(m_binding.OpenModules(), 0);
    EXPECT_EQ(LoadGradientFill(), 1) << "can be had again";
}

TEST_F(GradientFillTest, AScreenWithoutBrushesHasNone)
{
    const ImportHook hook("gdi32.dll", "GetDeviceCaps", &NoBrushes);
    EXPECT_EQ(LoadGradientFill(), 0);
    EXPECT_EQ(g_nAskedCapability, 16);
    EXPECT_EQ(m_binding.OpenModules(), 0);
    EXPECT_EQ(Fill(), 0);
}

TEST_F(GradientFillTest, OnceLoadedTheScreenIsNotAskedAgain)
{
    ASSERT_EQ(LoadGradientFill(), 1);
    const ImportHook hook("gdi32.dll", "GetDeviceCaps", &NoBrushes);
    EXPECT_EQ(LoadGradientFill(), 1);
}

TEST_F(GradientFillTest, ASystemWithoutTheModuleOrItsEntryHasNone)
{
    m_binding.SetMissingModule(L"msimg32.dll");
    EXPECT_EQ(LoadGradientFill(), 0);
    m_binding.SetMissingModule(L"");
    m_binding.SetMissing("GradientFill");
    EXPECT_EQ(LoadGradientFill(), 0);
    EXPECT_EQ(LoadGradientFill(), 0);
    UnloadGradientFill();
    EXPECT_EQ(m_binding.OpenModules(), 0);
}
