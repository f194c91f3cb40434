#include "Include/UtilResource.h"

#include <gtest/gtest.h>

TEST(FillPlaceholders, PutsValuesInOrderWhateverTheirLetter)
{
    EXPECT_EQ(FillPlaceholders(L"%s of %u", {L"one", L"2"}), L"one of 2");
    EXPECT_EQ(FillPlaceholders(L"nothing", {L"x"}), L"nothing");
    EXPECT_EQ(FillPlaceholders(L"", {}), L"");
}

TEST(FillPlaceholders, NeverReadsAValueAsAFormat)
{
    EXPECT_EQ(FillPlaceholders(L"<%s><%s>", {L"%s%d%n", L"100%"}), L"<%s%d%n><100%>");
}

TEST(FillPlaceholders, AnswersABrokenFormat)
{
    EXPECT_EQ(FillPlaceholders(L"100 %% and 5%", {L"x"}), L"100 % and 5%");
    EXPECT_EQ(FillPlaceholders(L"%s %s|", {L"x"}), L"x |");
    EXPECT_EQ(FillPlaceholders(L"%", {L"x"}), L"%");
}
