#include "Include/LangUI.h"

#include "Include/BoundedText.h"
#include "Include/Handles.h"

#include <algorithm>

namespace
{
// Resources only: nothing of the module is run, and the current directory isn't searched.
constexpr DWORD LANGUAGE_MODULE_FLAGS =
    LOAD_LIBRARY_SEARCH_DEFAULT_DIRS | LOAD_LIBRARY_AS_IMAGE_RESOURCE | LOAD_LIBRARY_AS_DATAFILE_EXCLUSIVE;

constexpr DWORD MAX_STORED_STRING = 2048; // bytes
constexpr DWORD MAX_SUBKEY_NAME = 260;    // characters, terminator included
constexpr REGSAM DELETE_TREE_ACCESS = DELETE | KEY_ENUMERATE_SUB_KEYS;

class CLock
{
  public:
    explicit CLock(CRITICAL_SECTION& section) : m_section(section) { EnterCriticalSection(&m_section); }
    ~CLock() { LeaveCriticalSection(&m_section); }
    CLock(const CLock&) = delete;
    CLock& operator=(const CLock&) = delete;

  private:
    CRITICAL_SECTION& m_section;
};

std::wstring ApplicationPath(const wchar_t* pszCompany, const wchar_t* pszApplication)
{
    return std::wstring(L"Software\\") + pszCompany + L'\\' + pszApplication;
}

std::wstring LanguageOfEnvironment()
{
    wchar_t szLanguage[MAX_LANGUAGE] = {};
    const DWORD cchLanguage = GetEnvironmentVariableW(LANGUAGE_VALUE, szLanguage, MAX_LANGUAGE);
    return cchLanguage < MAX_LANGUAGE ? std::wstring(szLanguage, cchLanguage) : std::wstring();
}
} // namespace

CProfileReg g_ProfileReg(SETTINGS_COMPANY, SETTINGS_APPLICATION);

CProfileReg::CProfileReg(const wchar_t* pszCompany, const wchar_t* pszApplication)
{
    InitializeCriticalSection(&m_lock);
    CopyText(m_szCompany, pszCompany);
    CopyText(m_szApplication, pszApplication);
}

CProfileReg::~CProfileReg()
{
    DeleteCriticalSection(&m_lock);
}

DWORD CProfileReg::GetProfileInt(const wchar_t* pszSection, const wchar_t* pszEntry, DWORD dwDefault)
{
    DWORD dwValue = 0;
    DWORD cbValue = sizeof(dwValue);
    return Read(pszSection, pszEntry, &dwValue, &cbValue) ? dwValue : dwDefault;
}

bool CProfileReg::WriteProfileInt(const wchar_t* pszSection, const wchar_t* pszEntry, DWORD dwValue)
{
    return Write(pszSection, pszEntry, REG_DWORD, &dwValue, sizeof(dwValue));
}

const wchar_t* CProfileReg::GetProfileString(const wchar_t* pszSection, const wchar_t* pszEntry,
                                             const wchar_t* pszDefault)
{
    const CLock lock(m_lock);
    // Stored texts carry no terminator; the cleared buffer is what ends them.
    std::fill(std::begin(m_szResult), std::end(m_szResult), L'\0');
    DWORD cbResult = MAX_STORED_STRING;
    if (!Read(pszSection, pszEntry, m_szResult, &cbResult))
    {
        CopyText(m_szResult, pszDefault != nullptr ? pszDefault : L"");
    }
    return m_szResult;
}

bool CProfileReg::WriteProfileString(const wchar_t* pszSection, const wchar_t* pszEntry,
                                     const wchar_t* pszValue)
{
    const CLock lock(m_lock);
    if (pszEntry == nullptr || pszValue == nullptr)
    {
        return Delete(pszSection, pszEntry);
    }
    // The system would count a terminator that follows the data in memory. What follows here is none.
    const std::wstring unterminated = std::wstring(pszValue) + L'.';
    return Write(pszSection, pszEntry, REG_SZ, unterminated.data(),
                 static_cast<DWORD>(lstrlenW(pszValue) * sizeof(wchar_t)));
}

