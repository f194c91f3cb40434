#include "modules/settings/SettingsStore.h"

#include "Include/LangUI.h"
#include "Include/UtilRegistry.h"
#include "tests/support/SettingsModule.h"
#include "tests/unit/SettingsRegistry.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace
{
constexpr wchar_t FOREIGN_VALUE[] = L"Something of the service";
const SETTINGS OTHER = {5000, TRAY_ICON_WHILE_CONNECTED, true, L"fr"};
constexpr SETTING ALL[] = {SETTING::PORT, SETTING::TRAY_ICON, SETTING::LANGUAGE, SETTING::PERMISSION};

class SettingsStore : public testing::Test
{
  protected:
    SettingsRegistry m_registry;
};

TEST_F(SettingsStore, ReadsTheAgentsDefaultsWhereNothingIsStored)
{
    const SETTINGS settings = ReadSettings(false);
    EXPECT_EQ(settings.dwPort, 6129u);
    EXPECT_EQ(settings.trayIcon, TRAY_ICON_SHOWN);
    EXPECT_FALSE(settings.bPermissionRequired);
    EXPECT_EQ(settings.language, L"en");
    EXPECT_FALSE(SettingsRegistry::HasKey(HKEY_LOCAL_MACHINE)) << "looking makes nothing";
}

TEST_F(SettingsStore, StoresWhereTheAgentReads)
{
    for (const SETTING setting : ALL)
    {
        EXPECT_EQ(StoreSetting(OTHER, setting, false), ERROR_SUCCESS);
    }
    EXPECT_EQ(GetServicePort(NO_FALLBACK_PORT), 5000u);
    EXPECT_EQ(GetTrayIconMode(), 2u);
    EXPECT_EQ(GetPermissionRequired(), 1u);
    CProfileReg profile(L"Tessaran Development", L"Kestrel Desk Assist Service");
    EXPECT_STREQ(profile.GetProfileString(L"Settings", LANGUAGE_VALUE, L"en"), L"fr");
    EXPECT_EQ(ChangedSettings(ReadSettings(false), OTHER), std::vector<SETTING>());
}

TEST_F(SettingsStore, StoresEachSettingByItselfInItsType)
{
    ASSERT_EQ(StoreSetting(OTHER, SETTING::PORT, false), ERROR_SUCCESS);
    EXPECT_EQ(SettingsRegistry::CountValues(HKEY_LOCAL_MACHINE), 1u);
    EXPECT_EQ(SettingsRegistry::Number(HKEY_LOCAL_MACHINE, L"Port"), 5000u);
    ASSERT_EQ(StoreSetting(OTHER, SETTING::TRAY_ICON, false), ERROR_SUCCESS);
    EXPECT_EQ(SettingsRegistry::CountValues(HKEY_LOCAL_MACHINE), 2u);
    EXPECT_EQ(SettingsRegistry::Number(HKEY_LOCAL_MACHINE, L"TrayIcon"), 2u);
    ASSERT_EQ(StoreSetting(OTHER, SETTING::PERMISSION, false), ERROR_SUCCESS);
    EXPECT_EQ(SettingsRegistry::CountValues(HKEY_LOCAL_MACHINE), 3u);
    EXPECT_EQ(SettingsRegistry::Number(HKEY_LOCAL_MACHINE, L"Permission Required"), 1u);
    ASSERT_EQ(StoreSetting(OTHER, SETTING::LANGUAGE, false), ERROR_SUCCESS);
    EXPECT_EQ(SettingsRegistry::CountValues(HKEY_LOCAL_MACHINE), 4u);
    EXPECT_EQ(SettingsRegistry::Text(HKEY_LOCAL_MACHINE, LANGUAGE_VALUE), L"fr");
    EXPECT_FALSE(SettingsRegistry::HasKey(HKEY_CURRENT_USER));
}

TEST_F(SettingsStore, LeavesWhatItDoesNotKnow)
{
    SettingsRegistry::Store(HKEY_LOCAL_MACHINE, FOREIGN_VALUE, 42);
    for (const SETTING setting : ALL)
    {
        EXPECT_EQ(StoreSetting(OTHER, setting, false), ERROR_SUCCESS);
    }
    EXPECT_EQ(SettingsRegistry::Number(HKEY_LOCAL_MACHINE, FOREIGN_VALUE), 42u);
}

TEST_F(SettingsStore, KeepsTheLanguageOfAUserByItselfInApplicationMode)
{
    SettingsRegistry::Store(HKEY_LOCAL_MACHINE, LANGUAGE_VALUE, L"de");
    EXPECT_EQ(ReadSettings(true).language, L"de") << "the user has none";
    EXPECT_EQ(StoreSetting(OTHER, SETTING::LANGUAGE, true), ERROR_SUCCESS);
    EXPECT_EQ(SettingsRegistry::Text(HKEY_CURRENT_USER, LANGUAGE_VALUE), L"fr");
    EXPECT_EQ(SettingsRegistry::CountValues(HKEY_CURRENT_USER), 1u);
    EXPECT_EQ(ReadSettings(true).language, L"fr");
    EXPECT_EQ(ReadSettings(false).language, L"de");
    EXPECT_EQ(StoreSetting(OTHER, SETTING::PORT, true), ERROR_SUCCESS);
    EXPECT_EQ(SettingsRegistry::Number(HKEY_LOCAL_MACHINE, L"Port"), 5000u);
    EXPECT_EQ(SettingsRegistry::CountValues(HKEY_CURRENT_USER), 1u);
}

TEST_F(SettingsStore, SaysWhyAValueCanNotBeStored)
{
    DeniedRegistry denied;
    denied.m_value = L"TrayIcon";
    EXPECT_EQ(StoreSetting(OTHER, SETTING::TRAY_ICON, false), ERROR_ACCESS_DENIED);
    EXPECT_EQ(StoreSetting(OTHER, SETTING::PORT, false), ERROR_SUCCESS);
    EXPECT_EQ(SettingsRegistry::Number(HKEY_LOCAL_MACHINE, L"TrayIcon"), std::nullopt);
}

TEST_F(SettingsStore, SaysWhyAKeyCanNotBeMade)
{
    DeniedRegistry denied;
    denied.m_createOf = HKEY_LOCAL_MACHINE;
    for (const SETTING setting : ALL)
    {
        EXPECT_EQ(StoreSetting(OTHER, setting, false), ERROR_ACCESS_DENIED);
    }
    EXPECT_EQ(StoreSetting(OTHER, SETTING::LANGUAGE, true), ERROR_SUCCESS);
    EXPECT_EQ(denied.m_attempts, std::vector<std::wstring>{LANGUAGE_VALUE});
}

TEST_F(SettingsStore, FindsOutAboutRightsWithoutWriting)
{
    EXPECT_TRUE(CanStoreForMachine());
    EXPECT_FALSE(SettingsRegistry::HasKey(HKEY_LOCAL_MACHINE));
    SettingsRegistry::Store(HKEY_LOCAL_MACHINE, FOREIGN_VALUE, 42);
    EXPECT_TRUE(CanStoreForMachine());
    EXPECT_EQ(SettingsRegistry::CountValues(HKEY_LOCAL_MACHINE), 1u);
    DeniedRegistry denied;
    denied.m_createOf = HKEY_LOCAL_MACHINE;
    EXPECT_FALSE(CanStoreForMachine());
}

TEST_F(SettingsStore, KnowsTheLanguagesThatLieBesideAModule)
{
    const LoadedSettingsModule module;
    EXPECT_EQ(InstalledLanguages(module.Handle()), (std::vector<std::wstring>{L"en", L"de", L"fr"}));
    EXPECT_EQ(InstalledLanguages(GetModuleHandleW(L"kernel32.dll")), std::vector<std::wstring>{L"en"});
}

TEST_F(SettingsStore, KnowsTheLanguageOfWindows)
{
    EXPECT_NE(WindowsLocale(), L"");
}
} // namespace
