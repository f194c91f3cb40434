#pragma once

#include <winsock2.h>
#include <windows.h>

#include "Include/Handles.h"
#include "Include/UtilFile.h"

/// The entry of a loaded module as a typed pointer, or null with the last error. The name may be
/// MAKEINTRESOURCEA of a number. Any thread.
template <typename Function>
Function FindModuleEntry(HMODULE hModule, const char* pszName) noexcept
{
    // The way over a pointer to void() is the cast between function types that compilers let pass unwarned.
    return reinterpret_cast<Function>(reinterpret_cast<void (*)()>(GetProcAddress(hModule, pszName)));
}

/// A system module that is loaded by short name for one scope, for calls that not every Windows has. The
/// module is freed at the scope's end, so no pointer from Find may outlive the object. Any thread.
class CSystemModule
{
  public:
    explicit CSystemModule(const wchar_t* pszModule) noexcept
        : m_hModule(TKLoadSystemLibrary(pszModule, nullptr, 0))
    {
    }

    explicit operator bool() const noexcept { return static_cast<bool>(m_hModule); }

    /// Null, with the last error, when the module or its entry is missing.
    template <typename Function>
    Function Find(const char* pszName) const noexcept
    {
        return m_hModule ? FindModuleEntry<Function>(m_hModule.get(), pszName) : nullptr;
    }

  private:
    CModule m_hModule;
};

/// One late-bound call, to be made only where the object is true:
/// `const CSystemCall<decltype(&IsUserAnAdmin)> call(L"shell32.dll", "IsUserAnAdmin"); if (call) call();`
/// The last error is the function's own, or tells why there is none. Any thread that the function may run on.
template <typename Function>
class CSystemCall
{
  public:
    CSystemCall(const wchar_t* pszModule, const char* pszName) noexcept
        : m_module(pszModule), m_pfn(m_module.Find<Function>(pszName))
    {
    }

    explicit operator bool() const noexcept { return m_pfn != nullptr; }

    template <typename... Arguments>
    auto operator()(Arguments... arguments) const
    {
        return m_pfn(arguments...);
    }

  private:
    CSystemModule m_module;
    Function m_pfn;
};
