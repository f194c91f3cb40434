#include "modules/settings/SettingsStore.h"

#include "Include/Handles.h"
#include "Include/LangUI.h"
#include "Include/Product.h"
#include "Include/UtilRegistry.h"

#include <algorithm>

namespace
{
constexpr wchar_t LANGUAGE_FOLDERS[] = L"Localization\\";

std::wstring StoredLanguage(HKEY hRoot, const std::wstring& missing)
{
    CProfileReg profile(SETTINGS_COMPANY, SETTINGS_APPLICATION);
    profile.SetRootKey(hRoot);
    return profile.GetProfileString(SETTINGS_SECTION, LANGUAGE_VALUE, missing.c_str());
}

LSTATUS StoreValue(HKEY hRoot, const wchar_t* pszValue, DWORD dwType, const void* pData, size_t cbData)
{
    CRegKey hKey;
    const LSTATUS nResult = RegCreateKeyExW(hRoot, SERVICE_SETTINGS_KEY, 0, nullptr, REG_OPTION_NON_VOLATILE,
                                            KEY_SET_VALUE, nullptr, hKey.put(), nullptr);
    return nResult != ERROR_SUCCESS
               ? nResult
               : RegSetValueExW(hKey.get(), pszValue, 0, dwType, static_cast<const BYTE*>(pData),
                                static_cast<DWORD>(cbData));
}

LSTATUS StoreNumber(HKEY hRoot, const wchar_t* pszValue, DWORD dwNumber)
{
    return StoreValue(hRoot, pszValue, REG_DWORD, &dwNumber, sizeof(dwNumber));
}

LSTATUS StoreText(HKEY hRoot, const wchar_t* pszValue, const std::wstring& text)
{
    return StoreValue(hRoot, pszValue, REG_SZ, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
}

// With the backslash at its end; empty when the system can't tell.
std::wstring FolderOf(HMODULE hModule)
{
    wchar_t szPath[MAX_PATH] = {};
    const DWORD cchPath = GetModuleFileNameW(hModule, szPath, MAX_PATH);
    const std::wstring_view path(szPath, cchPath < MAX_PATH ? cchPath : 0);
    return std::wstring(path.substr(0, path.rfind(L'\\') + 1));
}

bool IsFile(const std::wstring& path)
{
    const DWORD dwAttributes = GetFileAttributesW(path.c_str());
    return dwAttributes != INVALID_FILE_ATTRIBUTES && (dwAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

bool IsLanguageFolder(const std::wstring& folders, const std::wstring& code)
{
    return code.front() != L'.' && code != DEFAULT_LANGUAGE &&
           IsFile(folders + code + L'\\' + LANGUAGE_MODULE);
}
} // namespace

SETTINGS ReadSettings(bool bApplicationMode)
{
    std::wstring language = StoredLanguage(HKEY_LOCAL_MACHINE, DEFAULT_LANGUAGE);
    if (bApplicationMode)
    {
        language = StoredLanguage(HKEY_CURRENT_USER, language);
    }
    return ShownSettings(GetServicePort(NO_FALLBACK_PORT), GetTrayIconMode(), GetPermissionRequired(),
                         language);
}

bool CanStoreForMachine()
{
    // A key that is missing is made below the first one that exists; the root always does.
    std::wstring path = SERVICE_SETTINGS_KEY;
    for (;;)
    {
        CRegKey hKey;
        const LSTATUS nResult = RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0,
                                              KEY_SET_VALUE | KEY_CREATE_SUB_KEY, hKey.put());
        if (nResult != ERROR_FILE_NOT_FOUND || path.empty())
        {
            return nResult == ERROR_SUCCESS;
        }
        const size_t nParent = path.rfind(L'\\');
        path.resize(nParent != std::wstring::npos ? nParent : 0);
    }
}

LSTATUS StoreSetting(const SETTINGS& settings, SETTING setting, bool bApplicationMode)
{
    const HKEY hRoot = RootOfSetting(setting, bApplicationMode);
    switch (setting)
    {
    case SETTING::PORT:
        return StoreNumber(hRoot, SERVICE_PORT_VALUE, settings.dwPort);
    case SETTING::TRAY_ICON:
        return StoreNumber(hRoot, TRAY_ICON_VALUE, settings.trayIcon);
    case SETTING::LANGUAGE:
        return StoreText(hRoot, LANGUAGE_VALUE, settings.language);
    case SETTING::PERMISSION:
        return StoreNumber(hRoot, PERMISSION_REQUIRED_VALUE, settings.bPermissionRequired ? 1 : 0);
    }
    return ERROR_INVALID_PARAMETER;
}

std::vector<std::wstring> InstalledLanguages(HMODULE hModule)
{
    const std::wstring folders = FolderOf(hModule) + LANGUAGE_FOLDERS;
    std::vector<std::wstring> codes;
    WIN32_FIND_DATAW found = {};
    const CFindHandle hFind(FindFirstFileW((folders + L'*').c_str(), &found));
    for (bool bFound = static_cast<bool>(hFind); bFound; bFound = FindNextFileW(hFind.get(), &found) != FALSE)
    {
        if (IsLanguageFolder(folders, found.cFileName))
        {
            codes.emplace_back(found.cFileName);
        }
    }
    std::sort(codes.begin(), codes.end());
    codes.insert(codes.begin(), DEFAULT_LANGUAGE);
    return codes;
}

std::wstring WindowsLocale()
{
    wchar_t szLocale[LOCALE_NAME_MAX_LENGTH] = {};
    LCIDToLocaleName(MAKELCID(GetUserDefaultUILanguage(), SORT_DEFAULT), szLocale, LOCALE_NAME_MAX_LENGTH, 0);
    return szLocale;
}
