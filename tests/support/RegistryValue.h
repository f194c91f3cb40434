#pragma once

#include <string>
#include <vector>

#include <winsock2.h>
#include <windows.h>

/// Sets one registry value, or removes it, for as long as the object lives, and puts back what was there
/// before. The key is made when it is missing and stays.
class RegistryValue
{
  public:
    /// Removes the value.
    RegistryValue(HKEY hRoot, const wchar_t* pszKey, const wchar_t* pszValue);
    RegistryValue(HKEY hRoot, const wchar_t* pszKey, const wchar_t* pszValue, DWORD dwData);
    RegistryValue(HKEY hRoot, const wchar_t* pszKey, const wchar_t* pszValue, const std::wstring& text);
    RegistryValue(HKEY hRoot, const wchar_t* pszKey, const wchar_t* pszValue, DWORD dwType,
                  const std::vector<BYTE>& data);
    ~RegistryValue();
    RegistryValue(const RegistryValue&) = delete;
    RegistryValue& operator=(const RegistryValue&) = delete;

  private:
    void Keep();
    void Set(DWORD dwType, const void* pData, size_t nBytes);

    HKEY m_hKey = nullptr;
    std::wstring m_value;
    bool m_bExisted = false;
    DWORD m_dwType = REG_NONE;
    std::vector<BYTE> m_data;
};
