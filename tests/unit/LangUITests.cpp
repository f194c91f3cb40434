#include "Include/LangUI.h"

#include "Include/Handles.h"
#include "tests/support/ImportHook.h"
#include "tests/unit/RegistrySandbox.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace
{
using testing::ElementsAre;

constexpr wchar_t COMPANY_KEY[] = L"Software\\Company";
constexpr wchar_t SECTION_KEY[] = L"Software\\Company\\Application\\Section";
constexpr wchar_t LANGUAGE_KEY[] = L"Software\\Tessaran Development\\Kestrel Desk Assist Service\\Settings";
constexpr wchar_t MODULE[] = L"TKDASTRES.dll";
const HMODULE FAKE_MODULE = reinterpret_cast<HMODULE>(static_cast<ULONG_PTR>(0x91230));

struct StoredValue
{
    LSTATUS nResult = ERROR_SUCCESS;
    DWORD dwType = REG_NONE;
    std::vector<BYTE> data;
};

StoredValue ReadRaw(HKEY hRoot, const wchar_t* pszKey, const wchar_t* pszValue)
{
    StoredValue value;
    HKEY hKey = nullptr;
    value.nResult = RegOpenKeyExW(hRoot, pszKey, 0, KEY_READ, &hKey);
    if (value.nResult != ERROR_SUCCESS)
    {
        return value;
    }
    DWORD cbData = 0;
    value.nResult = RegQueryValueExW(hKey, pszValue, nullptr, &value.dwType, nullptr, &cbData);
    value.data.resize(cbData);
    if (value.nResult == ERROR_SUCCESS && cbData != 0)
    {
        RegQueryValueExW(hKey, pszValue, nullptr, nullptr, value.data.data(), &cbData);
    }
    RegCloseKey(hKey);
    return value;
}

bool KeyExists(HKEY hRoot, const wchar_t* pszKey)
{
    HKEY hKey = nullptr;
    const bool bExists = RegOpenKeyExW(hRoot, pszKey, 0, KEY_READ, &hKey) == ERROR_SUCCESS;
    if (bExists)
    {
        RegCloseKey(hKey);
    }
    return bExists;
}

std::vector<BYTE> Bytes(const std::wstring& text)
{
    const auto* const pText = reinterpret_cast<const BYTE*>(text.data());
    return {pText, pText + text.size() * sizeof(wchar_t)};
}

std::wstring EnvironmentText(const wchar_t* pszName)
{
    wchar_t szText[512] = {};
    GetEnvironmentVariableW(pszName, szText, 512);
    return szText;
}

class Profile : public testing::Test
{
  protected:
    CProfileReg m_profile{L"Company", L"Application"};

  private:
    RegistrySandbox m_machine{HKEY_LOCAL_MACHINE};
    RegistrySandbox m_user{HKEY_CURRENT_USER};
};

using Language = Profile;

// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): nobody can delete it through a base
class MemoryStorage final : public TKRegistrySettingsStorage
{
};

// The paths that the loader tried, and which of them there is a module for.
struct Modules
{
    std::vector<std::wstring> tried;
    std::vector<DWORD> flags;
    std::wstring present;
};
Modules g_modules;

HMODULE WINAPI FakeLoad(const wchar_t* pszPath, HANDLE, DWORD dwFlags)
{
    g_modules.tried.emplace_back(pszPath);
    g_modules.flags.push_back(dwFlags);
    return g_modules.present == pszPath ? FAKE_MODULE : nullptr;
}

class LanguageModuleLoader : public Language
{
  protected:
    LanguageModuleLoader()
    {
        g_modules = {};
        g_modules.present = MODULE;
    }

  private:
    ImportHook<decltype(FakeLoad)> m_load{"kernel32.dll", "LoadLibraryExW", &FakeLoad};
};

decltype(&RegOpenKeyExW) g_pfnOpenKey = nullptr;
decltype(&RegCreateKeyExW) g_pfnCreateKey = nullptr;
std::vector<REGSAM> g_accesses;
std::function<void()> g_whileOpening;

LSTATUS WINAPI RecordOpenKey(HKEY hKey, const wchar_t* pszKey, DWORD dwOptions, REGSAM access, HKEY* phKey)
{
    g_accesses.push_back(access);
    if (g_whileOpening)
    {
        g_whileOpening();
    }
    return g_pfnOpenKey(hKey, pszKey, dwOptions, access, phKey);
}

LSTATUS WINAPI RecordCreateKey(HKEY hKey, const wchar_t* pszKey, DWORD dwReserved, wchar_t* pszClass,
                               DWORD dwOptions, REGSAM access, SECURITY_ATTRIBUTES* pAttributes, HKEY* phKey,
                               DWORD* pdwDisposition)
{
    g_accesses.push_back(access);
    return g_pfnCreateKey(hKey, pszKey, dwReserved, pszClass, dwOptions, access, pAttributes, phKey,
                          pdwDisposition);
}

LSTATUS WINAPI RefuseCreateKey(HKEY, const wchar_t*, DWORD, wchar_t*, DWORD, REGSAM, SECURITY_ATTRIBUTES*,
                               HKEY*, DWORD*)
{
    return ERROR_ACCESS_DENIED;
}
} // namespace

