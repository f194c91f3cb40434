#pragma once

#include "Include/UtilRegistry.h"
#include "tests/support/ImportHook.h"
#include "tests/unit/RegistrySandbox.h"

#include <optional>
#include <string>
#include <vector>

/// Where nothing is stored yet, for the machine and for the user, and what a settings dialog puts there.
class SettingsRegistry
{
  public:
    SettingsRegistry();

    static void Store(HKEY hRoot, const wchar_t* pszValue, DWORD dwNumber);
    static void Store(HKEY hRoot, const wchar_t* pszValue, const std::wstring& text);

    /// Nothing for a value that is missing or of another type.
    static std::optional<DWORD> Number(HKEY hRoot, const wchar_t* pszValue);
    static std::optional<std::wstring> Text(HKEY hRoot, const wchar_t* pszValue);

    /// How many values there are; 0 for no key.
    static DWORD CountValues(HKEY hRoot);
    static bool HasKey(HKEY hRoot);

  private:
    RegistrySandbox m_machine{HKEY_LOCAL_MACHINE};
    RegistrySandbox m_user{HKEY_CURRENT_USER};
};

/// Lets this program's own calls that would write to the registry fail with ERROR_ACCESS_DENIED, for as long
/// as the object lives. One at a time.
class DeniedRegistry
{
  public:
    DeniedRegistry();
    ~DeniedRegistry();
    DeniedRegistry(const DeniedRegistry&) = delete;
    DeniedRegistry& operator=(const DeniedRegistry&) = delete;

    std::optional<HKEY> m_createOf;       // a root whose keys can't be made or opened to write
    std::optional<std::wstring> m_value;  // the value that can't be set
    std::vector<std::wstring> m_attempts; // the values that were to be set, in order

  private:
    static DeniedRegistry* s_pThis;
    static LSTATUS WINAPI Open(HKEY hRoot, LPCWSTR pszKey, DWORD dwOptions, REGSAM access, PHKEY phKey);
    static LSTATUS WINAPI Create(HKEY hRoot, LPCWSTR pszKey, DWORD dwReserved, LPWSTR pszClass,
                                 DWORD dwOptions, REGSAM access, const LPSECURITY_ATTRIBUTES pAttributes,
                                 PHKEY phKey, LPDWORD pdwDisposition);
    static LSTATUS WINAPI Set(HKEY hKey, LPCWSTR pszValue, DWORD dwReserved, DWORD dwType, const BYTE* pData,
                              DWORD cbData);

    ImportHook<decltype(RegOpenKeyExW)> m_openHook{"advapi32.dll", "RegOpenKeyExW", &Open};
    ImportHook<decltype(RegCreateKeyExW)> m_createHook{"advapi32.dll", "RegCreateKeyExW", &Create};
    ImportHook<decltype(RegSetValueExW)> m_setHook{"advapi32.dll", "RegSetValueExW", &Set};
};
