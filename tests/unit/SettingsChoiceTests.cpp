#include "modules/settings/SettingsChoice.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{
using Settings = std::vector<SETTING>;
using Codes = std::vector<std::wstring>;

const LANGUAGE_WORDS WORDS = {L"Windows: %s", L"%s is gone"};

void ExpectFault(std::wstring_view text, PORT_FAULT fault, size_t nBegin, size_t nEnd)
{
    const PORT_INPUT input = ParsePortInput(text);
    EXPECT_EQ(input.fault, fault);
    EXPECT_EQ(input.nFaultBegin, nBegin);
    EXPECT_EQ(input.nFaultEnd, nEnd);
    EXPECT_EQ(input.dwPort, 0u);
}

SETTINGS Usual()
{
    return {6129, TRAY_ICON_SHOWN, false, L"en"};
}

Codes CodesOf(const std::vector<LANGUAGE_CHOICE>& choices)
{
    Codes codes;
    for (const LANGUAGE_CHOICE& choice : choices)
    {
        codes.push_back(choice.code);
    }
    return codes;
}

// ---- The port.

TEST(SettingsPort, IsTakenFromOneToTheLargest)
{
    for (const auto& [pszText, dwPort] : {std::pair<const wchar_t*, DWORD>{L"1", 1},
                                          {L"6129", 6129},
                                          {L"65535", 65535},
                                          {L" 5000 ", 5000},
                                          {L"\t5000\xA0", 5000},
                                          {L"000080", 80}})
    {
        const PORT_INPUT input = ParsePortInput(pszText);
        EXPECT_EQ(input.fault, PORT_FAULT::NONE) << pszText;
        EXPECT_EQ(input.dwPort, dwPort) << pszText;
    }
}

TEST(SettingsPort, IsAskedForWhereThereIsNone)
{
    ExpectFault(L"", PORT_FAULT::EMPTY, 0, 0);
    ExpectFault(L"  ", PORT_FAULT::EMPTY, 0, 2);
}

TEST(SettingsPort, ConsistsOfDigitsAloneAndTellsWhereItDoesNot)
{
    ExpectFault(L"abc", PORT_FAULT::NO_NUMBER, 0, 3);
    ExpectFault(L"+5", PORT_FAULT::NO_NUMBER, 0, 1);
    ExpectFault(L"-1", PORT_FAULT::NO_NUMBER, 0, 1);
    ExpectFault(L" 61x29", PORT_FAULT::NO_NUMBER, 3, 4);
    ExpectFault(L"5 000", PORT_FAULT::NO_NUMBER, 1, 2);
    ExpectFault(L"0x50", PORT_FAULT::NO_NUMBER, 1, 2);
    ExpectFault(L"80.", PORT_FAULT::NO_NUMBER, 2, 3);
    ExpectFault(L"\x0665\x0660", PORT_FAULT::NO_NUMBER, 0, 2);          // Arabic digits
    ExpectFault(L"\xFF16\xFF11", PORT_FAULT::NO_NUMBER, 0, 2);          // full width
    ExpectFault(std::wstring(L"80\0", 3), PORT_FAULT::NO_NUMBER, 2, 3); // a terminator is no digit
}

TEST(SettingsPort, LiesInItsRangeHoweverLongItIs)
{
    ExpectFault(L"0", PORT_FAULT::OUT_OF_RANGE, 0, 1);
    ExpectFault(L"65536", PORT_FAULT::OUT_OF_RANGE, 0, 5);
    ExpectFault(L" 4294967297 ", PORT_FAULT::OUT_OF_RANGE, 1, 11);         // 2^32 + 1
    ExpectFault(L"18446744073709551617", PORT_FAULT::OUT_OF_RANGE, 0, 20); // 2^64 + 1
    ExpectFault(std::wstring(1000, L'9'), PORT_FAULT::OUT_OF_RANGE, 0, 1000);
}

// ---- What is shown and what is changed.

TEST(SettingsChoice, ShowsWhatTheAgentMakesOfStoredValues)
{
    const SETTINGS odd = ShownSettings(0, 7, 5, L"");
    EXPECT_EQ(odd.dwPort, 6129u);
    EXPECT_EQ(odd.trayIcon, TRAY_ICON_SHOWN);
    EXPECT_TRUE(odd.bPermissionRequired);
    EXPECT_EQ(odd.language, L"en");
    const SETTINGS plain = ShownSettings(70000, TRAY_ICON_HIDDEN, 0, L"de");
    EXPECT_EQ(plain.dwPort, 70000u); // to be seen and mended
    EXPECT_EQ(plain.trayIcon, TRAY_ICON_HIDDEN);
    EXPECT_FALSE(plain.bPermissionRequired);
    EXPECT_EQ(plain.language, L"de");
    EXPECT_EQ(ShownSettings(1, TRAY_ICON_WHILE_CONNECTED, 0, L"").trayIcon, TRAY_ICON_WHILE_CONNECTED);
}

