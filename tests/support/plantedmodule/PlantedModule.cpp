#include "tests/support/plantedmodule/PlantedTrace.h"

#include <iterator>

namespace
{
void NoteLoad(HINSTANCE hModule)
{
    const HANDLE hMapping = OpenFileMappingW(FILE_MAP_WRITE, FALSE, PLANTED_TRACE_NAME);
    if (hMapping == nullptr)
    {
        return;
    }
    if (auto* const pTrace =
            static_cast<PLANTED_TRACE*>(MapViewOfFile(hMapping, FILE_MAP_WRITE, 0, 0, sizeof(PLANTED_TRACE))))
    {
        const auto nLoad = static_cast<size_t>(InterlockedIncrement(&pTrace->nLoads)) - 1;
        if (nLoad < std::size(pTrace->aszPaths))
        {
            GetModuleFileNameW(hModule, pTrace->aszPaths[nLoad], MAX_PATH);
        }
        UnmapViewOfFile(pTrace);
    }
    CloseHandle(hMapping);
}
} // namespace

BOOL WINAPI DllMain(HINSTANCE hModule, DWORD dwReason, void*)
{
    if (dwReason == DLL_PROCESS_ATTACH)
    {
        NoteLoad(hModule);
    }
    return TRUE;
}
