#include "devservice/Options.h"
#include "devservice/Programs.h"
#include "devservice/ValueText.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{
std::string OptionError(const std::vector<std::wstring>& words)
{
    std::wstring error;
    EXPECT_FALSE(ParseOptions(words, error));
    return ToUtf8(error);
}
} // namespace

TEST(DevServiceOptions, NoneMeansCommandsFromTheInputOnTheUsualPort)
{
    std::wstring error;
    const auto options = ParseOptions({}, error);
    ASSERT_TRUE(options);
    EXPECT_EQ(options->nPort, 6129);
    EXPECT_EQ(options->nQueryPort, 6129);
    EXPECT_FALSE(options->bInteractive || options->bDemo || options->bHelp);
}

TEST(DevServiceOptions, EachOptionIsTaken)
{
    std::wstring error;
    const std::vector<std::wstring> words = {L"--port", L"0", L"--script",     L"s", L"--record", L"r",
                                             L"--log",  L"l", L"--query-port", L"5", L"--marks",  L"m",
                                             L"--help"};
    const auto options = ParseOptions(words, error);
    ASSERT_TRUE(options) << ToUtf8(error);
    EXPECT_EQ(options->nPort, 0);
    EXPECT_EQ(options->nQueryPort, 5);
    EXPECT_EQ(options->scriptFile, L"s");
    EXPECT_EQ(options->recordFile, L"r");
    EXPECT_EQ(options->logFile, L"l");
    EXPECT_EQ(options->marksFolder, L"m");
    EXPECT_TRUE(options->bHelp);
}

TEST(DevServiceOptions, BadOnesAreRefusedInClearWords)
{
    EXPECT_EQ(OptionError({L"--prot", L"1"}), "unknown option --prot");
    EXPECT_EQ(OptionError({L"--port"}), "--port needs N");
    for (const wchar_t* const pszPort : {L"-1", L"65536", L"abc", L"", L"6129x"})
    {
        EXPECT_EQ(OptionError({L"--port", pszPort}), "--port: \"" + ToUtf8(pszPort) + "\" is no N");
    }
    EXPECT_EQ(OptionError({L"--script", L""}), "--script: \"\" is no FILE");
    EXPECT_EQ(OptionError({L"--demo", L"--play", L"x"}),
              "only one of --script, --demo, --play and --interactive goes at a time");
}

TEST(DevServiceOptions, UsageNamesEveryOption)
{
    const std::wstring usage = UsageText();
    for (const wchar_t* const pszOption : {L"--port N", L"--script FILE", L"--interactive", L"--demo",
                                           L"--record FILE", L"--play FILE", L"--log FILE", L"--help"})
    {
        EXPECT_NE(usage.find(pszOption), std::wstring::npos) << ToUtf8(pszOption);
    }
}

TEST(DevServicePrograms, CommandLineQuotesOnlyWhatNeedsIt)
{
    const std::vector<std::wstring> arguments = {L"6139", L"a b", L"", L"q\"q", L"C:\\x y\\", L"-x=1"};
    EXPECT_EQ(MakeCommandLine(L"C:\\p q.exe", arguments),
              L"\"C:\\p q.exe\" 6139 \"a b\" \"\" \"q\\\"q\" \"C:\\x y\\\\\" -x=1");
}

TEST(DevServicePrograms, MissingProgramIsAnErrorNotANumber)
{
    CPrograms programs;
    EXPECT_FALSE(programs.Start(L"Z:\\no\\such\\program.exe", {}));
    EXPECT_NE(GetLastError(), static_cast<DWORD>(ERROR_SUCCESS));
    EXPECT_EQ(programs.Count(), 0u);
}
