#include "tests/support/settingsmodule/SettingsTrace.h"

// An entry that the module lacks is there and isn't exported.
#ifdef TEST_SETTINGS_WITHOUT_mode
#define MODE_ENTRY
#else
#define MODE_ENTRY __declspec(dllexport)
#endif
#ifdef TEST_SETTINGS_WITHOUT_dialog
#define DIALOG_ENTRY
#else
#define DIALOG_ENTRY __declspec(dllexport)
#endif

namespace
{
SETTINGS_TRACE g_unseen = {};
HANDLE g_hMapping;
SETTINGS_TRACE* g_pTrace = &g_unseen;

void OpenTrace()
{
    g_hMapping = OpenFileMappingW(FILE_MAP_WRITE, FALSE, SETTINGS_TRACE_NAME);
    void* const pView = g_hMapping != nullptr
                            ? MapViewOfFile(g_hMapping, FILE_MAP_WRITE, 0, 0, sizeof(SETTINGS_TRACE))
                            : nullptr;
    if (pView != nullptr)
    {
        g_pTrace = static_cast<SETTINGS_TRACE*>(pView);
    }
}

void CloseTrace()
{
    if (g_pTrace != &g_unseen)
    {
        UnmapViewOfFile(g_pTrace);
    }
    if (g_hMapping != nullptr)
    {
        CloseHandle(g_hMapping);
    }
}
} // namespace

BOOL WINAPI DllMain(HINSTANCE, DWORD dwReason, void*)
{
    if (dwReason == DLL_PROCESS_ATTACH)
    {
        OpenTrace();
        InterlockedIncrement(&g_pTrace->nLoads);
    }
    else if (dwReason == DLL_PROCESS_DETACH)
    {
        InterlockedIncrement(&g_pTrace->nFreed);
        CloseTrace();
    }
    return TRUE;
}

extern "C" MODE_ENTRY void __cdecl TKDA_SetApplicationMode()
{
    InterlockedIncrement(&g_pTrace->nModes);
}

extern "C" DIALOG_ENTRY int __cdecl TKDA_SettingsDialog(HWND hOwner)
{
    g_pTrace->hOwner = hOwner;
    g_pTrace->nModesBeforeDialog = g_pTrace->nModes;
    GetEnvironmentVariableW(L"LangUI", g_pTrace->szLanguage, MAX_SETTINGS_LANGUAGE);
    InterlockedIncrement(&g_pTrace->nDialogs);
    return g_pTrace->nResult;
}
