#include "tests/unit/ModuleLanguageTests.h"
#include "modules/common/ModuleDpi.h"
#include "modules/common/ModuleLanguage.h"

#include <gtest/gtest.h>

#include <string>

namespace
{
constexpr UINT NO_SUCH_TEXT = 9010;

HMODULE Self()
{
    return GetModuleHandleW(nullptr);
}

TEST(ModuleLanguage, IsTheOneThatTheAgentHasChosen)
{
    for (const auto& [pszCode, language] : {std::pair(L"en", MODULE_ENGLISH), std::pair(L"fr", MODULE_FRENCH),
                                            std::pair(L"de", MODULE_GERMAN), std::pair(L"DE", MODULE_GERMAN)})
    {
        SetEnvironmentVariableW(L"LangUI", pszCode);
        EXPECT_EQ(CurrentModuleLanguage(), language) << pszCode;
    }
}

TEST(ModuleLanguage, IsEnglishWhereNothingElseIsKnown)
{
    SetEnvironmentVariableW(L"LangUI", nullptr);
    EXPECT_EQ(CurrentModuleLanguage(), MODULE_ENGLISH);
    for (const std::wstring& code :
         {std::wstring(L"es"), std::wstring(L"d"), std::wstring(L"fra"), std::wstring(1000, L'd')})
    {
        SetEnvironmentVariableW(L"LangUI", code.c_str());
        EXPECT_EQ(CurrentModuleLanguage(), MODULE_ENGLISH) << code.substr(0, 5);
    }
    EXPECT_EQ(ModuleLanguageOf(L""), MODULE_ENGLISH);
}

TEST(ModuleLanguage, FindsTheTextOfEachLanguage)
{
    EXPECT_EQ(LoadModuleText(Self(), IDS_MODULE_TEST, MODULE_ENGLISH), L"colour");
    EXPECT_EQ(LoadModuleText(Self(), IDS_MODULE_TEST, MODULE_FRENCH), L"couleur");
    EXPECT_EQ(LoadModuleText(Self(), IDS_MODULE_TEST, MODULE_GERMAN), L"Farbe");
    EXPECT_EQ(LoadModuleText(Self(), IDS_MODULE_TEST_LAST, MODULE_GERMAN), L"Letzter seines Blocks");
}

TEST(ModuleLanguage, TakesEnglishForWhatATranslationLacks)
{
    // One lacks a text in a block that it has, the other lacks the block.
    EXPECT_EQ(LoadModuleText(Self(), IDS_MODULE_TEST_ENGLISH, MODULE_GERMAN), L"only in English");
    EXPECT_EQ(LoadModuleText(Self(), IDS_MODULE_TEST_LAST, MODULE_FRENCH), L"last of its block");
}

TEST(ModuleLanguage, HasNoTextWhereThereIsNone)
{
    EXPECT_EQ(LoadModuleText(Self(), NO_SUCH_TEXT, MODULE_GERMAN), L"");
    EXPECT_EQ(LoadModuleText(Self(), 1, MODULE_ENGLISH), L"");
}

TEST(ModuleLanguage, FindsTheDialogOfALanguageOrTheEnglishOne)
{
    const DLGTEMPLATE* const pGerman = FindModuleDialog(Self(), IDD_MODULE_TEST, MODULE_GERMAN);
    const DLGTEMPLATE* const pFrench = FindModuleDialog(Self(), IDD_MODULE_TEST, MODULE_FRENCH);
    ASSERT_NE(pGerman, nullptr);
    ASSERT_NE(pFrench, nullptr);
    EXPECT_EQ(pGerman->cx, 60);
    EXPECT_EQ(pFrench->cx, 50);
    EXPECT_EQ(FindModuleDialog(Self(), IDD_MODULE_TEST + 1, MODULE_GERMAN), nullptr);
}

TEST(ModuleDpi, ScalesLengths)
{
    EXPECT_EQ(ScaleForDpi(10, 96), 10);
    EXPECT_EQ(ScaleForDpi(10, 144), 15);
    EXPECT_EQ(ScaleForDpi(10, 192), 20);
}

TEST(ModuleLanguageCodes, AreTheSameInAnyCaseAndOnlyWhole)
{
    EXPECT_TRUE(IsSameLanguage(L"de", L"DE"));
    EXPECT_TRUE(IsSameLanguage(L"", L""));
    EXPECT_FALSE(IsSameLanguage(L"de", L"de-AT"));
    EXPECT_FALSE(IsSameLanguage(L"de", L""));
}

TEST(ModuleDpi, MakesAFontThatGrowsWithTheResolution)
{
    LOGFONTW usual = {};
    LOGFONTW fine = {};
    const CGdiObject hUsual = MakeMessageFont(96);
    const CGdiObject hFine = MakeMessageFont(192);
    ASSERT_NE(GetObjectW(hUsual.get(), sizeof(usual), &usual), 0);
    ASSERT_NE(GetObjectW(hFine.get(), sizeof(fine), &fine), 0);
    EXPECT_EQ(fine.lfHeight, 2 * usual.lfHeight);
    EXPECT_STREQ(fine.lfFaceName, usual.lfFaceName);
}

TEST(ModuleDpi, LeavesRoomForTheFrameAroundTheClientArea)
{
    const SIZE window = WindowSizeAround({300, 200}, WS_OVERLAPPEDWINDOW, 0, 96);
    EXPECT_GT(window.cx, 300);
    EXPECT_GT(window.cy, 200);
    const SIZE bare = WindowSizeAround({300, 200}, WS_POPUP, 0, 96);
    EXPECT_EQ(bare.cx, 300);
    EXPECT_EQ(bare.cy, 200);
}
} // namespace
