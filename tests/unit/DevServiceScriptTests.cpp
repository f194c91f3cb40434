#include "devservice/Script.h"
#include "devservice/ScriptRunner.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{
std::vector<SCRIPT_WORD> Split(std::wstring_view line)
{
    std::vector<SCRIPT_WORD> words;
    std::wstring error;
    EXPECT_TRUE(SplitScriptLine(line, words, error)) << std::string(error.begin(), error.end());
    return words;
}

std::wstring SplitError(std::wstring_view line)
{
    std::vector<SCRIPT_WORD> words;
    std::wstring error;
    EXPECT_FALSE(SplitScriptLine(line, words, error));
    return error;
}

std::wstring ParseError(std::wstring_view text)
{
    std::vector<SCRIPT_STATEMENT> statements;
    std::wstring error;
    const bool bGood = ParseScript(text, statements, error) && CScriptRunner::Check(statements, error);
    EXPECT_FALSE(bGood);
    return error;
}

std::vector<SCRIPT_STATEMENT> Parse(std::wstring_view text)
{
    std::vector<SCRIPT_STATEMENT> statements;
    std::wstring error;
    EXPECT_TRUE(ParseScript(text, statements, error)) << std::string(error.begin(), error.end());
    return statements;
}
} // namespace

TEST(DevServiceScript, BlanksPartWordsAndCommentsEndTheLine)
{
    const std::vector<SCRIPT_WORD> words = Split(L"  send\tVERSION # the rest \"is not read\r");
    ASSERT_EQ(words.size(), 2u);
    EXPECT_EQ(words[0].text, L"send");
    EXPECT_EQ(words[1].text, L"VERSION");
    EXPECT_TRUE(Split(L"").empty());
    EXPECT_TRUE(Split(L" # only a comment").empty());
}

TEST(DevServiceScript, HashInsideAWordOrInQuotesIsText)
{
    const std::vector<SCRIPT_WORD> words = Split(L"say a#b \"# c\"");
    ASSERT_EQ(words.size(), 3u);
    EXPECT_EQ(words[1].text, L"a#b");
    EXPECT_EQ(words[2].text, L"# c");
}

TEST(DevServiceScript, QuotesKeepBlanksAndKnowEscapes)
{
    const std::vector<SCRIPT_WORD> words = Split(LR"(say "a \"b\" \\ \n\r\t \u00e4\u20AC" C:\new)");
    ASSERT_EQ(words.size(), 3u);
    EXPECT_EQ(words[1].text, L"a \"b\" \\ \n\r\t \u00e4\u20ac");
    EXPECT_TRUE(words[1].bQuoted);
    EXPECT_EQ(words[2].text, L"C:\\new");
    EXPECT_FALSE(words[2].bQuoted);
}

TEST(DevServiceScript, AssignmentsGiveNameValueAndNegation)
{
    const std::vector<SCRIPT_WORD> words =
        Split(LR"(szText="a = b" DesktopUser.szDesktop!=Default empty= =x "q=1" a/b=c)");
    ASSERT_EQ(words.size(), 6u);
    EXPECT_EQ(words[0].Name(), L"szText");
    EXPECT_EQ(words[0].Value(), L"a = b");
    EXPECT_FALSE(words[0].bNot);
    EXPECT_EQ(words[1].Name(), L"DesktopUser.szDesktop");
    EXPECT_EQ(words[1].Value(), L"Default");
    EXPECT_TRUE(words[1].bNot);
    EXPECT_EQ(words[2].Value(), L"");
    EXPECT_FALSE(words[3].IsAssignment());
    EXPECT_FALSE(words[4].IsAssignment());
    EXPECT_FALSE(words[5].IsAssignment());
}

TEST(DevServiceScript, OpenQuoteAndUnknownEscapeAreErrors)
{
    EXPECT_NE(SplitError(L"say \"open").find(L"closing quote"), std::wstring::npos);
    EXPECT_NE(SplitError(L"say \"open\\").find(L"escape"), std::wstring::npos);
    EXPECT_NE(SplitError(LR"(say "\q")").find(L"escape"), std::wstring::npos);
    EXPECT_NE(SplitError(LR"(say "\u12")").find(L"escape"), std::wstring::npos);
    EXPECT_NE(SplitError(LR"(say "\u12zz")").find(L"escape"), std::wstring::npos);
}

TEST(DevServiceScript, StatementsKeepTheirLineNumbersAndBlocksNest)
{
    const auto statements =
        Parse(L"# head\r\nlisten\r\nrepeat 2\r\n  echo\n  repeat 3\n  wait 1\n  end\nend\nquit");
    ASSERT_EQ(statements.size(), 3u);
    EXPECT_EQ(statements[0].uLine, 2u);
    EXPECT_EQ(statements[1].uLine, 3u);
    ASSERT_EQ(statements[1].body.size(), 2u);
    EXPECT_EQ(statements[1].body[0].uLine, 4u);
    ASSERT_EQ(statements[1].body[1].body.size(), 1u);
    EXPECT_EQ(statements[1].body[1].body[0].uLine, 6u);
    EXPECT_EQ(statements[2].uLine, 9u);
}

TEST(DevServiceScript, ErrorsNameTheirLine)
{
    EXPECT_EQ(ParseError(L"listen\nfrobnicate 1"),
              L"line 2: unknown command \"frobnicate\"; help lists the commands");
    EXPECT_TRUE(ParseError(L"\n\nsay \"x").starts_with(L"line 3: "));
    EXPECT_TRUE(ParseError(L"listen\nrepeat 3\necho").starts_with(L"line 2: repeat without its end"));
    EXPECT_TRUE(ParseError(L"end").starts_with(L"line 1: end without a repeat"));
    EXPECT_TRUE(ParseError(L"repeat 1\nwait\nend").starts_with(L"line 2: use: wait"));
    EXPECT_TRUE(ParseError(L"repeat\nend").starts_with(L"line 1: use: repeat"));
    EXPECT_TRUE(ParseError(L"wait 1 2").starts_with(L"line 1: use: wait"));
    EXPECT_TRUE(ParseError(L"Listen").starts_with(L"line 1: unknown command"));
}

TEST(DevServiceScript, LinesOfAnOpenBlockAreHeldBack)
{
    CScriptParser parser;
    std::vector<SCRIPT_STATEMENT> statements;
    std::wstring error;
    ASSERT_TRUE(parser.AddLine(L"repeat 2", error));
    EXPECT_FALSE(parser.IsComplete());
    EXPECT_FALSE(parser.Take(statements, error));
    ASSERT_TRUE(parser.AddLine(L"echo", error));
    ASSERT_TRUE(parser.AddLine(L"end", error));
    EXPECT_TRUE(parser.IsComplete());
    ASSERT_TRUE(parser.Take(statements, error));
    EXPECT_EQ(statements.size(), 1u);
    ASSERT_TRUE(parser.Take(statements, error));
    EXPECT_TRUE(statements.empty());
}