TEST_F(Profile, NumberComesBackAndIsADword)
{
    EXPECT_EQ(m_profile.GetProfileInt(L"Section", L"Entry", 5), 5u);
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, COMPANY_KEY));
    EXPECT_TRUE(m_profile.WriteProfileInt(L"Section", L"Entry", 0x80000001));
    EXPECT_EQ(m_profile.GetProfileInt(L"Section", L"Entry", 5), 0x80000001u);
    EXPECT_EQ(ReadRaw(HKEY_LOCAL_MACHINE, SECTION_KEY, L"Entry").dwType, static_cast<DWORD>(REG_DWORD));
}

TEST_F(Profile, NumberThatIsNoneGivesTheDefault)
{
    m_profile.WriteProfileString(L"Section", L"Entry", L"a text of more than four bytes");
    EXPECT_EQ(m_profile.GetProfileInt(L"Section", L"Entry", 5), 5u);
}

TEST_F(Profile, TextIsStoredWithoutATerminatorAndReadWithOne)
{
    EXPECT_TRUE(m_profile.WriteProfileString(L"Section", L"Entry", L"a longer text"));
    EXPECT_STREQ(m_profile.GetProfileString(L"Section", L"Entry", nullptr), L"a longer text");
    EXPECT_TRUE(m_profile.WriteProfileString(L"Section", L"Entry", L"short"));
    const StoredValue value = ReadRaw(HKEY_LOCAL_MACHINE, SECTION_KEY, L"Entry");
    EXPECT_EQ(value.dwType, static_cast<DWORD>(REG_SZ));
    EXPECT_EQ(value.data, Bytes(L"short"));
    EXPECT_STREQ(m_profile.GetProfileString(L"Section", L"Entry", nullptr), L"short");
}

TEST_F(Profile, MissingTextGivesTheDefaultOrNothing)
{
    EXPECT_STREQ(m_profile.GetProfileString(L"Section", L"Entry", L"default"), L"default");
    EXPECT_STREQ(m_profile.GetProfileString(L"Section", L"Entry", nullptr), L"");
    const std::wstring longDefault(5000, L'x');
    EXPECT_EQ(std::wstring(m_profile.GetProfileString(L"Section", L"Entry", longDefault.c_str())).size(),
              2047u);
}

TEST_F(Profile, TextOfUpTo2048BytesIsReadAndALongerOneGivesTheDefault)
{
    const std::wstring longest(1024, L'y');
    m_profile.WriteProfileString(L"Section", L"Entry", longest.c_str());
    EXPECT_EQ(m_profile.GetProfileString(L"Section", L"Entry", L"default"), longest);
    m_profile.WriteProfileString(L"Section", L"Entry", (longest + L'y').c_str());
    EXPECT_STREQ(m_profile.GetProfileString(L"Section", L"Entry", L"default"), L"default");
    EXPECT_STREQ(m_profile.GetProfileString(L"Section", L"Entry", nullptr), L"");
}

TEST_F(Profile, ResultOfTheStringReadIsOneBufferForAllCalls)
{
    m_profile.WriteProfileString(L"Section", L"Entry", L"one");
    const wchar_t* const pszFirst = m_profile.GetProfileString(L"Section", L"Entry", nullptr);
    EXPECT_EQ(m_profile.GetProfileString(L"Section", L"Missing", L"two"), pszFirst);
    EXPECT_STREQ(pszFirst, L"two");
}

