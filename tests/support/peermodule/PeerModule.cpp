#include "tests/support/peermodule/PeerTrace.h"

#include <ws2tcpip.h>

#include <p2p.h>

#include <cstdio>

namespace
{
HANDLE g_hMapping;
PEER_TRACE* g_pTrace;

bool OpenTrace()
{
    g_hMapping = OpenFileMappingW(FILE_MAP_WRITE, FALSE, PEER_TRACE_NAME);
    g_pTrace =
        g_hMapping != nullptr
            ? static_cast<PEER_TRACE*>(MapViewOfFile(g_hMapping, FILE_MAP_WRITE, 0, 0, sizeof(PEER_TRACE)))
            : nullptr;
    return g_pTrace != nullptr;
}

void CloseTrace()
{
    UnmapViewOfFile(g_pTrace);
    CloseHandle(g_hMapping);
}

void NoteCall(const char* pszFunction, int nNumber)
{
    if (g_pTrace->nCalls < MAX_PEER_CALLS)
    {
        std::snprintf(g_pTrace->aszCalls[g_pTrace->nCalls], MAX_PEER_CALL_TEXT, "%s %d", pszFunction,
                      nNumber);
        ++g_pTrace->nCalls;
    }
}

void NoteRegistration(const PEER_APPLICATION_REGISTRATION_INFO& info)
{
    g_pTrace->idApplication = info.application.id;
    g_pTrace->cbData = info.application.data.cbData;
    g_pTrace->bHasData = info.application.data.pbData != nullptr;
    g_pTrace->bHasArguments = info.pwzApplicationArguments != nullptr;
    g_pTrace->dwScope = info.dwPublicationScope;
    lstrcpynW(g_pTrace->szDescription, info.application.pwzDescription, MAX_PATH);
    lstrcpynW(g_pTrace->szApplication, info.pwzApplicationToLaunch, MAX_PATH);
}
} // namespace

BOOL WINAPI DllMain(HINSTANCE, DWORD dwReason, void*)
{
    if (dwReason == DLL_PROCESS_ATTACH)
    {
        if (!OpenTrace())
        {
            return FALSE;
        }
        ++g_pTrace->nLoads;
        ++g_pTrace->nLoaded;
    }
    else if (dwReason == DLL_PROCESS_DETACH && g_pTrace != nullptr)
    {
        --g_pTrace->nLoaded;
        CloseTrace();
    }
    return TRUE;
}

extern "C" HRESULT WINAPI PeerCollabStartup(WORD wVersion)
{
    NoteCall("startup", wVersion);
    return g_pTrace->hrStartup;
}

extern "C" HRESULT WINAPI PeerCollabShutdown()
{
    NoteCall("shutdown", 0);
    return S_OK;
}

extern "C" HRESULT WINAPI PeerCollabRegisterApplication(PCPEER_APPLICATION_REGISTRATION_INFO pInfo,
                                                        PEER_APPLICATION_REGISTRATION_TYPE type)
{
    NoteCall("register", type);
    NoteRegistration(*pInfo);
    SetLastError(ERROR_BUSY); // a call that succeeds may leave any
    return g_pTrace->nRegistered++ == 0 ? g_pTrace->hrFirstRegister : g_pTrace->hrNextRegister;
}

extern "C" HRESULT WINAPI PeerCollabUnregisterApplication(const GUID* pApplicationId,
                                                          PEER_APPLICATION_REGISTRATION_TYPE type)
{
    NoteCall("unregister", type);
    g_pTrace->idUnregistered = *pApplicationId;
    return g_pTrace->hrUnregister;
}
