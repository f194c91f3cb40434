#pragma once

#include <winsock2.h>
#include <windows.h>

/// Lets the windows that this thread makes have the controls that the module's manifest names, whatever the
/// program has that loaded the module, for as long as the object lives. On one thread; objects nest.
class CModuleContext
{
  public:
    /// The module must outlive the object.
    explicit CModuleContext(HMODULE hModule);
    ~CModuleContext();
    CModuleContext(const CModuleContext&) = delete;
    CModuleContext& operator=(const CModuleContext&) = delete;

    /// False when the module has no manifest: all is as the program has it.
    bool IsActive() const { return m_bActive; }

  private:
    HANDLE m_hContext;
    ULONG_PTR m_uCookie = 0;
    bool m_bActive;
};
