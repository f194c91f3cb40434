#pragma once

#include <winsock2.h>
#include <windows.h>

#include "tests/support/ImportHook.h"

#include <map>
#include <string>

/// Answers the executable's late-bound lookups for as long as the object lives: an entry that was set is
/// found where it was put, or not at all; all others are looked up as ever. One object at a time.
class LateBinding
{
  public:
    LateBinding();
    ~LateBinding();
    LateBinding(const LateBinding&) = delete;
    LateBinding& operator=(const LateBinding&) = delete;

    template <typename Function>
    void Set(const char* pszEntry, Function* pfnFake)
    {
        m_entries[pszEntry] = reinterpret_cast<void (*)()>(pfnFake);
    }
    void SetMissing(const char* pszEntry) { m_entries[pszEntry] = nullptr; }
    void SetMissing(WORD wOrdinal) { m_entries["#" + std::to_string(wOrdinal)] = nullptr; }

    /// Modules that can't be loaded.
    void SetMissingModule(const wchar_t* pszModule) { m_missingModule = pszModule; }

    /// Modules loaded and not yet freed through the executable's imports since the object was made.
    int OpenModules() const { return m_nOpenModules; }

  private:
    static FARPROC WINAPI FindEntry(HMODULE hModule, const char* pszName);
    static HMODULE WINAPI Load(const wchar_t* pszName, HANDLE hFile, DWORD dwFlags);
    static BOOL WINAPI Free(HMODULE hModule);

    std::map<std::string, void (*)()> m_entries;
    std::wstring m_missingModule;
    int m_nOpenModules = 0;
    ImportHook<decltype(FindEntry)> m_findHook;
    ImportHook<decltype(Load)> m_loadHook;
    ImportHook<decltype(Free)> m_freeHook;
};
