#pragma once

#include <winsock2.h>
#include <windows.h>

#include "tests/support/ImportHook.h"

#include <functional>
#include <optional>
#include <vector>

/// What a registry value holds.
struct PLAYED_VALUE
{
    DWORD dwType = REG_NONE;
    std::vector<BYTE> data;
};

/// A registry in which every key is there and each question for a value is answered by a function, for as
/// long as the object lives; what is stored is only looked at. One object at a time.
class CPlayedRegistry
{
  public:
    /// Nothing: there is no such value. A question for the size and one for the data are two questions.
    using ANSWER = std::function<std::optional<PLAYED_VALUE>(const wchar_t* pszName)>;

    explicit CPlayedRegistry(ANSWER answer);
    ~CPlayedRegistry();
    CPlayedRegistry(const CPlayedRegistry&) = delete;
    CPlayedRegistry& operator=(const CPlayedRegistry&) = delete;

  private:
    static CPlayedRegistry* s_pThis;
    static LSTATUS WINAPI Open(HKEY hKey, LPCWSTR pszName, DWORD dwOptions, REGSAM access, PHKEY phKey);
    static LSTATUS WINAPI Create(HKEY hKey, LPCWSTR pszName, DWORD dwReserved, LPWSTR pszClass,
                                 DWORD dwOptions, REGSAM access, LPSECURITY_ATTRIBUTES pSecurity, PHKEY phKey,
                                 LPDWORD pdwDisposition);
    static LSTATUS WINAPI Close(HKEY hKey);
    static LSTATUS WINAPI Query(HKEY hKey, LPCWSTR pszName, LPDWORD pReserved, LPDWORD pdwType, LPBYTE pData,
                                LPDWORD pcbData);
    static LSTATUS WINAPI Set(HKEY hKey, LPCWSTR pszName, DWORD dwReserved, DWORD dwType, const BYTE* pData,
                              DWORD cbData);

    ANSWER m_answer;
    ImportHook<decltype(Open)> m_open{"advapi32.dll", "RegOpenKeyExW", &Open};
    ImportHook<decltype(Create)> m_create{"advapi32.dll", "RegCreateKeyExW", &Create};
    ImportHook<decltype(Close)> m_close{"advapi32.dll", "RegCloseKey", &Close};
    ImportHook<decltype(Query)> m_query{"advapi32.dll", "RegQueryValueExW", &Query};
    ImportHook<decltype(Set)> m_set{"advapi32.dll", "RegSetValueExW", &Set};
};
