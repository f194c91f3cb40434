#include "Include/HighContrast.h"

#include "tests/support/ColorScheme.h"

#include <gtest/gtest.h>

TEST(HighContrastTest, IsWhatTheUserHasAskedFor)
{
    ColorScheme scheme;
    EXPECT_FALSE(IsHighContrast()) << "a system that could, but wasn't asked to";
    scheme.SetHighContrast(true);
    EXPECT_TRUE(IsHighContrast());
    scheme.SetHighContrast(false);
    EXPECT_FALSE(IsHighContrast());
}

TEST(HighContrastTest, ASystemThatDoesNotSayHasNone)
{
    ColorScheme scheme;
    scheme.SetHighContrast(true);
    scheme.m_bAnswers = false;
    EXPECT_FALSE(IsHighContrast());
}