TEST_F(Profile, BytesComeBackWithTheirNumber)
{
    const BYTE abData[] = {1, 0, 2};
    EXPECT_TRUE(m_profile.WriteProfileBinary(L"Section", L"Entry", abData, sizeof(abData)));
    EXPECT_EQ(ReadRaw(HKEY_LOCAL_MACHINE, SECTION_KEY, L"Entry").dwType, static_cast<DWORD>(REG_BINARY));
    BYTE abRead[8] = {};
    DWORD cbRead = sizeof(abRead);
    EXPECT_TRUE(m_profile.GetProfileBinary(L"Section", L"Entry", abRead, &cbRead));
    EXPECT_EQ(cbRead, 3u);
    EXPECT_EQ(abRead[2], 2);
    cbRead = 2;
    EXPECT_FALSE(m_profile.GetProfileBinary(L"Section", L"Entry", abRead, &cbRead));
    EXPECT_EQ(cbRead, 3u);
}

TEST_F(Profile, NullValueDeletesTheEntry)
{
    m_profile.WriteProfileString(L"Section", L"Text", L"x");
    EXPECT_TRUE(m_profile.WriteProfileString(L"Section", L"Text", nullptr));
    EXPECT_EQ(GetLastError(), 0u);
    EXPECT_EQ(ReadRaw(HKEY_LOCAL_MACHINE, SECTION_KEY, L"Text").nResult, ERROR_FILE_NOT_FOUND);
    const BYTE nData = 1;
    m_profile.WriteProfileBinary(L"Section", L"Bytes", &nData, 1);
    EXPECT_TRUE(m_profile.WriteProfileBinary(L"Section", L"Bytes", nullptr, 1));
    EXPECT_EQ(ReadRaw(HKEY_LOCAL_MACHINE, SECTION_KEY, L"Bytes").nResult, ERROR_FILE_NOT_FOUND);
}

TEST_F(Profile, DeletingPrefersASubkeyOverAValueOfTheSameName)
{
    m_profile.WriteProfileString(L"Section", L"Entry", L"x");
    m_profile.WriteProfileString(L"Section\\Entry", L"Inner", L"x");
    EXPECT_TRUE(m_profile.Delete(L"Section", L"Entry"));
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, L"Software\\Company\\Application\\Section\\Entry"));
    EXPECT_STREQ(m_profile.GetProfileString(L"Section", L"Entry", nullptr), L"x");
    EXPECT_TRUE(m_profile.Delete(L"Section", L"Entry"));
    EXPECT_FALSE(m_profile.Delete(L"Section", L"Entry"));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
}

TEST_F(Profile, DeletingInAMissingSectionFailsWithItsError)
{
    EXPECT_FALSE(m_profile.Delete(L"Missing", L"Entry"));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
}

TEST_F(Profile, WholeSectionIsNeverDeleted)
{
    m_profile.WriteProfileString(L"Section", L"Entry", L"x");
    EXPECT_FALSE(m_profile.Delete(L"Section", nullptr));
    EXPECT_EQ(GetLastError(), 1010u);
    EXPECT_FALSE(m_profile.WriteProfileString(L"Section", nullptr, L"x"));
    EXPECT_EQ(GetLastError(), 1010u);
    EXPECT_STREQ(m_profile.GetProfileString(L"Section", L"Entry", nullptr), L"x");
    CProfileReg other(L"Company", L"Other application");
    EXPECT_FALSE(other.Delete(L"Section", nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND)) << "nothing there to be kept";
}

TEST_F(Profile, KeysAreOpenedForWhatIsDoneWithThem)
{
    const ImportHook open("advapi32.dll", "RegOpenKeyExW", &RecordOpenKey);
    const ImportHook create("advapi32.dll", "RegCreateKeyExW", &RecordCreateKey);
    g_pfnOpenKey = open.Original();
    g_pfnCreateKey = create.Original();
    g_accesses.clear();
    m_profile.WriteProfileInt(L"Section", L"Entry", 1);
    m_profile.GetProfileInt(L"Section", L"Entry", 1);
    m_profile.Delete(L"Section", L"Entry");
    m_profile.Delete(L"Section", nullptr);
    HKEY hKey = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, COMPANY_KEY, 0, KEY_ALL_ACCESS, &hKey), ERROR_SUCCESS);
    g_accesses.resize(4);
    EXPECT_EQ(DeleteKeyTree(hKey, L"Application\\Section"), ERROR_SUCCESS);
    RegCloseKey(hKey);
    EXPECT_THAT(g_accesses, ElementsAre(0xF003F, 0x20019, 0xF003F, 0xF003F, 0x10008));
}