bool CProfileReg::GetProfileBinary(const wchar_t* pszSection, const wchar_t* pszEntry, BYTE* pData,
                                   DWORD* pcbData)
{
    return Read(pszSection, pszEntry, pData, pcbData);
}

bool CProfileReg::WriteProfileBinary(const wchar_t* pszSection, const wchar_t* pszEntry, const BYTE* pData,
                                     DWORD cbData)
{
    const CLock lock(m_lock);
    if (pData == nullptr)
    {
        return Delete(pszSection, pszEntry);
    }
    return Write(pszSection, pszEntry, REG_BINARY, pData, cbData);
}

void CProfileReg::SetRootKey(HKEY hRootKey)
{
    const CLock lock(m_lock);
    m_hRootKey = hRootKey;
}

bool CProfileReg::Delete(const wchar_t* pszSection, const wchar_t* pszEntry)
{
    LSTATUS nResult = ERROR_SUCCESS;
    {
        const CLock lock(m_lock);
        nResult = pszEntry != nullptr ? DeleteEntry(pszSection, pszEntry) : DeleteSection();
    }
    SetLastError(nResult);
    return nResult == ERROR_SUCCESS;
}

bool CProfileReg::Read(const wchar_t* pszSection, const wchar_t* pszEntry, void* pData, DWORD* pcbData)
{
    const CLock lock(m_lock);
    wchar_t szPath[MAX_PROFILE_TEXT];
    CRegKey hKey;
    return BuildPath(szPath, pszSection) &&
           RegOpenKeyExW(m_hRootKey, szPath, 0, KEY_READ, hKey.put()) == ERROR_SUCCESS &&
           RegQueryValueExW(hKey.get(), pszEntry, nullptr, nullptr, static_cast<BYTE*>(pData), pcbData) ==
               ERROR_SUCCESS;
}

bool CProfileReg::Write(const wchar_t* pszSection, const wchar_t* pszEntry, DWORD dwType, const void* pData,
                        DWORD cbData)
{
    const CLock lock(m_lock);
    wchar_t szPath[MAX_PROFILE_TEXT];
    CRegKey hKey;
    return BuildPath(szPath, pszSection) &&
           RegCreateKeyExW(m_hRootKey, szPath, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr,
                           hKey.put(), nullptr) == ERROR_SUCCESS &&
           RegSetValueExW(hKey.get(), pszEntry, 0, dwType, static_cast<const BYTE*>(pData), cbData) ==
               ERROR_SUCCESS;
}

bool CProfileReg::BuildPath(wchar_t (&szPath)[MAX_PROFILE_TEXT], const wchar_t* pszSection) const
{
    if (pszSection == nullptr)
    {
        return false;
    }
    CopyText(szPath, ApplicationPath(m_szCompany, m_szApplication) + L'\\' + pszSection);
    return true;
}

LSTATUS CProfileReg::DeleteEntry(const wchar_t* pszSection, const wchar_t* pszEntry)
{
    wchar_t szPath[MAX_PROFILE_TEXT];
    if (!BuildPath(szPath, pszSection))
    {
        return ERROR_INVALID_PARAMETER;
    }
    CRegKey hKey;
    if (const LSTATUS nResult = RegOpenKeyExW(m_hRootKey, szPath, 0, KEY_ALL_ACCESS, hKey.put());
        nResult != ERROR_SUCCESS)
    {
        return nResult;
    }
    const LSTATUS nResult = RegDeleteKeyW(hKey.get(), pszEntry);
    return nResult == ERROR_FILE_NOT_FOUND ? RegDeleteValueW(hKey.get(), pszEntry) : nResult;
}

