#pragma once

#include <winsock2.h>
#include <windows.h>

#include "Include/Handles.h"
#include "modules/settings/SettingsModule.h"

/// The staged settings module, as the agent has it: loaded by name, with its entries, and freed with the
/// object. Ends the program when the module or an entry is missing.
class LoadedSettingsModule
{
  public:
    LoadedSettingsModule();

    HMODULE Handle() const { return m_hModule.get(); }
    int Show(HWND hOwner) const { return m_pfnDialog(hOwner); }
    void SetApplicationMode() const { m_pfnApplicationMode(); }

  private:
    using DIALOG_FUNCTION = decltype(&TKDA_SettingsDialog);
    using APPLICATION_MODE_FUNCTION = decltype(&TKDA_SetApplicationMode);

    CModule m_hModule;
    DIALOG_FUNCTION m_pfnDialog;
    APPLICATION_MODE_FUNCTION m_pfnApplicationMode;
};