TEST_F(Profile, OperationIsNotMixedWithOneOfAnotherThread)
{
    m_profile.WriteProfileString(L"Section", L"Entry", L"machine");
    const ImportHook open("advapi32.dll", "RegOpenKeyExW", &RecordOpenKey);
    g_pfnOpenKey = open.Original();
    const CKernelHandle hSwitched(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::thread other;
    g_whileOpening = [&] {
        other = std::thread([&] {
            m_profile.SetRootKey(HKEY_CURRENT_USER);
            SetEvent(hSwitched.get());
        });
        EXPECT_EQ(WaitForSingleObject(hSwitched.get(), 100), WAIT_TIMEOUT) << "waits for its turn";
    };
    EXPECT_STREQ(m_profile.GetProfileString(L"Section", L"Entry", L"none"), L"machine");
    g_whileOpening = nullptr;
    other.join();
    EXPECT_STREQ(m_profile.GetProfileString(L"Section", L"Entry", L"none"), L"none");
}

TEST_F(Profile, NullSectionFails)
{
    EXPECT_EQ(m_profile.GetProfileInt(nullptr, L"Entry", 5), 5u);
    EXPECT_FALSE(m_profile.WriteProfileInt(nullptr, L"Entry", 5));
    EXPECT_FALSE(m_profile.Delete(nullptr, L"Entry"));
    EXPECT_STREQ(m_profile.GetProfileString(nullptr, L"Entry", L"default"), L"default");
}

TEST_F(Profile, ReadOnlyRegistryFailsTheWritersSilently)
{
    const ImportHook hook("advapi32.dll", "RegCreateKeyExW", &RefuseCreateKey);
    const BYTE nData = 1;
    EXPECT_FALSE(m_profile.WriteProfileInt(L"Section", L"Entry", 1));
    EXPECT_FALSE(m_profile.WriteProfileString(L"Section", L"Entry", L"x"));
    EXPECT_FALSE(m_profile.WriteProfileBinary(L"Section", L"Entry", &nData, 1));
}

TEST_F(Profile, SwitchedRootServesAllLaterOperations)
{
    m_profile.WriteProfileString(L"Section", L"Entry", L"machine");
    m_profile.SetRootKey(HKEY_CURRENT_USER);
    EXPECT_STREQ(m_profile.GetProfileString(L"Section", L"Entry", L"none"), L"none");
    m_profile.WriteProfileString(L"Section", L"Entry", L"user");
    EXPECT_EQ(ReadRaw(HKEY_CURRENT_USER, SECTION_KEY, L"Entry").data, Bytes(L"user"));
    EXPECT_EQ(ReadRaw(HKEY_LOCAL_MACHINE, SECTION_KEY, L"Entry").data, Bytes(L"machine"));
}

TEST_F(Profile, OverlongNamesAreCutAndDoNoHarm)
{
    const std::wstring name(5000, L'n');
    CProfileReg profile(name.c_str(), name.c_str());
    EXPECT_EQ(profile.GetProfileInt(name.c_str(), name.c_str(), 5), 5u);
    EXPECT_FALSE(profile.WriteProfileInt(name.c_str(), name.c_str(), 5));
}

TEST_F(Profile, KeyTreeIsDeletedWithAllBelowItAndNothingElse)
{
    m_profile.WriteProfileString(L"Section\\a\\b", L"Entry", L"x");
    m_profile.WriteProfileString(L"Section\\c", L"Entry", L"x");
    m_profile.WriteProfileString(L"Other", L"Entry", L"x");
    HKEY hKey = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Software\\Company\\Application", 0, KEY_ALL_ACCESS, &hKey),
              ERROR_SUCCESS);
    EXPECT_EQ(DeleteKeyTree(hKey, nullptr), 1010);
    EXPECT_EQ(DeleteKeyTree(hKey, L""), 1010);
    EXPECT_EQ(DeleteKeyTree(hKey, L"Missing"), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(DeleteKeyTree(hKey, L"Section"), ERROR_SUCCESS);
    RegCloseKey(hKey);
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, SECTION_KEY));
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, L"Software\\Company\\Application\\Other"));
}