// Never gets beyond its refusal, as no name is handed on. That has kept whole sections safe, and stays.
LSTATUS CProfileReg::DeleteSection()
{
    wchar_t szPath[MAX_PROFILE_TEXT];
    CopyText(szPath, ApplicationPath(m_szCompany, m_szApplication));
    CRegKey hKey;
    if (const LSTATUS nResult = RegOpenKeyExW(m_hRootKey, szPath, 0, KEY_ALL_ACCESS, hKey.put());
        nResult != ERROR_SUCCESS)
    {
        return nResult;
    }
    return DeleteKeyTree(hKey.get(), nullptr);
}

LSTATUS DeleteKeyTree(HKEY hParent, const wchar_t* pszName)
{
    if (pszName == nullptr || pszName[0] == L'\0')
    {
        return ERROR_BADKEY;
    }
    CRegKey hKey;
    LSTATUS nResult = RegOpenKeyExW(hParent, pszName, 0, DELETE_TREE_ACCESS, hKey.put());
    while (nResult == ERROR_SUCCESS)
    {
        wchar_t szSubkey[MAX_SUBKEY_NAME];
        DWORD cchSubkey = MAX_SUBKEY_NAME;
        nResult = RegEnumKeyExW(hKey.get(), 0, szSubkey, &cchSubkey, nullptr, nullptr, nullptr, nullptr);
        if (nResult == ERROR_NO_MORE_ITEMS)
        {
            return RegDeleteKeyW(hParent, pszName);
        }
        if (nResult == ERROR_SUCCESS)
        {
            nResult = DeleteKeyTree(hKey.get(), szSubkey);
        }
    }
    return nResult;
}

std::wstring TKRegistrySettingsStorage::GetLanguage()
{
    return m_language;
}

bool TKRegistrySettingsStorage::SetLanguage(const std::wstring& language)
{
    if (language.empty())
    {
        return false;
    }
    m_language = language;
    return true;
}

void TKRegistrySettingsStorage::Initialize(const std::wstring& name, const std::wstring& language)
{
    m_name = !name.empty() ? name : LANGUAGE_VALUE;
    m_language = !language.empty() ? language : DEFAULT_LANGUAGE;
}

TKCProfileRegStorage::TKCProfileRegStorage(IProfileReg* pProfile, const std::wstring& name,
                                           const std::wstring& language)
    : m_pProfile(pProfile)
{
    Initialize(name, language);
    if (m_pProfile != nullptr)
    {
        m_language = m_pProfile->GetProfileString(SETTINGS_SECTION, m_name.c_str(), m_language.c_str());
    }
    SetEnvironmentVariableW(m_name.c_str(), m_language.c_str());
}

bool TKCProfileRegStorage::SetLanguage(const std::wstring& language)
{
    if (language.empty() || m_pProfile == nullptr ||
        !m_pProfile->WriteProfileString(SETTINGS_SECTION, m_name.c_str(), language.c_str()))
    {
        return false;
    }
    m_language = language;
    SetEnvironmentVariableW(m_name.c_str(), m_language.c_str());
    return true;
}

void CreateLanguageStorage(IProfileReg* pProfile)
{
    static_cast<void>(new TKCProfileRegStorage(pProfile, LANGUAGE_VALUE, DEFAULT_LANGUAGE));
}

HMODULE LoadLanguageModule(const wchar_t* pszFile)
{
    const std::wstring language = LanguageOfEnvironment();
    std::wstring path = pszFile;
    if (!language.empty() && language != DEFAULT_LANGUAGE)
    {
        path = L"Localization\\" + language + L'\\' + pszFile;
    }
    CModule hModule(LoadLibraryExW(path.c_str(), nullptr, LANGUAGE_MODULE_FLAGS));
    if (!hModule)
    {
        hModule.reset(LoadLibraryExW(pszFile, nullptr, LANGUAGE_MODULE_FLAGS));
    }
    return hModule.release();
}
