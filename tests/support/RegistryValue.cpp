#include "tests/support/RegistryValue.h"

RegistryValue::RegistryValue(HKEY hRoot, const wchar_t* pszKey, const wchar_t* pszValue) : m_value(pszValue)
{
    RegCreateKeyExW(hRoot, pszKey, 0, nullptr, 0, KEY_QUERY_VALUE | KEY_SET_VALUE, nullptr, &m_hKey, nullptr);
    Keep();
    RegDeleteValueW(m_hKey, m_value.c_str());
}

RegistryValue::RegistryValue(HKEY hRoot, const wchar_t* pszKey, const wchar_t* pszValue, DWORD dwData)
    : RegistryValue(hRoot, pszKey, pszValue)
{
    Set(REG_DWORD, &dwData, sizeof(dwData));
}

RegistryValue::RegistryValue(HKEY hRoot, const wchar_t* pszKey, const wchar_t* pszValue,
                             const std::wstring& text)
    : RegistryValue(hRoot, pszKey, pszValue)
{
    Set(REG_SZ, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
}

RegistryValue::RegistryValue(HKEY hRoot, const wchar_t* pszKey, const wchar_t* pszValue, DWORD dwType,
                             const std::vector<BYTE>& data)
    : RegistryValue(hRoot, pszKey, pszValue)
{
    Set(dwType, data.data(), data.size());
}

RegistryValue::~RegistryValue()
{
    if (m_bExisted)
    {
        Set(m_dwType, m_data.data(), m_data.size());
    }
    else
    {
        RegDeleteValueW(m_hKey, m_value.c_str());
    }
    RegCloseKey(m_hKey);
}

void RegistryValue::Keep()
{
    DWORD dwBytes = 0;
    if (RegQueryValueExW(m_hKey, m_value.c_str(), nullptr, &m_dwType, nullptr, &dwBytes) != ERROR_SUCCESS)
    {
        return;
    }
    m_bExisted = true;
    m_data.resize(dwBytes);
    RegQueryValueExW(m_hKey, m_value.c_str(), nullptr, &m_dwType, m_data.data(), &dwBytes);
}

void RegistryValue::Set(DWORD dwType, const void* pData, size_t nBytes)
{
    RegSetValueExW(m_hKey, m_value.c_str(), 0, dwType, static_cast<const BYTE*>(pData),
                   static_cast<DWORD>(nBytes));
}