TEST_F(Profile, KeyTreeThatCannotBeListedOrDeletedIsGivenUp)
{
    m_profile.WriteProfileString(L"Section\\a", L"Entry", L"x");
    HKEY hKey = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Software\\Company\\Application", 0, KEY_ALL_ACCESS, &hKey),
              ERROR_SUCCESS);
    {
        const ImportHook hook(
            "advapi32.dll", "RegEnumKeyExW",
            +[](HKEY, DWORD dwIndex, wchar_t*, DWORD* pcchName, DWORD*, wchar_t*, DWORD*,
                FILETIME*) -> LSTATUS {
                EXPECT_EQ(dwIndex, 0u);
                EXPECT_EQ(*pcchName, 260u);
                return ERROR_ACCESS_DENIED;
            });
        EXPECT_EQ(DeleteKeyTree(hKey, L"Section"), ERROR_ACCESS_DENIED);
    }
    {
        const ImportHook hook(
            "advapi32.dll", "RegDeleteKeyW", +[](HKEY, const wchar_t*) -> LSTATUS { return ERROR_BUSY; });
        EXPECT_EQ(DeleteKeyTree(hKey, L"Section"), ERROR_BUSY);
    }
    RegCloseKey(hKey);
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, L"Software\\Company\\Application\\Section\\a"));
}

TEST_F(Language, StorageTakesTheStoredLanguageIntoTheEnvironment)
{
    g_ProfileReg.WriteProfileString(L"Settings", L"LangUI", L"de");
    CreateLanguageStorage(&g_ProfileReg);
    EXPECT_EQ(EnvironmentText(L"LangUI"), L"de");
}

TEST_F(Language, StorageWithoutAStoredLanguageTakesEnglish)
{
    SetEnvironmentVariableW(L"LangUI", L"fr");
    CreateLanguageStorage(&g_ProfileReg);
    EXPECT_EQ(EnvironmentText(L"LangUI"), L"en");
    SetEnvironmentVariableW(L"LangUI", L"fr");
    CreateLanguageStorage(nullptr);
    EXPECT_EQ(EnvironmentText(L"LangUI"), L"en");
}

TEST_F(Language, StorageReadsUnderTheRootOfTheProfile)
{
    RegSetKeyValueW(HKEY_CURRENT_USER, LANGUAGE_KEY, L"LangUI", REG_SZ, L"fr", 6);
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, LANGUAGE_KEY, L"LangUI", REG_SZ, L"de", 6);
    CreateLanguageStorage(&g_ProfileReg);
    EXPECT_EQ(EnvironmentText(L"LangUI"), L"de");
    g_ProfileReg.SetRootKey(HKEY_CURRENT_USER);
    CreateLanguageStorage(&g_ProfileReg);
    EXPECT_EQ(EnvironmentText(L"LangUI"), L"fr");
}

TEST_F(Language, SetLanguageIsStoredBeforeItIsTaken)
{
    TKCProfileRegStorage storage(&g_ProfileReg, L"LangUI", L"en");
    EXPECT_TRUE(storage.SetLanguage(L"de"));
    EXPECT_EQ(storage.GetLanguage(), L"de");
    EXPECT_EQ(EnvironmentText(L"LangUI"), L"de");
    EXPECT_EQ(ReadRaw(HKEY_LOCAL_MACHINE, LANGUAGE_KEY, L"LangUI").data, Bytes(L"de"));
}

TEST_F(Language, LanguageThatCannotBeKeptChangesNothing)
{
    TKCProfileRegStorage storage(&g_ProfileReg, L"LangUI", L"en");
    EXPECT_FALSE(storage.SetLanguage(L""));
    {
        const ImportHook hook("advapi32.dll", "RegCreateKeyExW", &RefuseCreateKey);
        EXPECT_FALSE(storage.SetLanguage(L"de"));
    }
    EXPECT_EQ(storage.GetLanguage(), L"en");
    EXPECT_EQ(EnvironmentText(L"LangUI"), L"en");
    TKCProfileRegStorage homeless(nullptr, L"LangUI", L"fr");
    EXPECT_FALSE(homeless.SetLanguage(L"de"));
    EXPECT_EQ(homeless.GetLanguage(), L"fr");
}

