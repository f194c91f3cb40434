#include "fuzz/FuzzTarget.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace
{
std::vector<std::filesystem::path> Corpus()
{
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(TKDAST_CORPUS_DIR))
    {
        if (entry.path().extension() == L".txt")
        {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::string NameOfCase(const testing::TestParamInfo<std::filesystem::path>& info)
{
    std::string name = info.param.parent_path().filename().string() + "_" + info.param.stem().string();
    std::replace_if(
        name.begin(), name.end(), [](unsigned char ch) { return std::isalnum(ch) == 0; }, '_');
    return name;
}

class FuzzCorpusTest : public testing::TestWithParam<std::filesystem::path>
{
};
} // namespace

TEST_P(FuzzCorpusTest, IsPlayedWithoutAFailure)
{
    std::ifstream stream(GetParam(), std::ios::binary);
    std::string name;
    std::getline(stream, name);
    const std::string text((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    const FUZZ_TARGET* const pTarget = FindFuzzTarget(name);
    ASSERT_NE(pTarget, nullptr) << name;
    EXPECT_EQ(GetParam().parent_path().filename().string(), name);
    std::vector<std::uint32_t> numbers;
    ASSERT_TRUE(ReadChoices(text, numbers));
    CChoices choices(std::move(numbers));
    EXPECT_GE(pTarget->pfnRun(choices), 1U);
}

INSTANTIATE_TEST_SUITE_P(Kept, FuzzCorpusTest, testing::ValuesIn(Corpus()), NameOfCase);

TEST(FuzzChoices, AreTheSameWhenTheyArePlayedBack)
{
    CChoices drawn(4711);
    std::vector<std::uint32_t> answers;
    for (std::uint32_t nCount = 1; nCount < 200; ++nCount)
    {
        drawn.Step("a pair");
        answers.push_back(drawn.Below(nCount));
        answers.push_back(drawn.Number());
    }
    std::vector<std::uint32_t> numbers;
    ASSERT_TRUE(ReadChoices(drawn.Text(), numbers));
    EXPECT_EQ(numbers, answers);
    CChoices kept(numbers);
    for (std::uint32_t nCount = 1; nCount < 200; ++nCount)
    {
        EXPECT_EQ(kept.Below(nCount), answers[2 * (nCount - 1)]);
        EXPECT_EQ(kept.Number(), answers[2 * (nCount - 1) + 1]);
    }
    EXPECT_EQ(kept.Below(10), 0U) << "behind the end";
    EXPECT_EQ(kept.Number(), 0U) << "behind the end";
}

TEST(FuzzChoices, ATextOfAnythingElseIsRefused)
{
    std::vector<std::uint32_t> numbers;
    EXPECT_TRUE(ReadChoices("# a comment without an end", numbers));
    EXPECT_TRUE(ReadChoices("1 # 2\n3\r\n", numbers));
    EXPECT_EQ(numbers, (std::vector<std::uint32_t>{1, 3}));
    EXPECT_FALSE(ReadChoices("4294967296", numbers));
    EXPECT_FALSE(ReadChoices("one", numbers));
    EXPECT_FALSE(ReadChoices("-1", numbers));
}

TEST(FuzzTargets, EachHasSomethingKept)
{
    for (const FUZZ_TARGET& target : GetFuzzTargets())
    {
        EXPECT_TRUE(std::filesystem::is_directory(std::filesystem::path(TKDAST_CORPUS_DIR) / target.pszName))
            << target.pszName;
        EXPECT_EQ(FindFuzzTarget(target.pszName), &target);
    }
    EXPECT_EQ(FindFuzzTarget("nothing"), nullptr);
}
