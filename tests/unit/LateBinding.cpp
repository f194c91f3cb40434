#include "tests/unit/LateBinding.h"

#include <cstdint>

namespace
{
LateBinding* g_pLateBinding;

std::string EntryKey(const char* pszName)
{
    const auto number = reinterpret_cast<uintptr_t>(pszName);
    return IS_INTRESOURCE(pszName) ? "#" + std::to_string(number) : pszName;
}
} // namespace

LateBinding::LateBinding()
    : m_findHook("kernel32.dll", "GetProcAddress", &FindEntry),
      m_loadHook("kernel32.dll", "LoadLibraryExW", &Load), m_freeHook("kernel32.dll", "FreeLibrary", &Free)
{
    g_pLateBinding = this;
}

LateBinding::~LateBinding()
{
    g_pLateBinding = nullptr;
}

FARPROC LateBinding::FindEntry(HMODULE hModule, const char* pszName)
{
    const auto entry = g_pLateBinding->m_entries.find(EntryKey(pszName));
    if (entry == g_pLateBinding->m_entries.end())
    {
        return g_pLateBinding->m_findHook.Original()(hModule, pszName);
    }
    return reinterpret_cast<FARPROC>(entry->second);
}

HMODULE LateBinding::Load(const wchar_t* pszName, HANDLE hFile, DWORD dwFlags)
{
    if (g_pLateBinding->m_missingModule == pszName)
    {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    const HMODULE hModule = g_pLateBinding->m_loadHook.Original()(pszName, hFile, dwFlags);
    g_pLateBinding->m_nOpenModules += hModule != nullptr ? 1 : 0;
    return hModule;
}

BOOL LateBinding::Free(HMODULE hModule)
{
    --g_pLateBinding->m_nOpenModules;
    return g_pLateBinding->m_freeHook.Original()(hModule);
}
