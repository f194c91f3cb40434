#include "startup/CommandLine.h"

#include <gtest/gtest.h>

#include <string>

namespace
{
void ExpectParameters(std::wstring_view line, int nPort, int nAfType)
{
    const std::optional<PERMISSION_PARAMETERS> parameters = ParsePermissionLine(line);
    const std::string shown(line.begin(), line.end());
    ASSERT_TRUE(parameters.has_value()) << shown;
    EXPECT_EQ(parameters->nPort, nPort) << shown;
    EXPECT_EQ(parameters->nAfType, nAfType) << shown;
}
} // namespace

TEST(CommandLine, TheFirstParameterStandsBetweenTheFirstBlankAndTheNext)
{
    EXPECT_EQ(FindFirstParameter(L"-onetimesession 5000"), L"5000");
    EXPECT_EQ(FindFirstParameter(L"-onetimesession 5000 6000"), L"5000");
    EXPECT_EQ(FindFirstParameter(L" 5000"), L"5000");
    EXPECT_EQ(FindFirstParameter(L"-onetimesession  5000"), L"") << "between the two blanks is nothing";
    EXPECT_EQ(FindFirstParameter(L"-onetimesession "), L"");
    EXPECT_EQ(FindFirstParameter(L"foo -onetimesession 5000"), L"-onetimesession");
    EXPECT_EQ(FindFirstParameter(L"a\t\"b c\" d"), L"c\"") << "neither tabs nor quotes mean anything";
}

TEST(CommandLine, WithoutABlankThereIsNoParameter)
{
    EXPECT_FALSE(FindFirstParameter(L"").has_value());
    EXPECT_FALSE(FindFirstParameter(L"-onetimesession").has_value());
    EXPECT_FALSE(FindFirstParameter(L"-onetimesession\t5000").has_value());
}

TEST(CommandLine, AOneTimePortIsANumberOfAtMostThirtyNineCharacters)
{
    EXPECT_EQ(ParseOneTimePort(L"5000"), 5000U);
    EXPECT_EQ(ParseOneTimePort(L"5000x"), 5000U);
    EXPECT_EQ(ParseOneTimePort(L"0x10"), 0U) << "decimal only";
    EXPECT_EQ(ParseOneTimePort(L""), 0U);
    EXPECT_EQ(ParseOneTimePort(L"port"), 0U);
    EXPECT_EQ(ParseOneTimePort(std::wstring(35, L'0') + L"5000"), 5000U);
    EXPECT_EQ(ParseOneTimePort(std::wstring(36, L'0') + L"5000"), 0U) << "a cut number would be another";
}

TEST(CommandLine, APromptsPortAndFamilyFollowTheFirstBlank)
{
    ExpectParameters(L"-Permission 50123 2", 50123, 2);
    ExpectParameters(L"-Invitation 50123 23", 50123, 23);
    ExpectParameters(L" 7 2", 7, 2);
    ExpectParameters(L"-Permission 7 2 and more", 7, 2);
    ExpectParameters(L"-Permission 7 \t 23", 7, 23);
    ExpectParameters(L"-Permission -1 -2", -1, -2);
}

TEST(CommandLine, WithoutABlankThereIsNothingToAskFor)
{
    EXPECT_FALSE(ParsePermissionLine(L"-Permission").has_value());
    EXPECT_FALSE(ParsePermissionLine(L"-Permission\t7\t2").has_value());
    EXPECT_FALSE(ParsePermissionLine(L"").has_value());
}

TEST(CommandLine, APromptsSwitchBehindOtherWordsIsNotItsPort)
{
    ExpectParameters(L"foo -Permission 5 2", 5, 2);
    ExpectParameters(L"foo -Invitation 5 23", 5, 23);
    ExpectParameters(L" -Permission 7 2", 7, 2);
    ExpectParameters(L"foo -Permission", 0, 0);
    ExpectParameters(L"foo -Permission ", 0, 0);
}

TEST(CommandLine, ANumberBehindTheFirstBlankIsThePortWhateverFollows)
{
    ExpectParameters(L"-onetimesession 5000 -Invitation", 5000, 0);
    ExpectParameters(L"-onetimesession 5000 -Permission 7 2", 5000, 0);
    ExpectParameters(L"foo 5 -Permission", 5, 0);
}

TEST(CommandLine, OnlyThePromptsOwnSwitchIsPassedOver)
{
    ExpectParameters(L"foo -permission 5 2", 0, 5);
    ExpectParameters(L"foo -Permissions 5 2", 0, 5);
    ExpectParameters(L"foo bar -Permission 5 2", 0, 0);
    ExpectParameters(L"-Permission  7 2", 0, 7);
}

TEST(CommandLine, ALineThatEndsBehindThePortHasNoFamily)
{
    ExpectParameters(L"-Permission 7", 7, 0);
    ExpectParameters(L"-Permission 7 ", 7, 0);
    ExpectParameters(L"-Permission ", 0, 0);
}

TEST(CommandLine, WordsAreNoNumbers)
{
    ExpectParameters(L"-Permission port family", 0, 0);
    ExpectParameters(L"-Permission 7x 2y", 7, 2);
}

TEST(CommandLine, AWordTooLongForAPortIsNoPortAndTheFamilyStillFollowsIt)
{
    ExpectParameters(L"-Permission " + std::wstring(36, L'0') + L"123 2", 123, 2);
    for (const size_t cch : {40U, 41U, 4000U, 30000U})
    {
        ExpectParameters(L"-Permission " + std::wstring(cch, L'1') + L" 23", 0, 23);
        ExpectParameters(L"-Permission " + std::wstring(cch, L'x'), 0, 0);
    }
}
