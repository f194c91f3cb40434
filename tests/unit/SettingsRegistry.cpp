#include "tests/unit/SettingsRegistry.h"

#include "Include/Handles.h"

#include <gtest/gtest.h>

namespace
{
constexpr DWORD MAX_TEXT = 256; // characters, terminator included
} // namespace

// Here and not in the class, so that constant objects may be made of it.
SettingsRegistry::SettingsRegistry() = default;

void SettingsRegistry::Store(HKEY hRoot, const wchar_t* pszValue, DWORD dwNumber)
{
    ASSERT_EQ(RegSetKeyValueW(hRoot, SERVICE_SETTINGS_KEY, pszValue, REG_DWORD, &dwNumber, sizeof(dwNumber)),
              ERROR_SUCCESS);
}

void SettingsRegistry::Store(HKEY hRoot, const wchar_t* pszValue, const std::wstring& text)
{
    ASSERT_EQ(RegSetKeyValueW(hRoot, SERVICE_SETTINGS_KEY, pszValue, REG_SZ, text.c_str(),
                              static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t))),
              ERROR_SUCCESS);
}

std::optional<DWORD> SettingsRegistry::Number(HKEY hRoot, const wchar_t* pszValue)
{
    DWORD dwNumber = 0;
    DWORD cbNumber = sizeof(dwNumber);
    const LSTATUS nResult =
        RegGetValueW(hRoot, SERVICE_SETTINGS_KEY, pszValue, RRF_RT_REG_DWORD, nullptr, &dwNumber, &cbNumber);
    return nResult == ERROR_SUCCESS ? std::optional(dwNumber) : std::nullopt;
}

std::optional<std::wstring> SettingsRegistry::Text(HKEY hRoot, const wchar_t* pszValue)
{
    wchar_t szText[MAX_TEXT] = {};
    DWORD cbText = sizeof(szText);
    const LSTATUS nResult =
        RegGetValueW(hRoot, SERVICE_SETTINGS_KEY, pszValue, RRF_RT_REG_SZ, nullptr, szText, &cbText);
    return nResult == ERROR_SUCCESS ? std::optional<std::wstring>(szText) : std::nullopt;
}

DWORD SettingsRegistry::CountValues(HKEY hRoot)
{
    DWORD dwValues = 0;
    CRegKey hKey;
    if (RegOpenKeyExW(hRoot, SERVICE_SETTINGS_KEY, 0, KEY_QUERY_VALUE, hKey.put()) == ERROR_SUCCESS)
    {
        RegQueryInfoKeyW(hKey.get(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &dwValues, nullptr,
                         nullptr, nullptr, nullptr);
    }
    return dwValues;
}

bool SettingsRegistry::HasKey(HKEY hRoot)
{
    CRegKey hKey;
    return RegOpenKeyExW(hRoot, L"SOFTWARE", 0, KEY_QUERY_VALUE, hKey.put()) == ERROR_SUCCESS;
}

DeniedRegistry* DeniedRegistry::s_pThis = nullptr;

DeniedRegistry::DeniedRegistry()
{
    s_pThis = this;
}

DeniedRegistry::~DeniedRegistry()
{
    s_pThis = nullptr;
}

LSTATUS WINAPI DeniedRegistry::Open(HKEY hRoot, LPCWSTR pszKey, DWORD dwOptions, REGSAM access, PHKEY phKey)
{
    return s_pThis->m_createOf == hRoot && (access & KEY_SET_VALUE) != 0
               ? ERROR_ACCESS_DENIED
               : s_pThis->m_openHook.Original()(hRoot, pszKey, dwOptions, access, phKey);
}

LSTATUS WINAPI DeniedRegistry::Create(HKEY hRoot, LPCWSTR pszKey, DWORD dwReserved, LPWSTR pszClass,
                                      DWORD dwOptions, REGSAM access, const LPSECURITY_ATTRIBUTES pAttributes,
                                      PHKEY phKey, LPDWORD pdwDisposition)
{
    return s_pThis->m_createOf == hRoot
               ? ERROR_ACCESS_DENIED
               : s_pThis->m_createHook.Original()(hRoot, pszKey, dwReserved, pszClass, dwOptions, access,
                                                  pAttributes, phKey, pdwDisposition);
}

LSTATUS WINAPI DeniedRegistry::Set(HKEY hKey, LPCWSTR pszValue, DWORD dwReserved, DWORD dwType,
                                   const BYTE* pData, DWORD cbData)
{
    s_pThis->m_attempts.emplace_back(pszValue);
    return s_pThis->m_value == pszValue
               ? ERROR_ACCESS_DENIED
               : s_pThis->m_setHook.Original()(hKey, pszValue, dwReserved, dwType, pData, cbData);
}