TEST_F(Language, StorageInMemoryKeepsWhatIsNotEmpty)
{
    MemoryStorage storage;
    EXPECT_EQ(storage.GetLanguage(), L"");
    storage.Initialize(L"", L"");
    EXPECT_EQ(storage.GetLanguage(), L"en");
    EXPECT_TRUE(storage.SetLanguage(L"fr"));
    EXPECT_FALSE(storage.SetLanguage(L""));
    EXPECT_EQ(storage.GetLanguage(), L"fr");
    storage.Initialize(L"Other", L"de");
    EXPECT_EQ(storage.GetLanguage(), L"de");
}

TEST_F(LanguageModuleLoader, DefaultLanguageIsLoadedByItsPlainName)
{
    for (const wchar_t* pszLanguage : {L"", L"en"})
    {
        SetEnvironmentVariableW(L"LangUI", pszLanguage);
        g_modules.tried.clear();
        EXPECT_EQ(LoadLanguageModule(MODULE), FAKE_MODULE);
        EXPECT_THAT(g_modules.tried, ElementsAre(MODULE));
    }
    SetEnvironmentVariableW(L"LangUI", nullptr);
    EXPECT_EQ(LoadLanguageModule(MODULE), FAKE_MODULE);
    EXPECT_THAT(g_modules.flags, testing::Each(0x1060u));
}

TEST_F(LanguageModuleLoader, MissingModuleIsTriedTwiceAndGivenUp)
{
    g_modules.present.clear();
    EXPECT_EQ(LoadLanguageModule(MODULE), nullptr);
    EXPECT_THAT(g_modules.tried, ElementsAre(MODULE, MODULE));
    EXPECT_THAT(g_modules.flags, ElementsAre(0x1060u, 0x1060u));
}

TEST_F(LanguageModuleLoader, TranslationIsLoadedFromItsFolder)
{
    SetEnvironmentVariableW(L"LangUI", L"de");
    g_modules.present = L"Localization\\de\\TKDASTRES.dll";
    EXPECT_EQ(LoadLanguageModule(MODULE), FAKE_MODULE);
    EXPECT_THAT(g_modules.tried, ElementsAre(L"Localization\\de\\TKDASTRES.dll"));
}

TEST_F(LanguageModuleLoader, LanguageIsComparedExactly)
{
    SetEnvironmentVariableW(L"LangUI", L"EN");
    EXPECT_EQ(LoadLanguageModule(MODULE), FAKE_MODULE);
    EXPECT_THAT(g_modules.tried, ElementsAre(L"Localization\\EN\\TKDASTRES.dll", MODULE));
}

TEST_F(LanguageModuleLoader, FolderWithoutAModuleFallsBackToTheDefault)
{
    SetEnvironmentVariableW(L"LangUI", L"xx");
    EXPECT_EQ(LoadLanguageModule(MODULE), FAKE_MODULE);
    EXPECT_THAT(g_modules.tried, ElementsAre(L"Localization\\xx\\TKDASTRES.dll", MODULE));
}

TEST_F(LanguageModuleLoader, OverlongLanguageCountsAsNone)
{
    SetEnvironmentVariableW(L"LangUI", std::wstring(127, L'l').c_str());
    LoadLanguageModule(MODULE);
    EXPECT_EQ(g_modules.tried.size(), 2u);
    g_modules.tried.clear();
    SetEnvironmentVariableW(L"LangUI", std::wstring(128, L'l').c_str());
    LoadLanguageModule(MODULE);
    EXPECT_THAT(g_modules.tried, ElementsAre(MODULE));
}

TEST_F(LanguageModuleLoader, ChildOfALanguageSettingProcessFollowsIt)
{
    g_ProfileReg.WriteProfileString(L"Settings", L"LangUI", L"fr");
    CreateLanguageStorage(&g_ProfileReg);
    LoadLanguageModule(MODULE);
    EXPECT_THAT(g_modules.tried, ElementsAre(L"Localization\\fr\\TKDASTRES.dll", MODULE));
}
