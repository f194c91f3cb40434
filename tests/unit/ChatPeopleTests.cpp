#include "modules/chat/ChatPeople.h"

#include <gtest/gtest.h>

#include <string>

namespace
{
TEST(ChatPeople, KnowsNobodyAtFirstButDoesNotSayThatNobodyIsThere)
{
    const CChatPeople people;
    EXPECT_EQ(people.Names(), L"");
    EXPECT_FALSE(people.IsNobody());
}

TEST(ChatPeople, NamesThoseWhoConnectInTheirOrder)
{
    CChatPeople people;
    people.Add(L"Alice", 1);
    people.Add(L"Bob", 2);
    EXPECT_EQ(people.Names(), L"Alice, Bob");
    people.Remove(L"Alice", 1);
    EXPECT_EQ(people.Names(), L"Bob");
    people.Remove(L"Bob", 0);
    EXPECT_EQ(people.Names(), L"");
    EXPECT_TRUE(people.IsNobody());
}

TEST(ChatPeople, CountsThoseWhoCameBefore)
{
    CChatPeople people;
    people.Add(L"Alice", 3);
    EXPECT_EQ(people.Names(), L"Alice +2");
}

TEST(ChatPeople, TakesWhoeverSpeaksForConnected)
{
    CChatPeople people;
    people.Heard(L"Alice");
    people.Heard(L"Alice");
    EXPECT_EQ(people.Names(), L"Alice");
    people.Add(L"Bob", 2);
    people.Heard(L"Eve"); // there are two, and both are known
    EXPECT_EQ(people.Names(), L"Alice, Bob");
}

TEST(ChatPeople, NamesOneWithTwoSessionsOnce)
{
    CChatPeople people;
    people.Add(L"Alice", 1);
    people.Add(L"Alice", 2);
    EXPECT_EQ(people.Names(), L"Alice");
    people.Remove(L"Alice", 1);
    EXPECT_EQ(people.Names(), L"Alice");
}

TEST(ChatPeople, ForgetsThoseWhoLeftUnheard)
{
    CChatPeople people;
    people.Add(L"Alice", 1);
    people.Add(L"Bob", 1);
    EXPECT_EQ(people.Names(), L"Bob");
    people.Remove(L"somebody unknown", 0);
    EXPECT_EQ(people.Names(), L"");
    EXPECT_TRUE(people.IsNobody());
}

TEST(ChatPeople, KeepsRightToLeftNamesApart)
{
    CChatPeople people;
    people.Add(L"ליאור", 1);
    people.Add(L"Bob", 2);
    EXPECT_EQ(people.Names(), L"\x2068ליאור\x2069, Bob");
}

TEST(ChatPeople, DoesNotGrowWithoutBound)
{
    CChatPeople people;
    for (int nName = 0; nName < 10000; ++nName)
    {
        people.Heard(L"name " + std::to_wstring(nName));
    }
    EXPECT_LT(people.Names().size(), 1000u);
}
} // namespace