TEST(SettingsChoice, FindsEachChangeByItself)
{
    EXPECT_EQ(ChangedSettings(Usual(), Usual()), Settings());
    SETTINGS wanted = Usual();
    wanted.dwPort = 6130;
    EXPECT_EQ(ChangedSettings(Usual(), wanted), Settings{SETTING::PORT});
    wanted = Usual();
    wanted.trayIcon = TRAY_ICON_HIDDEN;
    EXPECT_EQ(ChangedSettings(Usual(), wanted), Settings{SETTING::TRAY_ICON});
    wanted = Usual();
    wanted.language = L"fr";
    EXPECT_EQ(ChangedSettings(Usual(), wanted), Settings{SETTING::LANGUAGE});
    wanted = Usual();
    wanted.bPermissionRequired = true;
    EXPECT_EQ(ChangedSettings(Usual(), wanted), Settings{SETTING::PERMISSION});
}

TEST(SettingsChoice, TakesALanguageInOtherLettersForTheSame)
{
    SETTINGS wanted = Usual();
    wanted.language = L"EN";
    EXPECT_EQ(ChangedSettings(Usual(), wanted), Settings());
}

TEST(SettingsChoice, TakesOneSettingOverAndLeavesTheRest)
{
    const SETTINGS other = {1, TRAY_ICON_HIDDEN, true, L"de"};
    for (const SETTING setting : {SETTING::PORT, SETTING::TRAY_ICON, SETTING::LANGUAGE, SETTING::PERMISSION})
    {
        SETTINGS settings = Usual();
        TakeSetting(settings, other, setting);
        EXPECT_EQ(ChangedSettings(Usual(), settings), Settings{setting});
        EXPECT_EQ(ChangedSettings(other, settings).size(), 3u);
    }
}

TEST(SettingsChoice, HasOnlyTheLanguageForOneUserAndOnlyInApplicationMode)
{
    EXPECT_EQ(RootOfSetting(SETTING::LANGUAGE, true), HKEY_CURRENT_USER);
    EXPECT_EQ(RootOfSetting(SETTING::LANGUAGE, false), HKEY_LOCAL_MACHINE);
    for (const SETTING setting : {SETTING::PORT, SETTING::TRAY_ICON, SETTING::PERMISSION})
    {
        EXPECT_EQ(RootOfSetting(setting, true), HKEY_LOCAL_MACHINE);
        EXPECT_EQ(RootOfSetting(setting, false), HKEY_LOCAL_MACHINE);
    }
}

// ---- Languages.

TEST(SettingsLanguages, FollowWindowsAsFarAsTheyAreInstalled)
{
    const Codes installed = {L"en", L"de", L"pt-BR"};
    EXPECT_EQ(NearestLanguage(L"de-AT", installed), L"de");
    EXPECT_EQ(NearestLanguage(L"pt-BR", installed), L"pt-BR");
    EXPECT_EQ(NearestLanguage(L"en-US", installed), L"en");
    EXPECT_EQ(NearestLanguage(L"pt-PT", installed), L"en");
    EXPECT_EQ(NearestLanguage(L"zh-Hans-CN", installed), L"en");
    EXPECT_EQ(NearestLanguage(L"", installed), L"en");
}

TEST(SettingsLanguages, AreCalledByTheirOwnNames)
{
    EXPECT_EQ(LanguageName(L"en"), L"English");
    EXPECT_EQ(LanguageName(L"de"), L"Deutsch");
    EXPECT_EQ(LanguageName(L"fr"), L"Français");
    EXPECT_EQ(LanguageName(L"no language at all"), L"no language at all");
}

TEST(SettingsLanguages, BeginWithTheOneOfWindows)
{
    const std::vector<LANGUAGE_CHOICE> choices = ListLanguages({L"en", L"de", L"fr"}, L"fr-CA", L"de", WORDS);
    EXPECT_EQ(CodesOf(choices), (Codes{L"fr", L"en", L"de", L"fr"}));
    EXPECT_EQ(choices[0].text, L"Windows: Français");
    EXPECT_EQ(choices[2].text, L"Deutsch");
}

TEST(SettingsLanguages, KeepAStoredOneThatIsNotInstalled)
{
    const std::vector<LANGUAGE_CHOICE> choices = ListLanguages({L"en", L"de"}, L"en-US", L"es", WORDS);
    EXPECT_EQ(CodesOf(choices), (Codes{L"en", L"en", L"de", L"es"}));
    EXPECT_EQ(choices[3].text, L"es is gone");
    EXPECT_EQ(FindLanguage(choices, L"es"), 3u);
}

TEST(SettingsLanguages, AreFoundByThemselvesAndNotAsTheOneOfWindows)
{
    const std::vector<LANGUAGE_CHOICE> choices = ListLanguages({L"en", L"de"}, L"de-DE", L"de", WORDS);
    EXPECT_EQ(FindLanguage(choices, L"de"), 2u);
    EXPECT_EQ(FindLanguage(choices, L"DE"), 2u);
    EXPECT_EQ(FindLanguage(choices, L"en"), 1u);
}
} // namespace
