#include "dialogs/NotifyLayout.h"

#include <gtest/gtest.h>

#include <ostream>

bool operator==(const RECT& left, const RECT& right)
{
    return EqualRect(&left, &right) != FALSE;
}

void PrintTo(const RECT& rect, std::ostream* pStream)
{
    *pStream << rect.left << "," << rect.top << "," << rect.right << "," << rect.bottom;
}

namespace
{
// 10 pixels of margin, 5 between the parts.
constexpr NOTIFY_LAYOUT TEMPLATE = {{200, 105}, {40, 10, 190, 30}, {10, 35, 190, 95}, {100, 100, 190, 120}};
constexpr LONG TALL_ENOUGH = 10000;
} // namespace

TEST(NotifyLayout, TextsThatFitLeaveTheTemplateAsItIs)
{
    const NOTIFY_LAYOUT layout = StretchNotifyLayout(TEMPLATE, 200, {12, 40, true}, TALL_ENOUGH);
    EXPECT_EQ(layout.client.cx, 200);
    EXPECT_EQ(layout.client.cy, 130);
    EXPECT_EQ(layout.head, TEMPLATE.head);
    EXPECT_EQ(layout.body, TEMPLATE.body);
    EXPECT_EQ(layout.button, TEMPLATE.button);
}

TEST(NotifyLayout, AHiddenButtonTakesNoRoom)
{
    const NOTIFY_LAYOUT layout = StretchNotifyLayout(TEMPLATE, 200, {12, 40, false}, TALL_ENOUGH);
    EXPECT_EQ(layout.client.cy, 105);
    EXPECT_EQ(layout.body, TEMPLATE.body);
}

TEST(NotifyLayout, TallTextsPushDownWhatStandsBelow)
{
    const NOTIFY_LAYOUT layout = StretchNotifyLayout(TEMPLATE, 200, {50, 100, true}, TALL_ENOUGH);
    EXPECT_EQ(layout.head, (RECT{40, 10, 190, 60}));
    EXPECT_EQ(layout.body, (RECT{10, 65, 190, 165}));
    EXPECT_EQ(layout.button, (RECT{100, 170, 190, 190}));
    EXPECT_EQ(layout.client.cy, 200);
}

TEST(NotifyLayout, AWiderPopupWidensItsTextsAndMovesItsButton)
{
    const NOTIFY_LAYOUT layout = StretchNotifyLayout(TEMPLATE, 300, {12, 40, true}, TALL_ENOUGH);
    EXPECT_EQ(layout.client.cx, 300);
    EXPECT_EQ(layout.head, (RECT{40, 10, 290, 30}));
    EXPECT_EQ(layout.body, (RECT{10, 35, 290, 95}));
    EXPECT_EQ(layout.button, (RECT{200, 100, 290, 120}));
}

TEST(NotifyLayout, WhatExceedsTheScreenIsTakenFromTheBody)
{
    const NOTIFY_LAYOUT layout = StretchNotifyLayout(TEMPLATE, 200, {50, 1000, true}, 400);
    EXPECT_EQ(layout.client.cy, 400);
    EXPECT_EQ(layout.body, (RECT{10, 65, 190, 365}));
    EXPECT_EQ(layout.button, (RECT{100, 370, 190, 390}));
    const NOTIFY_LAYOUT none = StretchNotifyLayout(TEMPLATE, 200, {500, 1000, false}, 400);
    EXPECT_EQ(none.body.bottom, none.body.top) << "never upside down";
}
