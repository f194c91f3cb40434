#include "packaging/setup/KeepSettings.h"

#include "Include/Handles.h"
#include "tests/support/ImportHook.h"
#include "tests/unit/SettingsRegistry.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>

namespace
{
constexpr MSIHANDLE INSTALLATION = 4711;
constexpr wchar_t MARKS_KEY[] = L"SOFTWARE\\Tessaran Development\\Kestrel Desk Assist\\Setup";
constexpr UINT REFUSED = ERROR_FUNCTION_FAILED;

std::map<std::wstring, std::wstring> g_properties;
bool g_bRefuse = false;

UINT WINAPI FakeGet(MSIHANDLE hInstall, LPCWSTR pszName, LPWSTR pszValue, LPDWORD pcchValue)
{
    EXPECT_EQ(hInstall, INSTALLATION);
    const std::wstring& value = g_properties[pszName];
    const DWORD cchRoom = *pcchValue;
    *pcchValue = static_cast<DWORD>(value.size());
    if (cchRoom <= value.size())
    {
        return ERROR_MORE_DATA;
    }
    std::copy_n(value.c_str(), value.size() + 1, pszValue);
    return ERROR_SUCCESS;
}

UINT WINAPI FakeSet(MSIHANDLE hInstall, LPCWSTR pszName, LPCWSTR pszValue)
{
    EXPECT_EQ(hInstall, INSTALLATION);
    if (g_bRefuse)
    {
        return REFUSED;
    }
    g_properties[pszName] = pszValue;
    return ERROR_SUCCESS;
}

void LeaveMark(const wchar_t* pszName, const wchar_t* pszMark = L"installed")
{
    ASSERT_EQ(RegSetKeyValueW(HKEY_LOCAL_MACHINE, MARKS_KEY, pszName, REG_SZ, pszMark,
                              static_cast<DWORD>((std::wstring(pszMark).size() + 1) * sizeof(wchar_t))),
              ERROR_SUCCESS);
}

class KeepSettingsTest : public testing::Test
{
  protected:
    KeepSettingsTest()
    {
        g_properties.clear();
        g_bRefuse = false;
    }

    SettingsRegistry m_registry;

  private:
    ImportHook<decltype(FakeGet)> m_get{"msi.dll", "MsiGetPropertyW", &FakeGet};
    ImportHook<decltype(FakeSet)> m_set{"msi.dll", "MsiSetPropertyW", &FakeSet};
};
} // namespace

TEST_F(KeepSettingsTest, LeavesEverythingToAFirstInstallation)
{
    SettingsRegistry::Store(HKEY_LOCAL_MACHINE, L"Port", 6200);
    g_properties[L"LANGUAGE"] = L"de";
    EXPECT_EQ(KeepSettings(INSTALLATION), static_cast<UINT>(ERROR_SUCCESS));
    EXPECT_EQ(g_properties[L"PORT"], L"") << "what others have stored stays theirs";
    EXPECT_EQ(g_properties[L"LANGUAGE"], L"de");
    EXPECT_EQ(g_properties[L"INSTALLDIR"], L"");
}

TEST_F(KeepSettingsTest, TakesWhatIsStoredNowWhereAnInstallationHadBroughtItAlong)
{
    LeaveMark(L"Port");
    LeaveMark(L"TrayIcon");
    LeaveMark(L"Permission Required");
    LeaveMark(L"LangUI");
    LeaveMark(L"Folder", L"D:\\Agent\\");
    SettingsRegistry::Store(HKEY_LOCAL_MACHINE, L"Port", 6200);
    SettingsRegistry::Store(HKEY_LOCAL_MACHINE, L"TrayIcon", 2);
    SettingsRegistry::Store(HKEY_LOCAL_MACHINE, L"Permission Required", 1);
    SettingsRegistry::Store(HKEY_LOCAL_MACHINE, L"LangUI", L"fr");
    EXPECT_EQ(KeepSettings(INSTALLATION), static_cast<UINT>(ERROR_SUCCESS));
    EXPECT_EQ(g_properties[L"PORT"], L"6200");
    EXPECT_EQ(g_properties[L"ICONMODE"], L"2");
    EXPECT_EQ(g_properties[L"PERMISSIONREQUIRED"], L"1");
    EXPECT_EQ(g_properties[L"LANGUAGE"], L"fr");
    EXPECT_EQ(g_properties[L"INSTALLDIR"], L"D:\\Agent\\");
}

TEST_F(KeepSettingsTest, GivenPropertiesWin)
{
    LeaveMark(L"Port");
    LeaveMark(L"Folder", L"D:\\Agent\\");
    SettingsRegistry::Store(HKEY_LOCAL_MACHINE, L"Port", 6200);
    g_properties[L"PORT"] = L"6300";
    g_properties[L"INSTALLDIR"] = L"E:\\";
    EXPECT_EQ(KeepSettings(INSTALLATION), static_cast<UINT>(ERROR_SUCCESS));
    EXPECT_EQ(g_properties[L"PORT"], L"6300");
    EXPECT_EQ(g_properties[L"INSTALLDIR"], L"E:\\");
}

TEST_F(KeepSettingsTest, ValueThatSomebodyHasDeletedBecomesTheAgentsDefault)
{
    LeaveMark(L"Port");
    LeaveMark(L"TrayIcon");
    LeaveMark(L"Permission Required");
    LeaveMark(L"LangUI");
    EXPECT_EQ(KeepSettings(INSTALLATION), static_cast<UINT>(ERROR_SUCCESS));
    EXPECT_EQ(g_properties[L"PORT"], L"6129");
    EXPECT_EQ(g_properties[L"ICONMODE"], L"1");
    EXPECT_EQ(g_properties[L"PERMISSIONREQUIRED"], L"0");
    EXPECT_EQ(g_properties[L"LANGUAGE"], L"en");
}

TEST_F(KeepSettingsTest, EndsTheInstallationWhenAPropertyCannotBeSet)
{
    LeaveMark(L"Port");
    g_bRefuse = true;
    EXPECT_EQ(KeepSettings(INSTALLATION), REFUSED);
}
