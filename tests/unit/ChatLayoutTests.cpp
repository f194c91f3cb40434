#include "modules/chat/ChatLayout.h"

#include <gtest/gtest.h>

#include <vector>

namespace
{
constexpr UINT RESOLUTIONS[] = {96, 120, 144, 192, 288};

CHAT_METRICS MetricsAt(UINT uDpi)
{
    const LONG nLineHeight = static_cast<LONG>(15 * uDpi / 96);
    return ScaleChatMetrics(uDpi, nLineHeight, static_cast<LONG>(330 * uDpi / 96),
                            static_cast<LONG>(30 * uDpi / 96));
}

std::vector<RECT> PartsOf(const CHAT_LAYOUT& layout)
{
    return {layout.people, layout.history, layout.label, layout.input, layout.send};
}

void ExpectApartAndInside(const CHAT_LAYOUT& layout, SIZE client)
{
    const std::vector<RECT> parts = PartsOf(layout);
    for (size_t nFirst = 0; nFirst < parts.size(); ++nFirst)
    {
        const RECT& first = parts[nFirst];
        EXPECT_TRUE(first.left > 0 && first.top > 0 && first.right < client.cx && first.bottom < client.cy)
            << nFirst;
        EXPECT_FALSE(IsRectEmpty(&first)) << nFirst;
        for (size_t nSecond = nFirst + 1; nSecond < parts.size(); ++nSecond)
        {
            RECT both = {};
            EXPECT_FALSE(IntersectRect(&both, &first, &parts[nSecond])) << nFirst << " and " << nSecond;
        }
    }
}

TEST(ChatLayout, KeepsItsPartsApartAndInsideAtEverySize)
{
    for (const UINT uDpi : RESOLUTIONS)
    {
        const CHAT_METRICS metrics = MetricsAt(uDpi);
        const SIZE smallest = SmallestChatClient(metrics);
        for (const LONG nMore : {0L, 1L, 50L, 333L, 2000L})
        {
            SCOPED_TRACE(testing::Message() << uDpi << " dpi, " << nMore << " more");
            const SIZE client = {smallest.cx + nMore, smallest.cy + nMore};
            ExpectApartAndInside(LayOutChat(client, metrics), client);
        }
    }
}

TEST(ChatLayout, LeavesRoomForTextsAtItsSmallest)
{
    for (const UINT uDpi : RESOLUTIONS)
    {
        const CHAT_METRICS metrics = MetricsAt(uDpi);
        const CHAT_LAYOUT layout = LayOutChat(SmallestChatClient(metrics), metrics);
        EXPECT_GE(layout.history.bottom - layout.history.top, 4 * metrics.nLineHeight) << uDpi;
        EXPECT_GE(layout.input.bottom - layout.input.top, 3 * metrics.nLineHeight) << uDpi;
        EXPECT_GE(layout.label.right - layout.label.left, metrics.nLabelWidth) << uDpi;
    }
}

TEST(ChatLayout, TakesATooSmallAreaForTheSmallest)
{
    const CHAT_METRICS metrics = MetricsAt(96);
    const CHAT_LAYOUT smallest = LayOutChat(SmallestChatClient(metrics), metrics);
    const CHAT_LAYOUT none = LayOutChat({0, 0}, metrics);
    EXPECT_EQ(EqualRect(&none.history, &smallest.history), TRUE);
    EXPECT_EQ(EqualRect(&none.send, &smallest.send), TRUE);
}

TEST(ChatLayout, GivesWhatIsWonToHistoryAndInput)
{
    const CHAT_METRICS metrics = MetricsAt(96);
    const CHAT_LAYOUT small = LayOutChat({400, 400}, metrics);
    const CHAT_LAYOUT large = LayOutChat({800, 900}, metrics);
    EXPECT_EQ(large.history.right - small.history.right, 400);
    EXPECT_EQ(large.input.right - small.input.right, 400);
    EXPECT_GT(large.history.bottom - large.history.top, 2 * (small.history.bottom - small.history.top));
    EXPECT_GT(large.input.bottom - large.input.top, small.input.bottom - small.input.top);
    EXPECT_EQ(large.send.right - large.send.left, small.send.right - small.send.left);
}

TEST(ChatLayout, WidensTheButtonForItsText)
{
    EXPECT_EQ(ScaleChatMetrics(96, 15, 300, 30).button.cx, 75);
    EXPECT_EQ(ScaleChatMetrics(192, 30, 600, 60).button.cx, 150);
    EXPECT_GT(ScaleChatMetrics(96, 15, 300, 90).button.cx, 90 + 20);
    EXPECT_GE(SmallestChatClient(ScaleChatMetrics(96, 15, 10, 300)).cx, 3 * 300);
}

TEST(PlaceChatWindow, IsTheLowerRightOfTheWorkArea)
{
    const RECT place = PlaceChatWindow({100, 50, 1100, 850}, {400, 300}, 10);
    const RECT expected = {690, 540, 1090, 840};
    EXPECT_EQ(EqualRect(&place, &expected), TRUE);
}

TEST(PlaceChatWindow, StaysInsideASmallWorkArea)
{
    const RECT place = PlaceChatWindow({0, 0, 600, 400}, {900, 900}, 10);
    const RECT expected = {10, 10, 590, 390};
    EXPECT_EQ(EqualRect(&place, &expected), TRUE);
}
} // namespace
