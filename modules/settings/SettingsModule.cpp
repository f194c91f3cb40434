#include "modules/settings/SettingsModule.h"

#include "modules/settings/SettingsDialog.h"

namespace
{
HMODULE g_hModule = nullptr;
bool g_bApplicationMode = false;
} // namespace

BOOL WINAPI DllMain(HINSTANCE hModule, DWORD dwReason, LPVOID)
{
    if (dwReason == DLL_PROCESS_ATTACH)
    {
        g_hModule = hModule;
        DisableThreadLibraryCalls(hModule);
    }
    return TRUE;
}

int TKDA_SettingsDialog(HWND hOwner) noexcept
{
    return RunSettingsDialog(g_hModule, hOwner, g_bApplicationMode) ? 1 : 0;
}

void TKDA_SetApplicationMode() noexcept
{
    g_bApplicationMode = true;
}
